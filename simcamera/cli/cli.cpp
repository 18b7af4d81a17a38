#include "cli/cli.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <thread>

TScopedFd::~TScopedFd() {
  if (m_fd >= 0) close(m_fd);
}

TOpenCamera Camera_Open(const std::string& sRoot) {
  char szRoot[PATH_MAX];
  if (realpath(sRoot.c_str(), szRoot) == nullptr) Cli_Fail(sRoot + ": " + std::strerror(errno));
  TOpenCamera tCamera{szRoot, std::unique_ptr<TWorld, TWorldUnmap>(World_Map(szRoot)), nullptr};
  if (tCamera.ptWorld == nullptr) throw TRefusal{iExitFailed, ""};  // World_Map has said why
  tCamera.ptModel = &tCamera.ptWorld->tModel;
  return tCamera;
}

TScopedFd Camera_OpenDirectory(const std::string& sRoot, const char* pszBelow) {
  const std::string sPath = sRoot + "/" + pszBelow;
  const i32 fd = open(sPath.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) Cli_Fail(sPath + ": " + std::strerror(errno));
  return TScopedFd(fd);
}

std::string Camera_ShortPath(const TScopedFd& tDirectory, const char* pszName) {
  return "/proc/self/fd/" + std::to_string(tDirectory.Get()) + "/" + pszName;
}

bool Camera_IsRun(const std::string& sRoot) {
  const TScopedFd tFile(open((sRoot + "/sim/run.pid").c_str(), O_RDONLY | O_CLOEXEC));
  return tFile.Get() >= 0 && flock(tFile.Get(), LOCK_SH | LOCK_NB) != 0;
}

u64 Camera_Now_us(const TOpenCamera& tCamera) {
  const TWorldLock tLock(tCamera.ptWorld.get());
  return World_Now_us(tCamera.ptWorld.get());
}

void Camera_Note(const TOpenCamera& tCamera, const std::string& sText) {
  const TScopedFd tFile(open((tCamera.sRoot + "/sim/transcript").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  const double dNow_s = static_cast<double>(World_Now_us(tCamera.ptWorld.get())) / 1e6;
  dprintf(tFile.Get(), "%13.6f -     %s\n", dNow_s, sText.c_str());
}

void Camera_Sleep(const TOpenCamera& tCamera, u64 qwTime_us) {
  // The pace may change meanwhile.
  constexpr double dLeast_us = 200, dMost_us = 20'000;
  for (const u64 qwUntil_us = Camera_Now_us(tCamera) + qwTime_us; Camera_IsRun(tCamera.sRoot);) {
    const u64 qwNow_us = Camera_Now_us(tCamera);
    if (qwNow_us >= qwUntil_us) return;
    const double dSpeed = std::max(tCamera.ptWorld->tPace.dSpeed, 0.01);
    const double dPause_us = static_cast<double>(qwUntil_us - qwNow_us) / dSpeed;
    std::this_thread::sleep_for(std::chrono::duration<double, std::micro>(std::clamp(dPause_us, dLeast_us, dMost_us)));
  }
}
