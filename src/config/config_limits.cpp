#include "config/config_limits.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <span>

#include "core/context.h"

namespace {

struct TLimit {
  const char* szKey;
  u32 TVernierLensdConfigInfo::*pdwField;
  u32 dwHighest;
};

constexpr u32 dwMaxOneStep = 32767;  // multiplied by dwMaxVirtual it still fits a driver's count
static_assert(u64{dwMaxOneStep} * dwMaxVirtual <= 0x7FFFFFFF);
constexpr u32 dwMaxOneStepTime_us = 1'000'000;
constexpr u32 dwMaxDriverWalk = 1'000'000;  // driver steps, far beyond the travel of most lenses; see WalkLimit
constexpr u32 dwMaxSearchTime_us = 10'000'000;
constexpr u32 dwMaxIrisTime_us = 30'000'000;

constexpr TLimit g_atRangeLimits[] = {
    {"zoom/virtual/start", &TVernierLensdConfigInfo::dwZoomVirtualStart, dwMaxVirtual},
    {"zoom/virtual/end", &TVernierLensdConfigInfo::dwZoomVirtualEnd, dwMaxVirtual},
    {"focus/virtual/start", &TVernierLensdConfigInfo::dwFocusVirtualStart, dwMaxVirtual},
    {"focus/virtual/end", &TVernierLensdConfigInfo::dwFocusVirtualEnd, dwMaxVirtual},
};

constexpr TLimit g_atLimits[] = {
    {"zoom/virtual/onestep", &TVernierLensdConfigInfo::dwZoomVirtualOneStep, dwMaxOneStep},
    {"zoom/onesteptime", &TVernierLensdConfigInfo::dwZoomOneStepTime, dwMaxOneStepTime_us},
    {"zoom/adjuststep", &TVernierLensdConfigInfo::dwZoomAdjustStep, dwMaxVirtual},
    {"focus/virtual/onestep", &TVernierLensdConfigInfo::dwFocusVirtualOneStep, dwMaxOneStep},
    {"focus/onesteptime", &TVernierLensdConfigInfo::dwFocusOneStepTime, dwMaxOneStepTime_us},
    {"focus/adjuststep", &TVernierLensdConfigInfo::dwFocusAdjustStep, dwMaxVirtual},
    {"onestepsearchtime", &TVernierLensdConfigInfo::dwOneStepSearchTime, dwMaxSearchTime_us},
    {"openiristime", &TVernierLensdConfigInfo::dwOpenIrisTime, dwMaxIrisTime_us},
};

// The configuration that the walks of an axis to its reference depend on.
struct TReferenceWalk {
  const char* szKey;  // key of pdwPositioningStep, for the log
  u32 TVernierLensdConfigInfo::*pdwPositioningStep;
  u32 TVernierLensdConfigInfo::*pdwEnd;
  u32 TVernierLensdConfigInfo::*pdwOneStep;
  u32 TVernierLensdConfigInfo::*pdwOneStepTime;
  u32 TVernierLensdConfigInfo::*pbPISupport;
  u32 dwWithout;  // ECapability of a lens that lacks the axis
};

constexpr TReferenceWalk g_tZoomWalk = {.szKey = "zoom/motor/positioningstep",
                                        .pdwPositioningStep = &TVernierLensdConfigInfo::dwZoomMotorPositioningStep,
                                        .pdwEnd = &TVernierLensdConfigInfo::dwZoomVirtualEnd,
                                        .pdwOneStep = &TVernierLensdConfigInfo::dwZoomVirtualOneStep,
                                        .pdwOneStepTime = &TVernierLensdConfigInfo::dwZoomOneStepTime,
                                        .pbPISupport = &TVernierLensdConfigInfo::bZoomPISupport,
                                        .dwWithout = CAPABILITY_FOCUS_ONLY};
constexpr TReferenceWalk g_tFocusWalk = {.szKey = "focus/motor/positioningstep",
                                         .pdwPositioningStep = &TVernierLensdConfigInfo::dwFocusMotorPositioningStep,
                                         .pdwEnd = &TVernierLensdConfigInfo::dwFocusVirtualEnd,
                                         .pdwOneStep = &TVernierLensdConfigInfo::dwFocusVirtualOneStep,
                                         .pdwOneStepTime = &TVernierLensdConfigInfo::dwFocusOneStepTime,
                                         .pbPISupport = &TVernierLensdConfigInfo::bFocusPISupport,
                                         .dwWithout = CAPABILITY_ZOOM_ONLY};

void Limit(std::span<const TLimit> atLimits, EValueSource eSource) {
  for (const TLimit& tLimit : atLimits) {
    u32& dwValue = g_tVernierLensdConfigInfo.*tLimit.pdwField;
    if (dwValue <= tLimit.dwHighest) continue;
    const u32 dwUsed = static_cast<i32>(dwValue) < 0 ? 0 : tLimit.dwHighest;
    std::printf(eSource == VALUES_OF_FILE ? "[vernierlensd] : %s = %d is no size of a lens, %u is used.\n"
                                          : "[vernierlensd] : %s = %d is no answer of a lens's driver, %u is used.\n",
                tLimit.szKey, static_cast<i32>(dwValue), dwUsed);
    dwValue = dwUsed;
  }
}

// Returns the longest walk to a reference that is allowed, driver steps: twice the range on a long lens.
u32 WalkLimit(const TReferenceWalk& tWalk) {
  const u64 qwRange = u64{g_tVernierLensdConfigInfo.*tWalk.pdwEnd} * (g_tVernierLensdConfigInfo.*tWalk.pdwOneStep);
  return static_cast<u32>(std::clamp<u64>(2 * qwRange, dwMaxDriverWalk, std::numeric_limits<i32>::max()));
}

}  // namespace

