// What a model must keep so that the daemon can work with its lens.  The compiler holds the built-in models to these
// rules, and the reader of model files holds the files to them.  A rule is told by the keys of a model file.
#pragma once

#include <algorithm>
#include <string_view>

#include "lens/lens_model.h"

constexpr i64 llMostTravel = 1'000'000;              // driver steps between the stops
constexpr i64 llMostDriverSteps = 2 * llMostTravel;  // of one walk, and of the whole range
constexpr i64 llMostPosition = 65'535;               // virtual steps, the daemon's own limit

template <typename TRecord>
struct TRule {
  const char* szBroken;  // what is said of a record that breaks the rule
  bool (*pfnHolds)(const TRecord&);
};

constexpr i64 Sheet_DriverSteps(const TAxisSheet& t, u32 dwVirtual) {
  return i64{dwVirtual} * t.dwOneStep;
}

// Of an axis with a stepper motor.
inline constexpr TRule<TAxisSheet> g_atAxisRules[] = {
    {"range_start_vsteps is above first_position_vsteps",
     [](const TAxisSheet& t) { return t.dwStart <= t.dwFirstPosition; }},
    {"first_position_vsteps is above range_end_vsteps",
     [](const TAxisSheet& t) { return t.dwFirstPosition <= t.dwEnd; }},
    {"range_end_vsteps is above total_vsteps", [](const TAxisSheet& t) { return t.dwEnd <= t.dwTotalStep; }},
    {"the range ends above the upper stop: origin_steps + range_end_vsteps * steps_per_vstep is above travel_steps",
     [](const TAxisSheet& t) { return t.iOrigin + Sheet_DriverSteps(t, t.dwEnd) <= t.iTravel; }},
    {"the axis has too many steps: total_vsteps * steps_per_vstep is above 2000000",
     [](const TAxisSheet& t) { return Sheet_DriverSteps(t, t.dwTotalStep) <= llMostDriverSteps; }},
    {"the daemon does not take up all the slack: adjust_vsteps * steps_per_vstep is below slack_steps",
     [](const TAxisSheet& t) { return t.iSlack <= Sheet_DriverSteps(t, t.dwAdjustStep); }},
    {"the walk to the reference does not reach the stop: positioning_steps is below travel_steps",
     [](const TAxisSheet& t) { return t.dwPositioningStep >= static_cast<u32>(t.iTravel); }},
    {"the PI sensor is above the upper stop: pi_sensor_at_steps is above travel_steps",
     [](const TAxisSheet& t) { return t.iPI <= t.iTravel; }},
    {"pi_sensor_used is true, but pi_sensor_at_steps is null",
     [](const TAxisSheet& t) { return t.bPISupport == 0 || t.iPI >= 0; }},
    {"the search for the PI sensor does not reach it from everywhere: pi_search_steps is below travel_steps",
     [](const TAxisSheet& t) { return t.bPISupport == 0 || t.dwPISearchStep >= static_cast<u32>(t.iTravel); }},
    {"the PI sensor is below position 0: pi_sensor_at_steps is below origin_steps",
     [](const TAxisSheet& t) { return t.bPISupport == 0 || t.iPI < 0 || Sheet_PIBackwardShift(t) >= 0; }},
    {"the driver is not as fast as the daemon assumes: vstep_time_us is not above steps_per_vstep * step_time_ns",
     [](const TAxisSheet& t) { return u64{t.dwOneStepTime_us} * 1000 > t.qwStepTime_ns * t.dwOneStep; }},
};

// Of an axis of an ICS lens: the driver's own values, with the axis of the configuration.
struct TICSAxis {
  const TAxisSheet& tSheet;
  const TICSSheet& tDriver;
};
inline constexpr TRule<TICSAxis> g_atICSRules[] = {
    {"an ICS lens counts in positions: steps_per_vstep has to be 1, origin_steps and slack_steps 0",
     [](const TICSAxis& t) { return t.tSheet.dwOneStep == 1 && t.tSheet.iOrigin == 0 && t.tSheet.iSlack == 0; }},
    {"the range is not between min_steps and max_steps of the driver",
     [](const TICSAxis& t) {
       return t.tDriver.iMin <= static_cast<i32>(t.tSheet.dwStart) &&
              static_cast<i32>(t.tSheet.dwEnd) <= t.tDriver.iMax;
     }},
    {"first_position_vsteps is outside the range",
     [](const TICSAxis& t) {
       return t.tSheet.dwStart <= t.tSheet.dwFirstPosition && t.tSheet.dwFirstPosition <= t.tSheet.dwEnd;
     }},
    {"pi_sensor_steps is not between min_steps and max_steps",
     [](const TICSAxis& t) { return t.tDriver.iMin <= t.tDriver.iPI && t.tDriver.iPI <= t.tDriver.iMax; }},
    {"home_steps is not between min_steps and max_steps",
     [](const TICSAxis& t) { return t.tDriver.iMin <= t.tDriver.iHome && t.tDriver.iHome <= t.tDriver.iMax; }},
};

