#include "command/event_fifo.h"

#include <poll.h>
#include <unistd.h>

#include <cstdio>

#include "command/event_message.h"
#include "core/fail.h"
#include "courier.h"

namespace {

constexpr u32 dwMaxFrame = 1023;  // header and payload; the buffer ends in a NUL
constexpr int iRestTimeOut_ms = 1000;

struct TFrame {
  u8 abBytes[dwMaxFrame + 1];
  u32 dwType;
  u32 dwHeaderLength;
  u32 dwPayloadLength;
};

i32 ReadingFailed() {
  std::puts("[vernierlensd] : Failed to read FIFO.");
  return iFIFOUnreadable;
}

// A header without its rest is waited for this long only: both ends are the daemon's, so it would never read as ended.
i32 ReadRest(i32 fd, TFrame* ptFrame) {
  const u64 qwTotal = u64{ptFrame->dwHeaderLength} + ptFrame->dwPayloadLength;
  // A frame without room could not be skipped in step either: made anew, the FIFO is in step.
  if (qwTotal < COURIER_HEADER_LENGTH || qwTotal > dwMaxFrame) return -1;
  if (qwTotal == COURIER_HEADER_LENGTH) return 0;
  pollfd tPoll = {.fd = fd, .events = POLLIN, .revents = 0};
  if (poll(&tPoll, 1, iRestTimeOut_ms) < 1) return -1;
  const std::size_t dwRest = static_cast<std::size_t>(qwTotal) - COURIER_HEADER_LENGTH;
  return read(fd, ptFrame->abBytes + COURIER_HEADER_LENGTH, dwRest) < 0 ? -1 : 0;
}

}  // namespace

i32 VernierLensd_FIFOCommandHandler(TVernierLensdInfo* pThis) {
  TFrame tFrame = {};
  if (read(pThis->fdFIFO, tFrame.abBytes, COURIER_HEADER_LENGTH) < COURIER_HEADER_LENGTH) return ReadingFailed();
  if (VernierLensd_CheckMessage(tFrame.abBytes[0], tFrame.abBytes[1]) != 0) {
    return Fail("[vernierlensd] : VernierLensd_CheckMessage failed.");
  }
  tFrame.dwType = tFrame.abBytes[0];
  if (Courier_GetTypeLength(tFrame.abBytes, COURIER_HEADER_LENGTH, &tFrame.dwType, &tFrame.dwHeaderLength,
                            &tFrame.dwPayloadLength) != 0) {
    return Fail("[vernierlensd] : Courier_GetTypeLength failed.");
  }
  if (ReadRest(pThis->fdFIFO, &tFrame) != 0) return ReadingFailed();
  const char* pszPayload = reinterpret_cast<const char*>(tFrame.abBytes + tFrame.dwHeaderLength);
  std::printf("[vernierlensd] : Receive FIFO command: %s\n", pszPayload);
  if (VernierLensd_ParseFIFOCmd(pThis, pszPayload, tFrame.dwPayloadLength, tFrame.dwType) == 0) return 0;
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