void Config_LimitRanges() {
  Limit(g_atRangeLimits, VALUES_OF_FILE);
}

void Config_Limit(EValueSource eSource) {
  Limit(g_atLimits, eSource);
  const u32 dwZoomWalk = WalkLimit(g_tZoomWalk);
  const u32 dwFocusWalk = WalkLimit(g_tFocusWalk);
  const TLimit atWalks[] = {
      {g_tZoomWalk.szKey, g_tZoomWalk.pdwPositioningStep, dwZoomWalk},
      {"zoom/pi/searchstep", &TVernierLensdConfigInfo::dwZoomPISearchStep, dwZoomWalk},
      {"zoom/pi/backwardshitf", &TVernierLensdConfigInfo::dwZoomPIBackwardShift, dwZoomWalk},
      {g_tFocusWalk.szKey, g_tFocusWalk.pdwPositioningStep, dwFocusWalk},
      {"focus/pi/searchstep", &TVernierLensdConfigInfo::dwFocusPISearchStep, dwFocusWalk},
      {"focus/pi/forwardshitf", &TVernierLensdConfigInfo::dwFocusPIForwardShift, dwFocusWalk},
      {"focus/pi/backwardshitf", &TVernierLensdConfigInfo::dwFocusPIBackwardShift, dwFocusWalk},
  };
  Limit(atWalks, eSource);
}

void Config_CheckReferenceWalks() {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  if (tConfig.bBlockingMode != 0) return;
  for (const TReferenceWalk& tWalk : {g_tZoomWalk, g_tFocusWalk}) {
    const u32 dwOneStep = tConfig.*tWalk.pdwOneStep;
    // A focus-only lens walks to the stop for a focus reset, even if it has a sensor.
    const bool bToStop = tConfig.*tWalk.pbPISupport == 0 || tConfig.dwCapability == CAPABILITY_FOCUS_ONLY;
    if (!bToStop || dwOneStep == 0 || tConfig.dwCapability == CAPABILITY_NONE ||
        tConfig.dwCapability == tWalk.dwWithout)
      continue;
    const u64 qwSlept_us = u64{tConfig.*tWalk.pdwPositioningStep} * (tConfig.*tWalk.pdwOneStepTime / dwOneStep);
    const u64 qwRange_us = u64{tConfig.*tWalk.pdwEnd} * (tConfig.*tWalk.pdwOneStepTime);
    if (qwSlept_us >= qwRange_us) continue;
    std::printf("[vernierlensd] : %s is too small: the walk is slept out for %u ms, the range takes up to %u ms.\n",
                tWalk.szKey, static_cast<u32>(qwSlept_us / 1000), static_cast<u32>(qwRange_us / 1000));
  }
}

bool Config_LimitPosition(u32* pdwPosition, u32 dwVirtualEnd) {
  // Without a configured end nobody can tell a right position from a wrong one.
  const u32 dwHighest = dwVirtualEnd == 0 ? dwMaxVirtual : dwVirtualEnd;
  const u32 dwPosition = Word_Load(*pdwPosition);
  if (dwPosition <= dwHighest) return false;
  const u32 dwUsed = static_cast<i32>(dwPosition) < 0 ? 0 : dwHighest;
  std::printf("[vernierlensd] : Saved position %d is outside the range, %u is used.\n", static_cast<i32>(dwPosition),
              dwUsed);
  Word_Store(*pdwPosition, dwUsed);
  return true;
}
