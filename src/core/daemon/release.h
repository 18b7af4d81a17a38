// Takes the daemon down.
#pragma once

#include "core/context.h"

// Lets a move under way finish, ends the motor threads, then frees and closes everything in a fixed order.  Each step
// asks whether start-up got that far, so a context that was built in part can be released too.  Returns 0, or -1 if a
// thread could not be ended or a focus block not detached; the later steps are then left out.  Main thread, once.
i32 VernierLensd_Release(TVernierLensdInfo* pThis);
