// Signals on the virtual clock: a signal of the process goes to a drawn thread that has not blocked it, and its handler
// runs there at the thread's next event.
#include <errno.h>

#include "clock/pace.h"
#include "clock/tasks.h"

namespace {
constinit u64 g_qwPendingProcess = 0;
constinit struct sigaction g_atActions[65]{};
}  // namespace

static void RunHandler(TTask& tSelf, i32 iSignal);
static void AssignProcessSignals();

i32 Clock_SetAction(i32 iSignal, const struct sigaction* ptNew, struct sigaction* ptOld) {
  if (iSignal < 1 || iSignal > 64 || ((iSignal == SIGKILL || iSignal == SIGSTOP) && ptNew != nullptr)) {
    errno = EINVAL;
    return -1;
  }
  TInside tInside;
  if (ptOld != nullptr) *ptOld = g_atActions[iSignal];
  if (ptNew != nullptr) g_atActions[iSignal] = *ptNew;
  if (ptNew != nullptr && Pace_IsOn()) Pace_WatchSignal(iSignal);
  return 0;
}

i32 Clock_SetMask(i32 iHow, const sigset_t* ptNew, sigset_t* ptOld) {
  TInside tInside;
  TTask& tSelf = Task_Self();
  if (ptOld != nullptr) *ptOld = tSelf.tMask;
  if (ptNew == nullptr) return 0;
  if (iHow != SIG_BLOCK && iHow != SIG_UNBLOCK && iHow != SIG_SETMASK) return EINVAL;
  if (iHow == SIG_SETMASK) tSelf.tMask = *ptNew;
  for (i32 iSignal = 1; iSignal <= 64 && iHow != SIG_SETMASK; ++iSignal) {
    if (sigismember(ptNew, iSignal) != 1) continue;
    if (iHow == SIG_BLOCK)
      sigaddset(&tSelf.tMask, iSignal);
    else
      sigdelset(&tSelf.tMask, iSignal);
  }
  AssignProcessSignals();
  Task_RunHandlers(tSelf);
  return 0;
}

void Clock_Signal(i32 iSignal) {
  TInside tInside;
  g_qwPendingProcess |= u64{1} << (iSignal - 1);
  AssignProcessSignals();
}

void Clock_SignalSelf(i32 iSignal) {
  TInside tInside;
  TTask& tSelf = Task_Self();
  tSelf.qwPending |= u64{1} << (iSignal - 1);
  Task_RunHandlers(tSelf);
}

// Gives each signal of the process to a task that has not blocked it.  Which one is drawn: a kernel prefers the first,
// but promises nothing.
static void AssignProcessSignals() {
  for (i32 iSignal = 1; iSignal <= 64 && g_qwPendingProcess != 0; ++iSignal) {
    const u64 qwBit = u64{1} << (iSignal - 1);
    if ((g_qwPendingProcess & qwBit) == 0) continue;
    TTask* aptOpen[iMaxTasks];
    u32 dwOpen = 0;
    for (TTask& tTask : g_atTasks) {
      const bool bGone = tTask.eState == TASK_FREE || tTask.eState == TASK_ENDED;
      if (!bGone && sigismember(&tTask.tMask, iSignal) == 0) aptOpen[dwOpen++] = &tTask;
    }
    if (dwOpen == 0) continue;
    g_qwPendingProcess &= ~qwBit;
    if (g_atActions[iSignal].sa_handler == SIG_IGN) continue;
    TTask& tTask = *aptOpen[dwOpen > 1 ? Clock_Draw(dwOpen) : 0];
    tTask.qwPending |= qwBit;
    if (tTask.eState == TASK_WAITING) Task_MakeReady(tTask, WAIT_INTERRUPTED);
  }
}

bool Task_RunHandlers(TTask& tSelf) {
  bool bCutShort = false;
  for (i32 iSignal = 1; iSignal <= 64 && tSelf.qwPending != 0; ++iSignal) {
    const u64 qwBit = u64{1} << (iSignal - 1);
    if ((tSelf.qwPending & qwBit) == 0 || sigismember(&tSelf.tMask, iSignal) == 1) continue;
    tSelf.qwPending &= ~qwBit;
    if ((g_atActions[iSignal].sa_flags & SA_RESTART) == 0) bCutShort = true;
    RunHandler(tSelf, iSignal);
  }
  return bCutShort;
}

static void RunHandler(TTask& tSelf, i32 iSignal) {
  const struct sigaction tAction = g_atActions[iSignal];
  if (tAction.sa_handler == SIG_IGN) return;
  if (tAction.sa_handler == SIG_DFL) {
    if (iSignal == SIGCHLD || iSignal == SIGURG || iSignal == SIGWINCH || iSignal == SIGCONT) return;
    Clock_End(CLOCK_END_ERROR, "killed by a signal without a handler");
  }
  const sigset_t tMask = tSelf.tMask;
  for (i32 iOther = 1; iOther <= 64; ++iOther) {
    if (sigismember(&tAction.sa_mask, iOther) == 1) sigaddset(&tSelf.tMask, iOther);
  }
  sigaddset(&tSelf.tMask, iSignal);
  if ((tAction.sa_flags & SA_SIGINFO) != 0) {
    siginfo_t tInfo{};
    tInfo.si_signo = iSignal;
    TOutside tOutside;
    tAction.sa_sigaction(iSignal, &tInfo, nullptr);
  } else {
    TOutside tOutside;
    tAction.sa_handler(iSignal);
  }
  tSelf.tMask = tMask;
}
