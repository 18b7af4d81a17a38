// Runs the command in an axis's block on the thread of that axis.
#pragma once

#include "core/context.h"

// Takes tFocusCommand (command_box.h) and runs it until it ends or is interrupted.  A function that the axis lacks does
// nothing and stays in the block: the axis counts as busy until the next command.  Focus thread only; fd is the focus
// device or fdICS, borrowed.
void VernierLensd_DispatchFocusCommand(TVernierLensdInfo* pThis, i32 fd);

// Takes and runs tZoomCommand, on the zoom thread.  While the zoom button is held, each zoom that ends or is
// interrupted sends the next one.
void VernierLensd_DispatchZoomCommand(TVernierLensdInfo* pThis, i32 fd);

// Carries out the wishes (iris by channel, focus default) that other commands have been written over.  The dispatcher
// calls this before each command; call it once more when the thread takes no more commands.  Waits for an iris that
// opens, until the daemon ends.  Focus thread.
void VernierLensd_CarryOutFocusWishes(TVernierLensdInfo* pThis);
