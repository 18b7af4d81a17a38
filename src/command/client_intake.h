// Takes one request from the gateway, answers it, and hands commands on.  Main thread.
#pragma once

#include "core/context.h"

// 0; -1 after a refused request, or when the gateway failed and could not be opened anew.
i32 VernierLensd_GateLinkCommandHandler(TVernierLensdInfo* pThis);
