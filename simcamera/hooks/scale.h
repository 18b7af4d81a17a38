// Sleeps and time-outs at a speed, and times in microseconds.  A call that takes a time has a twin on a 32-bit machine,
// which a program built for 64-bit time calls in its place; its records are told here, since no header shows them to
// code that is built for neither.
#pragma once

#include <time.h>

#include "core/types.h"

struct TTimespec64 {
  i64 tv_sec;
  i32 tv_nsec;
  i32 iUnused;
};
struct TTimeval64 {
  i64 tv_sec;
  i64 tv_usec;
};

template <class TTimespec>
u64 Scale_Micros(const TTimespec& t) {
  return static_cast<u64>(t.tv_sec) * 1'000'000 + (static_cast<u64>(t.tv_nsec) + 999) / 1'000;
}
template <class TTimespec>
TTimespec Scale_Timespec(u64 qw_us) {
  TTimespec t{};
  t.tv_sec = static_cast<decltype(t.tv_sec)>(qw_us / 1'000'000);
  t.tv_nsec = static_cast<decltype(t.tv_nsec)>(qw_us % 1'000'000 * 1'000);
  return t;
}

// Camera time as real time.
timespec Scale_Real(u64 qwCamera_us);
// Real time as camera time.
u64 Scale_Camera_us(const timespec& tReal);
// Sleeps for a camera time; 0, or -1 and EINTR.
i32 Scale_Sleep(u64 qwCamera_us);
// A point of the camera's wall clock, in microseconds since 1970, as one of the real CLOCK_REALTIME.
timespec Scale_RealDeadline(u64 qwCameraWall_us);
// The same of a record, in the same kind of record.
template <class TTimespec>
TTimespec Scale_RealDeadline(const TTimespec& tCameraWall) {
  const timespec tReal = Scale_RealDeadline(Scale_Micros(tCameraWall));
  TTimespec t{};
  t.tv_sec = tReal.tv_sec;
  t.tv_nsec = static_cast<decltype(t.tv_nsec)>(tReal.tv_nsec);
  return t;
}
