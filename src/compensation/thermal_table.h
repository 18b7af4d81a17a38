// The table of a thermal lens: a focus position for each zoom row and temperature column.
#pragma once

#include "core/context.h"

// Loads the table from the daemon's configuration file into the context.  Focus thread, once when it starts.  0; -1
// with a line printed, and nothing loaded: the file does not parse, a key is missing or no number, a list is shorter
// than its count or falls, or there is no row or no column.
i32 VernierLensd_LoadThermalFocusShiftTable(TVernierLensdInfo* pThis);

// Release, behind the threads.
void ThermalTable_Free(TVernierLensdInfo* pThis);
