// The search for an axis's PI sensor (photo interrupter, at the reference) and the sensor's power, one switch for both
// axes.  In the PI pass at start-up both axes search the sensor on every channel.  Motor threads.
#pragma once

#include "motor/axis.h"

// Walks dwSearchStep driver steps in the direction that the caller has set, then searches the sensor over as many.
// Then walks dwBackwardShift steps backward if bGoBack is set, and dwPosition * dwOneStep steps forward: the last
// approach runs forward.  One axis searches at a time.  The other waits as long as the configuration lets the longest
// search take, a minute at least and an hour at most.  pszName is for the printed lines.
// Returns 0, or -1 if the sensor was not found or the driver has refused a walk after it: the lens stands anywhere.
// Returns iSearchNotBegun if the wait was too long or the daemon is ending: nothing has moved.
constexpr i32 iSearchNotBegun = 1;
i32 VernierLensd_SearchPI(const char* pszName, u32 bGoBack, i32 fd, u32 dwPosition, u32 dwSearchStep,
                          u32 dwBackwardShift, u32 dwOneStep);

void VernierLensd_SetPIPowerOn(i32 fd);
// Switches the power off only if both axes are done.
void VernierLensd_SetPIPowerOff(i32 fd);

// Call these before and after one search of an axis.  Begin switches the power on and marks the axis as not done; End
// marks it as done and calls VernierLensd_SetPIPowerOff.
void PISearch_Begin(const TAxis& tAxis, i32 fd);
void PISearch_End(const TAxis& tAxis, i32 fd);

// The rendezvous of the PI pass, for the focus thread and for the zoom thread: announces that this axis has reached
// channel iDev, and waits until the other has.  Ends too if the other makes no pass or has ended, or if the daemon is
// ending.  The daemon itself does not call these.
void VernierLensd_WaitZoomPISearch(TVernierLensdInfo* pThis, i32 iDev);
void VernierLensd_WaitFocusPISearch(TVernierLensdInfo* pThis, i32 iDev);

// Runs the PI pass of one axis: each channel to its sensor and back to its saved position, under the axis's working
// log.
void PIPass_Run(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd);
