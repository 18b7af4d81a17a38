// The focus of a thermal lens follows the temperature.  Each channel has a reference temperature, which its focus is
// right for.  The sensor is read every two minutes.  If the reading is more than one degree from a channel's reference,
// the focus moves by the difference between the table's positions for the two.
#pragma once

#include "core/context.h"

// Reads the sensor and takes the reading as reference.  With bAllChannels 1 it does so for every channel (start-up),
// with 0 for the channel of the running focus command (focus thread).  Returns 0, or -1 with a line printed: these
// channels are then without a reference until the next good reading.
i32 ThermalFocusShift_TemperatureUpdae(TVernierLensdInfo* pThis, u32 bAllChannels);

// One check.  It does nothing until the minute is two off that of the check before.  A failed reading moves nothing.  A
// channel without a reference takes the reading as one and stays where it is.  If a client's command arrives meanwhile,
// that command goes first, and the rest of the check waits for the next pass.  Returns true if the move of a channel
// has been claimed: call this again after the dispatcher has run it.  Focus thread, while the axis is idle.
bool ThermalFocusShift_Check(TVernierLensdInfo* pThis);
