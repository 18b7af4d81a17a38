#include "day/day.h"

#include <sys/mman.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "clock/clock.h"
#include "lens/lens_model.h"
#include "lens/optics.h"
#include "world/draw.h"
#include "world/world_image.h"

namespace {

constexpr u32 dwDay_min = 24 * 60;
constexpr u32 dwHottest_min = 15 * 60;
constexpr u32 dwSunrise_min = 6 * 60 + 30, dwSunset_min = 19 * 60 + 30;
constexpr double dDaysDiffer = 0.1;  // later extremes are less than the first by at most this part of the swing

constexpr u64 qwMinute_us = 60'000'000;
constexpr u64 qwSearchAt_us = qwMinute_us;
constexpr u32 dwSearchOver_min = 5;
// These times lie between two checks of the temperature, which come at the beginning of a minute.
constexpr u64 qwStatusBeforeEnd_us = 20'000'000, qwTermBeforeEnd_us = 10'000'000;

// Two minutes from check to check, up to 3 seconds until the thread sees a new minute, and one step of the weather.
constexpr u32 dwBetweenChecks_min = 3;

// What the life passes on from minute to minute.
struct TWatch {
  const TDayPlan* ptPlan;
  TDaySample* ptSamples;  // by minute; shared with the parent
  u32 dwMinutes;
  u32 dwNext;
};

u64 Minutes(const TDayPlan& tPlan) {
  return u64{tPlan.dwDays} * dwDay_min;
}

// From 0 to below 1.
double Share(u64 qwSeed, u64 qwNumber) {
  return Draw_Share(Draw_Mix(qwSeed + (qwNumber + 1) * qwDrawStep));
}

// By how much a day's coldest (dwEnd 0) or hottest (1) moment is milder than the plan's.  0 on the first day.
double Milder(const TDayPlan& tPlan, u32 dwDay, u32 dwEnd) {
  if (dwDay == 0) return 0;
  return dDaysDiffer * (tPlan.dTo_C - tPlan.dFrom_C) * Share(tPlan.qwSeed, u64{dwDay} * 2 + dwEnd);
}
double Coldest(const TDayPlan& tPlan, u32 dwDay) {
  return tPlan.dFrom_C + Milder(tPlan, dwDay, 0);
}
double Hottest(const TDayPlan& tPlan, u32 dwDay) {
  return tPlan.dTo_C - Milder(tPlan, dwDay, 1);
}

// A smooth curve that is level at both ends, with the same bits from every compiler.
double Ease(double dFrom, double dTo, u32 dwAt, u32 dwLength) {
  const double dShare = static_cast<double>(dwAt) / dwLength;
  return dFrom + (dTo - dFrom) * dShare * dShare * (3 - 2 * dShare);
}

void SetWeather(const TDayPlan& tPlan, TWorld* ptWorld, u32 dwMinute) {
  ptWorld->dTemperature_C = Day_Temperature(tPlan, dwMinute);
  ptWorld->bNight = Day_IsNight(dwMinute) ? 1 : 0;
}

TDaySample TakeSample(TWorld* ptWorld, u32 dwMinute) {
  Lens_Settle(&ptWorld->tLens, World_Now_us(ptWorld));
  return {.dwMinute = dwMinute,
          .bNight = ptWorld->bNight,
          .dTemperature_C = ptWorld->dTemperature_C,
          .dZoom = Lens_GlassVirtual(&ptWorld->tLens, 0, LENS_ZOOM),
          .dFocus = Lens_GlassVirtual(&ptWorld->tLens, 0, LENS_FOCUS),
          .dSharp = World_SharpFocus(ptWorld, 0),
          .dAllowed = 0};
}

// Runs in the life.  The sample comes before the new weather: the daemon is judged by a weather that has lasted for a
// minute.  Each minute schedules the next one, so that the clock's list stays short.
void EachMinute(void* pvWatch) {
  TWatch& tWatch = *static_cast<TWatch*>(pvWatch);
  TWorld* ptWorld = Clock_World();
  tWatch.ptSamples[tWatch.dwNext] = TakeSample(ptWorld, tWatch.dwNext);
  SetWeather(*tWatch.ptPlan, ptWorld, tWatch.dwNext);
  if (++tWatch.dwNext < tWatch.dwMinutes) Clock_At(tWatch.dwNext * qwMinute_us, &EachMinute, pvWatch);
}

TLifeEvent Ask(u64 qwAt_us, const char* szQuery) {
  TLifeEvent tEvent;
  tEvent.qwAt_us = qwAt_us;
  tEvent.sQuery = szQuery;
  return tEvent;
}

TLifeResult Live(const TDayPlan& tPlan, const std::string& sRoot, TDaySample* ptSamples) {
  TWatch tWatch{.ptPlan = &tPlan, .ptSamples = ptSamples, .dwMinutes = static_cast<u32>(Minutes(tPlan)), .dwNext = 0};
  const u64 qwEnd_us = Minutes(tPlan) * qwMinute_us;
  TLifeEvent tFirst;
  tFirst.eKind = TLifeEvent::CALL;
  tFirst.fnCall = [&tWatch](TWorld*) { EachMinute(&tWatch); };
  TLifePlan tLife;
  tLife.sRoot = sRoot;
  tLife.qwSeed = tPlan.qwSeed;
  tLife.atEvents = {tFirst, Ask(qwSearchAt_us, "function=auto"),
                    Ask(qwEnd_us - qwStatusBeforeEnd_us, "function=getstatus")};
  tLife.qwEnd_us = qwEnd_us - qwTermBeforeEnd_us;
  return Life_Run(tLife);
}

// The number after "vernier_lens_KEY='", or -1 if there is none.
i32 StatusNumber(const std::string& sReply, const std::string& sKey) {
  const std::string sWanted = "vernier_lens_" + sKey + "='";
  const std::size_t dwAt = sReply.find(sWanted);
  return dwAt == sReply.npos ? -1 : std::atoi(sReply.c_str() + dwAt + sWanted.size());
}

// Puts belief and truth at the end into the report.  The transcript may be cut short: nothing is judged by it.
void TakeEnd(const TLifeResult& tResult, TWorld* ptWorld, TDayReport& tReport) {
  if (tResult.eEnd != LIFE_EXITED || tResult.iStatus != 0) {
    tReport.sTrouble = "the life ended badly: end " + std::to_string(tResult.eEnd) + ", status " +
                       std::to_string(tResult.iStatus) + "\n" + tResult.sStderr;
    return;
  }
  if (tResult.asReplies.size() != 2 || StatusNumber(tResult.asReplies[1], "focus_enable") != 0) {
    tReport.sTrouble = "the lens is not idle at the end, or does not answer\n";
    return;
  }
  Lens_Settle(&ptWorld->tLens, World_Now_us(ptWorld));
  const char* const aszKeys[LENS_AXES] = {"zoom_motor", "focus_motor"};
  for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
    tReport.aiBelieved[eAxis] = StatusNumber(tResult.asReplies[1], aszKeys[eAxis]);
    tReport.adTrue[eAxis] = Lens_TrueVirtual(&ptWorld->tLens, 0, eAxis);
  }
}

