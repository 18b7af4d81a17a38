#include "core/wait.h"

#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "core/context.h"

void Delay_us(u64 qwTime_us) {
  if (qwTime_us == 0) return;
  timespec tLeft = {.tv_sec = static_cast<time_t>(qwTime_us / 1'000'000),
                    .tv_nsec = static_cast<long>(qwTime_us % 1'000'000) * 1000};
  while (nanosleep(&tLeft, &tLeft) != 0 && errno == EINTR) {
  }
}

void Delay_WhileRunning(u64 qwTime_us) {
  constexpr u64 qwSlice_us = 500'000;
  while (qwTime_us > 0 && !Daemon_IsEnding()) {
    const u64 qwNow_us = std::min(qwTime_us, qwSlice_us);
    Delay_us(qwNow_us);
    qwTime_us -= qwNow_us;
  }
}

u32 Clock_Milliseconds() {
  timeval tNow = {};
  gettimeofday(&tNow, nullptr);
  return static_cast<u32>(tNow.tv_sec) * 1000 + static_cast<u32>(tNow.tv_usec) / 1000;
}

struct tm* Clock_UTC() {
  static struct tm tNow;
  const time_t tSeconds = std::time(nullptr);
  return gmtime_r(&tSeconds, &tNow);
}
