// Sleeps and clocks.
#include <errno.h>
#include <sys/time.h>
#include <time.h>

#include "hooks/hooks.h"
#include "hooks/times.h"

namespace {
constinit TReal<int(useconds_t)> g_realUsleep{"usleep"};
constinit TReal<unsigned(unsigned)> g_realSleep{"sleep"};
constinit TReal<int(const timespec*, timespec*)> g_realNanosleep{"nanosleep"};
constinit TReal<int(clockid_t, int, const timespec*, timespec*)> g_realClockNanosleep{"clock_nanosleep"};
constinit TReal<int(timeval*, void*)> g_realGettimeofday{"gettimeofday"};
constinit TReal<time_t(time_t*)> g_realTime{"time"};
constinit TReal<int(clockid_t, timespec*)> g_realClockGettime{"clock_gettime"};
constinit TReal<int(const TTimespec64*, TTimespec64*)> g_realNanosleep64{"__nanosleep64"};
constinit TReal<int(clockid_t, int, const TTimespec64*, TTimespec64*)> g_realClockNanosleep64{
    "__clock_nanosleep_time64"};
constinit TReal<int(TTimeval64*, void*)> g_realGettimeofday64{"__gettimeofday64"};
constinit TReal<i64(i64*)> g_realTime64{"__time64"};
constinit TReal<int(clockid_t, TTimespec64*)> g_realClockGettime64{"__clock_gettime64"};
}  // namespace

int Hook_usleep(useconds_t dwDuration_us) asm("usleep");
unsigned Hook_sleep(unsigned dwDuration_s) asm("sleep");
int Hook_nanosleep(const timespec* ptDuration, timespec* ptRest) asm("nanosleep");
int Hook_clock_nanosleep(clockid_t iClock, int iFlags, const timespec* ptTime, timespec* ptRest) asm("clock_nanosleep");
int Hook_gettimeofday(timeval* ptTime, void* pvZone) asm("gettimeofday");
time_t Hook_time(time_t* ptTime) asm("time");
int Hook_clock_gettime(clockid_t iClock, timespec* ptTime) asm("clock_gettime");
int Hook_nanosleep64(const TTimespec64* ptDuration, TTimespec64* ptRest) asm("__nanosleep64");
int Hook_clock_nanosleep64(clockid_t iClock, int iFlags, const TTimespec64* ptTime,
                           TTimespec64* ptRest) asm("__clock_nanosleep_time64");
int Hook_gettimeofday64(TTimeval64* ptTime, void* pvZone) asm("__gettimeofday64");
i64 Hook_time64(i64* piTime) asm("__time64");
int Hook_clock_gettime64(clockid_t iClock, TTimespec64* ptTime) asm("__clock_gettime64");

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
  if (!Hooks_OnVirtualClock("usleep")) return g_realUsleep(dwDuration_us);
  if (SleepVirtually("usleep", dwDuration_us) == 0) return 0;
  errno = EINTR;
  return -1;
}

