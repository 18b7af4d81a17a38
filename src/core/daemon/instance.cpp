#include "core/daemon/instance.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "core/fail.h"
#include "core/paths.h"
#include "core/wait.h"

namespace {

constexpr u64 qwPoll_us = 100'000;
constexpr u64 qwBound_us = qwEndBound_us + 30'000'000;  // the other daemon's whole release
constexpr mode_t wOwnerOnly = 0600;                     // whoever can open the file could lock the daemon out

bool IsTaken(i32 fd) {
  return flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

}  // namespace

i32 Instance_Claim(TVernierLensdInfo* pThis) {
  pThis->fdInstance = open(szInstancePath, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, wOwnerOnly);
  if (pThis->fdInstance < 0) {
    std::printf("[vernierlensd] : %s cannot be made, so a second daemon would not be noticed.\n", szInstancePath);
    return 0;
  }
  if (!IsTaken(pThis->fdInstance)) return 0;
  std::puts("[vernierlensd] : Another daemon owns the lens, waiting for its end.");
  bool bTaken = true;
  Wait_Poll(qwPoll_us, qwBound_us, [&] { return !(bTaken = IsTaken(pThis->fdInstance)) || Daemon_IsEnding(); });
  if (!bTaken) return 0;
  return Fail(Daemon_IsEnding() ? "[vernierlensd] : Asked to end while another daemon owns the lens."
                                : "[vernierlensd] : Another daemon owns the lens.");
}

void Instance_Release(TVernierLensdInfo* pThis) {
  if (pThis->fdInstance >= 0) close(pThis->fdInstance);
  pThis->fdInstance = -1;
}
