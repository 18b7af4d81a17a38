// The campaign of lives: a camera's life with clients, buttons and faults, ended by SIGTERM, by a power cut or at rest.
// After an early end the next life is tried too.  Shared by the program that tries thousands and by the test that
// tries a sample.
#pragma once

#include "life_story.h"

enum ELivesEnd : u32 { ENDED_AT_REST, ENDED_BY_SIGNAL, ENDED_BY_CUT, LIVES_ENDS };

struct TLivesOutcome {
  ELivesEnd eEnd = ENDED_AT_REST;  // of the first life
  u64 qwAnswers = 0;               // answers whose time was judged
  u64 qwSlowest_us = 0;            // the longest of these times
  u64 qwLongestEnd_us = 0;         // from SIGTERM, or from the end of the walk under way, to the exit
  std::string sLoss = {};          // what did not hold, one line; "" all did
  std::string sTale = {};          // the transcripts; "" if all held
};

// Tries one seed on one model.  Each life must end in order, with as many open descriptors as before, and answer each
// client within a second.  At rest no function may be under way, and the believed positions must be true.  After
// SIGTERM it must exit within 5 seconds of the end of the walk under way, with the positions saved and no working log
// left.  With every fourth seed the first life runs once more with a log that nobody reads.  Both must do the same.
TLivesOutcome Lives_Try(const TCamera& tCamera, const TLensModel& tModel, u64 qwSeed);
