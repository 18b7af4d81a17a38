// The directories that lives run in: makes them, brings them back to what they were, removes them.
#include <fcntl.h>
#include <ftw.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>

#include "life/life.h"

namespace {

// Content of each file by its path below ROOT, also that of the world file.
using TRootCopy = std::map<std::string, std::string>;

constexpr const char* szWorldPath = "/sim/world";

std::map<std::string, TRootCopy>& Copies() {
  static std::map<std::string, TRootCopy> mapCopies;
  return mapCopies;
}

// What one walk of the tree works on.  It is global because nftw passes no argument to its callbacks.
struct TWalk {
  size_t dwRootLength = 0;
  TRootCopy* ptCopy = nullptr;
};
TWalk g_tWalk;

bool ReadFile(const char* pszPath, std::string& sContent) {
  sContent.clear();
  const i32 fd = open(pszPath, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char acPart[16384];
  ssize_t iRead = 0;
  while ((iRead = read(fd, acPart, sizeof acPart)) > 0) sContent.append(acPart, static_cast<size_t>(iRead));
  close(fd);
  return iRead == 0;
}

bool WriteFile(const std::string& sPath, const std::string& sContent) {
  unlink(sPath.c_str());
  const i32 fd = open(sPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  const ssize_t iWritten = write(fd, sContent.data(), sContent.size());
  close(fd);
  return iWritten == static_cast<ssize_t>(sContent.size());
}

int KeepOne(const char* pszPath, const struct stat*, int iType, struct FTW*) {
  if (iType != FTW_F) return 0;
  std::string& sContent = (*g_tWalk.ptCopy)[pszPath + g_tWalk.dwRootLength];
  return ReadFile(pszPath, sContent) ? 0 : -1;
}

int RemoveIfNew(const char* pszPath, const struct stat*, int iType, struct FTW*) {
  if (iType == FTW_DP || g_tWalk.ptCopy->contains(pszPath + g_tWalk.dwRootLength)) return 0;
  return unlink(pszPath);
}

int RemoveOne(const char* pszPath, const struct stat*, int, struct FTW*) {
  return remove(pszPath);
}

}  // namespace

std::string Life_MakeRoot(const char* pszModel, u64 qwSeed) {
  char szRoot[] = "/dev/shm/simcamera-XXXXXX";
  if (mkdtemp(szRoot) == nullptr || World_LayOut(szRoot, pszModel, qwSeed) != 0) return "";
  TRootCopy tCopy;
  g_tWalk = {.dwRootLength = strlen(szRoot), .ptCopy = &tCopy};
  if (nftw(szRoot, &KeepOne, 8, FTW_PHYS) != 0) return "";
  Copies()[szRoot] = std::move(tCopy);
  return szRoot;
}

i32 Life_ResetRoot(const std::string& sRoot) {
  const auto it = Copies().find(sRoot);
  if (it == Copies().end()) return -1;
  g_tWalk = {.dwRootLength = sRoot.size(), .ptCopy = &it->second};
  if (nftw(sRoot.c_str(), &RemoveIfNew, 8, FTW_DEPTH | FTW_PHYS) != 0) return -1;
  std::string sNow;
  for (const auto& [sBelow, sContent] : it->second) {
    const std::string sPath = sRoot + sBelow;
    if (sBelow == szWorldPath) continue;
    if ((!ReadFile(sPath.c_str(), sNow) || sNow != sContent) && !WriteFile(sPath, sContent)) return -1;
  }
  // The world file is overwritten in place: a test program may have it mapped.
  const std::string& sWorld = it->second.at(szWorldPath);
  TWorld* ptWorld = World_Map(sRoot.c_str());
  if (ptWorld == nullptr) return -1;
  memcpy(static_cast<void*>(ptWorld), sWorld.data(), sizeof *ptWorld);
  World_Unmap(ptWorld);
  return 0;
}

void Life_RemoveRoot(const std::string& sRoot) {
  Copies().erase(sRoot);
  if (!sRoot.empty()) nftw(sRoot.c_str(), &RemoveOne, 8, FTW_DEPTH | FTW_PHYS);
}
