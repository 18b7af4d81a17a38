// The day/night correction of an ICS lens: its offsets come from the evaluated IR curve.
#pragma once

#include "compensation/day_night.h"

// See DayNight_Check.
void ICS_DayNightShift_Check(TVernierLensdInfo* pThis, TMotorCommand* ptCommand, TIRCutState* ptIRCut, i32 fd);
