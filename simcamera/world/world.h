// What one simulated camera shares between its processes: the true lens, the scene, the clock and the faults.  One
// TWorld lies in the file ROOT/sim/world, mapped MAP_SHARED by the preloaded hooks, the image side and the command
// line, and by a test program and the lives that it forks.
#pragma once

#include <pthread.h>

#include "lens/i2c_bus.h"
#include "lens/lens.h"
#include "lens/lens_model.h"
#include "lens/scene.h"

// Calls of one name that fail although their arguments are good: the first dwGood succeed, the next dwFailing fail.
struct TFailingCall {
  char szCall[16];
  u32 dwGood;
  u32 dwFailing;
};

// A place in camera time beyond which the clock does not go while the process that has set it lives.
struct THold {
  i32 iPid;     // 0: no hold
  u64 qwAt_us;  // 0: where the clock stands
};

// How camera time is held to the host's: the words by which a run, the daemon's clock and commands speak to each other.
// All under the world's lock, but for the tickets.  A word that changes is told by a byte to the FIFO ROOT/sim/bell.
struct TPace {
  double dSpeed;        // camera seconds a second at most; dSpeedMax: as fast as the host can; 0: no run is under way
  u64 qwAnchor_us;      // camera time at qwRealAnchor_us
  u64 qwRealAnchor_us;  // CLOCK_MONOTONIC
  u64 qwLimit_us;  // while the clock waits: the deadline that it waits for; readers may take it to have moved up to
                   // there
  u32 bPaused;
  u32 dwSteps;  // so many deadlines are reached in spite of a hold
  THold atHolds[8];
  i32 iOwner;    // the process whose clock this is
  u32 dwStarts;  // of daemons, so far: each has draws of its own
  // A ticket: taken by a command while the clock is held, and said when nothing is under way in the camera.  Atomic.
  u32 dwQuietAsked, dwQuietSaid;
};
constexpr double dSpeedMax = 1e9;

struct TWorld {
  u32 dwMagic;               // dwWorldMagic
  u32 dwSize;                // sizeof(TWorld)
  pthread_mutex_t mutexRun;  // process-shared and robust; taken in a run only, never in a life
  u32 bRun;                  // other processes look at this world at any moment; 0 in a life, which is one process
  u64 qwSeed;

  u64 qwBase_us;        // the camera's clock, as the daemon's scheduler has moved it last
  TPace tPace;          // of a run
  u64 qwWallAtZero_us;  // wall clock (since 1970) at time 0 of the camera's clock

  TLensModel tModel;  // the lens that ROOT was laid out for; each process that maps the world has it from here
  TLens tLens;
  TI2CBus tI2C;  // with the temperature sensors and their fault
  double dDistance_m;
  double dTemperature_C;
  u32 bNight;
  EScene eScene;

  // The image side: when it began to hold each channel's brightness (0: it does not), and its faults.
  u64 aqwHeldSince_us[iLensChannels];
  u32 bImageSideSilent;              // it gives no answer
  u32 bImageSideZero;                // its focus values are 0
  u32 bImageSideBackwards;           // its focus values count down, one each frame, whatever it sees
  i32 aiBlockHolder[iLensChannels];  // of a run: the process that has attached the channel's block; 0 none so far

  // Faults of the flash (ROOT/etc and ROOT/mnt) that only the daemon sees.  A CALL event of a life may switch them.
  u32 bFlashFull;        // writes fail with ENOSPC; a file opened for writing is still made or emptied
  u32 bFlashReadOnly;    // every change fails with EROFS
  u32 dwSlowestSync_us;  // each sync and fsync takes a drawn time below this; 0: none

  u32 bSelectFails;  // every select of the daemon ends with ENOMEM
  // open (of files that are not the camera's), mkfifo, socketpair, send, write, shmdt, pthread_join, GATELINK_init,
  // GATELINK_read.
  TFailingCall atFailingCalls[2];

  u32 dwPowerCuts;  // of runs, so far: each cut draws anew which unsynced writes the flash keeps

  // Of a run: the daemon cuts its own power right after the first line of its transcript that this extended regular
  // expression matches.  "": never.  Each new pattern counts dwCutPatterns up.
  char szCutAt[128];
  u32 dwCutPatterns;
  u32 dwDaemonStarts;  // of this camera, in all its runs
};

constexpr u32 dwWorldMagic = 0x314D4953;

// Maps ROOT/sim/world, until World_Unmap.  Returns null, with a line on stderr, if it is missing or of another build.
TWorld* World_Map(const char* pszRoot);
void World_Unmap(TWorld* ptWorld);

struct TLayOut {
  const TLensModel* ptModel;
  u64 qwSeed = 1;
  const char* pszModelFile = nullptr;  // text of ROOT/sim/model.json, for people; null: no such file
  const char* pszEtc = nullptr;        // a folder whose files replace those of ROOT/etc/conf.d; null: none
};

// Lays an empty (or absent) ROOT out for a sound model: the camera's configuration and state files, its directories,
// and ROOT/sim/world with the lens at the model's first position.  A ROOT that is laid out already is not changed.
// Returns 0, or -1 with a line on stderr (no room).
i32 World_LayOutModel(const char* pszRoot, const TLayOut& tLayOut);

// Lays out for a built-in or drawn model.  Returns -1 with a line on stderr also if there is no such model.
i32 World_LayOut(const char* pszRoot, const char* pszModel, u64 qwSeed);

// Writes the IR-cut settings that a new camera has (infra-red LEDs in use); an existing file is replaced.  Returns 0 or
// -1.
constexpr const char* szIRCutFile = "etc/conf.d/config_ircutctrl.xml";
i32 World_WriteIRCutFile(const char* pszRoot);

// The camera's time.  In a run that waits for a deadline it goes on with the host's clock, at the run's speed and never
// beyond that deadline, so that a reader sees motors turn between two events of the daemon.  In a run: under the lock.
u64 World_Now_us(const TWorld* ptWorld);

// The host's monotonic clock.
u64 World_RealNow_us();

// Changes the speed (0: leaves it) and rings the bell of ROOT: the clock takes up changed words of the pace at once.
// The camera goes on from where it is.  Nothing happens if no daemon listens.
void World_SetSpeed(TWorld* ptWorld, double dSpeed);
void World_Ring(const char* pszRoot);

// The hold that counts: the least of a pause and the holds of processes that live; ~0 none.  Under the lock.
u64 World_HoldAt_us(TWorld* ptWorld);
// Sets or, with qwAt_us ~0, lifts the calling process's hold.  False: the table is full.  Under the lock.
bool World_SetHold(TWorld* ptWorld, u64 qwAt_us);

// Cuts the power: motors stop where they are at that time, and the sensors forget their registers.
void World_PowerCut(TWorld* ptWorld, u64 qwNow_us);

// In a run every use of tLens, of the scene and of the pace must stand between these two.  In a life they do nothing.
void World_Lock(TWorld* ptWorld);
void World_Unlock(TWorld* ptWorld);
