// The physics of the ICS lens, and the curve files that describe it.
//
// Both the true lens and the files are made from these assumptions, so that every number stands once:
//   - a vari-focal lens whose sharp focus for an object at infinity is a parabola over the zoom position;
//   - a near object moves it up in proportion to the square of the focal length over the distance, and the focal length
//     grows linearly with the zoom position;
//   - a change of temperature moves it in proportion, more so with a longer focal length;
//   - infra-red light moves it up, linearly over the zoom position;
//   - the sensor is linear: a fixed number of counts less for each degree.
// Each is a polynomial of the argument of its curve file, so the coefficients are exact but for their rounding to
// single precision.  Positions are those of the driver.
#pragma once

#include <span>

#include "core/types.h"

double ICSOptics_SharpFocus(double dZoom, double dDistance_m, double dTemperature_C, bool bNight);

// The value of the temperature sensor.
i32 ICSOptics_AD(double dTemperature_C);
constexpr i32 iICSColdestAD = 800, iICSHottestAD = 175;

enum ECurveFamily : u32 { CURVE_TRACKING, CURVE_TEMPERATURE, CURVE_AD, CURVE_IR, CURVE_FAMILIES };

struct TCurveFamily {
  const char* pszName;   // of its files, "NAME_y0" and so on
  const char* pszCount;  // element of config_ics.xml
  u32 dwFiles;
};
extern const TCurveFamily g_atCurveFamilies[CURVE_FAMILIES];

constexpr u32 dwCurveCoefficients = 11;

struct TCurveSheet {
  u32 dwToken1, dwToken2;  // integers in front of the coefficients
  float afCoefficients[dwCurveCoefficients];
};
TCurveSheet ICSOptics_Curve(ECurveFamily eFamily, u32 dwFile);
