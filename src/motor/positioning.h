// Finding the reference of a stepper axis: its PI sensor, or the mechanical end of the travel, reached by walking
// further than the travel can be long.  None of these walks looks at a wake flag: a command that arrives meanwhile runs
// afterwards.
//
// Owner thread of the axis where nothing else is said, for the channel of its running command; fd is borrowed.
#pragma once

#include "motor/axis.h"

// Functions 5 and 6 of the focus.  5 goes on into auto focus (as a command of its own), 6 ends here.
void FocusMotorPositioning(TVernierLensdInfo* pThis, i32 fd);

// Functions 5 and 6 of the zoom, with the target in the command's dwPosition.
void ZoomMotorPositioning(TVernierLensdInfo* pThis, i32 fd);

// The zoom thread is about to run a command.  For functions 5 and 6 this sets the words of focus tracking for the
// target.  A search whose stop comes after that finds them right; a stop that is written over the command leaves them.
// Under the box's lock.
void ZoomPositioning_Taken(TVernierLensdInfo* pThis);

// Function 13: the focus to the end of its travel, then, as a command of its own, to g_dwFocusDefault.  Selects no
// channel.
void VernierLensd_ResetFocus(TVernierLensdInfo* pThis, i32 fd);

// Function 5 or 6 into a block, the zoom's with its first position for a target.  Under the box's lock, any thread.
void Positioning_Write(const TAxis& tAxis, TMotorCommand* ptBlock, u32 dwFunction);

// Walks an axis to its reference and sets its counter, without what a command does after it: the zoom ends on its first
// position.  The running channel has been selected.
void Reference_Find(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd);

// The pieces of the focus's way that a scan shares.
u32 FocusReference_Place();               // the position at the reference, virtual steps
i32 FocusReference_SetDirection(i32 fd);  // result: the driver's, below 0 refused
i32 FocusReference_SearchPI(const char* pszName, i32 fd);
i32 FocusReference_RequestWalk(i32 fd);  // result: the driver's, negative where it knows no such walk

// What the walk to the running channel's reference has come to, by the result of VernierLensd_SearchPI or of a walk to
// the stop.  0: the counter takes dwReference.  -1: so it does, but the reference has failed.  iSearchNotBegun: the
// lens has not moved; the counter stays, and the reference is lost, but for a daemon that is to end.  iWalkRefused: the
// driver would not begin; a line, the counter stays, and the reference has failed.
constexpr i32 iWalkRefused = 2;
void Reference_Arrive(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iFound, u32 dwReference);

// Parks the focus motor of an ICS lens: reads the configuration, walks to the end of the travel and on to the default
// focus position, on a descriptor of its own.  Start-up, main thread.  0, or -1 with a line printed.  No position
// changes.
i32 VernierLensd_GotoPI();
