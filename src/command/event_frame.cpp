#include "command/event_frame.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "core/fail.h"
#include "core/wait.h"
#include "courier.h"

namespace {

// How long the rest of a frame may take.  The daemon holds both ends of the FIFO, so it never reads end of file.
constexpr u32 dwRestTimeOut_ms = 1000;

i32 ReadingFailed(TEventFrame* ptFrame) {
  ptFrame->dwHave = 0;
  std::puts("[vernierlensd] : Failed to read FIFO.");
  return iFIFOUnreadable;
}

i32 ReadHeader(TVernierLensdInfo* pThis, TEventFrame* ptFrame) {
  *ptFrame = {};
  const ssize_t iRead = read(pThis->fdFIFO, ptFrame->abBytes, COURIER_HEADER_LENGTH);
  if (iRead < COURIER_HEADER_LENGTH) return ReadingFailed(ptFrame);
  pThis->qwFIFORead += COURIER_HEADER_LENGTH;
  if (VernierLensd_CheckMessage(ptFrame->abBytes[0], ptFrame->abBytes[1]) != 0) {
    return Fail("[vernierlensd] : VernierLensd_CheckMessage failed.");
  }
  ptFrame->dwType = ptFrame->abBytes[0];
  u32 dwPayload = 0;
  if (Courier_GetTypeLength(ptFrame->abBytes, COURIER_HEADER_LENGTH, &ptFrame->dwType, &ptFrame->dwHeaderLength,
                            &dwPayload) != 0) {
    return Fail("[vernierlensd] : Courier_GetTypeLength failed.");
  }
  const u64 qwTotal = u64{ptFrame->dwHeaderLength} + dwPayload;
  // After a wrong length nobody knows where the next frame begins.  A new FIFO begins with a whole frame.
  if (qwTotal < COURIER_HEADER_LENGTH || qwTotal > dwMaxEventFrame) return ReadingFailed(ptFrame);
  ptFrame->dwTotal = static_cast<u32>(qwTotal);
  ptFrame->dwHave = COURIER_HEADER_LENGTH;
  ptFrame->dwBegun_ms = Clock_Milliseconds();
  return 0;
}

// Returns 0, also if nothing has come yet, or -1 if reading failed.
i32 ReadRest(TVernierLensdInfo* pThis, TEventFrame* ptFrame) {
  if (ptFrame->dwHave == ptFrame->dwTotal) return 0;
  const ssize_t iRead = read(pThis->fdFIFO, ptFrame->abBytes + ptFrame->dwHave, ptFrame->dwTotal - ptFrame->dwHave);
  if (iRead < 0) return errno == EAGAIN ? 0 : -1;
  ptFrame->dwHave += static_cast<u32>(iRead);
  pThis->qwFIFORead += static_cast<u64>(iRead);
  return 0;
}

}  // namespace

i32 EventFrame_Read(TVernierLensdInfo* pThis, bool* pbWhole) {
  TEventFrame* ptFrame = &pThis->tEventFrame;
  *pbWhole = false;
  if (ptFrame->dwHave == 0) {
    const i32 iResult = ReadHeader(pThis, ptFrame);
    if (iResult != 0) return iResult;
  }
  if (ReadRest(pThis, ptFrame) != 0) return ReadingFailed(ptFrame);
  u32 dwLeft_ms = 0;
  if (ptFrame->dwHave < ptFrame->dwTotal) {
    return EventFrame_IsAwaited(pThis, &dwLeft_ms) && dwLeft_ms == 0 ? ReadingFailed(ptFrame) : 0;
  }
  ptFrame->dwHave = 0;
  *pbWhole = true;
  return 0;
}

bool EventFrame_IsAwaited(const TVernierLensdInfo* pThis, u32* pdwLeft_ms) {
  const TEventFrame& tFrame = pThis->tEventFrame;
  if (pThis->fdFIFO < 0 || tFrame.dwHave == 0) return false;
  // If the clock is set back, the difference becomes very large and the frame counts as late.
  const u32 dwSince_ms = Clock_Milliseconds() - tFrame.dwBegun_ms;
  *pdwLeft_ms = dwSince_ms < dwRestTimeOut_ms ? dwRestTimeOut_ms - dwSince_ms : 0;
  return true;
}

void EventFrames_AreRestored(TVernierLensdInfo* pThis) {
  int iWaiting = 0;
  if (ioctl(pThis->fdFIFO, FIONREAD, &iWaiting) != 0) iWaiting = 0;
  pThis->qwFIFORestored = pThis->qwFIFORead + static_cast<u64>(iWaiting);
}

i32 VernierLensd_CheckMessage(u32 dwType, i32 iLength) {
  return dwType == COURIER_TYPE_EVENT && iLength >= 1 ? 0 : Fail("[vernierlensd] : Unknown command.");
}
