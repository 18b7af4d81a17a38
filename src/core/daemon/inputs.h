// The daemon's two inputs: the gateway's socket for clients, the event FIFO for buttons and the daemon's own messages.
// Main thread.
#pragma once

#include "core/context.h"

// Opens the gateway and enters its descriptor in fdsRead.  Returns 0, or -1 with a line printed; hGateLink is then
// null.
i32 VernierLensd_InitGateLink(TVernierLensdInfo* pThis);

// Makes a new FIFO beside its path and renames it over whatever stands there, so that the path is never free for
// others.  Opens it for reading and writing, so that a read never meets end of file.  Opens it without blocking, since
// another reader of the FIFO may take the bytes that select has seen.  Enters it in fdsRead.  Returns 0, or -1 with a
// line printed; fdFIFO is then -1.
i32 VernierLensd_InitFIFO(TVernierLensdInfo* pThis);

// Opens the gateway again after GATELINK_read has failed.  Returns 0, or -1 if the gateway stays closed for the rest of
// the run.
i32 VernierLensd_ReopenGateLink(TVernierLensdInfo* pThis);

// Makes and opens the FIFO again after it could not be read.  Always returns -1, so that the main loop prints its line
// as well.
i32 VernierLensd_ReopenFIFO(TVernierLensdInfo* pThis);

// Close an input and take it out of fdsRead.  A closed input is left alone.
void VernierLensd_CloseGateLink(TVernierLensdInfo* pThis);
void VernierLensd_CloseFIFO(TVernierLensdInfo* pThis);
