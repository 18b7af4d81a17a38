// The day/night correction of a plain lens.  Its offsets come from the lens profile, by zoom position if the lens has
// zoom.
//
// g_pdwtabFocusShiftTable holds offsets in virtual steps, 0 where the profile names none.  With zoom it has
// dwZoomVirtualTotalStep entries, and entry i belongs to zoom position i + 1; without zoom it has one.
#pragma once

#include "compensation/day_night.h"

// Makes the table, loads the profile and restores the mode that was acted on last.  Without a usable profile the
// correction stays off.  Returns 0, or -1 with a line printed: start-up must fail.  Start-up, on a plain lens with
// focus.
i32 DayNightFocusShift_Initial(TVernierLensdInfo* pThis);

// Fills the table, which must exist, from the lens profile.  Returns 0, or -1 with a line printed: the file does not
// parse, or a key is missing, no number, or has too few values.
i32 DayNightFocusShift_LoadProfile(TVernierLensdInfo* pThis, u32 bSupportZoom);

// Calls DayNight_Check with the table's offsets.
bool DayNightFocusShift_Check(TVernierLensdInfo* pThis, TIRCutState* ptIRCut);

// Call this at the release, after the motor threads have ended.
void DayNightFocusShift_Release(TVernierLensdInfo* pThis);
