// What outlives the child of a life: written by the life, read by the parent after its end.
#pragma once

#include "clock/clock.h"

struct TLifeRecord {
  TClockTally tTally;
  u32 bTranscriptFull;
  u32 dwTranscript;             // bytes
  u32 dwReplies;                // bytes
  char acReplies[1 << 20];      // one after the other: request number, length (32 bits each), text
  char acTranscript[64 << 20];  // backed by memory only as far as it is used
};

TLifeRecord& Life_Record();  // of the life that this process is
