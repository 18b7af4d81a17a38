#include "core/wait.h"

#include <sys/time.h>

#include <cerrno>
#include <ctime>

void Delay_us(u64 qwTime_us) {
  if (qwTime_us == 0) return;
  timespec tLeft = {.tv_sec = static_cast<time_t>(qwTime_us / 1'000'000),
                    .tv_nsec = static_cast<long>(qwTime_us % 1'000'000) * 1000};
  while (nanosleep(&tLeft, &tLeft) != 0 && errno == EINTR) {
  }
}

u32 Clock_Milliseconds() {
  timeval tNow = {};
  gettimeofday(&tNow, nullptr);
  return static_cast<u32>(tNow.tv_sec) * 1000 + static_cast<u32>(tNow.tv_usec) / 1000;
}
