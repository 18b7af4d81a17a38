#include "motor/thread/motor_thread.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

#include "autofocus/zoom_tracking.h"
#include "compensation/periodic.h"
#include "core/fail.h"
#include "core/wait.h"
#include "motor/command_box.h"
#include "motor/pi_search.h"
#include "motor/thread/dispatch.h"
#include "taskshim.h"

namespace {

constexpr u64 qwReadyPoll_us = 1000;
constexpr u64 qwEndPoll_us = 10'000;

enum EReceived : u32 {
  RECEIVED_COMMAND,  // woken, and a command stands in the block
  RECEIVED_NOTHING,  // a timeout, or a spurious wake-up: its command has already run
  RECEIVED_ERROR,    // select has failed: the period of the corrections has not passed
};

// What the thread of an axis runs.
struct TMotorThread {
  const TAxis& tAxis;
  i32 (*pfnEntry)(void* pvThis);                       // the body, called by the thread library
  void (*pfnBegin)(TVernierLensdInfo* pThis, i32 fd);  // before the loop; null: nothing
  void (*pfnDispatch)(TVernierLensdInfo* pThis, i32 fd);
  // Called while the axis is idle.  Returns true if the dispatcher is to run a command that this has claimed.  Null:
  // nothing.
  bool (*pfnCorrect)(TVernierLensdInfo* pThis, TIRCutState* ptIRCut, i32 fd);
  void (*pfnEnd)(TVernierLensdInfo* pThis);  // after the loop; null: nothing
};

constexpr TMotorThread g_tZoomThread = {
    .tAxis = g_tZoomAxis,
    .pfnEntry = VernierLensd_ZoomMotorThread,
    .pfnBegin = nullptr,
    .pfnDispatch = VernierLensd_DispatchZoomCommand,
    .pfnCorrect = nullptr,
    .pfnEnd = nullptr,
};

constexpr TMotorThread g_tFocusThread = {
    .tAxis = g_tFocusAxis,
    .pfnEntry = VernierLensd_FocusMotorThread,
    .pfnBegin = Compensation_Begin,
    .pfnDispatch = VernierLensd_DispatchFocusCommand,
    .pfnCorrect = Compensation_Check,
    .pfnEnd = VernierLensd_CarryOutFocusWishes,
};

i32 MotorThread_Run(TVernierLensdInfo* pThis, const TMotorThread& tThread);
i32 MotorThread_Serve(TVernierLensdInfo* pThis, const TMotorThread& tThread);
void MotorThread_Loop(TVernierLensdInfo* pThis, const TMotorThread& tThread, i32 fd);
void SetTrackingWords(TVernierLensdInfo* pThis);
void MotorThread_AwaitPair(TVernierLensdInfo* pThis, const TAxis& tAxis);
void MotorThread_SetRange(TVernierLensdInfo* pThis, const TAxis& tAxis);
EReceived MotorThread_Receive(TVernierLensdInfo* pThis, const TAxis& tAxis);
i32 MotorThread_Initial(TVernierLensdInfo* pThis, const TMotorThread& tThread);
i32 MotorThread_Start(TVernierLensdInfo* pThis, const TAxis& tAxis);

// The last act sets bEnded, whatever the way out: after it, the release may free what the thread used.
i32 MotorThread_Run(TVernierLensdInfo* pThis, const TMotorThread& tThread) {
  const TAxis& tAxis = tThread.tAxis;
  const i32 iResult = pThis->*tAxis.pbSupport == 0 ? 0 : MotorThread_Serve(pThis, tThread);
  Word_Publish(Axis_Box(pThis, tAxis).bEnded, 1);
  return iResult;
}

i32 MotorThread_Serve(TVernierLensdInfo* pThis, const TMotorThread& tThread) {
  const TAxis& tAxis = tThread.tAxis;
  const i32 fd = pThis->bSupportICS != 0 ? pThis->fdICS : open(tAxis.szDevice, O_WRONLY | O_CLOEXEC);
  if (fd < 0) {
    std::puts("[vernierlensd] : Failed to open device");
    g_bRunThread = 0;
    return -1;
  }
  const bool bPass = pThis->bSupportICS == 0 &&  // an ICS driver knows its position without a pass
                     g_tVernierLensdConfigInfo.*tAxis.pbPISupport != 0 &&
                     g_tVernierLensdConfigInfo.dwRestoreStatus == STATUS_NORMAL;
  // Do this before the pass, which takes minutes: meanwhile others may set these words for a newer target.
  if (tAxis.bFocusLeads) SetTrackingWords(pThis);
  if (bPass) PIPass_Run(pThis, tAxis, fd);
  if (tThread.pfnBegin != nullptr) tThread.pfnBegin(pThis, fd);
  MotorThread_AwaitPair(pThis, tAxis);
  MotorThread_Loop(pThis, tThread, fd);
  if (tThread.pfnEnd != nullptr) tThread.pfnEnd(pThis);
  if (pThis->bSupportICS == 0) close(fd);
  g_bRunThread = 0;
  return 0;
}

void MotorThread_Loop(TVernierLensdInfo* pThis, const TMotorThread& tThread, i32 fd) {
  TIRCutState tIRCut = {};
  // The pair is missing if start-up has failed before making it.
  while (Word_Take(pThis->*tThread.tAxis.pbWakeReady) != 0 && g_bRunThread.load() != 0) {
    const EReceived eReceived = MotorThread_Receive(pThis, tThread.tAxis);
    if (eReceived == RECEIVED_COMMAND) tThread.pfnDispatch(pThis, fd);
    if (eReceived == RECEIVED_ERROR || tThread.pfnCorrect == nullptr) continue;
    while (tThread.pfnCorrect(pThis, &tIRCut, fd)) tThread.pfnDispatch(pThis, fd);
  }
}

// Sets pan focus and search bound of each channel for its saved zoom position.
void SetTrackingWords(TVernierLensdInfo* pThis) {
  for (i32 i = 0; i < g_tVernierLensdConfigInfo.iMaxDevNum; i++) {
    ZoomTracking_SetWords(pThis, Word_Load(pThis->adwZoomMotorPosition[i]), i);
  }
}

// The pairs are made before bPowerLossChecked is set: one that is missing then stays missing, and nothing is left to
// wait for but the end.
void MotorThread_AwaitPair(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  const auto IsOver = [&] { return Word_Take(pThis->*tAxis.pbWakeReady) != 0 || Daemon_IsEnding(); };
  Wait_Poll(qwReadyPoll_us, qwNoBound_us, [&] { return IsOver() || Word_Take(pThis->bPowerLossChecked) != 0; });
  Wait_Poll(qwIdlePeriod_us, qwNoBound_us, IsOver);
}

void MotorThread_SetRange(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  TMotorCommand& tBlock = Axis_Command(pThis, tAxis);
  if (!tAxis.bStartNeedsZoom || pThis->bSupportZoom != 0)
    Word_Store(tBlock.dwStart, Axis_Config(tAxis.pdwVirtualStart));
  Word_Store(tBlock.dwEnd, Axis_Config(tAxis.pdwVirtualEnd));
}

// The wake flag says that a command is pending, not the bytes: several wake-ups may leave several, and the block runs
// once.
EReceived MotorThread_Receive(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  const i32 fdWake = (pThis->*tAxis.paiWakePair)[1];
  fd_set fdsWake;
  FD_ZERO(&fdsWake);
  FD_SET(fdWake, &fdsWake);
  timeval tTimeOut = Select_Time(qwIdlePeriod_us);
  const i32 iReady = select(fdWake + 1, &fdsWake, nullptr, nullptr, &tTimeOut);
  if (iReady < 0 && errno == EINTR) return RECEIVED_ERROR;
  if (iReady < 0) {
    std::puts("[vernierlensd] : select failed.");
    Delay_us(qwSelectPause_us);
    return RECEIVED_ERROR;
  }
  if (iReady == 0) {
    std::puts("[vernierlensd] : select timeout");
    return RECEIVED_NOTHING;
  }
  u32 dwDiscarded = 0;
  if (read(fdWake, &dwDiscarded, sizeof dwDiscarded) < 0) {
    // The bytes do not matter, so neither does an error.
  }
  if (Daemon_IsEnding() || Word_Take(pThis->*tAxis.pbWake) == 0) return RECEIVED_NOTHING;
  return RECEIVED_COMMAND;
}

i32 MotorThread_Initial(TVernierLensdInfo* pThis, const TMotorThread& tThread) {
  const TAxis& tAxis = tThread.tAxis;
  MotorThread_SetRange(pThis, tAxis);  // before the thread starts: later, others may have set these
  const TTaskShimOptions tOptions = {.dwReserved = 0,
                                     .pvArgument = pThis,
                                     .dwStackSize_KiB = 120,
                                     .dwPriority = 2,
                                     .dwFlags = 0,
                                     .pfnEntry = tThread.pfnEntry};
  if (TaskShim_Initial(&(pThis->*tAxis.phThread), &tOptions) != 0) {
    return Fail("[vernierlensd] : TaskShim_Initial failed.");
  }
  return MotorThread_Start(pThis, tAxis);
}

// A signal on a motor thread could break a blocking walk, or end a sleep early: a step would be counted that the motor
// has not made.  The thread inherits a mask that blocks both.
i32 MotorThread_Start(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  sigset_t tBlocked;
  sigset_t tFormer;
  sigemptyset(&tBlocked);
  sigaddset(&tBlocked, SIGTERM);
  sigaddset(&tBlocked, SIGINT);
  pthread_sigmask(SIG_BLOCK, &tBlocked, &tFormer);
  const i32 iResult = TaskShim_Start(pThis->*tAxis.phThread);
  pthread_sigmask(SIG_SETMASK, &tFormer, nullptr);
  if (iResult != 0) return Fail("[vernierlensd] : TaskShim_Start failed.");
  Axis_Box(pThis, tAxis).bStarted = 1;
  return 0;
}

}  // namespace

