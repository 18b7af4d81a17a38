// What happens to a camera in one life, drawn from a seed: clients, buttons, changes of the scene, faults.
#pragma once

#include <random>
#include <vector>

#include "lens/lens_model.h"
#include "support.h"

// One draw to a statement: a compiler may take the operands and arguments of one call in any order, and a seed would be
// another story under the next.
struct TDraw {
  explicit TDraw(u64 qwSeed) : tEngine(qwSeed) {}
  u64 Below(u64 qwBelow) { return tEngine() % qwBelow; }
  bool OneIn(u64 qwTimes) { return Below(qwTimes) == 0; }

  std::mt19937_64 tEngine;
};

// What must not be asked of a life, and why not.
enum ESpoiled : u32 {
  SPOILS_NOTHING = 0,
  SPOILS_TRUTH = 1,    // steps are lost, or the lens does not answer: what is believed may be false
  SPOILS_FLASH = 2,    // nothing can be written, not even the mark of a false position
  SPOILS_WORD = 4,     // a search on a detached ICS lens keeps its code
  SPOILS_ANSWERS = 8,  // the main thread waits for a restore
  SPOILS_DRIVER = 16,  // a driver has been wrong: what is believed may be false until the next start
};

// What the last command of a life promises; -1 nothing.  Virtual steps, of channel 0.
struct TPromise {
  const char* szWhat = "";
  i64 llZoom = -1, llFocus = -1;
  i64 llDefault = -1;        // the stored focus default
  u64 qwNoWalkAfter_us = 0;  // since the start of the life: from here on no axis begins a walk
  bool bSharp = false;
};

struct TStory {
  u64 DrawTime_ms(TDraw& tDraw) const;  // two in three within a moment

  std::vector<TLifeEvent> atEvents = {};
  u64 qwBusy_ms = 0;          // from here on nothing happens but releases of buttons
  u64 aqwMoments_ms[3] = {};  // round these much happens at once; the first is the start
  u32 dwSpoiled = SPOILS_NOTHING;
  bool bFaults = false;
  TPromise tPromise = {};
};

// At most, camera time: a walk of an axis over its whole range or to its reference; a search from command to rest.
// 0 for a lens without the axis.
u64 Story_Walk_us(const TLensModel& tModel, ELensAxis eAxis);
u64 Story_Search_us(const TLensModel& tModel, bool bScan);

// What the backup file says in the campaigns.
constexpr u32 dwBackupZoom = 150, dwBackupFocus = 300;
constexpr const char* pszBackupText = "zoom_motor=150\nfocus_motor=300\n";

// From the last thing that happens until all is at rest: a restore, what has waited for it, and two thermal checks.
u64 Story_Quiet_ms(const TLensModel& tModel);

// A client's query that makes sense on the lens, of any function, now and then beyond the lens's range.
std::string Story_DrawQuery(const TLensModel& tModel, TDraw& tDraw);

// The camera outlives the story's life.
TStory Story_Draw(const TCamera& tCamera, const TLensModel& tModel, TDraw& tDraw, u64 qwBusy_ms, u32 dwQueries,
                  bool bFaults);

// Adds a last act to a story without faults, when all else has come to rest, and notes what it promises.
void Story_AddLastAct(const TCamera& tCamera, const TLensModel& tModel, TDraw& tDraw, TStory& tStory);

// A saved set of positions that no save of the daemon leaves: a key or its number missing, an empty file, other bytes.
void Story_DamageSaved(const TCamera& tCamera, const TLensModel& tModel, TDraw& tDraw);

// Ends all faults, the lens put on again.
void Story_HealFaults(const std::string& sRoot);
