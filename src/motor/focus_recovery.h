// The recovery of the focus after a power cut or a restore that was due at the start: a walk to the reference, then a
// search.  While a part is missing, the working log of the focus stays, so that the next start repeats the recovery.
//
// The recovery goes on by itself until a newer command than its own is taken.  A wish (iris, focus default) interrupts
// the recovery and does not end it, even if it was written over a move or search that nobody has taken.  A client's own
// search or positioning takes the recovery over.  A client's stop ends the motion, even if a wish was written over the
// stop; the search is then left to a client or to the next start.  Nothing is missing any more when a search has found
// focus, or a client's move has reached its position.
//
// Focus thread, unless a comment says otherwise.
#pragma once

#include "motor/axis.h"

enum ERecovery : u32 {
  RECOVERY_DONE = 0,
  RECOVERY_NEEDS_REFERENCE = 1,  // and then the search
  RECOVERY_NEEDS_SEARCH = 2,
};

// Begins the recovery of tOf's channel, just before tOf is sent.  Main thread, before the first command.
void FocusRecovery_Begin(TVernierLensdInfo* pThis, TCommandId tOf);

// Call this when the focus thread has taken a command: one that is newer than the recovery's own overtakes it.
void FocusRecovery_MakeWay(TVernierLensdInfo* pThis);

// Returns true if the channel of the running positioning or motor reset needs a search after it.  Ask before the walk.
bool FocusRecovery_NeedsSearch(const TVernierLensdInfo* pThis);

// The running positioning or motor reset has walked to the reference: notes that its channel needs a search.
void FocusRecovery_LeaveSearch(TVernierLensdInfo* pThis);

// Makes the running search the missing part of its channel's recovery, whoever has asked for it.
void FocusRecovery_TakeSearch(TVernierLensdInfo* pThis);

// Ends the recovery of the running channel: its focus is where it belongs.
void FocusRecovery_End(TVernierLensdInfo* pThis);

// Returns true while a part is missing on any channel: the working log has to stay.  Always false for the zoom.  Owner
// thread of the axis.
bool FocusRecovery_HoldsLog(const TVernierLensdInfo* pThis, const TAxis& tAxis);

// Sends the missing part after the running command.  Returns false, with nothing sent, if nothing is missing or a newer
// command has overtaken the recovery.
bool FocusRecovery_Resume(TVernierLensdInfo* pThis);
