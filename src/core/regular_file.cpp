#include "core/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/types.h"

namespace {

constexpr mode_t wMostMode = 0644;
constexpr mode_t wAllModes = 07777;

FILE* ToStream(i32 fd, const char* szMode) {
  if (fd < 0) return nullptr;
  FILE* pFile = fdopen(fd, szMode);
  if (pFile == nullptr) close(fd);
  return pFile;
}

bool IsRegular(const char* pszPath, struct stat* ptStat) {
  return stat(pszPath, ptStat) == 0 && S_ISREG(ptStat->st_mode);
}

}  // namespace

FILE* RegularFile_Read(const char* pszPath) {
  const i32 fd = open(pszPath, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  struct stat tStat;
  if (fd < 0 || (fstat(fd, &tStat) == 0 && S_ISREG(tStat.st_mode))) return ToStream(fd, "r");
  close(fd);
  std::printf("[vernierlensd] : %s is no regular file.\n", pszPath);
  return nullptr;
}

FILE* RegularFile_Write(const char* pszPath) {
  return ToStream(open(pszPath, O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_CLOEXEC, wMostMode), "w");
}

void RegularFile_TakeMode(const char* pszPath, const char* pszLike) {
  struct stat tFile;
  struct stat tLike;
  if (!IsRegular(pszPath, &tFile)) return;
  if (!IsRegular(pszLike, &tLike)) tLike = tFile;
  const mode_t wMode = tLike.st_mode & wMostMode;
  if ((tFile.st_mode & wAllModes) != wMode) chmod(pszPath, wMode);
}
