// Finds the reference of a stepper axis: its PI sensor, or the mechanical end of the travel, by a walk longer than the
// travel.  None of these walks looks at the wake flag: a command that arrives meanwhile runs afterwards.
//
// Owner thread of the axis unless a comment says otherwise, for the channel of the running command; fd is borrowed.
#pragma once

#include "motor/axis.h"

// Functions 5 (positioning) and 6 (motor reset) of the focus.  After function 5, auto focus follows as a command of its
// own.
void FocusMotorPositioning(TVernierLensdInfo* pThis, i32 fd);

// Functions 5 and 6 of the zoom, with the target in the command's dwPosition.
void ZoomMotorPositioning(TVernierLensdInfo* pThis, i32 fd);

// Call this when the zoom thread takes a command.  For functions 5 and 6 it sets the words of focus tracking for the
// target: a search after a later stop finds them right.  If a stop was written over the command, the words stay.  Under
// the box's lock.
void ZoomPositioning_Taken(TVernierLensdInfo* pThis);

// Function 13: walks the focus to the end of its travel, then sends it to g_dwFocusDefault as a command of its own.
// Selects no channel.
void VernierLensd_ResetFocus(TVernierLensdInfo* pThis, i32 fd);

// Writes function 5 or 6 into a block; the zoom's target is the first position.  Under the box's lock, any thread.
void Positioning_Write(const TAxis& tAxis, TMotorCommand* ptBlock, u32 dwFunction);

// Walks an axis to its reference and sets its counter; the zoom goes on to its first position.  The command does not
// end and nothing follows it.  The caller has selected the running channel.
void Reference_Find(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd);

// Steps of the focus's walk to the reference, which a scan shares.  The results are the driver's.
u32 FocusReference_Place();                                // position at the reference, virtual steps
i32 FocusReference_SetDirection(i32 fd);                   // negative: refused
i32 FocusReference_SearchPI(const char* pszName, i32 fd);  // result as of VernierLensd_SearchPI
i32 FocusReference_RequestWalk(i32 fd);                    // negative: refused, or no such walk

// Sets counter and reference of the running channel after the walk there.  iFound is the result of
// VernierLensd_SearchPI or of a walk to the stop.
// 0: the counter becomes dwReference.  -1: it does too, but the reference has failed.
// iSearchNotBegun: the lens has not moved; the counter stays, and the reference is lost unless the daemon is ending.
// iWalkRefused: the driver would not begin; a line is printed, the counter stays, and the reference has failed.
constexpr i32 iWalkRefused = 2;
void Reference_Arrive(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iFound, u32 dwReference);

// Parks the focus motor of an ICS lens: reads the configuration, walks to the end of the travel and on to the default
// focus position, on its own descriptor.  Changes no position.  Returns 0, or -1 with a line printed.  Start-up, main
// thread.
i32 VernierLensd_GotoPI();
