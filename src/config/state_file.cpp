#include "config/state_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace {

constexpr std::size_t dwMaxPath = 128;

i32 WriteWhole(const char* pszPath, const char* pszText);
i32 SyncFolder(const char* pszPath);

}  // namespace

i32 StateFile_Replace(const char* pszPath, const char* pszText) {
  char szNew[dwMaxPath];
  if (std::snprintf(szNew, sizeof szNew, "%s.tmp", pszPath) >= static_cast<int>(sizeof szNew)) return -1;
  if (WriteWhole(szNew, pszText) != 0 || std::rename(szNew, pszPath) != 0) {
    unlink(szNew);
    return -1;
  }
  // Without this a cut could keep what is done to other names behind it, and lose the rename.
  return SyncFolder(pszPath);
}

namespace {

i32 WriteWhole(const char* pszPath, const char* pszText) {
  FILE* pFile = std::fopen(pszPath, "w");
  if (pFile == nullptr) return -1;
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
