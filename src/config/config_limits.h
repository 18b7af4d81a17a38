// Values that no lens has come from broken files.  They are replaced once, when they have been read, so that no move
// can be endless and no product can wrap; sound configurations are left as they are.  Start-up, main thread.
#pragma once

#include "core/types.h"

// Limits g_tVernierLensdConfigInfo: driver steps in a virtual step to 0..32767, step times to 0..1 second, backlash to
// 0..65535 virtual steps, walks to a reference to 0..1000000 driver steps, the waits of a search and for the iris to 10
// and 30 seconds.  What lies above becomes the highest, what is negative 0, which moves or waits nothing; each with a
// line.
void Config_Limit();

// Limits a saved position to 0..dwVirtualEnd (65535 if that is 0), with a line.  The counter of such a lens was
// false already; now at least its moves end.
bool Config_LimitPosition(u32* pdwPosition, u32 dwVirtualEnd);
