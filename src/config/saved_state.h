// What the daemon saves: positions and day/night mode after every command that walks, and the default focus position.
#pragma once

#include "core/context.h"

// Saves the positions of iCurChannel, and puts them into its shared block first.  Any thread, but not inside another
// save.  Waits for another thread's save and for the flash.  Returns 0, or -1 with a line printed if StateFile_Replace
// failed.  The daemon itself does not call this: it uses SavedState_Save.
i32 VernierLensd_SaveConfigFile(TVernierLensdInfo* pThis);

// Which day/night mode a save writes.  The daemon acts on a new mode by moving the focus.  A save of the zoom during
// that move must not write the new mode: a power cut would leave the new mode with the old focus position.
enum ESaveMode : u32 {
  SAVE_WITH_MODE,       // the mode that was acted on last: start-up and focus thread
  SAVE_WITH_SAVED_MODE  // the mode of the last save by those: zoom thread
};

// Saves the positions of iChannel.  All else as VernierLensd_SaveConfigFile.
i32 SavedState_Save(TVernierLensdInfo* pThis, i32 iChannel, ESaveMode eMode);

// Puts the positions of iChannel into its shared block and saves nothing.  For a channel that was moved on the way to
// the running one.  Any thread, but not inside a save; waits for another thread's save.
void SavedState_Publish(TVernierLensdInfo* pThis, i32 iChannel);

// Saves g_dwFocusDefault.  Thread, waits and result as VernierLensd_SaveConfigFile.
i32 VernierLensd_SaveFocusDefault(TVernierLensdInfo* pThis);

// Reads g_dwFocusDefault.  Start-up.  Returns 0, or -1 with a line printed; the value is then as it was.
i32 VernierLensd_LoadFocusDefault();
