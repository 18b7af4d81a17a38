// The main loop: waits on the gateway and the FIFO, hands whichever is ready to its handler, ends the daemon.
#pragma once

#include <sys/select.h>

#include "core/context.h"

// Runs until the daemon is to end.  Returns 0 after a signal, with g_bRunThread cleared, or -1 with a line printed if a
// motor thread has stopped.  Main thread.
i32 VernierLensd_MainLoop(TVernierLensdInfo* pThis);

// Serves one input of the set that select returned, the gateway before the FIFO; the FIFO stays readable for the next
// pass.  Returns 0, or -1 after a refused request, a gateway that could not be opened again, or an unreadable FIFO.
i32 VernierLensd_SelectHandler(TVernierLensdInfo* pThis, fd_set fdsReady);
