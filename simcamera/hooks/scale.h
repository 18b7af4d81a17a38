// Sleeps and time-outs at a speed, and times in microseconds.
#pragma once

#include <time.h>

#include "core/types.h"

inline u64 Scale_Micros(const timespec& t) {
  return static_cast<u64>(t.tv_sec) * 1'000'000 + (static_cast<u64>(t.tv_nsec) + 999) / 1'000;
}
inline timespec Scale_Timespec(u64 qw_us) {
  timespec t{};
  t.tv_sec = static_cast<time_t>(qw_us / 1'000'000);
  t.tv_nsec = static_cast<decltype(t.tv_nsec)>(qw_us % 1'000'000 * 1'000);
  return t;
}

// Camera time as real time.
timespec Scale_Real(u64 qwCamera_us);
// Real time as camera time.
u64 Scale_Camera_us(const timespec& tReal);
// Sleeps for a camera time; 0, or -1 and EINTR.
i32 Scale_Sleep(u64 qwCamera_us);
// A point of the camera's wall clock as one of the real CLOCK_REALTIME.
timespec Scale_RealDeadline(const timespec& tCameraWall);
