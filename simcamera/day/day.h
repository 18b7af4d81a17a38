// Days in the life of a camera whose lens drifts with temperature: one life of the daemon on the virtual clock, from
// midnight on, through weather and nightfall, sampled each minute and judged by the true lens.  After one search at the
// start nobody touches the lens: what keeps it sharp is the daemon's correction alone.  Virtual steps throughout.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "lens/shift_tables.h"
#include "life/life.h"

constexpr u32 dwMaxDays = 366;
// Where the table's allowance holds.
constexpr i32 iDayColdest_C = ThermalTable_Temperature(0);
constexpr i32 iDayHottest_C = ThermalTable_Temperature(iThermalColumns);

struct TDayPlan {
  const char* pszModel = "thermal";  // one with a thermal table
  u32 dwDays = 1;                    // 1..dwMaxDays
  u64 qwSeed = 1;                    // of the life, and of how its days differ
  double dFrom_C = -10, dTo_C = 45;  // the first day's; later days stay between them.  iDayColdest_C..iDayHottest_C
  std::function<void(const std::string& sRoot, TWorld*)> fnPrepare = {};  // on the laid-out camera, before its life
};

// The world at a minute.
struct TDaySample {
  u32 dwMinute;  // since the first midnight
  u32 bNight;
  double dTemperature_C;
  double dZoom, dFocus;  // where the glass truly stands
  double dSharp;         // where the focus would be sharp
  double dAllowed;       // |dFocus - dSharp| that the judge lets pass
};
inline double Sample_Error(const TDaySample& tSample) {
  return tSample.dFocus - tSample.dSharp;
}

struct TDayReport {
  std::string sTrouble;               // why there is nothing to judge, a line or more; "" if there is
  std::vector<TDaySample> atSamples;  // each minute from when the search was over; never empty without trouble
  TDaySample tLargest;                // the one with the largest error
  u32 dwBeyond;                       // samples whose error is beyond what is allowed
  double dSearchError;                // of the first sample; every later one is allowed as much again
  double dSearchAllowed;              // depth of focus: a search that misses it has not found the peak
  i32 aiBelieved[LENS_AXES];          // at the end
  double adTrue[LENS_AXES];           // at the end: the motors

  bool IsSharp() const { return dwBeyond == 0 && dSearchError <= dSearchAllowed; }
  bool IsBelievedTrue() const;
  bool IsGood() const { return sTrouble.empty() && IsSharp() && IsBelievedTrue(); }
};

// Temperature and night by the clock, minutes since the first midnight.  A day begins at its coldest, is hottest at
// three in the afternoon, and ends at the next one's coldest.
double Day_Temperature(const TDayPlan& tPlan, u32 dwMinute);
bool Day_IsNight(u32 dwMinute);

// Runs and judges the life that is planned, in a ROOT of its own.  The process must be single-threaded.
TDayReport Day_Run(const TDayPlan& tPlan);