double DriftPerDegree(const TLensModel& tModel, double dZoom) {
  return std::fabs(Optics_SharpFocus(tModel, dZoom, dPanDistance_m, dPanTemperature_C + 1, false) -
                   Optics_SharpFocus(tModel, dZoom, dPanDistance_m, dPanTemperature_C, false));
}

// By how much the table of night shifts is wrong at a zoom: it has only one whole number for each range.
double NightTableMiss(const TLensModel& tModel, double dZoom) {
  const double dIndex = std::max(dZoom, 1.0) - 1;
  u32 dwRange = 0;
  while (dwRange + 1 < dwNightRanges && NightTable_FirstIndex(tModel, dwRange + 1) <= dIndex) ++dwRange;
  const double dShift = Optics_SharpFocus(tModel, dZoom, dPanDistance_m, dPanTemperature_C, true) -
                        Optics_SharpFocus(tModel, dZoom, dPanDistance_m, dPanTemperature_C, false);
  return std::fabs(dShift - NightTable_Offset(tModel, dwRange));
}

// By how many degrees the temperature may have moved since the last check.
double MovedSinceCheck(const std::vector<TDaySample>& atSamples, std::size_t dwAt) {
  double dMoved_C = 0;
  for (std::size_t dwBack = 1; dwBack <= std::min<std::size_t>(dwBetweenChecks_min, dwAt); ++dwBack) {
    dMoved_C = std::max(dMoved_C, std::fabs(atSamples[dwAt].dTemperature_C - atSamples[dwAt - dwBack].dTemperature_C));
  }
  return dMoved_C;
}

