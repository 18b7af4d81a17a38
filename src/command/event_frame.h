// One frame of the event FIFO as it comes in, and what has been read of the FIFO.  Main thread.
#pragma once

#include "core/context.h"

// Result of EventFrame_Read after which the FIFO is to be made anew.
constexpr i32 iFIFOUnreadable = 2;

// Reads what there is of a frame, without waiting, into tEventFrame.  0, and *pbWhole tells whether the frame is
// complete; -1: the header was refused with a line, and the FIFO is left alone; iFIFOUnreadable: reading failed, the
// rest has not come in time, or the frame cannot be read in step.
i32 EventFrame_Read(TVernierLensdInfo* pThis, bool* pbWhole);

// How long the rest of a frame that has begun may still take, ms; 0: too late, the handler is to be called.  False: no
// frame has begun.
bool EventFrame_IsAwaited(const TVernierLensdInfo* pThis, u32* pdwLeft_ms);

// After a restore: the restore frames that stand in the FIFO by now asked for the same one.
void EventFrames_AreRestored(TVernierLensdInfo* pThis);

// First and second byte of a frame.  0, or -1 with a line printed.
i32 VernierLensd_CheckMessage(u32 dwType, i32 iLength);
