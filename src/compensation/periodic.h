// The corrections that the focus thread makes by itself while its axis is idle.
#pragma once

#include "compensation/day_night.h"

// Prepares the temperature correction.  Focus thread, once, before its loop.
void Compensation_Begin(TVernierLensdInfo* pThis, i32 fd);

// One pass: day and night first, then temperature.  Does nothing while a command stands in the focus block.  Does
// nothing before start-up has looked for a power loss either: a recovery must come first.  Returns true if a move has
// been claimed (command_box.h).  The thread then has its dispatcher run that move, and calls this again at once to go
// on with the pass.  Returns false if the pass is over.  Focus thread, after each wake-up or timeout of its loop.
bool Compensation_Check(TVernierLensdInfo* pThis, TIRCutState* ptIRCut, i32 fd);
