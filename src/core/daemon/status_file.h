// The status file, which can name an action that is due at this start.
#pragma once

#include "core/context.h"

// Reads the action due; without a status file it is a restore, and the file is made.  A restore that is due counts both
// references as lost, and leaves its mark on flash, before the word "normal" gets there; so does a backup of several
// channels.  Start-up, before the threads.
// 0, or -1 with a line printed.
i32 VernierLensd_LoadStatusFile(TVernierLensdInfo* pThis);

// Queues the message due, and puts the status file back to "normal".  Main thread, after start-up.  0, or -1 with lines
// printed: a message that could not be queued leaves the file's word for the next start.
i32 VernierLensd_RestoreAutoFocus();
i32 VernierLensd_WriteRestoreFIFO();
i32 VernierLensd_WriteBackupFIFO();
