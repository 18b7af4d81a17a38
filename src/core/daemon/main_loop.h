// The main loop: waits on the gateway and the FIFO, hands whichever is ready to its handler, ends the daemon.
#pragma once

#include <sys/select.h>

#include "core/context.h"

// Main thread.  0: a signal asked for the end, and g_bRunThread is cleared.  -1: a motor thread has stopped.
i32 VernierLensd_MainLoop(TVernierLensdInfo* pThis);

// Serves one input of the set that select returned: the gateway first; the FIFO stays readable for the next pass.
// 0; -1 after a refused request, a gateway that could not be opened anew, or an unreadable FIFO.
i32 VernierLensd_SelectHandler(TVernierLensdInfo* pThis, fd_set fdsReady);
