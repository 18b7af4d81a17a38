// Every ordinary lens move: the target is clamped, the motor walks in one of two modes, the counter is kept true step
// by step, a new command is given way to between steps, and backlash is taken up so that each backward move arrives
// travelling forward.  A plain lens has no position feedback: the counter is the position.
//
// Owner thread of the axis only.  fd is borrowed: the axis's device, or fdICS.  The channel is that of the running
// command (TCommandBox::iRunningChannel).  Stepped mode sleeps one step time a virtual step and gives way within one;
// blocking mode and an ICS lens run to the end.
#pragma once

#include "motor/axis.h"

// Moves to dwTarget (virtual steps, any value).  A plain lens: from 0x10000 up it is the wrapped result of a backward
// move and becomes the lowest target, below it is limited to the highest; one below the lowest is not raised.  An ICS
// lens: taken as signed, raised to the lowest target and limited to the highest. 0: there, or the ICS lens is detached.
// -1: no such axis; interrupted: dwFunction then belongs to the new command; or the driver has refused a walk: the
// reference is then lost.
i32 VernierLensd_MoveZoom(TVernierLensdInfo* pThis, i32 fd, u32 dwTarget);
i32 VernierLensd_MoveFocus(TVernierLensdInfo* pThis, i32 fd, u32 dwTarget);

// Repairs the counter after an interruption with dwLeft virtual steps uncounted: stops the driver, counts by what it
// has really walked, and walks the broken virtual step to its end.  An answer that cannot be leaves the counter as it
// stands, and the reference is lost.
void VernierLensd_RecoverZoomMove(TVernierLensdInfo* pThis, i32 fd, u32 dwLeft, u32 bForward);
void VernierLensd_RecoverFocusMove(TVernierLensdInfo* pThis, i32 fd, u32 dwLeft, u32 bForward);

// Sets the direction of later walks of a plain lens (forward or backward); asks for a walk in the request of the mode.
// False: the driver has refused, nothing moves as far as anybody knows, and the reference is lost, with a line.
bool Axis_SetDirection(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, EDirection eDirection);
bool Axis_RequestWalk(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, i32 iDriverSteps);

// Makes the taken command, if it is relative, a direct move from where the counter stands now: at most 30 steps.  The
// block is left as it is but for that limit.
void Axis_ResolveTarget(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Runs the taken command as a move, relative or direct, and sets the axis idle after it, unless a newer command stands
// in the block.  0 and -1 as above.
i32 VernierLensd_ZoomCommand(TVernierLensdInfo* pThis, i32 fd);
i32 VernierLensd_FocusCommand(TVernierLensdInfo* pThis, i32 fd);
