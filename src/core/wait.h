// Sleeps, polling waits and the times of select.  The daemon sleeps nowhere else, except in select on its inputs.  Any
// thread.
#pragma once

#include <sys/select.h>

#include <ctime>

#include "core/types.h"

// Sleeps for the whole time, whatever signals arrive.  A time of 0 returns at once.
void Delay_us(u64 qwTime_us);

// Sleeps, but returns within half a second once the daemon is to end.
void Delay_WhileRunning(u64 qwTime_us);

// Milliseconds of the wall clock in 32 bits.  Wraps every 49.7 days: only differences count.
u32 Clock_Milliseconds();

// Returns the present UTC time in a static record, which the next call overwrites.  Focus thread.
struct tm* Clock_UTC();

constexpr u64 qwNoBound_us = ~0ULL;

// A loop that gets no input wakes up after this time for its periodic work.
constexpr u64 qwIdlePeriod_us = 3'000'000;

// A loop sleeps this long after a failed select, so that a dead descriptor does not keep the processor busy.
constexpr u64 qwSelectPause_us = 100'000;

inline timeval Select_Time(u64 qw_us) {
  return {.tv_sec = static_cast<time_t>(qw_us / 1'000'000), .tv_usec = static_cast<suseconds_t>(qw_us % 1'000'000)};
}

// The release waits at most this long for the motor threads to end: far longer than any lens needs for its whole range.
constexpr u64 qwEndBound_us = 600'000'000;

// Polls fnDone every qwPeriod_us, for at most qwBound_us.  Returns true if fnDone became true, or false if the time ran
// out first.  fnDone also has to become true when the caller gives up; without a bound at least on Daemon_IsEnding.
template <typename TDone>
bool Wait_Poll(u64 qwPeriod_us, u64 qwBound_us, TDone fnDone) {
  for (u64 qwWaited_us = 0; !fnDone(); qwWaited_us += qwPeriod_us) {
    if (qwWaited_us >= qwBound_us) return false;
    Delay_us(qwPeriod_us);
  }
  return true;
}
