// Sleeps, polling waits and the times of select.  Any thread.  No wait of the daemon is made elsewhere, but for select
// on its inputs.
#pragma once

#include <sys/select.h>

#include <ctime>

#include "core/types.h"

// Sleeps for the whole time, whatever signals arrive.  0 returns at once.
void Delay_us(u64 qwTime_us);

// Sleeps, and ends early, within half a second, once the daemon is to end.
void Delay_WhileRunning(u64 qwTime_us);

// Milliseconds of the wall clock in 32 bits.  Wraps every 49.7 days: only differences count.
u32 Clock_Milliseconds();

// The present UTC time, in one record of the daemon's own, which the next call overwrites.  Focus thread.
struct tm* Clock_UTC();

constexpr u64 qwNoBound_us = ~0ULL;

// Each loop looks round after so long without an input.
constexpr u64 qwIdlePeriod_us = 3'000'000;

// A loop rests so long after a select that failed: a descriptor that is dead then costs no processor.
constexpr u64 qwSelectPause_us = 100'000;

inline timeval Select_Time(u64 qw_us) {
  return {.tv_sec = static_cast<time_t>(qw_us / 1'000'000), .tv_usec = static_cast<suseconds_t>(qw_us % 1'000'000)};
}

// The end of the motor threads is waited for so long: far longer than a whole range of any lens takes.  A successor of
// this daemon waits a little longer.
constexpr u64 qwEndBound_us = 600'000'000;

// Polls fnDone, every qwPeriod_us, for at most qwBound_us.  True: it held.  False: the bound passed first.
// fnDone also tells of the reasons to give up: a wait without bound ends at least on Daemon_IsEnding.
template <typename TDone>
bool Wait_Poll(u64 qwPeriod_us, u64 qwBound_us, TDone fnDone) {
  for (u64 qwWaited_us = 0; !fnDone(); qwWaited_us += qwPeriod_us) {
    if (qwWaited_us >= qwBound_us) return false;
    Delay_us(qwPeriod_us);
  }
  return true;
}
