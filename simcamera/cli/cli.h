// The command line's own ground: refusals, the opened camera and the commands.  A command throws TRefusal where it
// cannot go on; main prints it as one line and leaves with its status.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lens/lens_model.h"
#include "world/world.h"

constexpr i32 iExitFailed = 1;
constexpr i32 iExitUsage = 2;

struct TRefusal {
  i32 iExit;
  std::string sText;
};

[[noreturn]] inline void RefuseUsage(const std::string& sText) {
  throw TRefusal{iExitUsage, sText};
}
[[noreturn]] inline void Fail(const std::string& sText) {
  throw TRefusal{iExitFailed, sText};
}

// A descriptor that closes itself; -1 none.
class TDescriptor {
 public:
  explicit TDescriptor(i32 fd = -1) : m_fd(fd) {}
  TDescriptor(TDescriptor&& tOther) noexcept : m_fd(tOther.m_fd) { tOther.m_fd = -1; }
  TDescriptor& operator=(TDescriptor&&) = delete;
  ~TDescriptor();
  i32 Get() const { return m_fd; }

 private:
  i32 m_fd;
};

struct TWorldUnmap {
  void operator()(TWorld* ptWorld) const { World_Unmap(ptWorld); }
};

// A camera that is laid out.
struct TCamera {
  std::string sRoot;  // absolute
  std::unique_ptr<TWorld, TWorldUnmap> ptWorld;
  const TLensModel* ptModel;
};

// Holds the world's lock for its own lifetime.
class TWorldLock {
 public:
  explicit TWorldLock(TWorld* ptWorld) : m_ptWorld(ptWorld) { World_Lock(ptWorld); }
  TWorldLock(const TWorldLock&) = delete;
  ~TWorldLock() { World_Unlock(m_ptWorld); }

 private:
  TWorld* m_ptWorld;
};

using TArguments = std::vector<std::string>;

// Takes "--name value" out of the arguments.
std::optional<std::string> Arguments_TakeOption(TArguments& asArgs, const std::string& sName);
// Takes "--name" out of the arguments; true if it was there.
bool Arguments_TakeFlag(TArguments& asArgs, const std::string& sName);
// Refuses what is left over, or missing, before a command starts.
void Arguments_Expect(const TArguments& asArgs, size_t iLeast, size_t iMost, const std::string& sUsage);

// The whole text as a number between the bounds; refused with the name otherwise.
double Number_Parse(const std::string& sText, const std::string& sName, double dLeast, double dMost);
i64 Integer_Parse(const std::string& sText, const std::string& sName, i64 iLeast, i64 iMost);

TCamera Camera_Open(const std::string& sRoot);

// The descriptor of a directory below the root, so that a socket or FIFO in it has a short path: see Camera_ShortPath.
TDescriptor Camera_OpenDirectory(const std::string& sRoot, const char* pszBelow);
// A path of a few characters however deep the root lies, good while the descriptor is open.
std::string Camera_ShortPath(const TDescriptor& tDirectory, const char* pszName);

// True while a simcamera plays this camera.
bool Camera_IsRun(const std::string& sRoot);

// Adds a line to the transcript, for what is done to the camera from outside.
void Camera_Note(const TCamera& tCamera, const std::string& sText);

// Sleeps a time of the camera's own clock.
void Camera_Sleep(const TCamera& tCamera, u64 qwTime_us);

i32 Command_Run(TArguments asArgs);
i32 Command_Ask(TArguments asArgs);
i32 Command_Press(TArguments asArgs);
i32 Command_Wait(TArguments asArgs);
i32 Command_Show(TArguments asArgs);
i32 Command_Set(TArguments asArgs);
i32 Command_Fault(TArguments asArgs);
i32 Command_Transcript(TArguments asArgs);
