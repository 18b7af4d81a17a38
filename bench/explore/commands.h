// The commands that are put in pairs.  Each has promises: what must hold at rest if this command came last.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "explore/schedule.h"
#include "support.h"

// One lens of the exploration.
struct TPairLens {
  const char* szModel;
  u64 qwReady_ms;   // by then the daemon waits for its inputs, and all walks of its start have ended
  u64 qwSecond_ms;  // time from the first command until it has ended; at the latest then the second one comes
  u64 qwRest_ms;    // time from the first command until the second one has ended too
  i32 iZoom, iZoomBack, iFocus, iFocusBack;  // near targets, virtual steps
};
std::span<const TPairLens> PairLenses();

enum EPromise : u32 {
  PROMISES_NOTHING = 0,
  PROMISES_ZOOM = 1,  // the zoom ends on its target
  PROMISES_ZOOM_BACK = 2,
  PROMISES_FOCUS = 4,  // the focus ends on its target
  PROMISES_FOCUS_BACK = 8,
  PROMISES_SAVED_ZOOM = 16,  // the zoom ends on the backup's position
  PROMISES_SAVED_FOCUS = 32,
  PROMISES_REFERENCE = 64,  // the zoom ends on its reference
  PROMISES_SHARP = 128,     // the focus ends where it is sharp
  PROMISES_DEFAULT = 256,   // the new focus default is stored, even if another command follows; a focus lens only
  WALKS_NOTHING = 512,      // a recovery under way goes on until the lens is sharp
  STOPS = 1024,             // a recovery under way ends: sharp, or the log stays so that the next start does the rest
  LEAVES_SEARCH = 2048,     // a recovery under way loses its search, and so its log may stay
  ENDS_LIFE = 4096,         // no status can be asked afterwards, and a walk under way may leave its log
  CHANGES_LIGHT = 8192,     // the daemon itself moves the focus after it
};
constexpr u32 PROMISES_OF_FOCUS = PROMISES_FOCUS | PROMISES_FOCUS_BACK | PROMISES_SAVED_FOCUS | PROMISES_SHARP;

constexpr u32 dwPairBackupZoom = 50, dwPairBackupFocus = 300, dwPairDefault = 300;

struct TPairCommand {
  const char* szName;
  u32 dwPromises;                 // EPromise
  const char* szQuery = nullptr;  // of a client; if it ends in '=', the promised position is added
  const char* szFrame = nullptr;  // content of the message on the event FIFO
  u64 qwHeld_ms = 0;              // a button is released after this time; 0 no button
  ESeenBy eSeenBy = SEEN_BY_SELECT;
};

// The first of a pair may be any command but "term", or a recovery: the daemon starts after a power loss, and the
// second command comes at any time from the start on.
constexpr const char* szRecovery = "recovery";

struct TPair {
  const TPairLens* ptLens;
  const TPairCommand* ptFirst;  // null: recovery
  const TPairCommand* ptSecond;
};
std::vector<TPair> Pair_All(const TPairLens& tLens);
std::string Pair_Name(const TPair& tPair);  // "LENS/FIRST/SECOND"
TPair Pair_Find(const std::string& sName);  // null pointers: there is none

// The life of a pair.  Clients' requests are numbered from 0; the last ones ask for the status of each channel at rest.
struct TPairLife {
  TSchedule tSchedule;
  TLifePlan tPlan;
  u32 dwRequests;  // after a command that ends the life no status is asked
};
TPairLife Pair_Prepare(const TPair& tPair, const TCamera& tCamera);

// Returns what does not hold at the end of the life, or "" if all does.
std::string Pair_Judge(const TPair& tPair, const TCamera& tCamera, u32 dwRequests, const TLifeResult& tResult);
