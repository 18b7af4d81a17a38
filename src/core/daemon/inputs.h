// The daemon's two inputs: the gateway's socket for clients, the event FIFO for buttons and the daemon's own messages.
// Main thread.
#pragma once

#include "core/context.h"

// Opens the gateway and enters its descriptor in fdsRead.  0, or -1 with a line printed; hGateLink is then null.
i32 VernierLensd_InitGateLink(TVernierLensdInfo* pThis);

// Makes the FIFO anew beside its path and renames it over whatever stands there, so that at no moment the path is free
// for others.  Opens it at both ends (so that it never reads as ended; without blocking, since another reader
// of the node may take what select has seen) and enters it in fdsRead.  0, or -1 with a line printed; fdFIFO is then
// -1.
i32 VernierLensd_InitFIFO(TVernierLensdInfo* pThis);

// After GATELINK_read has failed.  0, or -1: the gateway stays closed for the rest of the run.
i32 VernierLensd_ReopenGateLink(TVernierLensdInfo* pThis);

// After the FIFO could not be read.  Always -1, so that the main loop prints its line as well.
i32 VernierLensd_ReopenFIFO(TVernierLensdInfo* pThis);

// Close what is open.
void VernierLensd_CloseGateLink(TVernierLensdInfo* pThis);
void VernierLensd_CloseFIFO(TVernierLensdInfo* pThis);