// Judges each sample.  What is allowed is the sum of what the correction cannot know: the error of the search, the
// steps of the thermal table, and how far the temperature has moved since the last check.  If day or night has changed
// since the search, the error of the night table is added.
void Judge(const TLensModel& tModel, TDayReport& tReport) {
  const TDaySample& tStart = tReport.atSamples.front();
  tReport.dSearchError = std::fabs(Sample_Error(tStart));
  tReport.dSearchAllowed = Optics_DepthOfFocus(tModel, g_atScenes[SCENE_NORMAL], tStart.dZoom);
  tReport.tLargest = tStart;
  for (std::size_t dw = 0; dw < tReport.atSamples.size(); ++dw) {
    TDaySample& tSample = tReport.atSamples[dw];
    tSample.dAllowed = tReport.dSearchError + Optics_ThermalAllowance(tModel, tSample.dZoom) +
                       DriftPerDegree(tModel, tSample.dZoom) * MovedSinceCheck(tReport.atSamples, dw) +
                       (tSample.bNight != tStart.bNight ? NightTableMiss(tModel, tSample.dZoom) : 0);
    const double dError = std::fabs(Sample_Error(tSample));
    if (dError > tSample.dAllowed) ++tReport.dwBeyond;
    if (dError >= std::fabs(Sample_Error(tReport.tLargest))) tReport.tLargest = tSample;
  }
}

// Runs and judges in a ROOT that exists.
TDayReport RunIn(const TDayPlan& tPlan, const TLensModel& tModel, const std::string& sRoot) {
  TDayReport tReport{};
  const u64 qwMinutes = Minutes(tPlan);
  const size_t dwSize = static_cast<size_t>(qwMinutes) * sizeof(TDaySample);
  TWorld* ptWorld = World_Map(sRoot.c_str());
  void* pvSamples = mmap(nullptr, dwSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (ptWorld == nullptr || pvSamples == MAP_FAILED) {
    tReport.sTrouble = "no room for the life\n";
  } else {
    SetWeather(tPlan, ptWorld, 0);
    if (tPlan.fnPrepare) tPlan.fnPrepare(sRoot, ptWorld);
    TDaySample* ptSamples = static_cast<TDaySample*>(pvSamples);
    TakeEnd(Live(tPlan, sRoot, ptSamples), ptWorld, tReport);
    tReport.atSamples.assign(ptSamples + dwSearchOver_min, ptSamples + qwMinutes);
    if (tReport.sTrouble.empty()) Judge(tModel, tReport);
  }
  if (pvSamples != MAP_FAILED) munmap(pvSamples, dwSize);
  if (ptWorld != nullptr) World_Unmap(ptWorld);
  return tReport;
}

}  // namespace

bool TDayReport::IsBelievedTrue() const {
  return std::equal(aiBelieved, aiBelieved + LENS_AXES, adTrue);
}

double Day_Temperature(const TDayPlan& tPlan, u32 dwMinute) {
  const u32 dwDay = dwMinute / dwDay_min, dwOfDay = dwMinute % dwDay_min;
  if (dwOfDay < dwHottest_min) return Ease(Coldest(tPlan, dwDay), Hottest(tPlan, dwDay), dwOfDay, dwHottest_min);
  return Ease(Hottest(tPlan, dwDay), Coldest(tPlan, dwDay + 1), dwOfDay - dwHottest_min, dwDay_min - dwHottest_min);
}

bool Day_IsNight(u32 dwMinute) {
  const u32 dwOfDay = dwMinute % dwDay_min;
  return dwOfDay < dwSunrise_min || dwOfDay >= dwSunset_min;
}

TDayReport Day_Run(const TDayPlan& tPlan) {
  TDayReport tReport{};
  const TLensModel* ptModel = Lenses_Find(tPlan.pszModel);
  if (ptModel == nullptr || ptModel->bThermalTable == 0) {
    tReport.sTrouble = "no lens with a thermal table has that name\n";
    return tReport;
  }
  const std::string sRoot = Life_MakeRoot(tPlan.pszModel, tPlan.qwSeed);
  if (sRoot.empty()) {
    tReport.sTrouble = "no room for the camera's files\n";
    return tReport;
  }
  tReport = RunIn(tPlan, *ptModel, sRoot);
  Life_RemoveRoot(sRoot);
  return tReport;
}
