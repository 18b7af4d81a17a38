// Times in microseconds.  A call that takes a time has a twin on a 32-bit machine,
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
u64 Times_Micros(const TTimespec& t) {
  return static_cast<u64>(t.tv_sec) * 1'000'000 + (static_cast<u64>(t.tv_nsec) + 999) / 1'000;
}
template <class TTimespec>
TTimespec Times_Timespec(u64 qw_us) {
  TTimespec t{};
  t.tv_sec = static_cast<decltype(t.tv_sec)>(qw_us / 1'000'000);
  t.tv_nsec = static_cast<decltype(t.tv_nsec)>(qw_us % 1'000'000 * 1'000);
  return t;
}
