// Signals, process id, daemon mode.
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include "clock/pace.h"
#include "hooks/hooks.h"

namespace {
constinit TReal<int(int, const struct sigaction*, struct sigaction*)> g_realSigaction{"sigaction"};
constinit TReal<int(int, const sigset_t*, sigset_t*)> g_realSigmask{"pthread_sigmask"};
constinit TReal<int(int, const sigset_t*, sigset_t*)> g_realSigprocmask{"sigprocmask"};
constinit TReal<pid_t()> g_realGetpid{"getpid"};
constinit TReal<int(int, int)> g_realDaemon{"daemon"};

constexpr pid_t iLifePid = 4711;  // one and the same in each life, so that files and transcripts are
}  // namespace

int Hook_sigaction(int iSignal, const struct sigaction* ptNew, struct sigaction* ptOld) asm("sigaction");
int Hook_sigmask(int iHow, const sigset_t* ptNew, sigset_t* ptOld) asm("pthread_sigmask");
int Hook_sigprocmask(int iHow, const sigset_t* ptNew, sigset_t* ptOld) asm("sigprocmask");
pid_t Hook_getpid() asm("getpid");
int Hook_daemon(int bKeepFolder, int bKeepOutput) asm("daemon");

int Hook_sigaction(int iSignal, const struct sigaction* ptNew, struct sigaction* ptOld) {
  if (!Hooks_OnVirtualClock("sigaction")) return g_realSigaction(iSignal, ptNew, ptOld);
  Clock_Point("sigaction");
  return Clock_SetAction(iSignal, ptNew, ptOld);
}

int Hook_sigmask(int iHow, const sigset_t* ptNew, sigset_t* ptOld) {
  if (!Hooks_OnVirtualClock("pthread_sigmask")) return g_realSigmask(iHow, ptNew, ptOld);
  Clock_Point("pthread_sigmask");
  return Clock_SetMask(iHow, ptNew, ptOld);
}

int Hook_sigprocmask(int iHow, const sigset_t* ptNew, sigset_t* ptOld) {
  if (!Hooks_OnVirtualClock("sigprocmask")) return g_realSigprocmask(iHow, ptNew, ptOld);
  Clock_Point("sigprocmask");
  const i32 iError = Clock_SetMask(iHow, ptNew, ptOld);
  if (iError == 0) return 0;
  errno = iError;
  return -1;
}

pid_t Hook_getpid() {
  return Hooks_OnVirtualClock("getpid") && !Pace_IsOn() ? iLifePid : g_realGetpid();
}

// In a life nothing forks: the harness waits for this very process.
int Hook_daemon(int bKeepFolder, int bKeepOutput) {
  if (!Hooks_OnVirtualClock("daemon")) return g_realDaemon(bKeepFolder, bKeepOutput);
  Clock_Point("daemon");
  if (Pace_IsOn()) {
    const int iResult = g_realDaemon(bKeepFolder, bKeepOutput);
    Pace_Forked();
    return iResult;
  }
  Transcript_Note("daemon");
  if (bKeepOutput == 0) Transcript_CloseOutput();
  return 0;
}
