// Replies to clients.  Each is one write of the whole text, then the close of fdRequest, whatever came of the write: a
// client that has gone away costs a line.  Main thread; never waits for a motor.
#pragma once

#include "core/context.h"

void VernierLensd_ReplyBadRequest(i32 fdRequest);
void VernierLensd_ReplyOK(i32 fdRequest);

// Ranges, positions of iChannel, and the function codes of both axes, as far as the lens has them.
void VernierLensd_ReplyStatus(TVernierLensdInfo* pThis, i32 fdRequest, i32 iChannel);

// The focus value dwPosition steps above the start of the sweep that wrote it, limited to the last entry; 0 where the
// lens has none.
void VernierLensd_ReplyFocusValue(TVernierLensdInfo* pThis, i32 fdRequest, u32 dwPosition);

void VernierLensd_ReplyFocusDefault(TVernierLensdInfo* pThis, i32 fdRequest);
