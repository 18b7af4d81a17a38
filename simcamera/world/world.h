// What one simulated camera shares between its processes: the true lens, the scene, the clock and the faults.  One
// TWorld lies in the file ROOT/sim/world, mapped MAP_SHARED by the preloaded hooks, the image side and the command
// line, and by a test program and the lives that it forks.
#pragma once

#include <pthread.h>

#include "lens/i2c_bus.h"
#include "lens/lens.h"
#include "lens/scene.h"

// Calls of one name that fail although their arguments are good: the first dwGood succeed, the next dwFailing fail.
struct TFailingCall {
  char szCall[16];
  u32 dwGood;
  u32 dwFailing;
};

enum EWorldTime : u32 { TIME_AT_A_SPEED = 0, TIME_VIRTUAL = 1 };

struct TWorld {
  u32 dwMagic;                   // dwWorldMagic
  u32 dwSize;                    // sizeof(TWorld)
  pthread_mutex_t mutexAtSpeed;  // process-shared and robust; taken at a speed only, never on the virtual clock
  EWorldTime eTime;
  u64 qwSeed;

  // The camera's clock.  At a speed: now = qwBase_us + (CLOCK_MONOTONIC - qwRealStart_us) * dSpeed.  On the virtual
  // clock the scheduler writes qwBase_us, and now is qwBase_us.
  u64 qwBase_us;
  u64 qwRealStart_us;
  double dSpeed;        // 0: no run is under way and the clock stands at qwBase_us
  u64 qwWallAtZero_us;  // wall clock (since 1970) at time 0 of the camera's clock

  char szModel[16];
  TLens tLens;
  TI2CBus tI2C;  // with the temperature sensors and their fault
  double dDistance_m;
  double dTemperature_C;
  u32 bNight;
  EScene eScene;

  // The image side: when it began to hold each channel's brightness (0: it does not), and its faults.
  u64 aqwHeldSince_us[iLensChannels];
  u32 bImageSideSilent;     // it gives no answer
  u32 bImageSideZero;       // its focus values are 0
  u32 bImageSideBackwards;  // its focus values count down, one each frame, whatever it sees

  // Faults of the flash (ROOT/etc and ROOT/mnt) that only the daemon sees.  A CALL event of a life may switch them.
  u32 bFlashFull;        // writes fail with ENOSPC; a file opened for writing is still made or emptied
  u32 bFlashReadOnly;    // every change fails with EROFS
  u32 dwSlowestSync_us;  // each sync and fsync takes a drawn time below this, on the virtual clock; 0: none

  u32 bSelectFails;  // every select of the daemon ends with ENOMEM; on the virtual clock
  // On the virtual clock: open (of files that are not the camera's), mkfifo, socketpair, send, write, shmdt,
  // pthread_join, GATELINK_init, GATELINK_read.
  TFailingCall atFailingCalls[2];

  u32 dwPowerCuts;  // so far, at a speed: each cut draws anew which unsynced writes the flash keeps
};

constexpr u32 dwWorldMagic = 0x314D4953;

// Maps ROOT/sim/world, until World_Unmap.  Returns null, with a line on stderr, if it is missing or of another build.
TWorld* World_Map(const char* pszRoot);
void World_Unmap(TWorld* ptWorld);

// Lays an empty (or absent) ROOT out for a model: the camera's configuration and state files, its directories, and
// ROOT/sim/world with the lens at the model's first position.  A ROOT that is laid out already is not changed.
// Returns 0, or -1 with a line on stderr (no such model, no room).
i32 World_LayOut(const char* pszRoot, const char* pszModel, u64 qwSeed);

// Writes the IR-cut settings that a new camera has (infra-red LEDs in use); an existing file is replaced.  Returns 0 or
// -1.
constexpr const char* szIRCutFile = "etc/conf.d/config_ircutctrl.xml";
i32 World_WriteIRCutFile(const char* pszRoot);

u64 World_Now_us(const TWorld* ptWorld);

// Cuts the power: motors stop where they are at that time, and the sensors forget their registers.
void World_PowerCut(TWorld* ptWorld, u64 qwNow_us);

// At a speed every use of tLens and of the scene must stand between these two.  On the virtual clock they do nothing.
void World_Lock(TWorld* ptWorld);
void World_Unlock(TWorld* ptWorld);
