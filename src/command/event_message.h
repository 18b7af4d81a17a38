// What an event of the FIFO does.
#pragma once

#include "core/context.h"
#include "courier.h"

// Handles the first of iCount events.  A restore waits for the lens, channel by channel; everything else returns at
// once.  A channel that the lens does not have counts as channel 0.  Returns 0, or -1 with a line printed for an
// unknown code or a backup whose file cannot be read.  Main thread.
i32 VernierLensd_HandleEventMessage(TVernierLensdInfo* pThis, i32 iCount, const TCourierEvent* ptEvent);
