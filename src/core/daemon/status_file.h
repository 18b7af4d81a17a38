// The status file, which can name an action due at this start, and the recovery after a power loss.
#pragma once

#include "core/context.h"

// Values of dwRestoreStatus.
enum ERestoreStatus : u32 { STATUS_RESTORE = 0, STATUS_BACKUP = 1, STATUS_NORMAL = 2 };

// Looks for working logs that the last life left behind: bPowerLost.  Start-up, before anything makes a log.
void PowerLoss_LookAtLogs(TVernierLensdInfo* pThis);

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

// After a power loss, sends both axes of channel 0 to positioning.  Main thread, once, before the first input is
// served.
void VernierLensd_CheckPowerLoss(TVernierLensdInfo* pThis);
