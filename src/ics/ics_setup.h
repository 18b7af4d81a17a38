// Sets up an ICS lens: ranges and speeds come from its driver, curves from files, and the saved positions are sent to
// the driver.  Start-up, main thread.
#pragma once

#include "core/context.h"

// Opens the driver into fdICS and fills g_tVernierLensdConfigInfo from it.  Call this once, after VernierLensd_GotoPI.
// Fields that the driver does not provide keep the values of GotoPI.  Returns 0, or -1 with a line printed; fdICS is
// then negative, which ends the daemon when the focus thread starts.
i32 ICS_Setup(TVernierLensdInfo* pThis);

// Reads a channel's saved positions, sends the lens there and loads the curves anew.  Waits for seconds.  Returns 0, or
// -1 if the driver is not open (no line printed) or the file cannot be read (a line printed).  After -1 the lens has
// not been moved and no curve has been loaded.
i32 ICS_RestorePosition(TVernierLensdInfo* pThis, i32 iDev);
