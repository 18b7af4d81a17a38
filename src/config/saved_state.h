// What the daemon saves: the positions and the day/night mode after every command, and the default focus position.
#pragma once

#include "core/context.h"

// Saves the positions of iCurChannel, and puts them into its shared block first.  Any thread but inside another save;
// waits for another thread's save, and for the flash.  0; -1 with a line printed: the file stands as it was.
i32 VernierLensd_SaveConfigFile(TVernierLensdInfo* pThis);

// What a save says of the day/night mode.  A mode is acted on by moving the focus, so a save beside that move must not
// tell of it: a power cut between the two would leave the new mode with the old focus.
enum ESaveMode : u32 {
  SAVE_WITH_MODE,       // the mode acted on last belongs to the focus position: start-up and focus thread
  SAVE_WITH_SAVED_MODE  // the one of the last such save: zoom thread
};

// The same for a channel: the motor threads save the one that they have moved.
i32 SavedState_Save(TVernierLensdInfo* pThis, i32 iChannel, ESaveMode eMode);

// Puts a channel's positions into its shared block, and saves nothing: of a channel that has moved beside the running
// one.  As above.
void SavedState_Publish(TVernierLensdInfo* pThis, i32 iChannel);

// Saves g_dwFocusDefault.  As above.
i32 VernierLensd_SaveFocusDefault(TVernierLensdInfo* pThis);

// Reads g_dwFocusDefault.  Start-up.  0; -1 with a line printed: it is as it was.
i32 VernierLensd_LoadFocusDefault();
