// The two motor threads.  Each owns its axis: its device's descriptor, its box's running command, its position words.
// It waits on its wake-up pair, at most 3 seconds at a time, and dispatches what it is woken for.
#pragma once

#include "motor/axis.h"

// Thread bodies, as the thread library calls them; pvThis is the TVernierLensdInfo.
// 0: the axis is not supported, or g_bRunThread fell.  -1: the device cannot be opened.  Leaving for any reason but the
// first clears g_bRunThread, which ends the daemon.
i32 VernierLensd_FocusMotorThread(void* pvThis);
i32 VernierLensd_ZoomMotorThread(void* pvThis);

// Create and start a motor thread, with SIGTERM and SIGINT blocked in it.  Main thread, start-up.  0, or -1 with its
// line printed; a handle that was made is left for MotorThread_Release.
i32 VernierLensd_InitFocusMotorThread(TVernierLensdInfo* pThis);
i32 VernierLensd_InitZoomMotorThread(TVernierLensdInfo* pThis);

// Lets both threads notice at once that g_bRunThread is 0, and waits until each that was started touches the context no
// more: a move under way is finished first.  Main thread.  -1: not within a very generous bound; nothing may be freed
// then.
i32 MotorThreads_WaitForEnd(TVernierLensdInfo* pThis);

// Joins a thread and frees its handle; does nothing where none was made.  0 or -1.
i32 MotorThread_Release(TVernierLensdInfo* pThis, const TAxis& tAxis);
