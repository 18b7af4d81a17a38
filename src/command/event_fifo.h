// Frames of the event FIFO: read, checked, turned into events by the message library.  Main thread.
#pragma once

#include "core/context.h"

// Result of VernierLensd_FIFOCommandHandler after which the FIFO is to be made anew.
constexpr i32 iFIFOUnreadable = 2;

// Reads what there is of a frame, without waiting, and handles the frame once it is whole.  0, also while the rest of
// the frame is still to come; -1: the frame was refused, its message is dropped and the FIFO is left alone;
// iFIFOUnreadable: reading failed, the rest has not come in time, or the frame cannot be read in step.
i32 VernierLensd_FIFOCommandHandler(TVernierLensdInfo* pThis);

// How long the rest of a frame that has begun may still take, ms; 0: too late, the handler is to be called.  False: no
// frame has begun.
bool EventFrame_IsAwaited(const TVernierLensdInfo* pThis, u32* pdwLeft_ms);

// After a restore: the restore frames that stand in the FIFO by now asked for the same one.
void EventFrames_AreRestored(TVernierLensdInfo* pThis);

// First and second byte of a frame.  0, or -1 with a line printed.
i32 VernierLensd_CheckMessage(u32 dwType, i32 iLength);

// Handles the payload of a frame.  0, or -1 with a line printed.  pszPayload is NUL-terminated behind dwLength bytes.
i32 VernierLensd_ParseFIFOCmd(TVernierLensdInfo* pThis, const char* pszPayload, u32 dwLength, u32 dwType);
