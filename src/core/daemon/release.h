// Takes the daemon down.
#pragma once

#include "core/context.h"

// Ends the motor threads, a move under way first, then frees and closes in a fixed order.  Each step asks whether
// start-up got as far as its thing, so it runs on a context that was built in part.  Main thread, once. 0; -1 when a
// thread could not be ended: the later steps are left out.
i32 VernierLensd_Release(TVernierLensdInfo* pThis);
