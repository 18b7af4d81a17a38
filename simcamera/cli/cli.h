// What the commands of the command line share: refusals and the opened camera.  A command that cannot go on throws
// TRefusal: see refusal.h.
#pragma once

#include <refusal.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lens/lens_model.h"
#include "world/world.h"

// A descriptor that is closed with its scope; -1 none.
class TScopedFd {
 public:
  explicit TScopedFd(i32 fd = -1) : m_fd(fd) {}
  TScopedFd(TScopedFd&& tOther) noexcept : m_fd(tOther.m_fd) { tOther.m_fd = -1; }
  TScopedFd& operator=(TScopedFd&&) = delete;
  ~TScopedFd();
  i32 Get() const { return m_fd; }

 private:
  i32 m_fd;
};

struct TWorldUnmap {
  void operator()(TWorld* ptWorld) const { World_Unmap(ptWorld); }
};

// A laid-out camera whose world is mapped.
struct TOpenCamera {
  std::string sRoot;  // absolute
  std::unique_ptr<TWorld, TWorldUnmap> ptWorld;
  const TLensModel* ptModel;  // the world's
};

// Holds the world's lock for its scope.
class TWorldLock {
 public:
  explicit TWorldLock(TWorld* ptWorld) : m_ptWorld(ptWorld) { World_Lock(ptWorld); }
  TWorldLock(const TWorldLock&) = delete;
  ~TWorldLock() { World_Unlock(m_ptWorld); }

 private:
  TWorld* m_ptWorld;
};

TOpenCamera Camera_Open(const std::string& sRoot);

// Opens a directory below the root.  A socket or FIFO in it then has a short path: see Camera_ShortPath.
TScopedFd Camera_OpenDirectory(const std::string& sRoot, const char* pszBelow);
// A path of a few characters, however deep the root lies.  It is valid while tDirectory is open.
std::string Camera_ShortPath(const TScopedFd& tDirectory, const char* pszName);

// True while a simcamera runs this camera.
bool Camera_IsRun(const std::string& sRoot);

// Adds a line to the transcript about something that is done to the camera from outside.  The caller holds the lock.
void Camera_Note(const TOpenCamera& tCamera, const std::string& sText);

// Sleeps for a time of the camera's clock.
void Camera_Sleep(const TOpenCamera& tCamera, u64 qwTime_us);

// Camera time.
u64 Camera_Now_us(const TOpenCamera& tCamera);
