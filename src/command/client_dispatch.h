// Hands a client's command to the motor threads.  Main thread; never waits for a motor.
#pragma once

#include "core/context.h"

// Sends atCommand[iChannel] of the request to its axes.  A command for an axis that the lens lacks does nothing.  A
// wake-up that fails prints its line, and the rest goes on.
void VernierLensd_DispatchClientCommand(TVernierLensdInfo* pThis, const TClientRequest* ptRequest);
