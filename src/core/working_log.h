// The working log of an axis: an empty file that stands while a command of that axis is at work.  One found at a start
// means that the last move never ended and the counter is not to be trusted.  Both making and removing are brought to
// flash before they return: the marker is there before the motor starts.
//
// Owner thread of the axis; core/daemon/recovery.h: start-up, before the threads.
#pragma once

#include "core/context.h"

void VernierLensd_ZoomCreateLogFile();
void VernierLensd_ZoomDeleteLogFile();
void VernierLensd_FocusCreateLogFile();
void VernierLensd_FocusDeleteLogFile();

// 0 while the focus log exists, -1 when it does not.
i32 VernierLensd_FocusLogExists();
i32 VernierLensd_ZoomLogExists();
