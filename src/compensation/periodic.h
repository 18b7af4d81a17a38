// The corrections that the focus thread makes by itself while its axis is idle.
#pragma once

#include "compensation/day_night.h"

// What a thermal lens needs before the first check.  Focus thread, once, ahead of its loop.
void Compensation_Begin(TVernierLensdInfo* pThis, i32 fd);

// One pass: day and night first, then temperature.  Focus thread, after each wake-up or timeout of its loop.  Does
// nothing while a command stands in the focus block, or before start-up has looked for a power loss: a recovery must
// come first. True: a move has been claimed (command_box.h).  The thread has its dispatcher run that move, and calls
// this again at once: the pass goes on.  False: the pass is over.
bool Compensation_Check(TVernierLensdInfo* pThis, TIRCutState* ptIRCut, i32 fd);
