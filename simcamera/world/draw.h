// SplitMix64: random draws that are the same on every machine.
#pragma once

#include "core/types.h"

constexpr u64 qwDrawStep = 0x9E3779B97F4A7C15u;  // from one state to the next

// Returns the draw of a state.
constexpr u64 Draw_Mix(u64 qwState) {
  qwState = (qwState ^ (qwState >> 30)) * 0xBF58476D1CE4E5B9u;
  qwState = (qwState ^ (qwState >> 27)) * 0x94D049BB133111EBu;
  return qwState ^ (qwState >> 31);
}

// Advances the state to the next one.  Returns its draw, from 0 to below dwBelow.
constexpr u32 Draw_Below(u64& qwState, u32 dwBelow) {
  qwState += qwDrawStep;
  return static_cast<u32>((Draw_Mix(qwState) >> 32) * dwBelow >> 32);
}

// A draw as a number from 0 to below 1.
constexpr double Draw_Share(u64 qwDraw) {
  constexpr double dOneShare = 1.0 / (u64{1} << 53);
  return static_cast<double>(qwDraw >> 11) * dOneShare;
}
