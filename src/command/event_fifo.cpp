#include "command/event_fifo.h"

#include <cstdio>

#include "command/event_frame.h"
#include "command/event_message.h"
#include "core/fail.h"
#include "courier.h"

namespace {

// Prints control characters as \xNN, since they could forge lines of the log.
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

}  // namespace

i32 VernierLensd_FIFOCommandHandler(TVernierLensdInfo* pThis) {
  const TEventFrame& tFrame = pThis->tEventFrame;
  bool bWhole = false;
  const i32 iResult = EventFrame_Read(pThis, &bWhole);
  if (iResult != 0 || !bWhole) return iResult;
  PrintPayload(tFrame);
  const char* pszPayload = reinterpret_cast<const char*>(tFrame.abBytes + tFrame.dwHeaderLength);
  const u32 dwPayload = tFrame.dwTotal - tFrame.dwHeaderLength;
  if (VernierLensd_ParseFIFOCmd(pThis, pszPayload, dwPayload, tFrame.dwType) == 0) return 0;
  return Fail("[vernierlensd] : VernierLensd_ParseFIFOCmd failed.");
}

i32 VernierLensd_ParseFIFOCmd(TVernierLensdInfo* pThis, const char* pszPayload, u32 dwLength, u32 dwType) {
  if (dwType != COURIER_TYPE_EVENT) return 0;
  union {  // the library may use all of this storage, whose size is no whole number of records
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
