// Temperature compensation of an ICS lens.  Once a minute the lens's own sensor is read, and a band of temperatures
// (iMin to iMax) is widened to hold the reading.  A band of 3 degrees or more moves the focus by the shift that the
// temperature curves give for the zoom position.  The band then shrinks to the present temperature.
// Focus thread; works on iCurChannel only.
#pragma once

#include "core/context.h"

// Makes the present temperature the band.  Call this once, when the thread starts.
void ICS_TemperatureInitial(TVernierLensdInfo* pThis, i32 fd);

// Makes one check, while the axis is idle.  Each call asks whether the lens is still attached; the rest is done only if
// the minute has changed.  If a client's command arrives meanwhile, it goes first, and the next call repeats the check.
// Returns true if a move has been claimed (command_box.h), which the dispatcher is then to run.
bool ICS_TemperatureCheck(TVernierLensdInfo* pThis, i32 fd);
