// Temperature compensation of an ICS lens.  Once a minute the lens's own sensor is read and widens a band of
// temperatures; a band of 3 degrees or more moves the focus by what the temperature curves say of it at the zoom
// position, and closes on the present temperature.  Focus thread; works on iCurChannel only.
#pragma once

#include "core/context.h"

// The present temperature becomes the band.  Once, when the thread starts.
void ICS_TemperatureInitial(TVernierLensdInfo* pThis, i32 fd);

// One check, while the axis is idle: asks each time whether the lens is still there, and does the rest when the minute
// has changed.  A client's command that arrives meanwhile goes first, and the minute is checked again at the next pass.
// True: a move has been claimed (command_box.h), which the dispatcher is to run.
bool ICS_TemperatureCheck(TVernierLensdInfo* pThis, i32 fd);
