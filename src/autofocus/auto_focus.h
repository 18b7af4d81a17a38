// The two searches for best focus, each a series of sweeps from coarse to fine within tFocusCommand's dwStart to dwEnd.
//
// Focus thread, for the channel of the running command; fd is borrowed.  On success the lens stands on the best
// position of the last sweep and the axis is idle.  On a failure dwFunction is not touched and the lens stays where it
// was left.
#pragma once

#include "core/context.h"

// Function 3: from a range round the pan focus that zoom tracking predicts.  Waits for the zoom to come to rest.
void VernierLensd_PerformAutoFocus(TVernierLensdInfo* pThis, i32 fd);

// Function 4: both axes to their reference first, then over the whole range.  The curve of readings stays in the focus
// value table.
void PerformFocusScan(TVernierLensdInfo* pThis, i32 fd);
