// Collects the bytes of the event FIFO into frames, and counts them.  Main thread.
#pragma once

#include "core/context.h"

// Result of EventFrame_Read after which the FIFO has to be made again.
constexpr i32 iFIFOUnreadable = 2;

// Reads what there is of a frame into tEventFrame, without waiting.  Returns 0, and *pbWhole tells whether the frame is
// complete; -1 if the header was refused, with a line printed: the FIFO is left alone; iFIFOUnreadable if reading
// failed, the rest has not come in time, or the length of the frame is impossible.
i32 EventFrame_Read(TVernierLensdInfo* pThis, bool* pbWhole);

// Returns true if a frame has begun; *pdwLeft_ms is then how long its rest may still take, ms.  0 means that the rest
// is late and the handler is to be called.
bool EventFrame_IsAwaited(const TVernierLensdInfo* pThis, u32* pdwLeft_ms);

// Call this after a restore.  The restore frames that are in the FIFO by now asked for the same restore.
void EventFrames_AreRestored(TVernierLensdInfo* pThis);

// Checks the first and the second byte of a frame.  Returns 0, or -1 with a line printed.
i32 VernierLensd_CheckMessage(u32 dwType, i32 iLength);
