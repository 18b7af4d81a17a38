#include "config/config_rows.h"

#include "core/context.h"

namespace {

constexpr TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;

template <typename TWord>
constexpr TTreeRow Integer(const char* szKey, TWord& word) {
  static_assert(sizeof word == 4);
  return {.pszKey = szKey, .dwType = TREEREADER_INTEGER, .dwSize = sizeof word, .pvDest = &word, .dwReserved = 0};
}

template <std::size_t dwSize>
constexpr TTreeRow String(const char* szKey, char (&szText)[dwSize]) {
  return {.pszKey = szKey, .dwType = TREEREADER_STRING, .dwSize = dwSize, .pvDest = szText, .dwReserved = 0};
}

constexpr TTreeRow tEnd = {};

}  // namespace

static_assert(sizeof(TTreeRow) == 5 * sizeof(void*));

constexpr TTreeRow g_atICSCurveRows[] = {
    Integer("/root/ics/trackcurve", tConfig.iTrackCurveCount),
    Integer("/root/ics/tempcurve", tConfig.iTempCurveCount),
    Integer("/root/ics/ircurve", tConfig.iIRCurveCount),
    Integer("/root/ics/adcurve", tConfig.iADCurveCount),
    tEnd,
};

// The capability has a file of its own, which is read first.  If the key is absent here, that value stays.
constexpr TTreeRow g_atConfigRows[] = {
    Integer("/root/capability/image/c0/vernierlens", tConfig.dwCapability),
    Integer("/root/vernierlensd/zoom/virtual/start", tConfig.dwZoomVirtualStart),
    Integer("/root/vernierlensd/zoom/virtual/end", tConfig.dwZoomVirtualEnd),
    Integer("/root/vernierlensd/zoom/virtual/onestep", tConfig.dwZoomVirtualOneStep),
    Integer("/root/vernierlensd/zoom/virtual/totalstep", tConfig.dwZoomVirtualTotalStep),
    Integer("/root/vernierlensd/zoom/motor/totalstep", tConfig.dwZoomMotorTotalStep),
    Integer("/root/vernierlensd/zoom/motor/positioningstep", tConfig.dwZoomMotorPositioningStep),
    Integer("/root/vernierlensd/zoom/onesteptime", tConfig.dwZoomOneStepTime),
    Integer("/root/vernierlensd/zoom/adjuststep", tConfig.dwZoomAdjustStep),
    Integer("/root/vernierlensd/zoom/pi/support", tConfig.bZoomPISupport),
    Integer("/root/vernierlensd/zoom/pi/searchstep", tConfig.dwZoomPISearchStep),
    Integer("/root/vernierlensd/zoom/pi/forwardshitf", tConfig.dwZoomPIForwardShift),
    Integer("/root/vernierlensd/zoom/pi/backwardshitf", tConfig.dwZoomPIBackwardShift),
    Integer("/root/vernierlensd/focus/virtual/start", tConfig.dwFocusVirtualStart),
    Integer("/root/vernierlensd/focus/virtual/end", tConfig.dwFocusVirtualEnd),
    Integer("/root/vernierlensd/focus/virtual/onestep", tConfig.dwFocusVirtualOneStep),
    Integer("/root/vernierlensd/focus/virtual/totalstep", tConfig.dwFocusVirtualTotalStep),
    Integer("/root/vernierlensd/focus/motor/totalstep", tConfig.dwFocusMotorTotalStep),
    Integer("/root/vernierlensd/focus/motor/positioningstep", tConfig.dwFocusMotorPositioningStep),
    Integer("/root/vernierlensd/focus/motor/reversecalibration", tConfig.dwFocusMotorReverseCalibration),
    Integer("/root/vernierlensd/focus/onesteptime", tConfig.dwFocusOneStepTime),
    Integer("/root/vernierlensd/focus/adjuststep", tConfig.dwFocusAdjustStep),
    Integer("/root/vernierlensd/focus/pi/support", tConfig.bFocusPISupport),
    Integer("/root/vernierlensd/focus/pi/searchstep", tConfig.dwFocusPISearchStep),
    Integer("/root/vernierlensd/focus/pi/forwardshitf", tConfig.dwFocusPIForwardShift),
    Integer("/root/vernierlensd/focus/pi/backwardshitf", tConfig.dwFocusPIBackwardShift),
    Integer("/root/vernierlensd/focus/FlangeBackCompensation", tConfig.dwFlangeBackCompensation),
    Integer("/root/vernierlensd/search/range/firstlevel", tConfig.iSearchRangeFirstLevel),
    Integer("/root/vernierlensd/search/range/secondlevel", tConfig.iSearchRangeSecondLevel),
    Integer("/root/vernierlensd/search/range/thirdlevel", tConfig.iSearchRangeThirdLevel),
    Integer("/root/vernierlensd/search/step/finetune", tConfig.dwSearchStepFineTune),
    Integer("/root/vernierlensd/search/step/small", tConfig.dwSearchStepSmall),
    Integer("/root/vernierlensd/search/step/large", tConfig.dwSearchStepLarge),
    String("/root/vernierlensd/table/focusstart", tConfig.szFocusStartTable),
    Integer("/root/vernierlensd/onestepsearchtime", tConfig.dwOneStepSearchTime),
    Integer("/root/vernierlensd/openiristime", tConfig.dwOpenIrisTime),
    Integer("/root/vernierlensd/blockingmode", tConfig.bBlockingMode),
    Integer("/root/vernierlensd/finetunning", tConfig.bFineTuning),
    tEnd,
};

constexpr TTreeRow g_atChannelCountRows[] = {
    Integer("/root/capability/nvideoin", tConfig.iMaxDevNum),
    tEnd,
};

constexpr TTreeRow g_atCapabilityRows[] = {
    Integer("/root/capability/image/c0/vernierlens", tConfig.dwCapability),
    tEnd,
};

// Each count in the header is right: the row of zeroes is the last one, and there is no second one.
template <std::size_t dwRows>
constexpr bool EndsOnce(const TTreeRow (&atRows)[dwRows]) {
  return atRows[dwRows - 2].pszKey != nullptr && atRows[dwRows - 1].pszKey == nullptr;
}
static_assert(EndsOnce(g_atICSCurveRows) && EndsOnce(g_atConfigRows) && EndsOnce(g_atChannelCountRows) &&
              EndsOnce(g_atCapabilityRows));
