// Fuzzes the query language: commands stay within their ranges, other channels stay untouched, and one more token
// changes only what it names.
#include <algorithm>
#include <cstring>

#include "command/client_parser.h"
#include "fuzz.h"

namespace {

constexpr u32 dwFocusEnd = 1000;

bool IsFunction(u32 dwFunction) {
  return dwFunction <= FUNCTION_STOP || (dwFunction >= FUNCTION_IRISOPEN && dwFunction <= FUNCTION_SETFOCUSDEFAULT);
}

void CheckCommand(const TMotorCommand& t) {
  Check(IsFunction(t.dwFunction) && t.dwDirection <= DIRECTION_DIRECT && t.bIris <= 1, "words of the language");
  Check(t.dwDefaultPosition <= dwFocusEnd, "the default position is limited");
  Check(t.dwStart == 0 && t.dwEnd == 0 && t.bZoomContinuous == 0, "the axis's own words are left alone");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* pbyInput, std::size_t dwInput) {
  std::string_view sInput = Input_Text(pbyInput, dwInput);
  TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  tConfig = {};
  tConfig.dwCapability = Input_Choose(sInput, 2) == 0 ? CAPABILITY_ZOOM_AND_FOCUS : CAPABILITY_FOCUS_ONLY;
  tConfig.iMaxDevNum = static_cast<i32>(Input_Choose(sInput, 6));  // also 0, and one above the maximum
  tConfig.dwFocusVirtualEnd = dwFocusEnd;
  std::string sQuery(std::string(sInput).c_str());
  const std::string sBefore = sQuery;

  TVernierLensdInfo tInfo = {};
  TClientRequest tRequest = {};
  const i32 iResult = VernierLensd_ParseClientCommand(&tInfo, sQuery.c_str(), &tRequest);
  Check(sQuery == sBefore && (iResult == 0 || iResult == -1), "the query is not changed");
  const i32 iChannels = std::clamp(tConfig.iMaxDevNum, 1, iMaxChannels);
  Check(tRequest.iChannel >= 0 && tRequest.iChannel < iChannels, "a channel that there is");
  Check(tInfo.iCurChannel == tRequest.iChannel, "the channel named last");
  for (const TMotorCommand& tCommand : tRequest.atCommand) CheckCommand(tCommand);
  const TMotorCommand tNone = {};
  for (i32 i = iChannels; i < iMaxChannels; i++) {
    Check(std::memcmp(&tRequest.atCommand[i], &tNone, sizeof tNone) == 0, "no command for a channel that is not there");
  }

  TClientRequest tMore = {};
  const i32 iMore = VernierLensd_ParseClientCommand(&tInfo, (sQuery + "&steps=7").c_str(), &tMore);
  if (iResult == 0) {
    Check(iMore == 0 && tRequest.atCommand[tRequest.iChannel].dwFunction != FUNCTION_IDLE, "a function is named");
    tRequest.atCommand[tRequest.iChannel].dwSteps = 7;
    Check(std::memcmp(&tRequest, &tMore, sizeof tMore) == 0, "one more token changes only what it names");
  }
  VernierLensd_PlusToSpace(sQuery.data());
  Check(sQuery.find('+') == std::string::npos && sQuery.size() == sBefore.size(), "each '+' becomes a blank");
  return 0;
}
