// The daemon's side of the focus statistics blocks (TFocusBlock), one for each channel, shared with the camera's image
// side. The segments outlive the process.
#pragma once

#include "core/context.h"

// Makes or finds each channel's segment, attaches it, and writes the channel's positions.  What an earlier life that
// was killed left standing of a search is cleared.  Start-up.  0, or -1 with lines printed; attached blocks stay
// attached.
i32 VernierLensd_InitShareMem(TVernierLensdInfo* pThis);

// Detaches every attached block.  0, or -1 with a line printed.
i32 FocusBlock_Release(TVernierLensdInfo* pThis);

// Focus thread, for the channel of the running focus command; nothing happens where no block is attached.
void VernierLensd_SetFocusValueWanted(TVernierLensdInfo* pThis, u32 dwValue);
void VernierLensd_ReadFocusValue(TVernierLensdInfo* pThis);  // into adwFocusValue
void VernierLensd_SetAutoFocusBusy(TVernierLensdInfo* pThis, u32 dwValue);

// Asks the image side to open the iris fully (1), and waits for it, or to give it back (0), without a wait.  The wait
// ends on the peer's answer, after 10 periods of dwOpenIrisTime, 5 s at least, with a silent one, and when the daemon
// is to end.
void VernierLensd_RequestIris(TVernierLensdInfo* pThis, u32 dwRequest);

// Any thread, within a save.
void FocusBlock_StorePositions(TVernierLensdInfo* pThis, i32 iChannel, u32 dwZoom, u32 dwFocus);
