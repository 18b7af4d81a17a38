#include "hooks/scale.h"

#include "hooks/hooks.h"

namespace {
constinit TReal<int(const timespec*, timespec*)> g_realNanosleep{"nanosleep"};
constinit TReal<int(clockid_t, timespec*)> g_realClockGettime{"clock_gettime"};
constexpr u64 qwLongest_us = 1'000'000'000'000'000;  // of a wait; more would not fit once divided by a speed below 1
}  // namespace

// Between runs the camera's clock stands, and waits last as long as they say.
static double Speed() {
  return Clock_World()->dSpeed > 0 ? Clock_World()->dSpeed : 1;
}

timespec Scale_Real(u64 qwCamera_us) {
  const u64 qwBounded_us = qwCamera_us < qwLongest_us ? qwCamera_us : qwLongest_us;
  const u64 qwReal_ns = static_cast<u64>(static_cast<double>(qwBounded_us) * 1000.0 / Speed());
  timespec t{};
  t.tv_sec = static_cast<time_t>(qwReal_ns / 1'000'000'000);
  t.tv_nsec = static_cast<decltype(t.tv_nsec)>(qwReal_ns % 1'000'000'000);
  return t;
}

u64 Scale_Camera_us(const timespec& tReal) {
  return static_cast<u64>(static_cast<double>(Scale_Micros(tReal)) * Speed());
}

i32 Scale_Sleep(u64 qwCamera_us) {
  const timespec tReal = Scale_Real(qwCamera_us);
  return g_realNanosleep(&tReal, static_cast<timespec*>(nullptr));
}

timespec Scale_RealDeadline(u64 qwCameraWall_us) {
  const u64 qwWall_us = Clock_Wall_us();
  const timespec tWait = Scale_Real(qwCameraWall_us > qwWall_us ? qwCameraWall_us - qwWall_us : 0);
  timespec tNow{};
  g_realClockGettime(CLOCK_REALTIME, &tNow);
  tNow.tv_sec += tWait.tv_sec;
  tNow.tv_nsec += tWait.tv_nsec;
  if (tNow.tv_nsec >= 1'000'000'000) {
    tNow.tv_nsec -= 1'000'000'000;
    ++tNow.tv_sec;
  }
  return tNow;
}
