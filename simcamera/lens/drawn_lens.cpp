#include "lens/drawn_lens.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string_view>

#include "lens/optics.h"
#include "lens/shift_tables.h"

namespace {

constexpr std::string_view sNamePrefix = "drawn-";
constexpr std::size_t dwMaxDigits = 9;

// Make only one draw in a statement: the order in which a compiler evaluates operands must not change the lens.
struct TDice {
  u64 Below(u64 qwBelow) { return qwBelow == 0 ? 0 : tEngine() % qwBelow; }
  u64 In(u64 qwLow, u64 qwHigh) { return qwLow + Below(qwHigh - qwLow + 1); }
  bool OneIn(u64 qwTimes) { return Below(qwTimes) == 0; }
  double Between(double dLow, double dHigh) {
    return dLow + (dHigh - dLow) * (static_cast<double>(tEngine() >> 11) / static_cast<double>(u64{1} << 53));
  }
  // Small and large numbers are equally likely: between 10 and 20 as often as between 1000 and 2000.
  u64 Spread(u64 qwLow, u64 qwHigh) {
    const u64 qwSpan = qwLow << Below(static_cast<u64>(std::bit_width(qwHigh / qwLow)));
    return std::min(qwHigh, qwSpan + Below(qwSpan));
  }

  std::mt19937_64 tEngine;
};

TLensModel g_tModel;

// What the rest of a model requires of one of its axes.
struct TAxisNeeds {
  bool bFocus;
  bool bPI;
  bool bReferenceAtStop = false;  // some walk uses the stop as reference
  bool bWalksStopAtPI = false;    // walks stop at the sensor, by MOTOR_CHECK_PI_WALK_STEPS
};

u32 PlaceIn(TDice& tDice, const TAxisSheet& tSheet) {
  return tSheet.dwStart + static_cast<u32>(tDice.Below(tSheet.dwEnd - tSheet.dwStart + 1));
}

void DrawRange(TDice& tDice, TAxisSheet& t) {
  const u64 qwSize = tDice.Below(24);
  const u64 qwRange = qwSize < 4   ? tDice.Spread(5, 30)
                      : qwSize < 7 ? tDice.Spread(3000, 60'000)
                                   : tDice.Spread(30, 3000);
  u64 qwOneStep = tDice.OneIn(4) ? 1 : tDice.Spread(1, 64);
  const u64 qwMostDriverSteps = tDice.OneIn(10) ? 200'000 : 40'000;
  while (qwRange * qwOneStep > qwMostDriverSteps && qwOneStep > 1) qwOneStep = (qwOneStep + 1) / 2;
  t.dwStart = tDice.OneIn(2) ? 0 : static_cast<u32>(tDice.Below(qwRange / 2 + 1));
  constexpr u64 qwHighestTarget = 65'535;
  if (qwRange + t.dwStart > qwHighestTarget) t.dwStart = 0;
  t.dwEnd = t.dwStart + static_cast<u32>(qwRange);
  t.dwTotalStep = t.dwEnd + static_cast<u32>(tDice.OneIn(2) ? 0 : tDice.Below(qwRange / 8 + 2));
  t.dwOneStep = static_cast<u32>(qwOneStep);
}

// The driver is as fast as the configured step time, sometimes only just.  It also keeps the time of one driver step in
// whole microseconds, rounded down: the daemon sleeps by that during walks to a stop.
void DrawTimes(TDice& tDice, TAxisSheet& t, bool bPI) {
  // Time from end to end.  Searches for a sensor take turns, and with one lens in eight they take above a minute.
  const u64 qwLongest_ns = bPI && !tDice.OneIn(8) ? 14'000'000'000 : 40'000'000'000;
  const u64 qwSlowest_ns = qwLongest_ns / (u64{t.dwTotalStep} * t.dwOneStep);
  t.qwStepTime_ns = std::max<u64>(std::min(tDice.Spread(100'000, 2'000'000), qwSlowest_ns), 20'000);
  const double dMargin = tDice.OneIn(4) ? 0 : tDice.Between(0, 1);
  const double dNeeds_us = static_cast<double>(t.qwStepTime_ns * t.dwOneStep) / 1000;
  const u32 dwTime_us = static_cast<u32>(std::floor(dNeeds_us * (1 + dMargin))) + 1;
  const u32 dwLeast_us = static_cast<u32>((t.qwStepTime_ns + 999) / 1000) * t.dwOneStep;
  t.dwOneStepTime_us = std::max(dwTime_us, dwLeast_us);
}

void DrawGears(TDice& tDice, TAxisSheet& t) {
  t.iSlack = static_cast<i32>(tDice.OneIn(4) ? 0 : tDice.Below(3 * t.dwOneStep + 1));
  const u32 dwLeast = (static_cast<u32>(t.iSlack) + t.dwOneStep - 1) / t.dwOneStep;
  t.dwAdjustStep = dwLeast + static_cast<u32>(tDice.OneIn(3) ? 0 : tDice.Below(6));
}

// Draws the stops below and above the range.  Without a sensor the stop is the reference.
void DrawStops(TDice& tDice, TAxisSheet& t, const TAxisNeeds& tNeeds) {
  const bool bReverse = t.bReverseCalibration != 0;
  const i32 iEnd = static_cast<i32>(t.dwEnd * t.dwOneStep);
  const i32 iBelow = tDice.OneIn(2) ? 0 : static_cast<i32>(tDice.Below(static_cast<u64>(iEnd) / 8 + 2));
  const i32 iAbove = tDice.OneIn(2) ? 0 : static_cast<i32>(tDice.Below(static_cast<u64>(iEnd) / 8 + 2));
  const bool bStopIsReference = !tNeeds.bPI || tNeeds.bReferenceAtStop;
  t.iOrigin = bStopIsReference && !bReverse ? 0 : iBelow;
  t.iTravel = t.iOrigin + iEnd + (bStopIsReference && bReverse ? 0 : iAbove);
}

void DrawSensor(TDice& tDice, TAxisSheet& t, const TAxisNeeds& tNeeds) {
  t.bPISupport = tNeeds.bPI ? 1 : 0;
  t.bCheckPIWalk = tDice.OneIn(2) ? 1 : 0;
  t.iPI = -1;
  if (!tNeeds.bPI) return;
  const i32 iEnd = static_cast<i32>(t.dwEnd * t.dwOneStep);
  const u64 qwAbove = static_cast<u64>(tNeeds.bFocus ? iEnd : t.iTravel - t.iOrigin);
  const u64 qwAt = tDice.OneIn(3) ? 0 : tDice.Below(qwAbove + 1);
  t.iPI = t.iOrigin + static_cast<i32>(qwAt);
  if (!tNeeds.bFocus) return;
  // Without reverse calibration the focus sensor is at position 0, so that neither shift is negative.
  if (t.bReverseCalibration == 0) t.iPI = t.iOrigin;
  if (t.bReverseCalibration != 0 && (qwAt == 0 || (tNeeds.bWalksStopAtPI && t.bCheckPIWalk != 0))) {
    t.iPI = t.iOrigin + iEnd;
  }
}

TAxisSheet DrawAxis(TDice& tDice, const TAxisNeeds& tNeeds) {
  TAxisSheet t{};
  t.bReverseCalibration = tNeeds.bFocus && tDice.OneIn(3) ? 1 : 0;
  DrawRange(tDice, t);
  DrawTimes(tDice, t, tNeeds.bPI);
  DrawGears(tDice, t);
  DrawStops(tDice, t, tNeeds);
  DrawSensor(tDice, t, tNeeds);
  const u64 qwTravel = static_cast<u64>(t.iTravel);
  t.dwPositioningStep = static_cast<u32>(qwTravel + 1 + tDice.Below(tDice.OneIn(2) ? 3 : qwTravel / 10 + 2));
  const u64 qwSearch = qwTravel + tDice.Below(tDice.OneIn(2) ? 2 : qwTravel / 10 + 2);
  t.dwPISearchStep = tNeeds.bPI ? static_cast<u32>(qwSearch) : 0;
  t.dwFirstPosition = PlaceIn(tDice, t);
  return t;
}

// Zoom, distance, temperature and light together keep the sharp position within the focus range.
void DrawOptics(TDice& tDice, TLensModel& t) {
  const double dRange = t.tFocus.dwEnd - t.tFocus.dwStart;
  TOptics& o = t.tOptics;
  const auto Place = [&] { return t.tFocus.dwStart + dRange * tDice.Between(0.3, 0.7); };
  o.dWide = Place();
  o.dTele = Place();
  if (t.dwCapability == CAPABILITY_FOCUS_ONLY) o.dTele = o.dWide;
  if (tDice.OneIn(2) && o.dTele < o.dWide) std::swap(o.dTele, o.dWide);
  o.dMagnification = tDice.Between(1, 4);
  o.dNearWide = dRange * tDice.Between(0, 0.06) / (o.dMagnification * o.dMagnification);
  const double dMostPerDegree = 0.06 * dRange / 40;
  o.dPerDegree = tDice.Between(-dMostPerDegree, dMostPerDegree);
  o.dPerDegreeTele = tDice.Between(-dMostPerDegree, dMostPerDegree);
  o.dNight = dRange * tDice.Between(-0.06, 0.06) / o.dMagnification;
  o.dPeakWide = std::max(1.0, dRange * tDice.Between(0.015, 0.06));
  o.dPeakTele = std::max(1.0, o.dPeakWide * tDice.Between(0.5, 1));
}

// The levels fit together: steps are not much wider than the peak, and a range covers the steps of the level before.
void DrawSearch(TDice& tDice, TLensModel& t) {
  const double dRange = t.tFocus.dwEnd - t.tFocus.dwStart;
  const double dWidth = std::min(t.tOptics.dPeakWide, t.tOptics.dPeakTele);
  TSearchSheet& s = t.tSearch;
  const auto Whole = [](double d) { return static_cast<u32>(std::max(1.0, d)); };
  s.dwStepLarge = Whole(dWidth * tDice.Between(0.6, 1.5));
  s.dwStepSmall = std::min(s.dwStepLarge, Whole(dWidth * tDice.Between(0.2, 0.5)));
  s.dwStepFine = std::min(s.dwStepSmall, Whole(dWidth * tDice.Between(0.03, 0.18)));
  // Without a zoom there is no pan focus to centre a shorter range on.
  const double dLongest = tDice.Between(1.6, 3);
  const double dShort = tDice.Between(0.5, 0.9);
  const bool bLongest = t.dwCapability == CAPABILITY_FOCUS_ONLY || tDice.OneIn(3);
  s.iRangeFirst = static_cast<i32>(dRange * (bLongest ? dLongest : dShort)) + 1;
  s.iRangeSecond = static_cast<i32>(2 * s.dwStepLarge + s.dwStepSmall + tDice.Below(2 * s.dwStepLarge + 2));
  s.iRangeThird = static_cast<i32>(2 * s.dwStepSmall + s.dwStepFine + tDice.Below(2 * s.dwStepSmall + 2));
  s.bFineTuning = tDice.OneIn(4) ? 0 : 1;
  // Stepped mode does not wait for a sweep step.  It must be over, and seen in whole frames, when the value is read.
  const u64 qwWalk_us = u64{s.dwStepLarge} * t.tFocus.dwOneStep * t.tFocus.qwStepTime_ns / 1000;
  s.dwOneStepSearchTime_us = static_cast<u32>(qwWalk_us + 75'000 + tDice.Below(150'000));
  s.dwOpenIrisTime_us = static_cast<u32>(tDice.In(10'000, 800'000));
}

void DrawPlain(TDice& tDice, TLensModel& t) {
  constexpr u32 adwCapabilities[] = {CAPABILITY_NONE,           CAPABILITY_ZOOM_AND_FOCUS, CAPABILITY_ZOOM_AND_FOCUS,
                                     CAPABILITY_ZOOM_AND_FOCUS, CAPABILITY_ZOOM_AND_FOCUS, CAPABILITY_ZOOM_AND_FOCUS,
                                     CAPABILITY_ZOOM_ONLY,      CAPABILITY_FOCUS_ONLY,     CAPABILITY_FOCUS_ONLY,
                                     CAPABILITY_FOCUS_ONLY};
  std::strcpy(t.szLensType, "motorized");
  t.dwCapability = adwCapabilities[tDice.Below(std::size(adwCapabilities))];
  t.bBlockingMode = tDice.OneIn(2) ? 1 : 0;
  const bool bZoomPI = tDice.OneIn(2);
  const bool bFocusPI = tDice.OneIn(2);
  const bool bFocusOnly = t.dwCapability == CAPABILITY_FOCUS_ONLY;
  const TAxisNeeds tFocus{.bFocus = true,
                          .bPI = bFocusPI,
                          .bReferenceAtStop = bFocusOnly,
                          .bWalksStopAtPI = bFocusOnly && t.bBlockingMode != 0};
  const TAxisNeeds tZoom{.bFocus = false, .bPI = bZoomPI};
  t.tZoom = Model_HasZoom(t) ? DrawAxis(tDice, tZoom) : Sheet_NoAxis();
  t.tFocus = Model_HasFocus(t) ? DrawAxis(tDice, tFocus) : Sheet_NoAxis();
  // A configuration often has keys of an axis that the lens does not have.
  if (!Model_HasZoom(t) && tDice.OneIn(2)) t.tZoomKeys = DrawAxis(tDice, tZoom);
  if (!Model_HasFocus(t) && tDice.OneIn(2)) t.tFocusKeys = DrawAxis(tDice, tFocus);
  t.bThermalTable = t.dwCapability == CAPABILITY_ZOOM_AND_FOCUS && tDice.OneIn(4) ? 1 : 0;
  t.dwThermalRowsUsed = tDice.OneIn(2) ? dwThermalRows : static_cast<u32>(tDice.In(1, dwThermalRows));
  t.iThermalColumnsUsed =
      tDice.OneIn(2) ? iThermalColumns : static_cast<i32>(tDice.In(1, static_cast<u64>(iThermalColumns)));
  t.bFlangeBack = tDice.OneIn(2) ? 1 : 0;
  t.bFlatStarts = tDice.OneIn(2) ? 1 : 0;
  if (!Model_HasFocus(t)) return;
  DrawOptics(tDice, t);
  DrawSearch(tDice, t);
}

TICSSheet DrawICSAxis(TDice& tDice, u64 qwMin, u64 qwRange) {
  TICSSheet tSheet{};
  tSheet.iMin = static_cast<i32>(qwMin);
  tSheet.iMax = static_cast<i32>(qwMin + qwRange);
  tSheet.iPI = static_cast<i32>(qwMin + tDice.Below(qwRange + 1));
  tSheet.iHome = static_cast<i32>(qwMin + tDice.Below(qwRange + 1));
  tSheet.iSpeed = static_cast<i32>(tDice.Spread(300, 9000));
  return tSheet;
}

// The range that the daemon makes of the driver's, with the keys of the parking motor.
TAxisSheet ICSSheet(TDice& tDice, const TICSSheet& tDriver, u32 dwMargin, u32 dwPark) {
  TAxisSheet tSheet{};
  tSheet.dwStart = static_cast<u32>(tDriver.iMin) + dwMargin;
  tSheet.dwEnd = static_cast<u32>(tDriver.iMax) - dwMargin;
  tSheet.dwTotalStep = tSheet.dwEnd - tSheet.dwStart;
  tSheet.dwOneStep = 1;
  tSheet.dwPositioningStep = dwPark;
  tSheet.dwOneStepTime_us = 500;
  tSheet.dwFirstPosition = PlaceIn(tDice, tSheet);
  tSheet.iTravel = static_cast<i32>(tSheet.dwEnd);
  tSheet.iPI = -1;
  tSheet.qwStepTime_ns = 450'000;
  tSheet.bReverseCalibration = tDice.OneIn(4) ? 1 : 0;
  return tSheet;
}

// The optics of an ICS lens are fixed places.  One range in four does not contain them: there no sharpness is judged.
void DrawICS(TDice& tDice, TLensModel& t) {
  constexpr u32 dwFocusMargin = 50;
  std::strcpy(t.szLensType, "ics");
  t.dwCapability = CAPABILITY_ZOOM_AND_FOCUS;
  t.bBlockingMode = tDice.OneIn(2) ? 1 : 0;
  const u64 qwZoomMin = tDice.OneIn(3) ? 0 : tDice.Below(900);
  t.atICS[LENS_ZOOM] = DrawICSAxis(tDice, qwZoomMin, tDice.Spread(20, 1600));
  const bool bNoOptics = tDice.OneIn(4);
  const u64 qwFocusMin = tDice.OneIn(3) ? 0 : tDice.Below(bNoOptics ? 3000 : 400);
  const u64 qwFocusRange = bNoOptics ? 104 + tDice.Spread(1, 600) : 2700 + tDice.Below(4000);
  t.atICS[LENS_FOCUS] = DrawICSAxis(tDice, qwFocusMin, qwFocusRange);
  t.bICS = 1;
  t.tZoom = ICSSheet(tDice, t.atICS[LENS_ZOOM], 0, 0);
  t.tFocus = ICSSheet(tDice, t.atICS[LENS_FOCUS], dwFocusMargin, 600);
  t.tOptics.dPeakWide = tDice.Between(40, 90);
  t.tOptics.dPeakTele = t.tOptics.dPeakWide * tDice.Between(0.6, 1);
}

void Draw(u64 qwNumber, std::string_view sName) {
  TDice tDice{std::mt19937_64(qwNumber * 2654435761 + 12345)};
  TLensModel& t = g_tModel;
  t = TLensModel{};
  sName.copy(t.szName, sizeof t.szName - 1);
  std::strcpy(t.szDescription, "drawn");
  t.iChannels = tDice.OneIn(3) ? static_cast<i32>(tDice.In(1, iLensChannels)) : 1;
  if (tDice.OneIn(6)) {
    DrawICS(tDice, t);
  } else {
    DrawPlain(tDice, t);
  }
  // By a model name that begins with "Q31" the daemon knows a lens with a thermal table.
  std::snprintf(t.szModelName, sizeof t.szModelName, "%s%u", t.bThermalTable != 0 ? "Q31" : "D",
                static_cast<u32>(tDice.Below(100)));
  if (t.dwCapability == CAPABILITY_ZOOM_AND_FOCUS && !Model_IsICS(t)) {
    t.tFocus.dwFirstPosition = Optics_PanFocus(t, std::max(t.tZoom.dwFirstPosition, 1U));
  }
}

[[gnu::format(printf, 2, 3)]] void Add(std::string& sText, const char* szFormat, ...) {
  char szLine[512];
  va_list tArguments;
  va_start(tArguments, szFormat);
  std::vsnprintf(szLine, sizeof szLine, szFormat, tArguments);
  va_end(tArguments);
  sText += szLine;
}

void AddAxis(std::string& sText, const char* pszAxis, const TAxisSheet& s) {
  if (s.dwEnd == 0) return;
  Add(sText, "  %s: %u..%u of %u, %u driver steps each, %u us (the driver needs %.3f), backlash %u, first %u\n",
      pszAxis, s.dwStart, s.dwEnd, s.dwTotalStep, s.dwOneStep, s.dwOneStepTime_us,
      static_cast<double>(s.qwStepTime_ns * s.dwOneStep) / 1000, s.dwAdjustStep, s.dwFirstPosition);
  Add(sText,
      "    positioning %u, reverse %u, sensor %u (search %u); true: travel %d, slack %d, origin %d, sensor %d%s\n",
      s.dwPositioningStep, s.bReverseCalibration, s.bPISupport, s.dwPISearchStep, s.iTravel, s.iSlack, s.iOrigin, s.iPI,
      s.bCheckPIWalk != 0 ? ", walks that watch it" : "");
}

}  // namespace

std::string DrawnLens_Name(u64 qwNumber) {
  return std::string(sNamePrefix) + std::to_string(qwNumber);
}

const TLensModel* DrawnLens_Find(const char* pszName) {
  const std::string_view sName = pszName;
  if (!sName.starts_with(sNamePrefix)) return nullptr;
  if (sName == g_tModel.szName) return &g_tModel;
  const std::string_view sNumber = sName.substr(sNamePrefix.size());
  const bool bDigits = sNumber.find_first_not_of("0123456789") == std::string_view::npos;
  if (!bDigits || sNumber.empty() || sNumber.size() > dwMaxDigits) return nullptr;
  Draw(std::strtoull(sNumber.data(), nullptr, 10), sName);
  return &g_tModel;
}

std::string DrawnLens_Describe(const TLensModel& t) {
  std::string sText;
  Add(sText, "%s (%s): capability %u, channels %d, %s%s%s\n", t.szName, t.szModelName, t.dwCapability, t.iChannels,
      t.bBlockingMode != 0 ? "blocking" : "stepped", Model_IsICS(t) ? ", ICS" : "",
      t.bFlangeBack != 0 ? ", night offset without an LED" : "");
  AddAxis(sText, "zoom", t.tZoom);
  AddAxis(sText, "focus", t.tFocus);
  AddAxis(sText, "keys of a zoom that is not there", t.tZoomKeys);
  AddAxis(sText, "keys of a focus that is not there", t.tFocusKeys);
  for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
    if (!Model_IsICS(t)) break;
    const TICSSheet& s = t.atICS[eAxis];
    Add(sText, "  ICS %s: %d..%d, sensor %d, home %d, %d steps a second\n", eAxis == LENS_ZOOM ? "zoom" : "focus",
        s.iMin, s.iMax, s.iPI, s.iHome, s.iSpeed);
  }
  const TSearchSheet& s = t.tSearch;
  Add(sText, "  search: %d by %u, %d by %u, %d by %u%s, %u us a step, iris %u us; starts %s\n", s.iRangeFirst,
      s.dwStepLarge, s.iRangeSecond, s.dwStepSmall, s.iRangeThird, s.dwStepFine,
      s.bFineTuning != 0 ? "" : " (not used)", s.dwOneStepSearchTime_us, s.dwOpenIrisTime_us,
      t.bFlatStarts != 0 ? "flat" : "by zoom");
  const TOptics& o = t.tOptics;
  Add(sText, "  optics: wide %.1f tele %.1f near %.2f magnification %.2f night %.2f peaks %.1f %.1f\n", o.dWide,
      o.dTele, o.dNearWide, o.dMagnification, o.dNight, o.dPeakWide, o.dPeakTele);
  if (t.bThermalTable != 0) {
    Add(sText, "  thermal table: %u rows, %d columns; %.3f and %.3f steps a degree\n", t.dwThermalRowsUsed,
        t.iThermalColumnsUsed, o.dPerDegree, o.dPerDegreeTele);
  }
  return sText;
}
