// What is still to be done for the focus after a power cut, or after a restore that was due at the start: the walk to
// the reference, then the search.  While a part is missing, the working log of the focus stands, so that the next start
// does it again.
//
// It goes on by itself until a newer command than its own is taken.  A command that walks nothing (iris, focus default)
// interrupts the recovery and does not end it, also where it was written over a move or search that nobody has taken.
// A client's own search or positioning takes the recovery over.  A client's stop ends the motion, also one with such a
// command written over it, and the search is then left to a client or to the next start.  Nothing is missing any more
// when a search has found focus, or when a client's command has brought the focus to a place of its own.
//
// Focus thread, where nothing else is said.
#pragma once

#include "motor/axis.h"

enum ERecovery : u32 {
  RECOVERY_DONE = 0,
  RECOVERY_NEEDS_REFERENCE = 1,  // and the search after it
  RECOVERY_NEEDS_SEARCH = 2,
};

// Command tOf is about to be sent, and begins the recovery of its channel.  Main thread, before the first command.
void FocusRecovery_Begin(TVernierLensdInfo* pThis, TCommandId tOf);

// The focus thread has taken a command: a newer one than its own overtakes the recovery.
void FocusRecovery_MakeWay(TVernierLensdInfo* pThis);

// True before the walk of a positioning or motor reset whose channel needs a search after it.
bool FocusRecovery_NeedsSearch(const TVernierLensdInfo* pThis);

// The running positioning or motor reset has walked to the reference, and the search of its channel is missing.
void FocusRecovery_LeaveSearch(TVernierLensdInfo* pThis);

// The running search is what its channel is missing, whoever has asked for it.
void FocusRecovery_TakeSearch(TVernierLensdInfo* pThis);

// The focus of the running channel is where it belongs.
void FocusRecovery_End(TVernierLensdInfo* pThis);

// True while something is missing on any channel, so that the working log has to stay.  Always false for the zoom.
// Owner thread of the axis.
bool FocusRecovery_HoldsLog(const TVernierLensdInfo* pThis, const TAxis& tAxis);

// Sends the missing part after the running command, if the recovery goes on.  False: it does not, nothing is sent.
bool FocusRecovery_Resume(TVernierLensdInfo* pThis);
