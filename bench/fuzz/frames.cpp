// Fuzzes the event FIFO.  The reader takes any bytes, whether frames begin where it expects them or not.  A payload is
// decoded within its length and to codes of the table.  The daemon's reader accepts what the message library accepts.
#include <expat.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "command/event_fifo.h"
#include "command/event_frame.h"
#include "core/paths.h"
#include "courier.h"
#include "fuzz.h"

namespace {

constexpr std::size_t dwMaxPayload = 1023 - COURIER_HEADER_LENGTH;

TVernierLensdInfo g_tInfo = {};
i32 g_fdWrite = -1;

void Start() {
  i32 afd[2];
  Check(pipe2(afd, O_NONBLOCK) == 0, "a pipe");
  g_tInfo.fdFIFO = afd[0];
  g_fdWrite = afd[1];
  g_tInfo.hXMLParser = XML_ParserCreate(nullptr);
  g_tInfo.bSupportZoom = g_tInfo.bSupportFocus = 1;
  g_tInfo.aiFocusWakePair[0] = g_tInfo.aiZoomWakePair[0] = -1;
  Files_Put(szBackupPath, "zoom_motor=5 focus_motor=7");
}

// Reads all that is in the FIFO: each round takes at least a byte, or says that it cannot.
void ReadAll(std::string_view sBytes) {
  Check(write(g_fdWrite, sBytes.data(), sBytes.size()) == static_cast<ssize_t>(sBytes.size()), "the pipe takes all");
  i32 iResult = 0;
  while (iResult != iFIFOUnreadable) {
    iResult = VernierLensd_FIFOCommandHandler(&g_tInfo);
    Check(iResult == 0 || iResult == -1 || iResult == iFIFOUnreadable, "a known result");
    Check(g_tInfo.iCurChannel >= 0 && g_tInfo.iCurChannel < g_tVernierLensdConfigInfo.iMaxDevNum, "a channel there is");
    u32 dwLeft_ms = 0;
    if (EventFrame_IsAwaited(&g_tInfo, &dwLeft_ms)) iResult = iFIFOUnreadable;  // the rest of the frame never comes
  }
  g_tInfo.tEventFrame = {};
  char acRest[4096];
  while (read(g_tInfo.fdFIFO, acRest, sizeof acRest) > 0) {
  }
}

// Decodes a payload into room for iRoom events.  Returns their number, 0 for a refused payload.
i32 Decode(std::string_view sPayload, i32 iRoom) {
  const auto pcPayload = std::make_unique<char[]>(sPayload.size());
  std::memcpy(pcPayload.get(), sPayload.data(), sPayload.size());
  TCourierEvent tUntouched = {};
  tUntouched.dwCode = ~0U;
  std::vector<TCourierEvent> atEvents(static_cast<std::size_t>(iRoom), tUntouched);
  i32 iCount = iRoom;
  const i32 iResult = Courier_Parse_Event(g_tInfo.hXMLParser, pcPayload.get(), static_cast<u32>(sPayload.size()),
                                          &iCount, atEvents.data(), nullptr);
  Check(iResult == 0 ? iCount > 0 && iCount <= iRoom : iResult == -1 && iCount == 0, "a count within its room");
  for (std::size_t dw = 0; dw < atEvents.size(); dw++) {
    const bool bFilled = dw < static_cast<std::size_t>(iCount);
    Check(bFilled ? atEvents[dw].dwCode <= 22 : atEvents[dw].dwCode == ~0U, "events of the table, and no record more");
  }
  return iCount;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* pbyInput, std::size_t dwInput) {
  if (g_fdWrite < 0) Start();
  std::string_view sInput = Input_Text(pbyInput, dwInput);
  g_tVernierLensdConfigInfo.iMaxDevNum = 1 + static_cast<i32>(Input_Choose(sInput, 4));
  g_tInfo.iCurChannel = 0;
  ReadAll(sInput);

  const i32 iEvents = Decode(sInput, COURIER_MAX_EVENTS);
  Check(iEvents == 0 || sInput.size() <= dwMaxPayload, "a payload that fits into a frame");
  if (iEvents > 0) Check(Decode(sInput, iEvents) == iEvents && Decode(sInput, iEvents - 1) == 0, "room to the record");

  const u8 abyHeader[] = {COURIER_TYPE_EVENT, COURIER_VERSION, static_cast<u8>(sInput.size() >> 8),
                          static_cast<u8>(sInput.size())};
  const std::string sFrame = std::string(Input_Text(abyHeader, sizeof abyHeader)).append(sInput);
  Check(write(g_fdWrite, sFrame.data(), sFrame.size()) > 0, "the pipe takes all");
  const i32 iRefused = sInput.size() > dwMaxPayload ? iFIFOUnreadable : -1;
  Check(VernierLensd_FIFOCommandHandler(&g_tInfo) == (iEvents > 0 ? 0 : iRefused), "it takes what the library takes");
  ReadAll("");
  return 0;
}
