#include "core/daemon/main_loop.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "command/client_intake.h"
#include "command/event_fifo.h"
#include "command/event_frame.h"
#include "core/daemon/inputs.h"
#include "core/daemon/recovery.h"
#include "core/fail.h"
#include "core/wait.h"
#include "motor/command_box.h"

namespace {

// After this many frames in a row the FIFO rests.  The scheduler is slow to wake a thread that never waits, and a
// client would have to wait.
constexpr u32 dwMaxFramesInARow = 8;
constexpr u64 qwFIFORest_us = 1000;
// Clients go first, but after this many requests in a row a waiting frame gets its turn.  The frame may be the release
// of a zoom button, and many clients must not let that zoom run on.
constexpr u32 dwMaxRequestsInARow = 8;

struct TTurns {
  u32 dwFrames;    // served in a row
  u32 dwRequests;  // served in a row while a frame waited
  u64 qwQuiet_us;  // time waited for inputs since the axes were last woken again
};

bool IsReady(i32 fd, const fd_set& fdsReady) {
  return fd >= 0 && FD_ISSET(fd, &fdsReady);
}

// Sends pending wake-ups once more, since the bytes of a wake-up may have been lost.  A client that asks for the status
// all the time keeps select from timing out, so the time waited in all selects counts.
void WakeAgain(TVernierLensdInfo* pThis, TTurns* ptTurns, u64 qwWaited_us) {
  ptTurns->qwQuiet_us += qwWaited_us;
  if (ptTurns->qwQuiet_us < qwIdlePeriod_us) return;
  ptTurns->qwQuiet_us = 0;
  for (const TAxis* ptAxis : {&g_tFocusAxis, &g_tZoomAxis}) {
    const bool bReady = pThis->*ptAxis->pbSupport != 0 && Word_Take(pThis->*ptAxis->pbWakeReady) != 0;
    if (bReady) Command_WakeAgain(pThis, *ptAxis);
  }
}

// Serves one input.  A frame whose rest has not come in time counts as ready.
void Serve(TVernierLensdInfo* pThis, TTurns* ptTurns, fd_set fdsReady) {
  const bool bRequest = IsReady(pThis->fdGateLink, fdsReady);
  const bool bFrame = IsReady(pThis->fdFIFO, fdsReady);
  const bool bFramesTurn = bFrame && (!bRequest || ptTurns->dwRequests >= dwMaxRequestsInARow);
  if (bFramesTurn && bRequest) FD_CLR(pThis->fdGateLink, &fdsReady);
  ptTurns->dwFrames = bFramesTurn ? ptTurns->dwFrames + 1 : 0;
  ptTurns->dwRequests = bFrame && !bFramesTurn ? ptTurns->dwRequests + 1 : 0;
  if (VernierLensd_SelectHandler(pThis, fdsReady) != 0)
    std::puts("[vernierlensd] : VernierLensd_SelectHandler failed.");
}

void WaitAndServe(TVernierLensdInfo* pThis, TTurns* ptTurns) {
  const bool bFIFORests = ptTurns->dwFrames >= dwMaxFramesInARow;
  fd_set fdsReady = pThis->fdsRead;
  if (bFIFORests && pThis->fdFIFO >= 0) FD_CLR(pThis->fdFIFO, &fdsReady);
  u32 dwLeft_ms = 0;
  const bool bAwaited = EventFrame_IsAwaited(pThis, &dwLeft_ms);
  u64 qwTimeOut_us = bFIFORests ? qwFIFORest_us : qwIdlePeriod_us;
  if (bAwaited) qwTimeOut_us = std::min(qwTimeOut_us, u64{dwLeft_ms} * 1000);
  timeval tLeft = Select_Time(qwTimeOut_us);
  const i32 iReady = select(pThis->iMaxFd + 1, &fdsReady, nullptr, nullptr, &tLeft);
  if (iReady < 0) {
    if (errno == EINTR) return;
    std::puts("[vernierlensd] : select failed.");
    Delay_us(qwSelectPause_us);
    return;
  }
  const u64 qwLeft_us = static_cast<u64>(tLeft.tv_sec) * 1'000'000 + static_cast<u64>(tLeft.tv_usec);
  WakeAgain(pThis, ptTurns, iReady == 0 ? qwTimeOut_us : qwTimeOut_us - std::min(qwLeft_us, qwTimeOut_us));
  const bool bLate = EventFrame_IsAwaited(pThis, &dwLeft_ms) && dwLeft_ms == 0;
  if (bLate) FD_SET(pThis->fdFIFO, &fdsReady);
  if (iReady > 0 || bLate) return Serve(pThis, ptTurns, fdsReady);
  ptTurns->dwFrames = 0;
  if (qwTimeOut_us == qwIdlePeriod_us) std::puts("[vernierlensd] : select timeout");
}

}  // namespace

i32 VernierLensd_MainLoop(TVernierLensdInfo* pThis) {
  VernierLensd_CheckPowerLoss(pThis);
  for (TTurns tTurns = {};;) {
    // Look at the signal first: if a motor thread has stopped too, the end still counts as orderly.
    if (g_bTerminated.load() != 0) {
      g_bRunThread = 0;
      return 0;
    }
    if (g_bRunThread.load() == 0) return Fail("[vernierlensd] : Motor thread ends unexpectedly!");
    WaitAndServe(pThis, &tTurns);
  }
}

i32 VernierLensd_SelectHandler(TVernierLensdInfo* pThis, fd_set fdsReady) {
  if (IsReady(pThis->fdGateLink, fdsReady)) {
    if (VernierLensd_GateLinkCommandHandler(pThis) == 0) return 0;
    return Fail("[vernierlensd] : VernierLensd_GateLinkCommandHandler failed.");
  }
  if (IsReady(pThis->fdFIFO, fdsReady) && VernierLensd_FIFOCommandHandler(pThis) == iFIFOUnreadable) {
    return VernierLensd_ReopenFIFO(pThis);
  }
  return 0;
}
