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
constexpr u64 qwSelectPause_us = 100'000;  // after a failed select, so that a dead descriptor costs no processor

bool IsReady(i32 fd, const fd_set& fdsReady) {
  return fd >= 0 && FD_ISSET(fd, &fdsReady);
}

void WaitAndServe(TVernierLensdInfo* pThis) {
  fd_set fdsReady = pThis->fdsRead;
  timeval tTimeOut = {.tv_sec = tInputTimeOut_s, .tv_usec = 0};
  const i32 iReady = select(pThis->iMaxFd + 1, &fdsReady, nullptr, nullptr, &tTimeOut);
  if (iReady < 0) {
    if (errno == EINTR) return;
    std::puts("[vernierlensd] : select failed.");
    Delay_us(qwSelectPause_us);
    return;
  }
  if (iReady == 0) {
    std::puts("[vernierlensd] : select timeout");
    return;
  }
  if (VernierLensd_SelectHandler(pThis, fdsReady) != 0)
    std::puts("[vernierlensd] : VernierLensd_SelectHandler failed.");
}

}  // namespace

i32 VernierLensd_MainLoop(TVernierLensdInfo* pThis) {
  VernierLensd_CheckPowerLoss(pThis);
  for (;;) {
    // The signal first: when both words stand, the end is the orderly one.
    if (g_bTerminated.load() != 0) {
      g_bRunThread = 0;
      return 0;
    }
    if (g_bRunThread.load() == 0) return Fail("[vernierlensd] : Motor thread ends unexpectedly!");
    WaitAndServe(pThis);
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
