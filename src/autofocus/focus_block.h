// The daemon's side of the focus statistics blocks (TFocusBlock), one for each channel, shared with the camera's image
// side.  The segments outlive the process.
#pragma once

#include "core/context.h"

// Creates or finds each channel's segment, attaches it, and writes the channel's positions.  Clears what a killed
// daemon may have left of a search.  Returns 0, or -1 with lines printed; blocks that are attached stay attached.
// Start-up.
i32 VernierLensd_InitShareMem(TVernierLensdInfo* pThis);

// Detaches every attached block.  Returns 0, or -1 with a line printed.
i32 FocusBlock_Release(TVernierLensdInfo* pThis);

// The next four work on the block of the running focus command's channel.  They do nothing if no block is attached.
// Focus thread.
void VernierLensd_SetFocusValueWanted(TVernierLensdInfo* pThis, u32 dwValue);
void VernierLensd_ReadFocusValue(TVernierLensdInfo* pThis);  // into adwFocusValue
void VernierLensd_SetAutoFocusBusy(TVernierLensdInfo* pThis, u32 dwValue);

// Asks the image side to open the iris fully (1) or to give it back (0).  Waits only for the opening: until the image
// side answers, the daemon is ending, or 10 times dwOpenIrisTime have passed, at least 5 s.
void VernierLensd_RequestIris(TVernierLensdInfo* pThis, u32 dwRequest);

// Writes a channel's positions (virtual steps) into its block.  Any thread, within a save.
void FocusBlock_StorePositions(TVernierLensdInfo* pThis, i32 iChannel, u32 dwZoom, u32 dwFocus);
