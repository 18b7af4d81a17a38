// One sweep of contrast focusing: moves to a start, steps forward over a range with a reading at each step, and goes
// back to the highest reading.
#pragma once

#include "core/context.h"

// dwStart is a position, dwRange and dwStep are distances, virtual steps; a step of 0 counts as 1.  The caller keeps
// dwStart + dwRange within the axis's range: the steps are not limited.  Takes about 1 s, (dwRange / dwStep) *
// dwOneStepSearchTime and two moves.  Focus thread, for the channel of the running command; fd is borrowed.
// Returns 0 with the lens on the best position; of equal readings the first counts.
// Returns -1 within one step after a new command or the daemon's end: the lens stays there, and the counter is right.
// Also returns -1 if the lens lacks the focus or does not answer, or if the driver has refused a walk: the reference is
// then lost.
i32 VernierLensd_FocusSweep(TVernierLensdInfo* pThis, i32 fd, u32 dwStart, u32 dwRange, u32 dwStep);
