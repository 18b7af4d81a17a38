// What the daemon saves: the positions and the day/night mode after every command, and the default focus position.
#pragma once

#include "core/context.h"

// Saves the positions of iCurChannel, and puts them into its shared block first.  Any thread but inside another save;
// waits for another thread's save, and for the flash.  0; -1 with a line printed: the file stands as it was.
i32 VernierLensd_SaveConfigFile(TVernierLensdInfo* pThis);

// The same for a channel: the motor threads save the one that they have moved.
i32 SavedState_Save(TVernierLensdInfo* pThis, i32 iChannel);

// Saves g_dwFocusDefault.  As above.
i32 VernierLensd_SaveFocusDefault(TVernierLensdInfo* pThis);

// Reads g_dwFocusDefault.  Start-up.  0; -1 with a line printed: it is as it was.
i32 VernierLensd_LoadFocusDefault();
