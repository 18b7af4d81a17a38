#include "ics/ics_day_night.h"

#include <cstdio>

#include "core/fail.h"
#include "core/paths.h"

namespace {

// Within the range a position takes the table entry of the position one step below.  The configuration's flange back
// compensation does not apply to an ICS lens.
i32 NightOffset(const TVernierLensdInfo* pThis, const TIRCutState& tIRCut, i32 iChannel, bool bNight) {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  if (tIRCut.bIRLedEnabled == 0 && tIRCut.bExtLedEnabled == 0) return 0;
  if (Word_Load(pThis->bICSDetached) != 0) return 0;
  if (g_pdwtabICSNightFocusShiftTable == nullptr || tConfig.dwZoomVirtualTotalStep == 0) return 0;
  const u32 dwZoom = Word_Load(pThis->adwZoomMotorPosition[iChannel]);
  u32 dwEntry = 0;
  if (dwZoom > tConfig.dwZoomVirtualEnd) {
    dwEntry = tConfig.dwZoomVirtualTotalStep - 1;
  } else if (dwZoom > tConfig.dwZoomVirtualStart) {
    dwEntry = dwZoom - tConfig.dwZoomVirtualStart - 1;
    std::printf("Zoom Current[%d] : Offset %d \n", static_cast<i32>(dwEntry), g_pdwtabICSNightFocusShiftTable[dwEntry]);
  }
  const i32 iEntry = g_pdwtabICSNightFocusShiftTable[dwEntry];
  return bNight ? iEntry : static_cast<i32>(0U - static_cast<u32>(iEntry));
}

}  // namespace

i32 ICS_LoadNightMode(TVernierLensdInfo* pThis) {
  Word_Store(pThis->bDayNightCorrection, 1);
  Word_Store(pThis->iCurChannel, 0);
  return NightMode_Load(pThis, szICSPositionsPath, "[init  DNS]%d\n") == 0 ? 0 : Fail("[vernierlensd] : fopen failed!");
}

bool ICS_DayNightShift_Check(TVernierLensdInfo* pThis, TIRCutState* ptIRCut) {
  return DayNight_Check(pThis, ptIRCut, NightOffset);
}
