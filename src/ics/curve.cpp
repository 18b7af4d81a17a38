#include "ics/curve.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

static_assert(std::numeric_limits<float>::is_iec559 && std::numeric_limits<double>::is_iec559);

namespace {

constexpr i32 iZeroCelsius = 273;  // kelvin; the sensor's curves are made for this rounded value

}  // namespace

float ICS_EvaluateCurve(const TCurveRow* ptRow, float fX) {
  const double dX = fX;
  float fSum = 0;
  for (i32 k = 0; k < iCurveTerms; k++) {
    const double dPower = std::pow(dX, static_cast<double>(k));  // pow(0, 0) is 1: c0 counts at 0 as well
    const double dCoefficient = std::bit_cast<float>(ptRow->adwWord[k]);
    fSum = static_cast<float>(std::fma(dCoefficient, dPower, static_cast<double>(fSum)));
  }
  return fSum;
}

// A plain cast of a value that does not fit gives different results on different processors.
i32 ICS_CutToInteger(float fValue) {
  constexpr float fBeyond = 2147483648.0F;
  if (std::isnan(fValue)) return 0;
  if (fValue >= fBeyond) return std::numeric_limits<i32>::max();
  if (fValue <= -fBeyond) return std::numeric_limits<i32>::min();
  return static_cast<i32>(fValue);
}

i32 ICS_PositionAt(const TCurveRow* ptRow, u32 dwZoomPos) {
  return ICS_CutToInteger(ICS_EvaluateCurve(ptRow, static_cast<float>(dwZoomPos)));
}

i32 ICS_ShiftAt(const TCurveRow* ptRow, i32 iDelta) {
  return ICS_CutToInteger(ICS_EvaluateCurve(ptRow, static_cast<float>(iDelta)));
}

i32 ICS_DegreesAt(const TCurveRow* ptRow, i32 iAD) {
  constexpr i32 iLowest = std::numeric_limits<i32>::min() + iZeroCelsius;
  const float fKelvin = ICS_EvaluateCurve(ptRow, static_cast<float>(iAD)) / 100.0F;
  return std::max(ICS_CutToInteger(fKelvin), iLowest) - iZeroCelsius;
}
