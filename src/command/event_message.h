// What an event of the FIFO does.
#pragma once

#include "core/context.h"
#include "courier.h"

// Handles the first of the records.  A restore waits for the lens, channel by channel; everything else returns at once.
// A channel outside the lens's is channel 0.  Main thread.  0; -1 with a line printed for a code outside the table.
i32 VernierLensd_HandleEventMessage(TVernierLensdInfo* pThis, i32 iCount, const TCourierEvent* ptEvent);
