// The two searches for best focus, each a series of sweeps from coarse to fine, between the lower bound for the zoom
// (zoom_tracking.h) and tFocusCommand's dwEnd.
//
// Focus thread, for the channel of the running command; fd is borrowed.  On success the lens stands on the best
// position of the last sweep, and the axis is idle.  On a failure dwFunction is not touched, and the lens stays where
// it was left.
#pragma once

#include "core/context.h"

// Function 3, auto focus: begins with a range round the predicted pan focus.  Waits until the zoom is at rest.
void VernierLensd_PerformAutoFocus(TVernierLensdInfo* pThis, i32 fd);

// Function 4, focus scan: sends both axes to their reference, then sweeps the whole range.  The readings stay in the
// focus value table.
void PerformFocusScan(TVernierLensdInfo* pThis, i32 fd);
