#include "ics/ics_temperature.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "core/wait.h"
#include "ics/curve_tables.h"
#include "ics/ics_driver.h"
#include "motor/command_box.h"

namespace {

constexpr i64 llToleratedWidth_C = 2;

// How a reading has changed the band.
struct TBandChange {
  i32 ideltaT;    // degrees to compensate, signed
  i64 llWidth_C;  // width of the band now
};

// The rows of the temperature curves on either side of a zoom position.  If only one row counts, both are that row.
struct TRowPair {
  i32 iLow, iUp;
};

bool IsDetached(const TVernierLensdInfo* pThis) {
  return Word_Load(pThis->bICSDetached) != 0;
}

// Returns the sensor's reading.  Below 0 the lens does not answer, and counts as detached from then on.
i32 ReadAD(TVernierLensdInfo* pThis, i32 fd) {
  pthread_mutex_lock(&gICSMutex);
  const i32 iAD = Motor_Request(fd, ICS_GET_AD_VALUE);
  if (iAD < 0) ICS_SetDetached(pThis);
  pthread_mutex_unlock(&gICSMutex);
  return iAD;
}

i32 Saturate(i64 ll) {
  return static_cast<i32>(std::clamp<i64>(ll, std::numeric_limits<i32>::min(), std::numeric_limits<i32>::max()));
}

TBandChange WidenBand(TVernierLensdInfo* pThis, i32 iTemperature) {
  if (iTemperature < pThis->iMin) {
    pThis->iMin = iTemperature;
    return {.ideltaT = Saturate(i64{iTemperature} - pThis->iMax), .llWidth_C = i64{pThis->iMax} - iTemperature};
  }
  if (iTemperature > pThis->iMax) {
    pThis->iMax = iTemperature;
    return {.ideltaT = Saturate(i64{iTemperature} - pThis->iMin), .llWidth_C = i64{iTemperature} - pThis->iMin};
  }
  return {.ideltaT = 0, .llWidth_C = i64{pThis->iMax} - pThis->iMin};
}

// Returns whether all curves have loaded.  A shift is never worked out from only a part of them.
bool HasAllCurves() {
  const i32 iCurves = g_tVernierLensdConfigInfo.iTempCurveCount;
  for (i32 i = 0; i < iCurves; i++) {
    if (ICS_TempCurve(i) == nullptr) return false;
  }
  return iCurves > 0;
}

i64 ZoomDifference(u32 dwZoom, i32 iRow) {
  return i64{static_cast<i32>(dwZoom)} - g_pdwtabZoomTempTable[iRow];
}

// Returns the lower of two rows that are equally near.
i32 NearestRow(u32 dwZoom) {
  i32 iNearest = 0;
  for (i32 i = 1; i < g_tVernierLensdConfigInfo.iTempCurveCount; i++) {
    if (std::abs(ZoomDifference(dwZoom, i)) < std::abs(ZoomDifference(dwZoom, iNearest))) iNearest = i;
  }
  return iNearest;
}

// Beyond the first or last row, and where both rows are for the same zoom position, only the nearest row counts.
TRowPair FindRows(u32 dwZoom) {
  const i32 iNearest = NearestRow(dwZoom);
  const i64 llDifference = ZoomDifference(dwZoom, iNearest);
  std::printf("iMinZoomDiff=%d  iMinindex=%d\n", Saturate(llDifference), iNearest);
  const TRowPair tRows = {.iLow = llDifference < 0 ? iNearest - 1 : iNearest,
                          .iUp = llDifference > 0 ? iNearest + 1 : iNearest};
  std::printf("[%d ~ %d]\n", tRows.iLow, tRows.iUp);
  const bool bInTable = tRows.iLow >= 0 && tRows.iUp < g_tVernierLensdConfigInfo.iTempCurveCount;
  if (bInTable && g_pdwtabZoomTempTable[tRows.iLow] != g_pdwtabZoomTempTable[tRows.iUp]) return tRows;
  return {.iLow = iNearest, .iUp = iNearest};
}

// Interpolates linearly between two rows, in single precision with one fused multiply-add.  The slope is never
// negative: a falling line is subtracted instead.
i32 Interpolate(u32 dwZoom, const TRowPair& tRows, i32 iLowShift, i32 iUpShift) {
  const u32 dwLowZoom = static_cast<u32>(g_pdwtabZoomTempTable[tRows.iLow]);
  const u32 dwUpZoom = static_cast<u32>(g_pdwtabZoomTempTable[tRows.iUp]);
  const float fFromLow = static_cast<float>(dwZoom - dwLowZoom);
  const float fSpan = static_cast<float>(dwUpZoom - dwLowZoom);
  const float fLow = static_cast<float>(iLowShift);
  const u32 dwRise = static_cast<u32>(iUpShift) - static_cast<u32>(iLowShift);
  if (iLowShift < iUpShift) {
    const float fSlope = static_cast<float>(static_cast<i32>(dwRise)) / fSpan;
    const i32 iShift = ICS_CutToInteger(std::fma(fFromLow, fSlope, fLow));
    std::printf("[low<up]iFocusDiffPos=%d\n", iShift);
    return iShift;
  }
  const float fSlope = static_cast<float>(static_cast<i32>(0U - dwRise)) / fSpan;
  const i32 iShift = ICS_CutToInteger(std::fma(-fFromLow, fSlope, fLow));
  std::printf("[low>up]iFocusDiffPos=%d\n", iShift);
  return iShift;
}

void PrintShifts(i32 ideltaT) {
  for (i32 i = 0; i < g_tVernierLensdConfigInfo.iTempCurveCount; i++) {
    std::printf("delta_x=%.2f\n", static_cast<double>(static_cast<float>(ideltaT)));
    std::printf("[%d]%d\n", i, ICS_ShiftAt(ICS_TempCurve(i), ideltaT));
  }
}

i32 FocusShift(u32 dwZoom, i32 ideltaT) {
  const TRowPair tRows = FindRows(dwZoom);
  PrintShifts(ideltaT);
  const i32 iLowShift = ICS_ShiftAt(ICS_TempCurve(tRows.iLow), ideltaT);
  if (tRows.iLow == tRows.iUp) {
    std::printf("[%d=%d]iFocusDiffPos=%d\n", tRows.iUp, tRows.iUp, iLowShift);
    return iLowShift;
  }
  const i32 iUpShift = ICS_ShiftAt(ICS_TempCurve(tRows.iUp), ideltaT);
  std::printf("[low]ptFocusShift=%d\n", iLowShift);
  std::printf("[up]ptFocusShift=%d\n", iUpShift);
  std::printf("[low]g_pdwtabZoomTempTable=%d\n", g_pdwtabZoomTempTable[tRows.iLow]);
  std::printf("[up]g_pdwtabZoomTempTable=%d\n", g_pdwtabZoomTempTable[tRows.iUp]);
  std::printf("pThis->dwZoomMotorPosition=%d\n", static_cast<i32>(dwZoom));
  return Interpolate(dwZoom, tRows, iLowShift, iUpShift);
}

// Returns false if a client's command came first.
bool ClaimMove(TVernierLensdInfo* pThis, i32 ideltaT) {
  const i32 iChannel = Word_Load(pThis->iCurChannel);
  const i32 iShift = FocusShift(Word_Load(pThis->adwZoomMotorPosition[iChannel]), ideltaT);
  std::printf("[vernierlensd] : Focus Temp Diff: %d\n", iShift);
  const u32 dwPosition = Word_Load(pThis->adwFocusMotorPosition[iChannel]) + static_cast<u32>(iShift);
  return Command_ClaimFocusMove(pThis, iChannel, dwPosition);
}

}  // namespace

