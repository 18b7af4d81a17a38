// Focus of a thermal lens follows the temperature: every two minutes the sensor is read, and where a channel's
// temperature lies more than one degree from the one that its focus was right for, the focus moves by the table's
// difference between the two.
#pragma once

#include "core/context.h"

// Reads the sensor and takes its temperature as the one that the present focus is right for: with 1 of every channel
// (start-up), with 0 of the running focus command's (focus thread).  0; -1 with a line printed: the present focus is
// right for a temperature that nobody knows, and the channels are without a reference until the next good reading.
i32 ThermalFocusShift_TemperatureUpdae(TVernierLensdInfo* pThis, u32 bAllChannels);

// One check, which does nothing until the minute is two off that of the check before.  A failed reading moves nothing.
// A channel without a reference takes the reading as one and stays where it is.
// A client's command that arrives meanwhile goes first, and the rest of the check waits for the next pass.  Focus
// thread, while the axis is idle.  True: the move of a channel has been claimed, and this is to be called again after
// the dispatcher has run it.
bool ThermalFocusShift_Check(TVernierLensdInfo* pThis);
