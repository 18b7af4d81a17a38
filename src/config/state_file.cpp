#include "config/state_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/regular_file.h"

namespace {

constexpr std::size_t dwMaxPath = 256;
constexpr i32 iMaxLinks = 8;

struct TPath {
  char szText[dwMaxPath];
};

bool FollowLinks(TPath* ptPath);
i32 WriteWhole(const char* pszPath, const char* pszLike, const char* pszText);
i32 SyncFolder(const char* pszPath);

}  // namespace

i32 StateFile_Replace(const char* pszPath, const char* pszText) {
  TPath tPath;
  if (std::snprintf(tPath.szText, dwMaxPath, "%s", pszPath) >= static_cast<int>(dwMaxPath)) return -1;
  if (!FollowLinks(&tPath)) return -1;
  char szNew[dwMaxPath];
  if (std::snprintf(szNew, sizeof szNew, "%s.tmp", tPath.szText) >= static_cast<int>(sizeof szNew)) return -1;
  if (WriteWhole(szNew, tPath.szText, pszText) != 0 || std::rename(szNew, tPath.szText) != 0) {
    unlink(szNew);
    return -1;
  }
  // Without the sync of the folder, a power cut could lose this rename and keep later changes.
  return SyncFolder(tPath.szText);
}

namespace {

// Follows symbolic links to the real path, since a rename over a link would leave its target old.  Returns false if the
// links are too many or a path is too long.
bool FollowLinks(TPath* ptPath) {
  for (i32 i = 0; i < iMaxLinks; i++) {
    char szTarget[dwMaxPath];
    const ssize_t nTarget = readlink(ptPath->szText, szTarget, sizeof szTarget - 1);
    if (nTarget < 0) return errno == EINVAL || errno == ENOENT;  // no link, or no file yet
    szTarget[nTarget] = '\0';
    const char* pszSlash = std::strrchr(ptPath->szText, '/');
    const bool bRelative = szTarget[0] != '/' && pszSlash != nullptr;  // to the folder of the link
    const int iFolder = bRelative ? static_cast<int>(pszSlash - ptPath->szText) + 1 : 0;
    TPath tNext;
    const int iLength = std::snprintf(tNext.szText, dwMaxPath, "%.*s%s", iFolder, ptPath->szText, szTarget);
    if (iLength >= static_cast<int>(dwMaxPath)) return false;
    *ptPath = tNext;
  }
  return false;
}

i32 WriteWhole(const char* pszPath, const char* pszLike, const char* pszText) {
  FILE* pFile = RegularFile_Write(pszPath);
  if (pFile == nullptr) return -1;
  RegularFile_TakeMode(pszPath, pszLike);
  bool bWhole = std::fputs(pszText, pFile) >= 0;
  bWhole = std::fflush(pFile) == 0 && bWhole;
  bWhole = fsync(fileno(pFile)) == 0 && bWhole;
  bWhole = std::fclose(pFile) == 0 && bWhole;
  return bWhole ? 0 : -1;
}

i32 SyncFolder(const char* pszPath) {
  char szFolder[dwMaxPath];
  std::snprintf(szFolder, sizeof szFolder, "%s", pszPath);
  char* pszSlash = std::strrchr(szFolder, '/');
  if (pszSlash == nullptr) return -1;
  *pszSlash = '\0';
  const i32 fd = open(szFolder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return -1;
  const i32 iResult = fsync(fd);
  close(fd);
  return iResult == 0 ? 0 : -1;
}

}  // namespace
