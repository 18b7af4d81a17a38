// A life without hurry, on any lens, also a drawn one: each command comes when the lens is at rest, and is judged when
// it is at rest again.  Here each command must keep its promise; the campaign of lives only asks that nothing is lost.
#pragma once

#include "lives.h"

// Tries one seed on one model: a start of any kind, moves of both axes, night and day, searches, temperatures,
// references, stops; an orderly end; a restart, and a move of every channel.  Judged at each rest: no function is under
// way, the believed positions are true and those that were asked for, and a search ends sharp.  No working log is left.
TLivesOutcome OrderlyLife_Try(const TCamera& tCamera, const TLensModel& tModel, u64 qwSeed);
