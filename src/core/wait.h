// Sleeps and polling waits.  Any thread.  No wait of the daemon is made elsewhere, but for select on its inputs.
#pragma once

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
