// The table of a thermal lens: a focus position for each zoom position (row) and temperature (column).
#pragma once

#include "core/context.h"

// Loads the table from the daemon's configuration file into the context.  Returns 0, or -1 with a line printed and
// nothing loaded.  Fails if the file does not parse, a key is missing or no number, or a list is empty, too short or
// falls.  Focus thread, once when it starts.
i32 VernierLensd_LoadThermalFocusShiftTable(TVernierLensdInfo* pThis);

// Call this at the release, after the motor threads have ended.
void ThermalTable_Free(TVernierLensdInfo* pThis);