inline constexpr TRule<TLensModel> g_atModelRules[] = {
    {"channels is not 1 to 4", [](const TLensModel& t) { return t.iChannels >= 1 && t.iChannels <= iLensChannels; }},
    // By a model name that begins with "Q31" the daemon knows a lens with a thermal table.
    {"model_name begins with Q31, but thermal_table is false, or the other way round",
     [](const TLensModel& t) { return std::string_view(t.szModelName).starts_with("Q31") == (t.bThermalTable != 0); }},
    {"thermal_table is true, but the lens has not both zoom and focus",
     [](const TLensModel& t) { return t.bThermalTable == 0 || t.dwCapability == CAPABILITY_ZOOM_AND_FOCUS; }},
    // By a lens type that begins with "ics" the daemon knows an ICS lens.
    {"lens_type begins with ics, but ics is null, or the other way round",
     [](const TLensModel& t) { return std::string_view(t.szLensType).starts_with("ics") == (t.bICS != 0); }},
    {"an ICS lens has both zoom and focus",
     [](const TLensModel& t) { return t.bICS == 0 || t.dwCapability == CAPABILITY_ZOOM_AND_FOCUS; }},
    {"search has to be given for a lens with focus that is no ICS lens, and only for such a lens",
     [](const TLensModel& t) { return (Model_HasFocus(t) && t.bICS == 0) == (t.tSearch.dwOneStepSearchTime_us != 0); }},
    {"optics has to be given for a lens with focus, and only for such a lens",
     [](const TLensModel& t) { return Model_HasFocus(t) == (t.tOptics.dPeakWide > 0); }},
    {"zoom_keys is for a lens without zoom, focus_keys for one without focus",
     [](const TLensModel& t) {
       return !(Model_HasZoom(t) && t.tZoomKeys.dwEnd != 0) && !(Model_HasFocus(t) && t.tFocusKeys.dwEnd != 0);
     }},
    {"the PI sensor of the focus is above the reference of a positioning",
     [](const TLensModel& t) { return t.bICS != 0 || Sheet_PIForwardShift(t.tFocus) >= 0; }},
    // In stepped mode the daemon does not wait for a sweep step: it must have ended when the value is read.
    {"a large step of a search takes longer than search.step_time_us",
     [](const TLensModel& t) {
       const u64 qwSteps = u64{t.tSearch.dwStepLarge} * t.tFocus.dwOneStep;
       return qwSteps * t.tFocus.qwStepTime_ns / 1000 <= t.tSearch.dwOneStepSearchTime_us;
     }},
};

// Calls fnBroken(where, what) for each broken rule of the model; "" is the model as a whole.
template <typename TBroken>
constexpr void Model_TellBrokenRules(const TLensModel& tModel, TBroken fnBroken) {
  const auto Tell = [&](std::string_view sWhere, const auto& atRules, const auto& tRecord) {
    for (const auto& tRule : atRules) {
      if (!tRule.pfnHolds(tRecord)) fnBroken(sWhere, tRule.szBroken);
    }
  };
  for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
    if (!Model_HasAxis(tModel, eAxis)) continue;
    const char* szAxis = eAxis == LENS_ZOOM ? "zoom" : "focus";
    const TAxisSheet& tSheet = Model_Sheet(tModel, eAxis);
    if (Model_IsICS(tModel)) Tell(szAxis, g_atICSRules, TICSAxis{tSheet, tModel.atICS[eAxis]});
    if (!Model_IsICS(tModel)) Tell(szAxis, g_atAxisRules, tSheet);
  }
  if (tModel.tZoomKeys.dwEnd != 0) Tell("zoom_keys", g_atAxisRules, tModel.tZoomKeys);
  if (tModel.tFocusKeys.dwEnd != 0) Tell("focus_keys", g_atAxisRules, tModel.tFocusKeys);
  Tell("", g_atModelRules, tModel);
}

constexpr bool Model_IsSound(const TLensModel& tModel) {
  const bool bAbsentAreEmpty = (Model_HasZoom(tModel) || tModel.tZoom == Sheet_NoAxis()) &&
                               (Model_HasFocus(tModel) || tModel.tFocus == Sheet_NoAxis());
  bool bSound = bAbsentAreEmpty;
  Model_TellBrokenRules(tModel, [&](std::string_view, const char*) { bSound = false; });
  return bSound;
}
