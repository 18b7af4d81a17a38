// Ordinary lens moves.  A move limits its target, walks in one of two modes, counts each step, and gives way to a new
// command between steps.  A backward move goes too far and comes back, so that every move arrives travelling forward.
// A plain lens has no position feedback: the counter is the position.
//
// Owner thread of the axis only.  fd is borrowed: the axis's device, or fdICS.  The channel is that of the running
// command (TCommandBox::iRunningChannel).  Stepped mode sleeps one step time for each virtual step and gives way within
// one.  Blocking mode and an ICS lens run to the end.
#pragma once

#include "motor/axis.h"

// Moves to dwTarget (virtual steps, any value).  On a plain lens 0x10000 and above is a backward move that wrapped
// below 0, and becomes the lowest target.  Lower values are limited to the highest target, but not raised to the
// lowest.  On an ICS lens the value is signed and is limited to both.
// Returns 0 if the lens is there or the ICS lens is detached, or -1 if the lens lacks the axis, or the move has failed.
// A newer command may have interrupted the move: dwFunction then belongs to that one.  Or the driver has refused a
// walk: the reference is then lost.
// The daemon itself does not call VernierLensd_MoveZoom.
i32 VernierLensd_MoveZoom(TVernierLensdInfo* pThis, i32 fd, u32 dwTarget);
i32 VernierLensd_MoveFocus(TVernierLensdInfo* pThis, i32 fd, u32 dwTarget);

// Repairs the counter after an interruption with dwLeft virtual steps uncounted.  Stops the driver, counts what the
// motor has really walked, and finishes a broken virtual step.  If the driver's answer is impossible, the counter stays
// and the reference is lost.  The daemon itself does not call these.
void VernierLensd_RecoverZoomMove(TVernierLensdInfo* pThis, i32 fd, u32 dwLeft, u32 bForward);
void VernierLensd_RecoverFocusMove(TVernierLensdInfo* pThis, i32 fd, u32 dwLeft, u32 bForward);

// Sets the direction of later walks of a plain lens, forward or backward; asks for a walk with the request of the mode.
// Returns false with a line printed if the driver has refused: nothing moves as far as anybody knows, and the reference
// is lost.
bool Axis_SetDirection(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, EDirection eDirection);
bool Axis_RequestWalk(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, i32 iDriverSteps);

// Turns the running command, if it is relative, into a direct move: at most 30 steps from the present position.  Only
// that limit is written to the block.
void Axis_ResolveTarget(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Runs the running command as a move, then sets the axis idle, unless a newer command stands in the block.  Returns 0
// and -1 as VernierLensd_MoveFocus does.
i32 VernierLensd_ZoomCommand(TVernierLensdInfo* pThis, i32 fd);
i32 VernierLensd_FocusCommand(TVernierLensdInfo* pThis, i32 fd);
