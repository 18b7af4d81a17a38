// A life without hurry: one thing after another, each judged when the lens has come to rest, on any lens, also a drawn
// one.  What each command promises is held here, where the campaign of lives holds only that nothing is lost.
#pragma once

#include "lives.h"

// One seed on one model: a start of any kind, moves of both axes, night and day, searches, temperatures, references,
// stops; an orderly end; a restart, and a move of every channel.  Held at each rest: no function is under way, believed
// equals true, the position is the one that was asked for, and a search ends sharp.  No working log is left.
TLivesOutcome OrderlyLife_Try(const TCamera& tCamera, const TLensModel& tModel, u64 qwSeed);
