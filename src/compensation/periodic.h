// The corrections that the focus thread makes by itself while its axis is idle.
#pragma once

#include "compensation/day_night.h"

// What a thermal lens needs before the first check.  Focus thread, once, ahead of its loop.
void Compensation_Begin(TVernierLensdInfo* pThis, i32 fd);

// Day and night first, then temperature.  Focus thread, after each wake-up or time-out of its loop; does nothing while
// a command stands in the focus block, or before start-up has looked for a power loss: a recovery must come first.
void Compensation_Check(TVernierLensdInfo* pThis, TIRCutState* ptIRCut, i32 fd);
