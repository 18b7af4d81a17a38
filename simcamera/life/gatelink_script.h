// The simulation's gateway: the C interface of gatelink.h, fed by the script of a life instead of a socket.
#pragma once

#include "core/types.h"

// Lets a request arrive.  Texts are borrowed until the life ends.  Call it only from a scripted call of the clock.
void GatelinkScript_Request(u32 dwNumber, const char* pszMethod, const char* pszQuery);
