#include "lens/optics.h"

#include <algorithm>
#include <cmath>

#include "lens/ics_optics.h"

namespace {

constexpr double dSearchMargin = 0.07;  // a search starts by this part of the range below the lowest sharp position

// In widths of the peak: at this distance 1 / (1 + x^2)^1.5 is 0.95.
constexpr double dDepth = 0.1865125;
constexpr double Cube(double d) {
  return d * d * d;
}
static_assert(Cube(1 + dDepth * dDepth) * 0.95 * 0.95 > 0.999999 && Cube(1 + dDepth * dDepth) * 0.95 * 0.95 < 1.000001);

// The zoom as a number from 0 (wide) to 1 (tele).
double ZoomShare(const TLensModel& tModel, double dZoom) {
  if (tModel.tZoom.dwTotalStep == 0) return 0;
  const double dShare = dZoom / tModel.tZoom.dwTotalStep;
  return dShare < 0 ? 0 : dShare > 1 ? 1 : dShare;
}

// A peak of height 1 at 0.
double PeakShare(double dOff) {
  const double dSpread = 1 + dOff * dOff;
  return 1 / (dSpread * std::sqrt(dSpread));
}

u32 Clamp(const TAxisSheet& tSheet, double dPosition) {
  if (dPosition < tSheet.dwStart) return tSheet.dwStart;
  if (dPosition > tSheet.dwEnd) return tSheet.dwEnd;
  return static_cast<u32>(dPosition + 0.5);
}

}  // namespace

double Optics_SharpFocus(const TLensModel& tModel, double dZoom, double dDistance_m, double dTemperature_C,
                         bool bNight) {
  if (Model_IsICS(tModel)) return ICSOptics_SharpFocus(dZoom, dDistance_m, dTemperature_C, bNight);
  const TOptics& tOptics = tModel.tOptics;
  const double dShare = ZoomShare(tModel, dZoom);
  // A vari-focal lens: the curve rises everywhere, steeply at the wide end, less towards tele.
  const double dCurve = dShare * (1.6 - 0.6 * dShare);
  const double dInfinity = tOptics.dWide + (tOptics.dTele - tOptics.dWide) * dCurve;
  // The image of a near object lies farther back, by the square of the focal length divided by the distance.
  const double dFocal = 1 + (tOptics.dMagnification - 1) * dShare;
  const double dNear = tOptics.dNearWide * dFocal * dFocal / dDistance_m;
  const double dPerDegree = tOptics.dPerDegree + (tOptics.dPerDegreeTele - tOptics.dPerDegree) * dShare;
  const double dThermal = dPerDegree * (dTemperature_C - dPanTemperature_C);
  const double dInfraRed = bNight ? tOptics.dNight * dFocal : 0;
  return dInfinity + dNear + dThermal + dInfraRed;
}

double Optics_PeakWidth(const TLensModel& tModel, const TScene& tScene, double dZoom) {
  const TOptics& tOptics = tModel.tOptics;
  const double dShare = ZoomShare(tModel, dZoom);
  return tScene.dWidth * (tOptics.dPeakWide + (tOptics.dPeakTele - tOptics.dPeakWide) * dShare);
}

double Optics_FocusValue(const TLensModel& tModel, const TScene& tScene, double dZoom, double dFocus, double dSharp) {
  const double dWidth = Optics_PeakWidth(tModel, tScene, dZoom);
  const double dRange = tModel.tFocus.dwTotalStep;
  const double dSecond = dSharp + (dSharp < dRange / 2 ? dSecondPeakAway : -dSecondPeakAway) * dRange;
  const double dFirstShare = PeakShare((dFocus - dSharp) / dWidth);
  const double dSecondShare = tScene.dSecondPeak * PeakShare((dFocus - dSecond) / dWidth);
  return tScene.dFloor + tScene.dPeak * (dFirstShare > dSecondShare ? dFirstShare : dSecondShare);
}

double Optics_DepthOfFocus(const TLensModel& tModel, const TScene& tScene, double dZoom) {
  return dDepth * Optics_PeakWidth(tModel, tScene, dZoom);
}

u32 Optics_PanFocus(const TLensModel& tModel, u32 dwZoom) {
  return Clamp(tModel.tFocus, Optics_SharpFocus(tModel, dwZoom, dPanDistance_m, dPanTemperature_C, false));
}

u32 Optics_SearchStart(const TLensModel& tModel, u32 dwZoom) {
  const double dMargin = dSearchMargin * tModel.tFocus.dwTotalStep;
  // The lowest sharp position is that of an object at infinity, on the hottest or the coldest day, by day or at night.
  constexpr double dInfinity_m = 1e6, dHottest_C = 60, dColdest_C = -10;
  double dLowest = Optics_SharpFocus(tModel, dwZoom, dInfinity_m, dHottest_C, false);
  for (const double dTemperature_C : {dColdest_C, dHottest_C}) {
    for (const bool bNight : {false, true}) {
      dLowest = std::min(dLowest, Optics_SharpFocus(tModel, dwZoom, dInfinity_m, dTemperature_C, bNight));
    }
  }
  return Clamp(tModel.tFocus, dLowest - dMargin);
}
