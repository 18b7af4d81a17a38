// The status file, which can name an action that is due at this start.
#pragma once

#include "core/context.h"

// Reads the action that is due into dwRestoreStatus.  Without a status file it is a restore, and the file is made with
// the word "normal".  A restore makes all references count as lost; so does a backup on a plain lens of several
// channels.  Both bring the working logs to flash before the word "normal" gets there.  Start-up, before the threads.
// Returns 0, or -1 with a line printed.
i32 VernierLensd_LoadStatusFile(TVernierLensdInfo* pThis);

// Queues the event that is due in the daemon's own FIFO, and puts the status file back to "normal".  Returns 0, or -1
// with lines printed; if the event could not be queued, the file keeps its word for the next start.  Main thread, after
// start-up.
i32 VernierLensd_RestoreAutoFocus();

// Queue one event each.  Return 0, or -1 with a line printed.
i32 VernierLensd_WriteRestoreFIFO();
i32 VernierLensd_WriteBackupFIFO();
