// The tables of focus shifts in a camera's configuration, made from the optics, and the error that these tables alone
// may cause.  Focus and zoom in virtual steps.
#pragma once

#include "lens/lens_model.h"

// Night: the zoom is cut into equal ranges; zoom position p belongs to table index p - 1.
constexpr u32 dwNightRanges = 16;
u32 NightTable_FirstIndex(const TLensModel& tModel, u32 dwRange);
// What infra-red light adds to the sharp position in the middle of a range, rounded.  A lens without zoom has one
// range only.
i32 NightTable_Offset(const TLensModel& tModel, u32 dwRange);

// Temperature: each row (zoom) and column (temperature) has a sharp focus position, at the distance of the pan table
// and by day.  The daemon uses the last row not above the zoom and the last column not above the temperature.
constexpr i32 iThermalColumns = 13;
constexpr i32 iThermalFirst_C = -10, iThermalStep_C = 5;
constexpr u32 dwThermalRows = 8;
constexpr i32 ThermalTable_Temperature(i32 iColumn) {
  return iThermalFirst_C + iColumn * iThermalStep_C;
}
u32 ThermalTable_Zoom(const TLensModel& tModel, u32 dwRow);
i32 ThermalTable_Focus(const TLensModel& tModel, u32 dwRow, i32 iColumn);

// The largest error of a focus that was sharp once and has been shifted by the table since, right after a check, with
// the zoom always at dZoom: |true shift - table shift|.  All shifts together are the difference of two columns: that of
// the temperature at which the focus was sharp, and that of the last reference.  So the error has three parts:
//   - The first temperature lies up to a column step above its column.  The last reference may be a degree below the
//     first degree of its column or a degree above its last one, and a sensor of whole degrees hides up to one more.
//     Together this is less than a column step and a degree, in either direction.
//   - The row's zoom is not the true one.  The drifts of both differ for each degree of the table's whole span.
//   - Both columns are rounded, half a step each.
// Valid from the first column up to a column step above the last.  If the temperature moves, add what it may have moved
// since the last check, and the rounding of the position at which the focus was sharp.
double Optics_ThermalAllowance(const TLensModel& tModel, double dZoom);
