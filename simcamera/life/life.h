// One life of the daemon on the virtual clock, for test programs: a forked child in which the daemon's code runs under
// the hooks, one thread at a time, from start to exit, cut or deadlock.  The true lens and the files lie in ROOT and
// outlive it. The parent must be single-threaded.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "world/world.h"

// Things that happen from outside during a life.  Handed out in order of time.
struct TLifeEvent {
  u64 qwAt_us = 0;  // camera time since the start of this life
  enum EKind { REQUEST, SIGNAL, CALL } eKind = REQUEST;
  std::string sQuery = {};      // REQUEST: what the gateway hands in, as a GET; replies are kept in order
  std::string sMethod = "GET";  // REQUEST
  i32 iSignal = 0;              // SIGNAL, to the daemon's process
  std::function<void(TWorld*)> fnCall =
      {};  // CALL: anything else, a fault for instance; runs in the child, between two steps
};

struct TLifePlan {
  std::string sRoot = {};
  u64 qwSeed = 1;
  std::vector<TLifeEvent> atEvents = {};
  u64 qwCutAtEvent = 0;    // the power is cut at this event of the life, 1 the first; 0 never
  u64 qwEnd_us = 0;        // SIGTERM at this camera time since the start of the life, 0 never
  bool bImageSide = true;  // the image side looks at the focus blocks whenever the time has moved on
  std::vector<std::string> asArgs = {"vernierlensd"};
  std::function<i32(TWorld*)> fnBody = {};  // what runs instead of VernierLensd_Main(argc, argv), if set
};

enum ELifeEnd { LIFE_EXITED, LIFE_CUT, LIFE_DEADLOCK, LIFE_STOOD_STILL, LIFE_CRASHED };

struct TLifeResult {
  ELifeEnd eEnd = LIFE_CRASHED;
  i32 iStatus = 0;                     // exit status of LIFE_EXITED (a sanitizer's code among them)
  u64 qwEvents = 0;                    // hooked calls of the whole life
  u64 qwTime_us = 0;                   // camera time it took
  bool bTranscriptWhole = true;        // false: longer than what is kept, only its beginning is there
  std::string sTranscript;             // one event a line: "time thread event"
  std::vector<std::string> asReplies;  // whole reply texts, in order of the requests; "" where none was given
  std::string sStderr;                 // what a sanitizer or the harness had to say
};

// Runs one life to its end.  Reports everything; asserts nothing.  After a cut the flash below ROOT is left as the cut
// left it, drawn from the seed.  LIFE_CRASHED is also a life that the simulation ended, for a thread that the clock
// does not know or ten real seconds without an event; sStderr says so.
TLifeResult Life_Run(const TLifePlan& tPlan);

// A fresh ROOT on /dev/shm for one test, laid out for a model ("" if there is no room), and removed again with
// everything in it.
std::string Life_MakeRoot(const char* pszModel, u64 qwSeed = 1);
void Life_RemoveRoot(const std::string& sRoot);

// Brings a ROOT that this process made back to what Life_MakeRoot left: files, flash, true lens, scene, faults, clock.
// Several times cheaper than a fresh one, and the same path serves all lives of a test.  No life may run in it.  0 or
// -1.
i32 Life_ResetRoot(const std::string& sRoot);
