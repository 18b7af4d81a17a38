// The physics of the ICS lens, and its characterisation as curve files.
//
// Assumptions, from which both the true lens and the files are made, so that every number stands once:
//   - a vari-focal lens whose sharp focus for an object at infinity is a parabola over the zoom position;
//   - a near object moves it up by the square of the focal length over the distance, and the focal length grows
//   linearly
//     with the zoom position;
//   - a change of temperature moves it in proportion, the more so the longer the focal length;
//   - infra-red light moves it up, linearly over the zoom position;
//   - the sensor is linear: so many counts a degree, fewer when it is warmer.
// Each is a polynomial in what the curve files take as their argument, so the coefficients are the model's own and no
// fit is needed; what is lost is their rounding to single precision.  Positions are the driver's own.
#pragma once

#include <span>

#include "core/types.h"

double ICSOptics_SharpFocus(double dZoom, double dDistance_m, double dTemperature_C, bool bNight);

// What the sensor reads.
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
