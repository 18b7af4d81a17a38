// Frames of the event FIFO: read, checked, turned into events by the message library.  Main thread.
#pragma once

#include "core/context.h"

// Result of VernierLensd_FIFOCommandHandler after which the FIFO is to be made anew.
constexpr i32 iFIFOUnreadable = 2;

// Reads and handles one frame.  0; -1: the frame was refused, its message is dropped and the FIFO is left alone;
// iFIFOUnreadable: reading failed, or the frame cannot be read in step.
i32 VernierLensd_FIFOCommandHandler(TVernierLensdInfo* pThis);

// First and second byte of a frame.  0, or -1 with a line printed.
i32 VernierLensd_CheckMessage(u32 dwType, i32 iLength);

// Handles the payload of a frame.  0, or -1 with a line printed.  pszPayload is NUL-terminated behind dwLength bytes.
i32 VernierLensd_ParseFIFOCmd(TVernierLensdInfo* pThis, const char* pszPayload, u32 dwLength, u32 dwType);
