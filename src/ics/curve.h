// The curves of an ICS lens: polynomials of degree 10 whose coefficients come as the bits of IEEE 754 single-precision
// numbers.
//
// The result reaches the motor position, so the arithmetic is fixed to the bit, and the integer made from it is the
// same on every processor.  Any thread; a row is borrowed and never null: one that did not load whole is not there.
#pragma once

#include "core/types.h"

constexpr i32 iCurveTerms = 11;

// The words of a curve file from its first coefficient on, as they were read.
struct TCurveRow {
  u32 adwWord[15];  // c0 to c10, one word without a use, three that stay 0
};
static_assert(sizeof(TCurveRow) == 60);

// The curve's value.  Each power and each term is formed in double precision, the term with one fused multiply-add; the
// sum is kept in single precision.
float ICS_EvaluateCurve(const TCurveRow* ptRow, float fX);

// Cuts toward zero.  Beyond i32 the nearest end; a NaN is 0.
i32 ICS_CutToInteger(float fValue);

// Focus position, or night focus shift, at a zoom position.
i32 ICS_PositionAt(const TCurveRow* ptRow, u32 dwZoomPos);

// Focus shift for a change of temperature in whole degrees.
i32 ICS_ShiftAt(const TCurveRow* ptRow, i32 iDelta);

// Whole degrees Celsius of a sensor reading; the curve gives hundredths of a kelvin.  A broken curve gives any number
// there is: a difference of two results may not fit i32.
i32 ICS_DegreesAt(const TCurveRow* ptRow, i32 iAD);
