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
