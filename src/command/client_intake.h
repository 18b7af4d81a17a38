// Takes one request from the gateway, answers it, and hands commands on.  Main thread.
#pragma once

#include "core/context.h"

// Returns 0, or -1 after a refused request or if the gateway failed and could not be opened again.
i32 VernierLensd_GateLinkCommandHandler(TVernierLensdInfo* pThis);
