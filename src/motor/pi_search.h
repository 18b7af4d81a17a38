// The search for an axis's PI sensor, the sensor's power, and the pass at start-up in which both axes search every
// channel.
//
// The sensor's power is one switch for both axes.  Motor threads.
#pragma once

#include "motor/axis.h"

// Walks dwSearchStep driver steps in the direction that the caller has set, searches the sensor over as many, then
// walks dwBackwardShift steps backward if bGoBack is set, and dwPosition * dwOneStep steps forward: the last approach
// runs forward.  One axis searches at a time; the other waits for a minute, or for as long as the longest search takes
// by the configuration, an hour at most.  pszName is for the log.
// 0.  -1: not found, or the driver has refused a walk after it: the lens stands anywhere.  iSearchNotBegun: waited too
// long, or the daemon is to end; nothing moved.
constexpr i32 iSearchNotBegun = 1;
i32 VernierLensd_SearchPI(const char* pszName, u32 bGoBack, i32 fd, u32 dwPosition, u32 dwSearchStep,
                          u32 dwBackwardShift, u32 dwOneStep);

void VernierLensd_SetPIPowerOn(i32 fd);
// Off once both axes are done.
void VernierLensd_SetPIPowerOff(i32 fd);

// Round one search of an axis: power on and the axis not done; done and power off.
void PISearch_Begin(const TAxis& tAxis, i32 fd);
void PISearch_End(const TAxis& tAxis, i32 fd);

// The rendezvous of the focus thread with the zoom thread, and the reverse: announces that this axis has reached
// channel iDev, and waits until the other has.  Ends too when the other makes no pass or has ended, and when the daemon
// is to end.
void VernierLensd_WaitZoomPISearch(TVernierLensdInfo* pThis, i32 iDev);
void VernierLensd_WaitFocusPISearch(TVernierLensdInfo* pThis, i32 iDev);

// The pass of one axis: each channel to its sensor and back to its saved position.  Its working log stands meanwhile.
void PIPass_Run(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd);
