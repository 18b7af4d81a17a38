// The campaign of lives: a camera's life with clients, buttons and faults, ended by SIGTERM, by a power cut or at rest,
// and behind an early end the life that follows.  Shared by the program that tries thousands and by the test that tries
// a sample.
#pragma once

#include "life_story.h"

enum ELivesEnd : u32 { ENDED_AT_REST, ENDED_BY_SIGNAL, ENDED_BY_CUT, LIVES_ENDS };

struct TLivesOutcome {
  ELivesEnd eEnd = ENDED_AT_REST;  // of the first life
  u64 qwAnswers = 0;               // whose time was judged
  u64 qwSlowest_us = 0;            // of them
  u64 qwLongestEnd_us = 0;         // from SIGTERM, or the end of the walk under way, to the exit
  std::string sLoss = {};          // what did not hold, one line; "" all did
  std::string sTale = {};          // the transcripts; "" if all held
};

// One seed on one model.  Held after each life: it ended in order, with the descriptors that it began with; each client
// was answered within a second; at rest no function is under way, and believed equals true; behind SIGTERM it was gone
// within 5 seconds of the end of the walk under way, with the place of that on flash and no working log left.  Under
// every fourth seed the first life is lived once more with a log that nobody reads, and has to be the same.
TLivesOutcome Lives_Try(const TCamera& tCamera, const TLensModel& tModel, u64 qwSeed);
