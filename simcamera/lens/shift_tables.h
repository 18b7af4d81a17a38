// The tables of focus shifts that a camera's configuration has for its lens, made from the optics, and how far a daemon
// that goes by them may be off for that alone.  Focus and zoom in virtual steps.
#pragma once

#include "lens/lens_model.h"

// Night: the zoom is cut into equal ranges; zoom position p belongs to table index p - 1.
constexpr u32 dwNightRanges = 16;
u32 NightTable_FirstIndex(const TLensModel& tModel, u32 dwRange);
// What infra-red light adds to the sharp position in the middle of a range, rounded.  A lens without zoom has one
// range.
i32 NightTable_Offset(const TLensModel& tModel, u32 dwRange);

// Temperature: a sharp focus position, at the distance of the pan table and by day, for every row of zoom and column of
// temperature.  Row and column that apply are the last ones not above the zoom and the temperature.
constexpr i32 iThermalColumns = 13;
constexpr i32 iThermalFirst_C = -10, iThermalStep_C = 5;
constexpr u32 dwThermalRows = 8;
constexpr i32 ThermalTable_Temperature(i32 iColumn) {
  return iThermalFirst_C + iColumn * iThermalStep_C;
}
u32 ThermalTable_Zoom(const TLensModel& tModel, u32 dwRow);
i32 ThermalTable_Focus(const TLensModel& tModel, u32 dwRow, i32 iColumn);

// The most by which a focus that was sharp once, and has been shifted by the table ever since while the zoom stood at
// dZoom, may be off after a check: |true shift - table shift|.  A chain of references comes to the difference of two
// columns, that of the temperature at which the focus was sharp and that of the last reference, so
//   - the first stands up to a column step above its column, while the last reference may be one degree below its own
//     column's first one or a degree above its last one, and a sensor of whole degrees hides up to one more: together
//     less than a column step and a degree, in either direction;
//   - the row's zoom is not the true one: what their drifts differ by in a degree, over the table's whole span;
//   - both columns are rounded, half a step each.
// Holds from the first column up to a column step above the last.  Whoever compares while the temperature moves adds
// what it may have moved since the last check, and the rounding of the position at which the focus was sharp.
double Optics_ThermalAllowance(const TLensModel& tModel, double dZoom);
