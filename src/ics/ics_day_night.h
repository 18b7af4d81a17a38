// The day/night correction of an ICS lens: its offsets come from the evaluated IR curve.
#pragma once

#include "compensation/day_night.h"

// Switches the correction on, and restores the mode that was acted on last.  Start-up.  0, or -1 with a line printed.
i32 ICS_LoadNightMode(TVernierLensdInfo* pThis);

// See DayNight_Check.
bool ICS_DayNightShift_Check(TVernierLensdInfo* pThis, TIRCutState* ptIRCut);
