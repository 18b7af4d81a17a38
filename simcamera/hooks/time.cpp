// Sleeps and clocks.
#include <errno.h>
#include <sys/time.h>
#include <time.h>

#include "hooks/hooks.h"
#include "hooks/scale.h"

namespace {
constinit TReal<int(useconds_t)> g_realUsleep{"usleep"};
constinit TReal<unsigned(unsigned)> g_realSleep{"sleep"};
constinit TReal<int(const timespec*, timespec*)> g_realNanosleep{"nanosleep"};
constinit TReal<int(clockid_t, int, const timespec*, timespec*)> g_realClockNanosleep{"clock_nanosleep"};
constinit TReal<int(timeval*, void*)> g_realGettimeofday{"gettimeofday"};
constinit TReal<time_t(time_t*)> g_realTime{"time"};
constinit TReal<int(clockid_t, timespec*)> g_realClockGettime{"clock_gettime"};
}  // namespace

int Hook_usleep(useconds_t dwDuration_us) asm("usleep");
unsigned Hook_sleep(unsigned dwDuration_s) asm("sleep");
int Hook_nanosleep(const timespec* ptDuration, timespec* ptRest) asm("nanosleep");
int Hook_clock_nanosleep(clockid_t iClock, int iFlags, const timespec* ptTime, timespec* ptRest) asm("clock_nanosleep");
int Hook_gettimeofday(timeval* ptTime, void* pvZone) asm("gettimeofday");
time_t Hook_time(time_t* ptTime) asm("time");
int Hook_clock_gettime(clockid_t iClock, timespec* ptTime) asm("clock_gettime");

// The rest that was not slept; 0 if all was.
static u64 SleepVirtually(const char* szCall, u64 qwDuration_us) {
  Clock_Point(szCall);
  Transcript_Note("sleep %llu", static_cast<unsigned long long>(qwDuration_us));
  const u64 qwUntil_us = Clock_Deadline(qwDuration_us);
  const u64 qwEnd_us = Clock_Now_us() + qwDuration_us;
  if (Clock_Wait({.qwUntil_us = qwUntil_us, .eInterrupt = INTERRUPT_ALWAYS}) != WAIT_INTERRUPTED) return 0;
  return qwEnd_us > Clock_Now_us() ? qwEnd_us - Clock_Now_us() : 1;
}

int Hook_usleep(useconds_t dwDuration_us) {
  if (Hooks_Scaled()) return Scale_Sleep(dwDuration_us);
  if (!Hooks_OnVirtualClock("usleep")) return g_realUsleep(dwDuration_us);
  if (SleepVirtually("usleep", dwDuration_us) == 0) return 0;
  errno = EINTR;
  return -1;
}

unsigned Hook_sleep(unsigned dwDuration_s) {
  if (Hooks_Scaled()) return Scale_Sleep(u64{dwDuration_s} * 1'000'000) == 0 ? 0 : dwDuration_s;
  if (!Hooks_OnVirtualClock("sleep")) return g_realSleep(dwDuration_s);
  return static_cast<unsigned>((SleepVirtually("sleep", u64{dwDuration_s} * 1'000'000) + 999'999) / 1'000'000);
}

static i32 NanosleepVirtually(const char* szCall, u64 qwDuration_us, timespec* ptRest) {
  const u64 qwRest_us = SleepVirtually(szCall, qwDuration_us);
  if (qwRest_us == 0) return 0;
  if (ptRest != nullptr) *ptRest = Scale_Timespec(qwRest_us);
  return EINTR;
}

int Hook_nanosleep(const timespec* ptDuration, timespec* ptRest) {
  if (Hooks_Scaled()) return Scale_Sleep(Scale_Micros(*ptDuration));
  if (!Hooks_OnVirtualClock("nanosleep")) return g_realNanosleep(ptDuration, ptRest);
  const i32 iError = NanosleepVirtually("nanosleep", Scale_Micros(*ptDuration), ptRest);
  if (iError == 0) return 0;
  errno = iError;
  return -1;
}

int Hook_clock_nanosleep(clockid_t iClock, int iFlags, const timespec* ptTime, timespec* ptRest) {
  if (!Hooks_OnVirtualClock("clock_nanosleep")) return g_realClockNanosleep(iClock, iFlags, ptTime, ptRest);
  u64 qwDuration_us = Scale_Micros(*ptTime);
  if ((iFlags & TIMER_ABSTIME) != 0) {
    const u64 qwNow_us = iClock == CLOCK_REALTIME ? Clock_Wall_us() : Clock_Now_us();
    qwDuration_us = qwDuration_us > qwNow_us ? qwDuration_us - qwNow_us : 0;
    ptRest = nullptr;
  }
  return NanosleepVirtually("clock_nanosleep", qwDuration_us, ptRest);
}

int Hook_gettimeofday(timeval* ptTime, void* pvZone) {
  if (!Hooks_Scaled()) {
    if (!Hooks_OnVirtualClock("gettimeofday")) return g_realGettimeofday(ptTime, pvZone);
    Clock_Point("gettimeofday");
  }
  const u64 qwWall_us = Clock_Wall_us();
  ptTime->tv_sec = static_cast<time_t>(qwWall_us / 1'000'000);
  ptTime->tv_usec = static_cast<suseconds_t>(qwWall_us % 1'000'000);
  return 0;
}

time_t Hook_time(time_t* ptTime) {
  if (!Hooks_Scaled()) {
    if (!Hooks_OnVirtualClock("time")) return g_realTime(ptTime);
    Clock_Point("time");
  }
  const time_t tNow = static_cast<time_t>(Clock_Wall_us() / 1'000'000);
  if (ptTime != nullptr) *ptTime = tNow;
  return tNow;
}

// At a speed left alone: a library's threads would see a fast clock with time-outs that are not.
int Hook_clock_gettime(clockid_t iClock, timespec* ptTime) {
  const bool bTime = iClock != CLOCK_PROCESS_CPUTIME_ID && iClock != CLOCK_THREAD_CPUTIME_ID;
  if (!bTime || !Hooks_OnVirtualClock("clock_gettime")) return g_realClockGettime(iClock, ptTime);
  Clock_Point("clock_gettime");
  const bool bWall = iClock == CLOCK_REALTIME || iClock == CLOCK_REALTIME_COARSE;
  *ptTime = Scale_Timespec(bWall ? Clock_Wall_us() : Clock_Now_us());
  return 0;
}
