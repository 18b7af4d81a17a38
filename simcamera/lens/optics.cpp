#include "lens/optics.h"

#include <cmath>

namespace {

constexpr double dFloor = 2000;         // focus value of an image wholly out of focus
constexpr double dPeak = 60000;         // added where it is sharp
constexpr double dSearchMargin = 0.07;  // of the focus range, kept below the lowest sharp position

// The zoom from 0, wide, to 1, tele.
double ZoomShare(const TLensModel& tModel, double dZoom) {
  if (tModel.tZoom.dwTotalStep == 0) return 0;
  const double dShare = dZoom / tModel.tZoom.dwTotalStep;
  return dShare < 0 ? 0 : dShare > 1 ? 1 : dShare;
}

u32 Clamp(const TAxisSheet& tSheet, double dPosition) {
  if (dPosition < tSheet.dwStart) return tSheet.dwStart;
  if (dPosition > tSheet.dwEnd) return tSheet.dwEnd;
  return static_cast<u32>(dPosition + 0.5);
}

}  // namespace

double Optics_SharpFocus(const TLensModel& tModel, double dZoom, double dDistance_m, double dTemperature_C,
                         bool bNight) {
  const TOptics& tOptics = tModel.tOptics;
  const double dShare = ZoomShare(tModel, dZoom);
  // A vari-focal lens: steep at the wide end, flatter towards tele, rising all the way.
  const double dCurve = dShare * (1.6 - 0.6 * dShare);
  const double dInfinity = tOptics.dWide + (tOptics.dTele - tOptics.dWide) * dCurve;
  // The image of a near object lies farther back by the square of the focal length over the distance.
  const double dFocal = 1 + (tOptics.dMagnification - 1) * dShare;
  const double dNear = tOptics.dNearWide * dFocal * dFocal / dDistance_m;
  const double dThermal = tOptics.dPerDegree * (dTemperature_C - dPanTemperature_C);
  const double dInfraRed = bNight ? tOptics.dNight * dFocal : 0;
  return dInfinity + dNear + dThermal + dInfraRed;
}

u32 Optics_FocusValue(const TLensModel& tModel, double dFocus, double dSharp) {
  const double dOff = (dFocus - dSharp) / tModel.tOptics.dHalfWidth;
  const double dSpread = 1 + dOff * dOff;
  return static_cast<u32>(dFloor + dPeak / (dSpread * std::sqrt(dSpread)));
}

u32 Optics_PanFocus(const TLensModel& tModel, u32 dwZoom) {
  return Clamp(tModel.tFocus, Optics_SharpFocus(tModel, dwZoom, dPanDistance_m, dPanTemperature_C, false));
}

u32 Optics_SearchStart(const TLensModel& tModel, u32 dwZoom) {
  const double dMargin = dSearchMargin * tModel.tFocus.dwTotalStep;
  // The hottest day with the object at infinity is the lowest sharp position.
  constexpr double dInfinity_m = 1e6, dHottest_C = 60;
  return Clamp(tModel.tFocus, Optics_SharpFocus(tModel, dwZoom, dInfinity_m, dHottest_C, false) - dMargin);
}
