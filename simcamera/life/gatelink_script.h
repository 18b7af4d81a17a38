// The simulation's gateway: the C interface of gatelink.h, fed by the script of a life instead of a socket.
#pragma once

#include "core/types.h"

// A request arrives.  Texts are borrowed until the life ends.  In a scripted call of the clock.
void GatelinkScript_Request(u32 dwNumber, const char* pszMethod, const char* pszQuery);