i32 VernierLensd_FocusMotorThread(void* pvThis) {
  return MotorThread_Run(static_cast<TVernierLensdInfo*>(pvThis), g_tFocusThread);
}

i32 VernierLensd_ZoomMotorThread(void* pvThis) {
  return MotorThread_Run(static_cast<TVernierLensdInfo*>(pvThis), g_tZoomThread);
}

i32 VernierLensd_InitFocusMotorThread(TVernierLensdInfo* pThis) {
  return MotorThread_Initial(pThis, g_tFocusThread);
}

i32 VernierLensd_InitZoomMotorThread(TVernierLensdInfo* pThis) {
  return MotorThread_Initial(pThis, g_tZoomThread);
}

i32 MotorThreads_WaitForEnd(TVernierLensdInfo* pThis) {
  const auto IsOutOfTheWay = [](const TCommandBox& tBox) { return tBox.bStarted == 0 || Word_Take(tBox.bEnded) != 0; };
  for (const TAxis* ptAxis : {&g_tFocusAxis, &g_tZoomAxis}) {
    // These bytes come without a flag: the thread looks at g_bRunThread and dispatches nothing.
    if (Axis_Box(pThis, *ptAxis).bStarted != 0) Command_Wake(pThis, *ptAxis);
  }
  const bool bEnded = Wait_Poll(qwEndPoll_us, qwEndBound_us,
                                [&] { return IsOutOfTheWay(pThis->tFocusBox) && IsOutOfTheWay(pThis->tZoomBox); });
  return bEnded ? 0 : -1;
}

i32 MotorThread_Release(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  void** phThread = &(pThis->*tAxis.phThread);
  return *phThread == nullptr ? 0 : TaskShim_Release(phThread);
}
