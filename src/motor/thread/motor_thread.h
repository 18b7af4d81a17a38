// The two motor threads.  Each owns its axis: its device's descriptor, its box's running command, its position words.
// A thread waits on its wake-up pair, at most 3 seconds at a time, and dispatches each command that arrives.
#pragma once

#include "motor/axis.h"

// Thread bodies, called by the thread library; pvThis is the TVernierLensdInfo.  Return 0 if the lens lacks the axis or
// g_bRunThread has become 0, or -1 if the device cannot be opened.  Unless the axis is lacking, they clear g_bRunThread
// at their end, which ends the daemon.
i32 VernierLensd_FocusMotorThread(void* pvThis);
i32 VernierLensd_ZoomMotorThread(void* pvThis);

// Create and start a motor thread, with SIGTERM and SIGINT blocked in it.  Return 0, or -1 with a line printed; a
// handle that was made is left for MotorThread_Release.  Main thread, start-up.
i32 VernierLensd_InitFocusMotorThread(TVernierLensdInfo* pThis);
i32 VernierLensd_InitZoomMotorThread(TVernierLensdInfo* pThis);

// Lets both threads notice at once that g_bRunThread is 0, and waits until neither touches the context any more.  A
// move under way is finished first.  Returns 0, or -1 after qwEndBound_us: nothing may be freed then.  Main thread.
i32 MotorThreads_WaitForEnd(TVernierLensdInfo* pThis);

// Joins a thread and frees its handle; does nothing if there is none.  Returns 0, or -1 if the thread library fails.
i32 MotorThread_Release(TVernierLensdInfo* pThis, const TAxis& tAxis);
