// Days in the life of a camera whose lens drifts with temperature: one life of the daemon on the virtual clock, from
// midnight on, through weather and nightfall, sampled each minute and judged by the true lens.  After one search at the
// start nobody touches the lens: only the daemon's correction keeps it sharp.  Positions are virtual steps.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "lens/shift_tables.h"
#include "life/life.h"

constexpr u32 dwMaxDays = 366;
// The range of temperatures for which Optics_ThermalAllowance is valid.
constexpr i32 iDayColdest_C = ThermalTable_Temperature(0);
constexpr i32 iDayHottest_C = ThermalTable_Temperature(iThermalColumns);

struct TDayPlan {
  const char* pszModel = "thermal";  // must have a thermal table
  u32 dwDays = 1;                    // 1..dwMaxDays
  u64 qwSeed = 1;                    // of the life, and of how its days differ
  double dFrom_C = -10, dTo_C = 45;  // of the first day, iDayColdest_C..iDayHottest_C; later days stay between them
  std::function<void(const std::string& sRoot, TWorld*)> fnPrepare = {};  // changes the new camera before its life
};

// The world at a minute.
struct TDaySample {
  u32 dwMinute;  // since the first midnight
  u32 bNight;
  double dTemperature_C;
  double dZoom, dFocus;  // where the glass truly stands
  double dSharp;         // where the focus would be sharp
  double dAllowed;       // the largest |dFocus - dSharp| that is allowed
};
inline double Sample_Error(const TDaySample& tSample) {
  return tSample.dFocus - tSample.dSharp;
}

struct TDayReport {
  std::string sTrouble;               // why nothing can be judged, a line or more; "" if all can
  std::vector<TDaySample> atSamples;  // one for each minute after the search; not empty if sTrouble is
  TDaySample tLargest;                // the one with the largest error
  u32 dwBeyond;                       // how many samples have a larger error than allowed
  double dSearchError;                // error of the first sample; it is a part of what is allowed to every one
  double dSearchAllowed;              // depth of focus: a search that misses by more has not found the peak
  i32 aiBelieved[LENS_AXES];          // at the end
  double adTrue[LENS_AXES];           // at the end: the motors

  bool IsSharp() const { return dwBeyond == 0 && dSearchError <= dSearchAllowed; }
  bool IsBelievedTrue() const;
  bool IsGood() const { return sTrouble.empty() && IsSharp() && IsBelievedTrue(); }
};

// Temperature and night by the clock; dwMinute counts from the first midnight.  It is coldest at midnight and hottest
// at three in the afternoon.
double Day_Temperature(const TDayPlan& tPlan, u32 dwMinute);
bool Day_IsNight(u32 dwMinute);

// Runs the planned life in a ROOT of its own and judges it.  The process must be single-threaded.
TDayReport Day_Run(const TDayPlan& tPlan);
