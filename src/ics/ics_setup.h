// An ICS lens is set up from its driver: ranges, speeds and curves come from there and from files beside it, and the
// saved positions are sent to it.  Start-up, main thread.
#pragma once

#include "core/context.h"

// Opens the driver into fdICS and fills g_tVernierLensdConfigInfo from it.  Once, behind VernierLensd_GotoPI, whose
// values stay in the fields that the driver has nothing for.  0; -1 with a line printed: fdICS is negative, which ends
// the daemon when the focus thread starts.
i32 ICS_Setup(TVernierLensdInfo* pThis);

// Reads a channel's saved positions, sends the lens there and loads the curves anew.  Waits for seconds.  0; -1: the
// driver is not open, without a line, or the file cannot be read, and nothing is sent or loaded.
i32 ICS_RestorePosition(TVernierLensdInfo* pThis, i32 iDev);
