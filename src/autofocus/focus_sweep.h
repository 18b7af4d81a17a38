// One measuring pass of contrast focusing: to a start, forward in equal steps over a range with a reading at each, back
// to where the highest reading was.
#pragma once

#include "core/context.h"

// dwStart is a position, dwRange and dwStep are distances, virtual steps; a step of 0 counts as 1.  The caller keeps
// dwStart + dwRange within the axis's range: the steps are not clamped.  Focus thread, for the channel of the running
// command; fd is borrowed.  Takes about 1 s, (dwRange / dwStep) * dwOneStepSearchTime and two moves. 0: the lens stands
// on the best position (adwFocusMotorPosition), the lowest of several.  -1: not supported, or ended by a new command or
// the daemon's end, within one step: the lens stands where it was left, and the counter names that place; or the driver
// has refused a walk: the reference is lost.
i32 VernierLensd_FocusSweep(TVernierLensdInfo* pThis, i32 fd, u32 dwStart, u32 dwRange, u32 dwStep);
