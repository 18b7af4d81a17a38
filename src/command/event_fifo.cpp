#include "command/event_fifo.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "command/event_message.h"
#include "core/fail.h"
#include "core/wait.h"
#include "courier.h"

namespace {

// A header without its rest is waited for this long only: both ends are the daemon's, so it would never read as ended.
constexpr u32 dwRestTimeOut_ms = 1000;

i32 ReadingFailed(TEventFrame* ptFrame) {
  ptFrame->dwHave = 0;
  std::puts("[vernierlensd] : Failed to read FIFO.");
  return iFIFOUnreadable;
}

// Control characters could forge lines of the log.
void PrintPayload(const TEventFrame& tFrame) {
  char szShown[4 * dwMaxEventFrame + 1];
  std::size_t dwShown = 0;
  for (u32 i = tFrame.dwHeaderLength; i < tFrame.dwTotal; i++) {
    const u8 b = tFrame.abBytes[i];
    const bool bControl = b < ' ' || b == 0x7F;
    const i32 iLength = std::snprintf(szShown + dwShown, sizeof szShown - dwShown, bControl ? "\\x%02X" : "%c", b);
    dwShown += static_cast<std::size_t>(iLength);
  }
  szShown[dwShown] = '\0';
  std::printf("[vernierlensd] : Receive FIFO command: %s\n", szShown);
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
  // A frame without room could not be skipped in step either: made anew, the FIFO is in step.
  if (qwTotal < COURIER_HEADER_LENGTH || qwTotal > dwMaxEventFrame) return ReadingFailed(ptFrame);
  ptFrame->dwTotal = static_cast<u32>(qwTotal);
  ptFrame->dwHave = COURIER_HEADER_LENGTH;
  ptFrame->dwBegun_ms = Clock_Milliseconds();
  return 0;
}

// 0, also where nothing has come yet.
i32 ReadRest(TVernierLensdInfo* pThis, TEventFrame* ptFrame) {
  if (ptFrame->dwHave == ptFrame->dwTotal) return 0;
  const ssize_t iRead = read(pThis->fdFIFO, ptFrame->abBytes + ptFrame->dwHave, ptFrame->dwTotal - ptFrame->dwHave);
  if (iRead < 0) return errno == EAGAIN ? 0 : -1;
  ptFrame->dwHave += static_cast<u32>(iRead);
  pThis->qwFIFORead += static_cast<u64>(iRead);
  return 0;
}

}  // namespace

bool EventFrame_IsAwaited(const TVernierLensdInfo* pThis, u32* pdwLeft_ms) {
  const TEventFrame& tFrame = pThis->tEventFrame;
  if (pThis->fdFIFO < 0 || tFrame.dwHave == 0) return false;
  // A clock that is set back makes the difference a large one, and the frame late.
  const u32 dwSince_ms = Clock_Milliseconds() - tFrame.dwBegun_ms;
  *pdwLeft_ms = dwSince_ms < dwRestTimeOut_ms ? dwRestTimeOut_ms - dwSince_ms : 0;
  return true;
}

void EventFrames_AreRestored(TVernierLensdInfo* pThis) {
  int iWaiting = 0;
  if (ioctl(pThis->fdFIFO, FIONREAD, &iWaiting) != 0) iWaiting = 0;
  pThis->qwFIFORestored = pThis->qwFIFORead + static_cast<u64>(iWaiting);
}

i32 VernierLensd_FIFOCommandHandler(TVernierLensdInfo* pThis) {
  TEventFrame* ptFrame = &pThis->tEventFrame;
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
  PrintPayload(*ptFrame);
  const char* pszPayload = reinterpret_cast<const char*>(ptFrame->abBytes + ptFrame->dwHeaderLength);
  const u32 dwPayload = ptFrame->dwTotal - ptFrame->dwHeaderLength;
  if (VernierLensd_ParseFIFOCmd(pThis, pszPayload, dwPayload, ptFrame->dwType) == 0) return 0;
  return Fail("[vernierlensd] : VernierLensd_ParseFIFOCmd failed.");
}

i32 VernierLensd_CheckMessage(u32 dwType, i32 iLength) {
  return dwType == COURIER_TYPE_EVENT && iLength >= 1 ? 0 : Fail("[vernierlensd] : Unknown command.");
}

i32 VernierLensd_ParseFIFOCmd(TVernierLensdInfo* pThis, const char* pszPayload, u32 dwLength, u32 dwType) {
  if (dwType != COURIER_TYPE_EVENT) return 0;
  union {  // the library may use all of the storage, which is no whole number of records
    TCourierEvent atEvents[COURIER_MAX_EVENTS];
    u8 abStorage[COURIER_EVENT_STORAGE];
  } tStorage = {};
  static_assert(sizeof tStorage == COURIER_EVENT_STORAGE);
  i32 iCount = COURIER_MAX_EVENTS;
  u8 abExtra[8] = {};
  if (Courier_Parse_Event(pThis->hXMLParser, pszPayload, dwLength, &iCount, tStorage.atEvents, abExtra) != 0) {
    return Fail("[vernierlensd] : Courier_Parse_Event failed.");
  }
  if (VernierLensd_HandleEventMessage(pThis, iCount, tStorage.atEvents) == 0) return 0;
  return Fail("[vernierlensd] : VernierLensd_HandleEventMessage failed.");
}
