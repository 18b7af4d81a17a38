#include "lens/shift_tables.h"

#include <cmath>

#include "lens/optics.h"

namespace {

double NightShift(const TLensModel& tModel, double dZoom) {
  return Optics_SharpFocus(tModel, dZoom, dPanDistance_m, dPanTemperature_C, true) -
         Optics_SharpFocus(tModel, dZoom, dPanDistance_m, dPanTemperature_C, false);
}

// By how much a degree moves the sharp focus, up or down.
double DriftPerDegree(const TLensModel& tModel, double dZoom) {
  return std::fabs(Optics_SharpFocus(tModel, dZoom, dPanDistance_m, dPanTemperature_C + 1, false) -
                   Optics_SharpFocus(tModel, dZoom, dPanDistance_m, dPanTemperature_C, false));
}

i32 Rounded(double d) {
  return static_cast<i32>(std::lround(d));
}

}  // namespace

u32 NightTable_FirstIndex(const TLensModel& tModel, u32 dwRange) {
  return tModel.tZoom.dwTotalStep * dwRange / dwNightRanges;
}

i32 NightTable_Offset(const TLensModel& tModel, u32 dwRange) {
  const double dFirst = NightTable_FirstIndex(tModel, dwRange) + 1;
  const double dLast = NightTable_FirstIndex(tModel, dwRange + 1);
  return Rounded(NightShift(tModel, (dFirst + dLast) / 2));
}

u32 ThermalTable_Zoom(const TLensModel& tModel, u32 dwRow) {
  return tModel.tZoom.dwTotalStep * dwRow / dwThermalRows;
}

i32 ThermalTable_Focus(const TLensModel& tModel, u32 dwRow, i32 iColumn) {
  return Rounded(Optics_SharpFocus(tModel, ThermalTable_Zoom(tModel, dwRow), dPanDistance_m,
                                   ThermalTable_Temperature(iColumn), false));
}

double Optics_ThermalAllowance(const TLensModel& tModel, double dZoom) {
  constexpr i32 iHysteresis_C = 1;
  constexpr i32 iSpan_C = (iThermalColumns - 1) * iThermalStep_C;
  constexpr double dRoundings = 2 * 0.5;
  u32 dwRow = 0;
  while (dwRow + 1 < dwThermalRows && ThermalTable_Zoom(tModel, dwRow + 1) <= dZoom) ++dwRow;
  const double dTrue = DriftPerDegree(tModel, dZoom);
  const double dTable = DriftPerDegree(tModel, ThermalTable_Zoom(tModel, dwRow));
  return dTrue * (iThermalStep_C + iHysteresis_C) + std::fabs(dTrue - dTable) * iSpan_C + dRoundings;
}
