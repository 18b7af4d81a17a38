// The working log of an axis: an empty file that exists while a command walks that axis.  A log found at a start means
// that the counter is not to be trusted.  Creating and removing a log both reach the flash before they return, so the
// log is there before the motor starts.  core/daemon/recovery.h tells when a log is made and removed.
//
// Owner thread of the axis, or start-up before the threads.
#pragma once

#include "core/context.h"

void VernierLensd_ZoomCreateLogFile();
void VernierLensd_ZoomDeleteLogFile();
void VernierLensd_FocusCreateLogFile();
void VernierLensd_FocusDeleteLogFile();

// Return 0 if the log exists, or -1.
i32 VernierLensd_FocusLogExists();
i32 VernierLensd_ZoomLogExists();
