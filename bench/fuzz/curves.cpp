// Fuzzes the curve files of an ICS lens: the tables must agree with the curves.  Each part of the input is a file, and
// every kind of curve gets the same files.
#include <algorithm>
#include <limits>

#include "core/paths.h"
#include "fuzz.h"
#include "ics/curve_tables.h"
#include "motor/motor_device.h"

namespace {

constexpr i32 iLowest = std::numeric_limits<i32>::min();
constexpr i32 iHighest = std::numeric_limits<i32>::max();

void PutFiles(const std::vector<std::string>& asFiles) {
  Files_Clear();
  for (const char* szPaths : {szTrackingCurvePaths, szTempCurvePaths, szADCurvePaths, szIRCurvePaths}) {
    const std::string sPath(szPaths);  // ends in "%d"
    for (std::size_t dw = 0; dw < asFiles.size(); dw++) {
      Files_Put(sPath.substr(0, sPath.size() - 2) + std::to_string(dw), asFiles[dw]);
    }
  }
}

void Evaluate(const TCurveRow* ptRow) {
  if (ptRow == nullptr) return;
  for (const i32 iAt : {iLowest, -300, 0, 700, iHighest}) {
    ICS_ShiftAt(ptRow, iAt);
    ICS_PositionAt(ptRow, static_cast<u32>(iAt));
  }
}

void CheckAD(i32 iMin, i32 iMax) {
  for (const i32 iAD : {iLowest, -2, 0, 17, 63, iHighest}) {
    const i32 iNearest = iAD < iMax ? iMax : std::min(iAD, iMin);
    const bool bTable = g_pdwtabADValueTable != nullptr;
    const i32 iWanted = bTable ? ICS_DegreesAt(g_pdwtabRawADCurveTable, iNearest) : 0;
    Check(ICS_ADToTemperature(iAD) == iWanted, "a temperature is the curve's at the nearest reading");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* pbyInput, std::size_t dwInput) {
  constexpr i32 aiReadings[] = {0, 1, 40, 64, -1, iLowest, iHighest, 2};
  std::string_view sInput = Input_Text(pbyInput, dwInput);
  TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  tConfig = {};
  const i32 iMin = aiReadings[Input_Choose(sInput, 8)];
  const i32 iMax = aiReadings[Input_Choose(sInput, 8)];
  Driver_Answer(ICS_GET_MIN_AD, iMin);
  Driver_Answer(ICS_GET_MAX_AD, iMax);
  tConfig.dwZoomVirtualStart = Input_Choose(sInput, 8);
  tConfig.dwZoomVirtualTotalStep = Input_Choose(sInput, 64) - 1;
  const std::vector<std::string> asFiles = Fields(sInput, '|');
  const i32 iFiles = static_cast<i32>(asFiles.size());
  PutFiles(asFiles);
  tConfig.iTrackCurveCount = tConfig.iTempCurveCount = tConfig.iADCurveCount = tConfig.iIRCurveCount = iFiles;

  TVernierLensdInfo tInfo = {};
  Check(ICS_LoadTrackCurve(&tInfo) == 0 && ICS_LoadTempCurve(&tInfo) == 0 && ICS_LoadADValue(&tInfo) == 0, "it loads");
  for (i32 i = -1; i <= iFiles; i++) {
    Evaluate(ICS_TrackingCurve(i));
    Check((ICS_TempCurve(i) == nullptr) == (ICS_TrackingCurve(i) == nullptr), "a file is whole for every kind");
  }
  CheckAD(iMin, iMax);
  const i32 iEntries = ICS_LoadIRValue(&tInfo) == 0 ? static_cast<i32>(tConfig.dwZoomVirtualTotalStep) : 0;
  for (i32 i = 0; i < iEntries; i++) {
    const i32 iWanted = ICS_PositionAt(g_pdwtabIRCurveTable, tConfig.dwZoomVirtualStart + static_cast<u32>(i));
    Check(g_pdwtabICSNightFocusShiftTable[i] == iWanted, "a night shift is the curve's");
  }
  ICSTables_Release();
  Check(ICS_TrackingCurve(0) == nullptr && ICS_ADToTemperature(5) == 0, "nothing is left of the tables");
  return 0;
}
