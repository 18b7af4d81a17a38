// Which lens is fitted, its configuration, and the saved positions of a plain lens.  Nothing here moves a motor.  Main
// thread, once each, before the motor threads.
#pragma once

#include "core/context.h"

// Finds the kind of lens: dwLensKind, bSupportICS, bThermalShift.  0, or -1 with a line printed.
i32 VernierLensd_CheckLensType(TVernierLensdInfo* pThis);

// Fills g_tVernierLensdConfigInfo, the support flags and the focus start table, and prints them.  Of an ICS lens the
// driver has filled most of it before (ics_setup.h).  What the files say is printed as it stands; sizes and times that
// no lens has are then replaced, each with a line.  0, or -1 with a line printed.
i32 VernierLensd_LoadConfigFile(TVernierLensdInfo* pThis);

// Reads the saved positions, one set for all channels, into a channel of a plain lens.  A set that cannot be what a
// save has written is as good as a working log, since the file is damaged: bPowerLost, with a line.  0; -1 with a line
// printed: the file cannot be read.
i32 Config_LoadPositions(TVernierLensdInfo* pThis, i32 iChannel);

// Reads the configuration of an ICS lens's focus motor, for the walk that parks it, and prints what concerns that walk.
// 0, or -1 with a line printed.
i32 Config_ReadForParking();

// Reads at most iFocusStartEntries numbers of a list; what is behind them is passed over.  pszList is taken apart.
void VernierLensd_ParseFocusStartTable(i32* piTable, char* pszList, const char* pszDelimiter);
