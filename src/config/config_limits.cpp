#include "config/config_limits.h"

#include <cstdio>
#include <span>

#include "core/context.h"

namespace {

struct TLimit {
  const char* szKey;
  u32 TVernierLensdConfigInfo::*pdwField;
  u32 dwHighest;
};

constexpr u32 dwMaxOneStep = 32767;  // times dwMaxVirtual still fits a driver's count
static_assert(u64{dwMaxOneStep} * dwMaxVirtual <= 0x7FFFFFFF);
constexpr u32 dwMaxOneStepTime_us = 1'000'000;
constexpr u32 dwMaxDriverWalk = 1'000'000;  // driver steps, far beyond any travel
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
    {"zoom/motor/positioningstep", &TVernierLensdConfigInfo::dwZoomMotorPositioningStep, dwMaxDriverWalk},
    {"zoom/pi/searchstep", &TVernierLensdConfigInfo::dwZoomPISearchStep, dwMaxDriverWalk},
    {"zoom/pi/backwardshitf", &TVernierLensdConfigInfo::dwZoomPIBackwardShift, dwMaxDriverWalk},
    {"focus/motor/positioningstep", &TVernierLensdConfigInfo::dwFocusMotorPositioningStep, dwMaxDriverWalk},
    {"focus/pi/searchstep", &TVernierLensdConfigInfo::dwFocusPISearchStep, dwMaxDriverWalk},
    {"focus/pi/forwardshitf", &TVernierLensdConfigInfo::dwFocusPIForwardShift, dwMaxDriverWalk},
    {"focus/pi/backwardshitf", &TVernierLensdConfigInfo::dwFocusPIBackwardShift, dwMaxDriverWalk},
    {"onestepsearchtime", &TVernierLensdConfigInfo::dwOneStepSearchTime, dwMaxSearchTime_us},
    {"openiristime", &TVernierLensdConfigInfo::dwOpenIrisTime, dwMaxIrisTime_us},
};

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

}  // namespace

void Config_LimitRanges() {
  Limit(g_atRangeLimits, VALUES_OF_FILE);
}

void Config_Limit(EValueSource eSource) {
  Limit(g_atLimits, eSource);
}

bool Config_LimitPosition(u32* pdwPosition, u32 dwVirtualEnd) {
  // A configuration without an end does not tell a position from a wrong one.
  const u32 dwHighest = dwVirtualEnd == 0 ? dwMaxVirtual : dwVirtualEnd;
  const u32 dwPosition = Word_Load(*pdwPosition);
  if (dwPosition <= dwHighest) return false;
  const u32 dwUsed = static_cast<i32>(dwPosition) < 0 ? 0 : dwHighest;
  std::printf("[vernierlensd] : Saved position %d is outside the range, %u is used.\n", static_cast<i32>(dwPosition),
              dwUsed);
  Word_Store(*pdwPosition, dwUsed);
  return true;
}
