// The commands that are put in pairs, each with what it promises of a camera at rest where it came last.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "explore/schedule.h"
#include "support.h"

// One lens of the exploration.
struct TPairLens {
  const char* szModel;
  u64 qwReady_ms;   // by then the daemon waits for its inputs, and all passes at its start are over
  u64 qwSecond_ms;  // after the first command: nothing is under way any more, the second comes at the latest
  u64 qwRest_ms;    // after the first command: the second, too, has ended
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
  PROMISES_DEFAULT = 256,   // the new focus default is stored, also where another command follows; a focus lens only
  WALKS_NOTHING = 512,      // a recovery under way goes on, to where the lens is sharp
  STOPS = 1024,             // a recovery under way ends: sharp, or with the log that has it done later
  LEAVES_SEARCH = 2048,     // a recovery under way loses its search, and so its log may stay
  ENDS_LIFE = 4096,         // nobody can be asked afterwards, and what was under way may leave its log
  CHANGES_LIGHT = 8192,     // the daemon itself moves the focus after it
};
constexpr u32 PROMISES_OF_FOCUS = PROMISES_FOCUS | PROMISES_FOCUS_BACK | PROMISES_SAVED_FOCUS | PROMISES_SHARP;

constexpr u32 dwPairBackupZoom = 50, dwPairBackupFocus = 300, dwPairDefault = 300;

struct TPairCommand {
  const char* szName;
  u32 dwPromises;                 // EPromise
  const char* szQuery = nullptr;  // of a client; what ends in '=' is completed with the place that is promised
  const char* szFrame = nullptr;  // content of the message on the event FIFO
  u64 qwHeld_ms = 0;              // of a button, which is released then; 0 no button
  ESeenBy eSeenBy = SEEN_BY_SELECT;
};

// The first of a pair may be any command but "term", or this: the daemon was started after a power loss, and the second
// comes at any time from its start.
constexpr const char* szRecovery = "recovery";

struct TPair {
  const TPairLens* ptLens;
  const TPairCommand* ptFirst;  // null: recovery
  const TPairCommand* ptSecond;
};
std::vector<TPair> Pair_All(const TPairLens& tLens);
std::string Pair_Name(const TPair& tPair);  // "LENS/FIRST/SECOND"
TPair Pair_Find(const std::string& sName);  // null pointers: there is none

// What the pair's life is made of.  Clients' requests are numbered from 0; the last ones ask for the status of each
// channel, at rest.
struct TPairLife {
  TSchedule tSchedule;
  TLifePlan tPlan;
  u32 dwRequests;  // none after a command that ends the life
};
TPairLife Pair_Prepare(const TPair& tPair, const TCamera& tCamera);

// What does not hold of the life at its end; "" all does.
std::string Pair_Judge(const TPair& tPair, const TCamera& tCamera, u32 dwRequests, const TLifeResult& tResult);
