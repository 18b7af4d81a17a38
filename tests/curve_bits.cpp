// Evaluates curves for curve_reference.py.  A line of input: twelve words of a row in hexadecimal, then an argument.
// A line of output: the curve's bits at the argument, and the integers made from it.
#include <bit>
#include <cmath>
#include <cstdio>

#include "ics/curve.h"

int main() {
  TCurveRow tRow = {};
  for (;;) {
    for (int i = 0; i < 12; i++) {
      if (std::scanf("%x", &tRow.adwWord[i]) != 1) return std::feof(stdin) != 0 && i == 0 ? 0 : 1;
    }
    i32 iX = 0;
    if (std::scanf("%d", &iX) != 1) return 1;
    const float fValue = ICS_EvaluateCurve(&tRow, static_cast<float>(iX));
    const u32 dwBits = std::isnan(fValue) ? 0x7FC00000U : std::bit_cast<u32>(fValue);  // a NaN may have either sign
    std::printf("%08x %d %d %d\n", dwBits, ICS_ShiftAt(&tRow, iX), ICS_PositionAt(&tRow, static_cast<u32>(iX)),
                ICS_DegreesAt(&tRow, iX));
  }
}
