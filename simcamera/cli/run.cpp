// Runs one camera: its power, the pace of its clock, its script, and the daemon as a child.
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "cli/client.h"
#include "cli/commands.h"
#include "cli/hold.h"
#include "cli/script.h"
#include "hooks/flash.h"
#include "world/world_image.h"

namespace {

constexpr u64 qwMicrosPerSecond = 1'000'000;
constexpr u64 qwListenTimeout_us = 30 * qwMicrosPerSecond;  // this and the next three are of the host's clock
constexpr u64 qwEndTimeout_us = 60 * qwMicrosPerSecond;     // the daemon first ends its walk and its waits
constexpr u64 qwStartLook_us = 5'000;                       // between two looks whether the daemon listens
constexpr u64 qwLook_us = qwMicrosPerSecond;

struct TRun {
  TOpenCamera tCamera;
  std::string sDaemon, sHooks;
  u32* apdwBlock[iLensChannels] = {};
  pid_t iDaemon = 0;
  u64 qwStarted_us = 0;   // host's clock: start of the present daemon
  u64 qwEndAsked_us = 0;  // host's clock: when its end was asked for; 0 not yet
  bool bListens = false;
  pid_t iScript = 0;  // 0: none, or it has ended
  bool bEndsWithScript = false;
  bool bScriptFailed = false;
};

void Say(const char* pszText) {
  std::printf("%s\n", pszText);
  std::fflush(stdout);
}

std::string BuildDirectory() {
  char szPath[PATH_MAX];
  const ssize_t iLength = readlink("/proc/self/exe", szPath, sizeof szPath - 1);
  if (iLength < 0) Cli_Fail("cannot tell where this program lies");
  const std::string sPath(szPath, static_cast<size_t>(iLength));
  const std::string sBin = sPath.substr(0, sPath.rfind('/'));
  return sBin.substr(0, sBin.rfind('/'));
}

void RequireReadable(const std::string& sPath) {
  if (access(sPath.c_str(), R_OK) != 0) Cli_Fail(sPath + ": " + std::strerror(errno));
}

// Empties what a power cut or a new start finds empty: "/tmp", "/var/run" and the focus statistics blocks.
void ClearMemory(TRun& tRun) {
  for (const char* pszBelow : {"tmp", "var/run"}) {
    const std::string sDirectory = tRun.tCamera.sRoot + "/" + pszBelow;
    DIR* pDirectory = opendir(sDirectory.c_str());
    if (pDirectory == nullptr) Cli_Fail(sDirectory + ": " + std::strerror(errno));
    while (const dirent* ptEntry = readdir(pDirectory)) unlinkat(dirfd(pDirectory), ptEntry->d_name, 0);
    closedir(pDirectory);
  }
  for (i32 iChannel = 0; iChannel < tRun.tCamera.ptModel->iChannels; ++iChannel) {
    for (u32 dwWord = 0; dwWord < BLOCK_WORDS; ++dwWord) Word_Store(tRun.apdwBlock[iChannel][dwWord], 0);
    tRun.tCamera.ptWorld->aiBlockHolder[iChannel] = 0;
  }
}

void MapBlocks(TRun& tRun) {
  for (i32 iChannel = 0; iChannel < tRun.tCamera.ptModel->iChannels; ++iChannel) {
    const std::string sPath = tRun.tCamera.sRoot + "/shm/" + std::to_string(iChannel);
    const TScopedFd tFile(open(sPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    void* pv = MAP_FAILED;
    if (tFile.Get() >= 0 && ftruncate(tFile.Get(), BLOCK_WORDS * sizeof(u32)) == 0) {
      pv = mmap(nullptr, BLOCK_WORDS * sizeof(u32), PROT_READ | PROT_WRITE, MAP_SHARED, tFile.Get(), 0);
    }
    if (pv == MAP_FAILED) Cli_Fail(sPath + ": " + std::strerror(errno));
    tRun.apdwBlock[iChannel] = static_cast<u32*>(pv);
  }
}

// Nobody moves the clock now: it stands where it was seen last.
void SettleClock(TWorld* ptWorld) {
  ptWorld->qwBase_us = ptWorld->tPace.qwLimit_us = ptWorld->tPace.qwAnchor_us = World_Now_us(ptWorld);
  ptWorld->tPace.qwRealAnchor_us = World_RealNow_us();
  ptWorld->tPace.iOwner = 0;
}

// The camera's clock goes on from where the last run left it.
void StartClock(TWorld* ptWorld, const TRunPlan& tPlan) {
  ptWorld->bRun = 1;
  const TWorldLock tLock(ptWorld);
  ptWorld->tPace = {};
  SettleClock(ptWorld);
  ptWorld->tPace.dSpeed = tPlan.dSpeed;
  // Under a script all is the same on every day.
  if (ptWorld->qwBase_us == 0 && !tPlan.sScript)
    ptWorld->qwWallAtZero_us = static_cast<u64>(std::time(nullptr)) * qwMicrosPerSecond;
}

void StopClock(TWorld* ptWorld) {
  const TWorldLock tLock(ptWorld);
  SettleClock(ptWorld);
  ptWorld->tPace.dSpeed = 0;
}

// Runs in the child: all that comes before the daemon's own first instruction.
[[noreturn]] void BecomeDaemon(const TRun& tRun) {
  setpgid(0, 0);  // Ctrl-C on the terminal then reaches only the parent, which passes it on
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  sigset_t tNone;
  sigemptyset(&tNone);
  sigprocmask(SIG_SETMASK, &tNone, nullptr);
  const i32 fdNull = open("/dev/null", O_RDONLY);
  const i32 fdLog = open((tRun.tCamera.sRoot + "/sim/daemon.log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
  dup2(fdNull, 0);
  dup2(fdLog, 1);
  dup2(fdLog, 2);
  setenv("SIMCAMERA_ROOT", tRun.tCamera.sRoot.c_str(), 1);
  setenv("LD_PRELOAD", tRun.sHooks.c_str(), 1);
  // Without this a daemon built with the address sanitizer refuses a library that comes before the sanitizer's own.
  const char* pszOptions = getenv("ASAN_OPTIONS");
  setenv("ASAN_OPTIONS", (std::string(pszOptions == nullptr ? "" : pszOptions) + ":verify_asan_link_order=0").c_str(),
         1);
  execl(tRun.sDaemon.c_str(), "vernierlensd", static_cast<char*>(nullptr));
  _exit(127);
}

void StartDaemon(TRun& tRun) {
  ClearMemory(tRun);
  std::fflush(stdout);
  {
    TWorld* ptWorld = tRun.tCamera.ptWorld.get();
    const TWorldLock tLock(ptWorld);
    SettleClock(ptWorld);
  }
  tRun.iDaemon = fork();
  if (tRun.iDaemon < 0) Cli_Fail(std::string("fork: ") + std::strerror(errno));
  if (tRun.iDaemon == 0) BecomeDaemon(tRun);
  tRun.qwStarted_us = World_RealNow_us();
  tRun.bListens = false;
  const std::string sPath = tRun.tCamera.sRoot + "/sim/daemon.pid";
  FILE* pFile = std::fopen(sPath.c_str(), "w");
  if (pFile == nullptr) Cli_Fail(sPath + ": " + std::strerror(errno));
  std::fprintf(pFile, "%d\n", tRun.iDaemon);
  std::fclose(pFile);
}

void LookForSocket(TRun& tRun) {
  if (tRun.bListens || tRun.qwEndAsked_us != 0) return;
  if (Client_IsHeard(tRun.tCamera.sRoot)) {
    tRun.bListens = true;
    const double dSpeed = tRun.tCamera.ptWorld->tPace.dSpeed;
    std::printf("lens %s listens, ", tRun.tCamera.ptModel->szName);
    if (dSpeed >= dSpeedMax) std::printf("as fast as this machine can\n");
    if (dSpeed < dSpeedMax) std::printf("%g times as fast as real\n", dSpeed);
    std::fflush(stdout);
  } else if (World_RealNow_us() - tRun.qwStarted_us > qwListenTimeout_us) {
    kill(tRun.iDaemon, SIGKILL);
    waitpid(tRun.iDaemon, nullptr, 0);
    Cli_Fail("the daemon does not listen; see " + tRun.tCamera.sRoot + "/sim/daemon.log");
  }
}

void AskForEnd(TRun& tRun) {
  if (tRun.qwEndAsked_us == 0) tRun.qwEndAsked_us = World_RealNow_us();
  kill(tRun.iDaemon, SIGTERM);
  Pace_LetEnd(tRun.tCamera);
}

// Call this when the daemon is dead: the motors stop, and it is drawn which unsynced writes the flash keeps.
void CutPower(TRun& tRun) {
  TWorld* ptWorld = tRun.tCamera.ptWorld.get();
  const TWorldLock tLock(ptWorld);
  World_PowerCut(ptWorld, World_Now_us(ptWorld));
  const u64 qwSeed = ptWorld->qwSeed * 31 + ++ptWorld->dwPowerCuts;
  if (Flash_PowerCut(tRun.tCamera.sRoot.c_str(), qwSeed) != 0) Cli_Fail(tRun.tCamera.sRoot + ": the flash is lost");
}

// At power-on all files count as synced, also those that were edited by hand.
void SettleFlash(const TRun& tRun) {
  unlink((tRun.tCamera.sRoot + "/sim/flash").c_str());
}

// The script is a process of its own, so that the daemon can be started again meanwhile.  It holds the clock from
// before the daemon's start.
void StartScript(TRun& tRun, const TRunPlan& tPlan, const std::vector<TScriptLine>& atLines) {
  int aiHeld[2];
  if (pipe(aiHeld) != 0) Cli_Fail(std::string("pipe: ") + std::strerror(errno));
  std::fflush(stdout);
  tRun.bEndsWithScript = tPlan.bUntilRest;
  tRun.iScript = fork();
  if (tRun.iScript < 0) Cli_Fail(std::string("fork: ") + std::strerror(errno));
  if (tRun.iScript == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    sigset_t tNone;
    sigemptyset(&tNone);
    sigprocmask(SIG_SETMASK, &tNone, nullptr);
    i32 iExit = iExitFailed;
    try {
      const TOpenCamera tCamera = Camera_Open(tPlan.sRoot);
      Hold_Here(tCamera);
      close(aiHeld[0]);
      close(aiHeld[1]);
      iExit = Script_Play(tCamera, *tPlan.sScript, atLines, tPlan.bUntilRest);
    } catch (const TRefusal& tRefusal) {
      std::fprintf(stderr, "simcamera: %s\n", tRefusal.sText.c_str());
    }
    std::fflush(stdout);
    _exit(iExit);
  }
  close(aiHeld[1]);
  char cNothing = 0;
  if (read(aiHeld[0], &cNothing, 1) < 0) {
    // Its end is told by SIGCHLD.
  }
  close(aiHeld[0]);
}

// A script that has failed, or is the whole of the run, ends the run.
void LookForScriptsEnd(TRun& tRun) {
  siginfo_t tEnd{};
  const idtype_t eKind = P_PID;
  if (tRun.iScript == 0 || waitid(eKind, static_cast<id_t>(tRun.iScript), &tEnd, WEXITED | WNOHANG | WNOWAIT) != 0 ||
      tEnd.si_pid == 0) {
    return;
  }
  tRun.bScriptFailed = tEnd.si_code != CLD_EXITED || tEnd.si_status != 0;
  // The signal first: until it is waited for, the process holds the clock, so that the end comes at its last time.
  if (tRun.bScriptFailed || tRun.bEndsWithScript) AskForEnd(tRun);
  waitpid(tRun.iScript, nullptr, 0);
  tRun.iScript = 0;
}

// Looks whether the daemon has ended.  Returns nothing while the run goes on, else the run's exit status.
std::optional<i32> TakeEnd(TRun& tRun) {
  i32 iStatus = 0;
  if (waitpid(tRun.iDaemon, &iStatus, WNOHANG) != tRun.iDaemon) return std::nullopt;
  const bool bEndAsked = tRun.qwEndAsked_us != 0;
  if (WIFSIGNALED(iStatus) && WTERMSIG(iStatus) == SIGKILL) {
    CutPower(tRun);
    if (bEndAsked) return iExitFailed;
    Say("the power was cut; starting again");
    StartDaemon(tRun);
    return std::nullopt;
  }
  if (WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 0 && bEndAsked) return 0;
  std::string sHow = WIFSIGNALED(iStatus) ? "was ended by signal " + std::to_string(WTERMSIG(iStatus))
                                          : "ended with status " + std::to_string(WEXITSTATUS(iStatus));
  if (!bEndAsked) sHow += " unasked";
  Cli_Fail("the daemon " + sHow + "; see " + tRun.tCamera.sRoot + "/sim/daemon.log");
}

i32 Play(TRun& tRun, const sigset_t& tSignals) {
  StartDaemon(tRun);
  for (;;) {
    if (const auto iExit = TakeEnd(tRun)) return tRun.bScriptFailed ? iExitFailed : *iExit;
    LookForScriptsEnd(tRun);
    LookForSocket(tRun);
    const u64 qwPause_us = tRun.bListens ? qwLook_us : qwStartLook_us;
    const timespec tPause{static_cast<time_t>(qwPause_us / qwMicrosPerSecond),
                          static_cast<long>(qwPause_us % qwMicrosPerSecond) * 1000};
    const i32 iSignal = sigtimedwait(&tSignals, nullptr, &tPause);
    if (iSignal == SIGTERM || iSignal == SIGINT) AskForEnd(tRun);
    if (tRun.qwEndAsked_us != 0 && World_RealNow_us() - tRun.qwEndAsked_us > qwEndTimeout_us) {
      std::fprintf(stderr, "simcamera: the daemon does not end, it is killed\n");
      kill(tRun.iDaemon, SIGKILL);
    }
  }
}

// Takes the root for this run: a lock on the file with our process id.
TScopedFd TakeRoot(const std::string& sRoot) {
  const std::string sPath = sRoot + "/sim/run.pid";
  TScopedFd tFile(open(sPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
  if (tFile.Get() < 0) Cli_Fail(sPath + ": " + std::strerror(errno));
  if (flock(tFile.Get(), LOCK_EX | LOCK_NB) != 0) Cli_Fail(sRoot + ": this camera is running already");
  const bool bWritten = ftruncate(tFile.Get(), 0) == 0 && dprintf(tFile.Get(), "%d\n", getpid()) >= 0;
  if (!bWritten) Cli_Fail(sPath + ": cannot be written");
  return tFile;
}

}  // namespace

i32 Run_Play(const TRunPlan& tPlan) {
  const std::string sBuild = BuildDirectory();
  TRun tRun{};
  tRun.sDaemon = sBuild + "/bin/vernierlensd";
  tRun.sHooks = sBuild + "/lib/libsimcamera.so";
  RequireReadable(tRun.sDaemon);
  RequireReadable(tRun.sHooks);
  if (sBuild.find_first_of(" :") != std::string::npos) Cli_Fail(sBuild + ": no library in here can be preloaded");

  std::vector<TScriptLine> atScript;
  if (tPlan.sScript) atScript = Script_Read(*tPlan.sScript);
  Camera_LayOut(tPlan.sRoot, tPlan.tLens, tPlan.qwSeed.value_or(1));
  tRun.tCamera = Camera_Open(tPlan.sRoot);
  const TScopedFd tHeld = TakeRoot(tRun.tCamera.sRoot);
  MapBlocks(tRun);
  SettleFlash(tRun);
  if (tPlan.qwSeed) tRun.tCamera.ptWorld->qwSeed = *tPlan.qwSeed;

  sigset_t tSignals;
  sigemptyset(&tSignals);
  for (const i32 iSignal : {SIGTERM, SIGINT, SIGCHLD}) sigaddset(&tSignals, iSignal);
  sigprocmask(SIG_BLOCK, &tSignals, nullptr);
  prctl(PR_SET_TIMERSLACK, 1);

  StartClock(tRun.tCamera.ptWorld.get(), tPlan);
  if (tPlan.sScript) StartScript(tRun, tPlan, atScript);
  try {
    const i32 iExit = Play(tRun, tSignals);
    StopClock(tRun.tCamera.ptWorld.get());
    return iExit;
  } catch (const TRefusal&) {
    StopClock(tRun.tCamera.ptWorld.get());
    throw;
  }
}
