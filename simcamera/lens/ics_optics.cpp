#include "lens/ics_optics.h"

#include <cmath>
#include <iterator>

namespace {

constexpr double dBase = 600, dSlope = 1.1, dBend = -2e-4;  // infinity: dBase + dSlope z + dBend z^2
constexpr double dFocalWide = 0.9, dFocalSlope = 1e-3;      // focal length: dFocalWide + dFocalSlope z
constexpr double dNear = 60;                                // times the focal length squared, over metres
constexpr double dPerDegree = -1.2, dPerDegreeSlope = -6e-4;
constexpr double dReference_C = 25;
constexpr double dInfraRed = 25, dInfraRedSlope = 0.01;
constexpr i32 iCountsPerDegree = 5, iADAtZero = 600;

constexpr double g_adDistances_m[] = {1.5, 2.5, 5, 10, 1000};
constexpr u32 g_adwTemperatureZooms[] = {100, 600, 1100, 1600, 2100};
// Wave length codes of the infra-red files; the lamps of the camera have code 1.
constexpr u32 g_adwWaveLengths[] = {2, 1, 3};
constexpr double g_adWaveFactors[] = {0.8, 1, 1.15};

double Thermal(double dZoom) {
  return dPerDegree + dPerDegreeSlope * dZoom;
}

TCurveSheet Tracking(double dDistance_m) {
  const double dNearShare = dNear / dDistance_m;
  return {.dwToken1 = static_cast<u32>(dDistance_m * 100),
          .dwToken2 = 0,
          .afCoefficients = {static_cast<float>(dBase + dNearShare * dFocalWide * dFocalWide),
                             static_cast<float>(dSlope + dNearShare * 2 * dFocalWide * dFocalSlope),
                             static_cast<float>(dBend + dNearShare * dFocalSlope * dFocalSlope)}};
}

}  // namespace

const TCurveFamily g_atCurveFamilies[CURVE_FAMILIES] = {
    {"tracking_curve", "trackcurve", std::size(g_adDistances_m)},
    {"temp_curve", "tempcurve", std::size(g_adwTemperatureZooms)},
    {"ad_curve", "adcurve", 1},
    {"ir_curve", "ircurve", std::size(g_adwWaveLengths)},
};

double ICSOptics_SharpFocus(double dZoom, double dDistance_m, double dTemperature_C, bool bNight) {
  const double dFocal = dFocalWide + dFocalSlope * dZoom;
  return dBase + dSlope * dZoom + dBend * dZoom * dZoom + dNear * dFocal * dFocal / dDistance_m +
         Thermal(dZoom) * (dTemperature_C - dReference_C) + (bNight ? dInfraRed + dInfraRedSlope * dZoom : 0);
}

i32 ICSOptics_AD(double dTemperature_C) {
  const i32 iAD = static_cast<i32>(std::floor(iADAtZero - iCountsPerDegree * dTemperature_C + 0.5));
  return iAD > iICSColdestAD ? iICSColdestAD : iAD < iICSHottestAD ? iICSHottestAD : iAD;
}

TCurveSheet ICSOptics_Curve(ECurveFamily eFamily, u32 dwFile) {
  switch (eFamily) {
    case CURVE_TRACKING:
      return Tracking(g_adDistances_m[dwFile]);
    case CURVE_TEMPERATURE: {
      const u32 dwZoom = g_adwTemperatureZooms[dwFile];
      return {.dwToken1 = dwZoom,
              .dwToken2 = static_cast<u32>(dReference_C),
              .afCoefficients = {0, static_cast<float>(Thermal(dwZoom))}};
    }
    case CURVE_AD:  // hundredths of a kelvin
      return {.dwToken1 = 0,
              .dwToken2 = 0,
              .afCoefficients = {27300 + 100.0F * iADAtZero / iCountsPerDegree, -100.0F / iCountsPerDegree}};
    case CURVE_IR: {
      const double dFactor = g_adWaveFactors[dwFile];
      return {
          .dwToken1 = g_adwWaveLengths[dwFile],
          .dwToken2 = 0,
          .afCoefficients = {static_cast<float>(dFactor * dInfraRed), static_cast<float>(dFactor * dInfraRedSlope)}};
    }
    case CURVE_FAMILIES:
      break;
  }
  return {};
}
