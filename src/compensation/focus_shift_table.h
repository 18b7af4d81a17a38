// The day/night correction of a plain lens.  Its offsets come from the lens profile, by zoom position where the lens
// has zoom.
//
// g_pdwtabFocusShiftTable holds offsets in focus positions, 0 where the profile names none.  With zoom it has
// dwZoomVirtualTotalStep entries, and entry i belongs to zoom position i + 1; without zoom it has one.
#pragma once

#include "compensation/day_night.h"

// Makes the table, loads the profile and restores the mode that was acted on last.  Start-up, on a plain lens with
// focus. 0; -1 with a line printed: start-up must fail.  Without a usable profile the correction stays off.
i32 DayNightFocusShift_Initial(TVernierLensdInfo* pThis);

// Fills the table, which must exist, from the lens profile.  0; -1 with a line printed: a file that does not parse, or
// a key that is missing, is no number, or has fewer values than there are ranges.
i32 DayNightFocusShift_LoadProfile(TVernierLensdInfo* pThis, u32 bSupportZoom);

// See DayNight_Check.
bool DayNightFocusShift_Check(TVernierLensdInfo* pThis, TIRCutState* ptIRCut);

void DayNightFocusShift_Release(TVernierLensdInfo* pThis);
