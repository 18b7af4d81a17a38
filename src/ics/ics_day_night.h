// The day/night correction of an ICS lens, whose offsets come from the table of the IR curve.
#pragma once

#include "compensation/day_night.h"

// Switches the correction on, and restores the mode that was acted on last.  Start-up.  Returns 0, or -1 with a line
// printed if the file of saved positions cannot be read.
i32 ICS_LoadNightMode(TVernierLensdInfo* pThis);

// Runs DayNight_Check with the offsets of this lens.
bool ICS_DayNightShift_Check(TVernierLensdInfo* pThis, TIRCutState* ptIRCut);
