// The curves of an ICS lens: polynomials of degree 10 whose coefficients come as the bits of IEEE 754 single-precision
// numbers.
//
// The result becomes a motor position.  So the arithmetic is fixed to the bit, and every processor makes the same
// integer of it.  Any thread.  A row is borrowed and never null: the caller leaves out curves that did not load whole.
#pragma once

#include "core/types.h"

constexpr i32 iCurveTerms = 11;

// The words of a curve file from its first coefficient on, as they were read.
struct TCurveRow {
  u32 adwWord[15];  // c0 to c10, one unused word, three that stay 0
};
static_assert(sizeof(TCurveRow) == 60);

// Returns the curve's value.  Each power is formed in double precision.  One fused multiply-add in double precision
// adds each term; the sum is then rounded to single precision.
float ICS_EvaluateCurve(const TCurveRow* ptRow, float fX);

// Cuts toward zero.  A value outside i32 gives the nearest end of i32; a NaN gives 0.
i32 ICS_CutToInteger(float fValue);

// Returns the focus position, or the night focus shift, for a zoom position.
i32 ICS_PositionAt(const TCurveRow* ptRow, u32 dwZoomPos);

// Returns the focus shift for a change of temperature in whole degrees.
i32 ICS_ShiftAt(const TCurveRow* ptRow, i32 iDelta);

// Returns the whole degrees Celsius of a sensor reading; the curve itself gives hundredths of a kelvin.  A broken curve
// can give any number, so the difference of two results may not fit into i32.
i32 ICS_DegreesAt(const TCurveRow* ptRow, i32 iAD);
