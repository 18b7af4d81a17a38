#include "core/main_loop.h"

#include <cerrno>
#include <cstdio>

#include "command/client_intake.h"
#include "command/event_fifo.h"
#include "core/fail.h"
#include "core/inputs.h"
#include "core/status_file.h"
#include "core/wait.h"

namespace {

constexpr time_t tInputTimeOut_s = 3;
// So many frames in a row, and the FIFO rests: a thread that never waits gets its turn late when a client wakes it.
constexpr u32 dwFlood = 8;
constexpr suseconds_t iFIFORest_us = 1000;
constexpr u64 qwSelectPause_us = 100'000;  // after a failed select, so that a dead descriptor costs no processor

bool IsReady(i32 fd, const fd_set& fdsReady) {
  return fd >= 0 && FD_ISSET(fd, &fdsReady);
}

// True: a frame was taken from the FIFO.
bool WaitAndServe(TVernierLensdInfo* pThis, bool bFIFORests) {
  fd_set fdsReady = pThis->fdsRead;
  if (bFIFORests && pThis->fdFIFO >= 0) FD_CLR(pThis->fdFIFO, &fdsReady);
  timeval tTimeOut = {.tv_sec = bFIFORests ? 0 : tInputTimeOut_s, .tv_usec = bFIFORests ? iFIFORest_us : 0};
  const i32 iReady = select(pThis->iMaxFd + 1, &fdsReady, nullptr, nullptr, &tTimeOut);
  if (iReady < 0) {
    if (errno == EINTR) return false;
    std::puts("[vernierlensd] : select failed.");
    Delay_us(qwSelectPause_us);
    return false;
  }
  if (iReady == 0) {
    if (!bFIFORests) std::puts("[vernierlensd] : select timeout");
    return false;
  }
  const bool bFrame = !IsReady(pThis->fdGateLink, fdsReady);
  if (VernierLensd_SelectHandler(pThis, fdsReady) != 0)
    std::puts("[vernierlensd] : VernierLensd_SelectHandler failed.");
  return bFrame;
}

}  // namespace

i32 VernierLensd_MainLoop(TVernierLensdInfo* pThis) {
  VernierLensd_CheckPowerLoss(pThis);
  for (u32 dwFrames = 0;;) {
    // The signal first: when both words stand, the end is the orderly one.
    if (g_bTerminated.load() != 0) {
      g_bRunThread = 0;
      return 0;
    }
    if (g_bRunThread.load() == 0) return Fail("[vernierlensd] : Motor thread ends unexpectedly!");
    dwFrames = WaitAndServe(pThis, dwFrames >= dwFlood) ? dwFrames + 1 : 0;
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
