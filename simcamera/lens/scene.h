// The scenes that the image side may look at: how the focus value depends on the focus.  Each is a constant record, and
// a camera has one of them at a time.
#pragma once

#include "core/types.h"

enum EScene : u32 {
  SCENE_NORMAL,
  SCENE_TELE,
  SCENE_WIDE,
  SCENE_NIGHT,
  SCENE_LOW_CONTRAST,
  SCENE_TWO_PEAKS,
  SCENE_OUTLIERS,
  SCENE_FLICKER,
  SCENE_FLAT,
  SCENE_DRIFT,
  SCENES
};

// A share is a part of the focus value.
struct TScene {
  EScene eScene;
  const char* pszName;
  double dWidth = 1;             // of the peak; 1 is the lens's own width
  double dFloor = 2000;          // focus value of an image wholly out of focus
  double dPeak = 60000;          // added where the image is sharp; 0: there is nothing to focus on
  double dSecondPeak = 0;        // height of a second peak as a part of the first, 0 none
  double dNoise = 1.0 / 512;     // each reading is off by a drawn share, at most by this
  double dOutliers = 0;          // share of the readings that are too high by half
  double dFlicker = 0;           // share by which lamps flicker, period qwFlicker_us
  double dDrift = 0.05;          // share by which the brightness drifts, period qwDrift_us
  bool bHoldsBrightness = true;  // the image side keeps the brightness while auto focus is busy
};

constexpr u64 qwFlicker_us = 3'700'000;
constexpr u64 qwDrift_us = 40'000'000;
constexpr double dOutlierFactor = 1.5;
constexpr double dSecondPeakAway = 0.2;  // distance from the first, in focus ranges, towards the middle

inline constexpr TScene g_atScenes[SCENES] = {
    {.eScene = SCENE_NORMAL, .pszName = "normal"},
    {.eScene = SCENE_TELE, .pszName = "tele", .dWidth = 0.5},
    {.eScene = SCENE_WIDE, .pszName = "wide", .dWidth = 3},
    {.eScene = SCENE_NIGHT, .pszName = "night", .dNoise = 0.05},
    {.eScene = SCENE_LOW_CONTRAST, .pszName = "lowcontrast", .dFloor = 8000, .dPeak = 2000},
    {.eScene = SCENE_TWO_PEAKS, .pszName = "twopeaks", .dSecondPeak = 0.7},
    {.eScene = SCENE_OUTLIERS, .pszName = "outliers", .dOutliers = 0.02},
    {.eScene = SCENE_FLICKER, .pszName = "flicker", .dFlicker = 0.1},
    {.eScene = SCENE_FLAT, .pszName = "flat", .dPeak = 0},
    {.eScene = SCENE_DRIFT, .pszName = "drift", .dDrift = 0.2, .bHoldsBrightness = false},
};

constexpr bool ScenesStandInOrder() {
  for (u32 dwScene = 0; dwScene < SCENES; ++dwScene) {
    if (g_atScenes[dwScene].eScene != dwScene || g_atScenes[dwScene].pszName == nullptr) return false;
  }
  return true;
}
static_assert(ScenesStandInOrder());