void ICS_TemperatureInitial(TVernierLensdInfo* pThis, i32 fd) {
  if (IsDetached(pThis)) return;
  const i32 iOldAD = ReadAD(pThis, fd);
  const i32 iTemperature = ICS_ADToTemperature(iOldAD);
  pThis->iMin = iTemperature;
  pThis->iMax = iTemperature;
  std::printf("[init]iOldAD=%d AD2TempValue=%d\n", iOldAD, iTemperature);
}

bool ICS_TemperatureCheck(TVernierLensdInfo* pThis, i32 fd) {
  pThis->ptTime = Clock_UTC();
  // This is asked on each pass, and without the mutex, so that it need not wait for the end of a move.
  if (Motor_Request(fd, ICS_CHECK_DETACHED, 1) == 1) {
    std::puts("[vernierlensd] : [ICS] ICS Set Detached.");
    Word_Store(pThis->bICSDetached, 1);
  }
  const i32 iMinute = pThis->ptTime->tm_min;
  if (iMinute == pThis->iInitTime) return false;
  std::puts("One Mins fly");
  const i32 iCurrentAD = IsDetached(pThis) ? 0 : ReadAD(pThis, fd);
  const i32 iTemperature = ICS_ADToTemperature(iCurrentAD);
  std::printf("iCurrentAD=%d AD2TempValue=%d\n", iCurrentAD, iTemperature);
  std::printf("iMin=%d iMax=%d\n", pThis->iMin, pThis->iMax);
  const i32 iFormerMin = pThis->iMin;
  const i32 iFormerMax = pThis->iMax;
  const TBandChange tChange = WidenBand(pThis, iTemperature);
  std::printf("ideltaT =%d\n", tChange.ideltaT);
  const bool bMoves = tChange.llWidth_C > llToleratedWidth_C && !IsDetached(pThis) && HasAllCurves();
  if (bMoves && !ClaimMove(pThis, tChange.ideltaT)) {
    pThis->iMin = iFormerMin;  // the next pass must find the same change
    pThis->iMax = iFormerMax;
    return false;
  }
  if (bMoves) {
    pThis->iMin = iTemperature;
    pThis->iMax = iTemperature;
  }
  pThis->iInitTime = iMinute;
  return bMoves;
}
