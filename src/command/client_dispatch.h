// Hands a client's command to the motor threads.  Main thread; never waits for a motor.
#pragma once

#include "core/context.h"

// Runs atCommand[iChannel] of the request.  A command for an axis that the lens lacks does nothing; a wake-up that
// fails prints its line and the rest goes on.
void VernierLensd_DispatchClientCommand(TVernierLensdInfo* pThis, const TClientRequest* ptRequest);
