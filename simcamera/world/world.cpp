#include "world/world.h"

#include <errno.h>
#include <fcntl.h>
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

u64 World_Now_us(const TWorld* ptWorld) {
  if (ptWorld->eTime == TIME_VIRTUAL || ptWorld->dSpeed <= 0) return ptWorld->qwBase_us;
  timespec tNow;
  clock_gettime(CLOCK_MONOTONIC, &tNow);
  const u64 qwReal_us = static_cast<u64>(tNow.tv_sec) * 1'000'000 + static_cast<u64>(tNow.tv_nsec) / 1000;
  if (qwReal_us <= ptWorld->qwRealStart_us) return ptWorld->qwBase_us;
  return ptWorld->qwBase_us +
         static_cast<u64>(static_cast<double>(qwReal_us - ptWorld->qwRealStart_us) * ptWorld->dSpeed);
}

void World_PowerCut(TWorld* ptWorld, u64 qwNow_us) {
  Lens_PowerCut(&ptWorld->tLens, qwNow_us);
  I2CBus_PowerOn(&ptWorld->tI2C);
}

void World_Lock(TWorld* ptWorld) {
  if (ptWorld->eTime == TIME_VIRTUAL) return;
  // A holder that was killed has left whole words: settling an axis again goes on where the holder stopped.
  if (pthread_mutex_lock(&ptWorld->mutexAtSpeed) == EOWNERDEAD) pthread_mutex_consistent(&ptWorld->mutexAtSpeed);
}

void World_Unlock(TWorld* ptWorld) {
  if (ptWorld->eTime == TIME_VIRTUAL) return;
  pthread_mutex_unlock(&ptWorld->mutexAtSpeed);
}
