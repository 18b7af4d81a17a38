// What happens to a camera in one life, drawn from a seed: clients' requests, buttons, changes of the scene, faults.
#pragma once

#include <random>
#include <vector>

#include "lens/lens_model.h"
#include "support.h"

// Make only one draw in a statement.  A compiler may evaluate operands and arguments in any order: with another
// compiler the same seed would then be another story.
struct TDraw {
  explicit TDraw(u64 qwSeed) : tEngine(qwSeed) {}
  u64 Below(u64 qwBelow) { return tEngine() % qwBelow; }
  bool OneIn(u64 qwTimes) { return Below(qwTimes) == 0; }

  std::mt19937_64 tEngine;
};

// Why some things may not hold in a life, and are not judged.
enum ESpoiled : u32 {
  SPOILS_NOTHING = 0,
  SPOILS_TRUTH = 1,    // steps are lost, or the lens does not answer: what is believed may be false
  SPOILS_FLASH = 2,    // nothing can be written, not even the mark of a false position
  SPOILS_WORD = 4,     // a search on a detached ICS lens keeps its function code
  SPOILS_ANSWERS = 8,  // the main thread waits for a restore
  SPOILS_DRIVER = 16,  // a driver has been wrong: what is believed may be false until the next start
};

// What the last command of a life promises, for channel 0.  Positions are virtual steps; -1: no promise.
struct TPromise {
  const char* szWhat = "";
  i64 llZoom = -1, llFocus = -1;
  i64 llDefault = -1;        // the stored focus default
  u64 qwNoWalkAfter_us = 0;  // after this time no axis begins a walk; since the start of the life, 0 no promise
  bool bSharp = false;
};

struct TStory {
  u64 DrawTime_ms(TDraw& tDraw) const;  // two of three times lie in one of the busy moments

  std::vector<TLifeEvent> atEvents = {};
  u64 qwBusy_ms = 0;          // after this time only buttons are released
  u64 aqwMoments_ms[3] = {};  // beginnings of moments in which much happens; the first is the start
  u32 dwSpoiled = SPOILS_NOTHING;
  bool bFaults = false;
  TPromise tPromise = {};
};

// The longest that something can take, in camera time: a walk of an axis over its whole range or to its reference; a
// search from command to rest.  0 for a lens without the axis.
u64 Story_Walk_us(const TLensModel& tModel, ELensAxis eAxis);
u64 Story_Search_us(const TLensModel& tModel, bool bScan);

// The simulated ICS driver has only one lens: each channel moves the lens of all of them.
bool Story_IsShared(const TLensModel& tModel);

// Whether every start finds the lens.  One without sensors goes on from a false position if the last life lost steps.
bool Story_StartFindsAll(const TLensModel& tModel);

// The content of the backup file in the campaigns.
constexpr u32 dwBackupZoom = 150, dwBackupFocus = 300;
constexpr const char* szBackupText = "zoom_motor=150\nfocus_motor=300\n";

// Time from the last event until all is at rest: a restore, the commands that waited for it, and two thermal checks.
u64 Story_Quiet_ms(const TLensModel& tModel);

// A query that sends an axis to a position, and a position that it can go to (virtual steps).
std::string Story_Direct(ELensAxis eAxis, u64 qwPosition);
u32 Story_DrawPlace(TDraw& tDraw, const TAxisSheet& tSheet);

// Draws a client's query that makes sense on the lens: any function, some positions a little beyond the range.
std::string Story_DrawQuery(const TLensModel& tModel, TDraw& tDraw);

// Draws a story.  tCamera must live until the story's life has ended.
TStory Story_Draw(const TCamera& tCamera, const TLensModel& tModel, TDraw& tDraw, u64 qwBusy_ms, u32 dwQueries,
                  bool bFaults);

// Adds a last act to a story without faults and notes what it promises.  It comes when all else is at rest.
void Story_AddLastAct(const TCamera& tCamera, const TLensModel& tModel, TDraw& tDraw, TStory& tStory);

// Damages the saved positions as no save of the daemon does: a key or its number missing, an empty file, other bytes.
void Story_DamageSaved(const TCamera& tCamera, const TLensModel& tModel, TDraw& tDraw);

// Ends all faults; a detached lens is attached again.
void Story_HealFaults(const std::string& sRoot);
