#include "ics/ics_tracking.h"

#include <cstdio>
#include <cstdlib>
#include <limits>

#include "ics/curve_tables.h"

namespace {

u32 PanFocusAt(const TVernierLensdInfo* pThis, i32 iCurve, u32 dwZoomPos, i32 iDev) {
  const TCurveRow* ptCurve = ICS_TrackingCurve(iCurve);
  return ptCurve != nullptr ? static_cast<u32>(ICS_PositionAt(ptCurve, dwZoomPos))
                            : Word_Load(pThis->adwFocusMotorPosition[iDev]);
}

}  // namespace

void ICS_UpdateTrackingCurve(TVernierLensdInfo* pThis, u32 dwZoomPos) {
  const i32 iCurves = g_tVernierLensdConfigInfo.iTrackCurveCount;
  std::printf("Current ZoomPosition=%d\n", static_cast<i32>(dwZoomPos));
  if (g_pdwtabTrackingCurveTable == nullptr) return;
  for (i32 i = 0; i < iCurves; i++) {
    const TCurveRow* ptCurve = ICS_TrackingCurve(i);
    if (ptCurve != nullptr) std::printf("Tracking Curve Table[%d]%d\n", i, ICS_PositionAt(ptCurve, dwZoomPos));
  }
  const i32 iFocus = static_cast<i32>(Word_Load(pThis->adwFocusMotorPosition[pThis->tFocusBox.iRunningChannel]));
  i64 llBest = std::numeric_limits<i64>::max();
  for (i32 i = 0; i < iCurves; i++) {
    const TCurveRow* ptCurve = ICS_TrackingCurve(i);
    if (ptCurve == nullptr) continue;
    const i64 llDistance = std::abs(i64{iFocus} - i64{ICS_PositionAt(ptCurve, dwZoomPos)});
    if (llDistance > llBest) continue;
    Word_Store(pThis->iTrackingCurveIndex, i);
    std::printf("Tracking Curve update  [%d]\n", i);
    llBest = llDistance;
  }
}

void ICS_PanFocusShift(TVernierLensdInfo* pThis, u32 dwZoomPos, i32 iDev) {
  const i32 iCurve = Word_Load(pThis->iTrackingCurveIndex);
  std::printf("Current Tracking Curve [%d]\n", iCurve);
  const u32 dwFocus = PanFocusAt(pThis, iCurve, dwZoomPos, iDev);
  Word_Store(pThis->adwPanFocus[iDev], dwFocus);
  if (ICS_TrackingCurve(iCurve) != nullptr) std::printf("PanFocus Shift %d\n", static_cast<i32>(dwFocus));
}

u32 ICS_PanFocusAt(const TVernierLensdInfo* pThis, u32 dwZoomPos, i32 iDev) {
  return PanFocusAt(pThis, Word_Load(pThis->iTrackingCurveIndex), dwZoomPos, iDev);
}
