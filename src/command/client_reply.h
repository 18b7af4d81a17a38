// Replies to clients.  Each writes the whole text at once and then closes fdRequest, even if the write failed: for a
// client that has gone, SIGPIPE prints a line.  Main thread; never waits for a motor.
#pragma once

#include "core/context.h"

void VernierLensd_ReplyBadRequest(i32 fdRequest);
void VernierLensd_ReplyOK(i32 fdRequest);

// Replies with the ranges, the positions of iChannel and the function codes of both axes, as far as the lens has them.
void VernierLensd_ReplyStatus(TVernierLensdInfo* pThis, i32 fdRequest, i32 iChannel);

// Replies with the focus value dwPosition steps above the start of the sweep that wrote it, at most the last entry.
// Replies with 0 if the lens has no focus values.
void VernierLensd_ReplyFocusValue(TVernierLensdInfo* pThis, i32 fdRequest, u32 dwPosition);

void VernierLensd_ReplyFocusDefault(TVernierLensdInfo* pThis, i32 fdRequest);
