#include "core/instance.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "core/paths.h"
#include "core/wait.h"

namespace {

constexpr u64 qwPoll_us = 100'000;
constexpr u64 qwBound_us = 60'000'000;

bool IsTaken(i32 fd) {
  return flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

}  // namespace

i32 Instance_Claim(TVernierLensdInfo* pThis) {
  pThis->fdInstance = open(szConfigFolder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (pThis->fdInstance < 0 || !IsTaken(pThis->fdInstance)) return 0;
  std::puts("[vernierlensd] : Another daemon owns the lens, waiting for its end.");
  bool bTaken = true;
  Wait_Poll(qwPoll_us, qwBound_us, [&] { return Daemon_IsEnding() || !(bTaken = IsTaken(pThis->fdInstance)); });
  return bTaken ? -1 : 0;
}

void Instance_Release(TVernierLensdInfo* pThis) {
  if (pThis->fdInstance >= 0) close(pThis->fdInstance);
  pThis->fdInstance = -1;
}