unsigned Hook_sleep(unsigned dwDuration_s) {
  if (!Hooks_OnVirtualClock("sleep")) return g_realSleep(dwDuration_s);
  return static_cast<unsigned>((SleepVirtually("sleep", u64{dwDuration_s} * 1'000'000) + 999'999) / 1'000'000);
}

template <class TTimespec>
static i32 NanosleepVirtually(const char* szCall, u64 qwDuration_us, TTimespec* ptRest) {
  const u64 qwRest_us = SleepVirtually(szCall, qwDuration_us);
  if (qwRest_us == 0) return 0;
  if (ptRest != nullptr) *ptRest = Times_Timespec<TTimespec>(qwRest_us);
  return EINTR;
}

template <class TTimespec>
static int Nanosleep(TReal<int(const TTimespec*, TTimespec*)>& tReal, const TTimespec* ptDuration, TTimespec* ptRest) {
  if (!Hooks_OnVirtualClock("nanosleep")) return tReal(ptDuration, ptRest);
  const i32 iError = NanosleepVirtually("nanosleep", Times_Micros(*ptDuration), ptRest);
  if (iError == 0) return 0;
  errno = iError;
  return -1;
}

int Hook_nanosleep(const timespec* ptDuration, timespec* ptRest) {
  return Nanosleep(g_realNanosleep, ptDuration, ptRest);
}
int Hook_nanosleep64(const TTimespec64* ptDuration, TTimespec64* ptRest) {
  return Nanosleep(g_realNanosleep64, ptDuration, ptRest);
}

template <class TTimespec>
static int ClockNanosleep(TReal<int(clockid_t, int, const TTimespec*, TTimespec*)>& tReal, clockid_t iClock, int iFlags,
                          const TTimespec* ptTime, TTimespec* ptRest) {
  if (!Hooks_OnVirtualClock("clock_nanosleep")) return tReal(iClock, iFlags, ptTime, ptRest);
  u64 qwDuration_us = Times_Micros(*ptTime);
  if ((iFlags & TIMER_ABSTIME) != 0) {
    const u64 qwNow_us = iClock == CLOCK_REALTIME ? Clock_Wall_us() : Clock_Now_us();
    qwDuration_us = qwDuration_us > qwNow_us ? qwDuration_us - qwNow_us : 0;
    ptRest = nullptr;
  }
  return NanosleepVirtually("clock_nanosleep", qwDuration_us, ptRest);
}

int Hook_clock_nanosleep(clockid_t iClock, int iFlags, const timespec* ptTime, timespec* ptRest) {
  return ClockNanosleep(g_realClockNanosleep, iClock, iFlags, ptTime, ptRest);
}
int Hook_clock_nanosleep64(clockid_t iClock, int iFlags, const TTimespec64* ptTime, TTimespec64* ptRest) {
  return ClockNanosleep(g_realClockNanosleep64, iClock, iFlags, ptTime, ptRest);
}

template <class TTimeval>
static int Gettimeofday(TReal<int(TTimeval*, void*)>& tReal, TTimeval* ptTime, void* pvZone) {
  if (!Hooks_OnVirtualClock("gettimeofday")) return tReal(ptTime, pvZone);
  Clock_Point("gettimeofday");
  const u64 qwWall_us = Clock_Wall_us();
  ptTime->tv_sec = static_cast<decltype(ptTime->tv_sec)>(qwWall_us / 1'000'000);
  ptTime->tv_usec = static_cast<decltype(ptTime->tv_usec)>(qwWall_us % 1'000'000);
  return 0;
}

int Hook_gettimeofday(timeval* ptTime, void* pvZone) {
  return Gettimeofday(g_realGettimeofday, ptTime, pvZone);
}
int Hook_gettimeofday64(TTimeval64* ptTime, void* pvZone) {
  return Gettimeofday(g_realGettimeofday64, ptTime, pvZone);
}

template <class TSeconds>
static TSeconds Time(TReal<TSeconds(TSeconds*)>& tReal, TSeconds* ptTime) {
  if (!Hooks_OnVirtualClock("time")) return tReal(ptTime);
  Clock_Point("time");
  const TSeconds tNow = static_cast<TSeconds>(Clock_Wall_us() / 1'000'000);
  if (ptTime != nullptr) *ptTime = tNow;
  return tNow;
}

time_t Hook_time(time_t* ptTime) {
  return Time(g_realTime, ptTime);
}
i64 Hook_time64(i64* piTime) {
  return Time(g_realTime64, piTime);
}

template <class TTimespec>
static int ClockGettime(TReal<int(clockid_t, TTimespec*)>& tReal, clockid_t iClock, TTimespec* ptTime) {
  const bool bTime = iClock != CLOCK_PROCESS_CPUTIME_ID && iClock != CLOCK_THREAD_CPUTIME_ID;
  if (!bTime || !Hooks_OnVirtualClock("clock_gettime")) return tReal(iClock, ptTime);
  Clock_Point("clock_gettime");
  const bool bWall = iClock == CLOCK_REALTIME || iClock == CLOCK_REALTIME_COARSE;
  *ptTime = Times_Timespec<TTimespec>(bWall ? Clock_Wall_us() : Clock_Now_us());
  return 0;
}

int Hook_clock_gettime(clockid_t iClock, timespec* ptTime) {
  return ClockGettime(g_realClockGettime, iClock, ptTime);
}
int Hook_clock_gettime64(clockid_t iClock, TTimespec64* ptTime) {
  return ClockGettime(g_realClockGettime64, iClock, ptTime);
}
