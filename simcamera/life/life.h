// One life of the daemon on the virtual clock, for test programs: a forked child in which the daemon's code runs under
// the hooks, one thread at a time, from start to exit, cut or deadlock.  The true lens and the files lie in ROOT and
// outlive the life.  The parent must be single-threaded.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "world/world.h"

// Something that happens from outside during a life.  Events come in order of time.
struct TLifeEvent {
  u64 qwAt_us = 0;  // camera time since the start of this life
  enum EKind { REQUEST, SIGNAL, CALL } eKind = REQUEST;
  std::string sQuery = {};                   // REQUEST: the gateway hands this to the daemon; replies are kept in order
  std::string sMethod = "GET";               // REQUEST
  i32 iSignal = 0;                           // SIGNAL, to the daemon's process
  std::function<void(TWorld*)> fnCall = {};  // CALL: anything else, as a fault; runs in the child, between two steps
};

struct TLifePlan {
  std::string sRoot = {};
  u64 qwSeed = 1;
  std::vector<TLifeEvent> atEvents = {};
  u64 qwCutAtEvent = 0;    // the power is cut at this event of the life, 1 the first; 0 never
  u64 qwEnd_us = 0;        // SIGTERM at this camera time since the start of the life, 0 never
  bool bImageSide = true;  // the image side looks at the focus blocks whenever the time has moved on
  std::vector<std::string> asArgs = {"vernierlensd"};
  std::function<i32(TWorld*)> fnBody = {};  // if set, runs instead of VernierLensd_Main(argc, argv)
};

enum ELifeEnd { LIFE_EXITED, LIFE_CUT, LIFE_DEADLOCK, LIFE_STOOD_STILL, LIFE_CRASHED };

struct TLifeResult {
  ELifeEnd eEnd = LIFE_CRASHED;
  i32 iStatus = 0;                     // exit status of LIFE_EXITED (it may be a sanitizer's)
  u64 qwEvents = 0;                    // hooked calls of the whole life
  u64 qwTime_us = 0;                   // camera time it took
  bool bTranscriptWhole = true;        // false: it was too long, and only its beginning is kept
  std::string sTranscript;             // one event a line: "time thread event"
  std::vector<std::string> asReplies;  // whole reply texts, in order of the requests; "" where none was given
  std::string sStderr;                 // messages of a sanitizer or the harness
};

// Runs one life to its end.  Reports everything; asserts nothing.  After a cut the flash below ROOT keeps what the seed
// has drawn.  LIFE_CRASHED is also a life that the simulation ended, because of a thread that the clock does not know
// or ten real seconds without an event; sStderr says so.
TLifeResult Life_Run(const TLifePlan& tPlan);

// Makes a ROOT on /dev/shm for one test, laid out for a model; "" if there is no room.  Life_RemoveRoot removes it with
// everything in it.
std::string Life_MakeRoot(const char* pszModel, u64 qwSeed = 1);
void Life_RemoveRoot(const std::string& sRoot);

// Brings a ROOT that this process made back to what it was after Life_MakeRoot: files, flash, true lens, scene, faults,
// clock.  This takes a fraction of the time of a new one, and all lives of a test can use one path.  No life may run in
// it.  Returns 0 or -1.
i32 Life_ResetRoot(const std::string& sRoot);
