// What the commands of the command line share: refusals, arguments, the opened camera.  A command that cannot go on
// throws TRefusal; main prints its text as one line and exits with its status.
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

[[noreturn]] inline void Cli_RefuseUsage(const std::string& sText) {
  throw TRefusal{iExitUsage, sText};
}
[[noreturn]] inline void Cli_Fail(const std::string& sText) {
  throw TRefusal{iExitFailed, sText};
}

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

using TArguments = std::vector<std::string>;

// Takes "--name value" out of the arguments.
std::optional<std::string> Arguments_TakeOption(TArguments& asArgs, const std::string& sName);
// Takes "--name" out of the arguments; true if it was there.
bool Arguments_TakeFlag(TArguments& asArgs, const std::string& sName);
// Refuses unknown options and a wrong number of arguments, before a command starts.
void Arguments_Expect(const TArguments& asArgs, size_t dwLeast, size_t dwMost, const std::string& sUsage);

// Reads the whole text as a number between the bounds.  If it is none, refuses it by its name.
double Number_Parse(const std::string& sText, const std::string& sName, double dLeast, double dMost);
i64 Integer_Parse(const std::string& sText, const std::string& sName, i64 llLeast, i64 llMost);

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

// A speed as the command line names it: 0.01 to 1000, or "max".
double Speed_Parse(const std::string& sText);
// The daemon is to end: no pause and no hold keeps it from that, and no pace.
void Pace_LetEnd(const TOpenCamera& tCamera);

// The lens that a command line names, and somebody's own configuration for it.
struct TLensChoice {
  std::optional<std::string> sLens;   // a built-in or drawn model; without a choice "zoom"
  std::optional<std::string> sModel;  // a model file
  std::optional<std::string> sEtc;    // a folder to copy over ROOT/etc/conf.d
};

// Lays an empty or absent ROOT out for the lens of the choice.  Refuses a ROOT that is laid out for another lens than
// the one that the choice names.
void Camera_LayOut(const std::string& sRoot, const TLensChoice& tChoice, u64 qwSeed);

i32 Cli_Model(TArguments asArgs);
i32 Cli_Run(TArguments asArgs);
i32 Cli_Ask(TArguments asArgs);
i32 Cli_Press(TArguments asArgs);
i32 Cli_Wait(TArguments asArgs);
i32 Cli_Show(TArguments asArgs);
i32 Cli_Set(TArguments asArgs);
i32 Cli_Fault(TArguments asArgs);
i32 Cli_Transcript(TArguments asArgs);
i32 Cli_Speed(TArguments asArgs);
i32 Cli_Pause(TArguments asArgs);
i32 Cli_Step(TArguments asArgs);
i32 Cli_Go(TArguments asArgs);
