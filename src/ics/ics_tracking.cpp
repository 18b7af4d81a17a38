#include "ics/ics_tracking.h"

#include <cstdio>
#include <cstdlib>
#include <limits>

#include "ics/curve_tables.h"

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
  const TCurveRow* ptCurve = ICS_TrackingCurve(iCurve);
  if (ptCurve == nullptr) {
    Word_Store(pThis->adwPanFocus[iDev], Word_Load(pThis->adwFocusMotorPosition[iDev]));
    return;
  }
  const i32 iFocus = ICS_PositionAt(ptCurve, dwZoomPos);
  std::printf("PanFocus Shift %d\n", iFocus);
  Word_Store(pThis->adwPanFocus[iDev], static_cast<u32>(iFocus));
}
