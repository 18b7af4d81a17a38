// Runs the command in an axis's block on the thread of that axis.
#pragma once

#include "core/context.h"

// Takes tFocusCommand (command_box.h) and runs it to its end or its interruption.  Focus thread only; fd is the focus
// device or fdICS, borrowed.  A code without a row does nothing and stays in the block: the axis counts as busy until
// the next command.
void VernierLensd_DispatchFocusCommand(TVernierLensdInfo* pThis, i32 fd);

// The same for tZoomCommand, on the zoom thread.  While the zoom button is held, a finished or interrupted zoom arms
// the next one.
void VernierLensd_DispatchZoomCommand(TVernierLensdInfo* pThis, i32 fd);

// Carries out what the focus has been asked for without a walk by commands that other ones were written over: iris by
// channel, default position.  The dispatcher does so itself before each command.  Focus thread; call it once more when
// the thread takes no commands any more.  An iris that opens is waited for, until the daemon ends.
void VernierLensd_CarryOutFocusWishes(TVernierLensdInfo* pThis);
