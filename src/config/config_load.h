// Which lens is fitted, its configuration, and the saved positions of a plain lens.  Nothing here moves a motor.  Main
// thread, once each, before the motor threads.
#pragma once

#include "core/context.h"

// Finds the kind of lens: dwLensKind, bSupportICS, bThermalShift.  Returns 0, or -1 with a line printed.
i32 VernierLensd_CheckLensType(TVernierLensdInfo* pThis);

// Fills g_tVernierLensdConfigInfo, the support flags and the focus start table, and prints them.  For an ICS lens the
// driver has filled most of it already (ics_setup.h).  Values are printed as they were read; sizes and times that no
// real lens can have are then replaced, each with a line printed.  Returns 0, or -1 with a line printed.
i32 VernierLensd_LoadConfigFile(TVernierLensdInfo* pThis);

// Reads the saved positions, one set for all channels, into a channel of a plain lens.  Positions that no save can have
// written mean a damaged file: this sets bPowerLost, as a working log does, with a line printed.  Returns 0, or -1 with
// a line printed if the file cannot be read.
i32 Config_LoadPositions(TVernierLensdInfo* pThis, i32 iChannel);

// Reads the configuration of an ICS lens's focus motor, for the walk that parks it, and prints what concerns that walk.
// Returns 0, or -1 with a line printed.
i32 Config_ReadForParking();

// Reads at most iFocusStartEntries numbers of a list and ignores the rest.  Overwrites the delimiters in pszList.
void VernierLensd_ParseFocusStartTable(i32* piTable, char* pszList, const char* pszDelimiter);
