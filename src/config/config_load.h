// Which lens is fitted, its configuration, and the saved positions.  Main thread, once each, before the motor threads.
#pragma once

#include "core/context.h"

// Finds the kind of lens: dwLensKind, bSupportICS, bThermalShift.  0, or -1 with a line printed.
i32 VernierLensd_CheckLensType(TVernierLensdInfo* pThis);

// Fills g_tVernierLensdConfigInfo, the support flags, the focus start table and the saved positions, and prints them.
// What the files say is printed as it stands; sizes and times that no lens has are then replaced, each with a line. 0,
// or -1 with a line printed.
i32 VernierLensd_LoadConfigFile(TVernierLensdInfo* pThis);

// Reads the configuration of an ICS lens's focus motor, for the walk that parks it, and prints what concerns that walk.
// 0, or -1 with a line printed.
i32 Config_ReadForParking();

// Reads at most iFocusStartEntries numbers of a list; what is behind them is passed over.  pszList is taken apart.
void VernierLensd_ParseFocusStartTable(i32* piTable, char* pszList, const char* pszDelimiter);
