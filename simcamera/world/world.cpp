#include "world/world.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

TWorld* World_Map(const char* pszRoot) {
  char szWorld[4096];
  if (snprintf(szWorld, sizeof szWorld, "%s/sim/world", pszRoot) >= static_cast<i32>(sizeof szWorld)) return nullptr;
  // The kernel is called directly: the hooks map their world before they can tell who calls open.
  const i32 fd = static_cast<i32>(syscall(SYS_openat, AT_FDCWD, szWorld, O_RDWR | O_CLOEXEC));
  if (fd < 0) {
    fprintf(stderr, "simcamera: %s: no simulated camera (%s)\n", pszRoot, strerror(errno));
    return nullptr;
  }
  const off_t iSize = lseek(fd, 0, SEEK_END);
  void* pv = MAP_FAILED;
  if (iSize == static_cast<off_t>(sizeof(TWorld))) {
    pv = mmap(nullptr, sizeof(TWorld), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  }
  syscall(SYS_close, fd);
  TWorld* ptWorld = pv == MAP_FAILED ? nullptr : static_cast<TWorld*>(pv);
  if (ptWorld != nullptr && ptWorld->dwMagic == dwWorldMagic && ptWorld->dwSize == sizeof(TWorld)) return ptWorld;
  if (ptWorld != nullptr) World_Unmap(ptWorld);
  fprintf(stderr, "simcamera: %s: the simulated camera is of another build\n", pszRoot);
  return nullptr;
}

void World_Unmap(TWorld* ptWorld) {
  munmap(ptWorld, sizeof(TWorld));
}

u64 World_RealNow_us() {
  timespec tNow;
  clock_gettime(CLOCK_MONOTONIC, &tNow);
  return static_cast<u64>(tNow.tv_sec) * 1'000'000 + static_cast<u64>(tNow.tv_nsec) / 1000;
}

u64 World_Now_us(const TWorld* ptWorld) {
  const TPace& tPace = ptWorld->tPace;
  const u64 qwBase_us = ptWorld->qwBase_us;
  const bool bWaits =
      ptWorld->bRun != 0 && tPace.dSpeed > 0 && tPace.dSpeed < dSpeedMax && tPace.qwLimit_us > qwBase_us;
  if (!bWaits) return qwBase_us;
  const double dReal_us = static_cast<double>(static_cast<i64>(World_RealNow_us() - tPace.qwRealAnchor_us));
  const double dNow_us = static_cast<double>(tPace.qwAnchor_us) + dReal_us * tPace.dSpeed;
  if (dNow_us <= static_cast<double>(qwBase_us)) return qwBase_us;
  return dNow_us >= static_cast<double>(tPace.qwLimit_us) ? tPace.qwLimit_us : static_cast<u64>(dNow_us);
}

void World_SetSpeed(TWorld* ptWorld, double dSpeed) {
  TPace& tPace = ptWorld->tPace;
  World_Lock(ptWorld);
  const u64 qwNow_us = World_Now_us(ptWorld);
  if (tPace.qwLimit_us > ptWorld->qwBase_us) ptWorld->qwBase_us = qwNow_us;
  tPace.qwAnchor_us = qwNow_us;
  tPace.qwRealAnchor_us = World_RealNow_us();
  if (dSpeed > 0) tPace.dSpeed = dSpeed;
  World_Unlock(ptWorld);
}

void World_Ring(const char* pszRoot) {
  char szBell[4096];
  if (snprintf(szBell, sizeof szBell, "%s/sim/bell", pszRoot) >= static_cast<i32>(sizeof szBell)) return;
  const i32 fd = static_cast<i32>(syscall(SYS_openat, AT_FDCWD, szBell, O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  if (fd < 0) return;  // nobody listens
  syscall(SYS_write, fd, "", 1);
  syscall(SYS_close, fd);
}

u64 World_HoldAt_us(TWorld* ptWorld) {
  u64 qwHold_us = ptWorld->tPace.bPaused != 0 ? 0 : ~u64{0};
  for (THold& tHold : ptWorld->tPace.atHolds) {
    if (tHold.iPid == 0) continue;
    if (kill(tHold.iPid, 0) != 0 && errno == ESRCH) tHold.iPid = 0;
    if (tHold.iPid != 0 && tHold.qwAt_us < qwHold_us) qwHold_us = tHold.qwAt_us;
  }
  return qwHold_us;
}

bool World_SetHold(TWorld* ptWorld, u64 qwAt_us) {
  const i32 iSelf = getpid();
  THold* ptFree = nullptr;
  for (THold& tHold : ptWorld->tPace.atHolds) {
    if (tHold.iPid == 0 && ptFree == nullptr) ptFree = &tHold;
    if (tHold.iPid == iSelf) ptFree = &tHold;
    if (tHold.iPid == iSelf) break;
  }
  if (qwAt_us == ~u64{0}) {
    if (ptFree != nullptr && ptFree->iPid == iSelf) *ptFree = {};
    return true;
  }
  if (ptFree == nullptr) return false;
  *ptFree = {.iPid = iSelf, .qwAt_us = qwAt_us};
  return true;
}

void World_PowerCut(TWorld* ptWorld, u64 qwNow_us) {
  Lens_PowerCut(&ptWorld->tLens, qwNow_us);
  I2CBus_PowerOn(&ptWorld->tI2C);
}

void World_Lock(TWorld* ptWorld) {
  if (ptWorld->bRun == 0) return;
  // A holder that was killed has left whole words: settling an axis again goes on where the holder stopped.
  if (pthread_mutex_lock(&ptWorld->mutexRun) == EOWNERDEAD) pthread_mutex_consistent(&ptWorld->mutexRun);
}

void World_Unlock(TWorld* ptWorld) {
  if (ptWorld->bRun == 0) return;
  pthread_mutex_unlock(&ptWorld->mutexRun);
}
