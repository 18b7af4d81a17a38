// The focus of an ICS lens follows the zoom along one tracking curve; each curve belongs to an object distance.  The
// curve in use is the one nearest to the focus that a client set last, and curve 0 before that.  All channels share it.
#pragma once

#include "core/context.h"

// Chooses the curve that passes nearest to the present focus of the running command's channel; of equally near curves
// the one with the highest number.  Skips curves that did not load; without any, the choice stays.  Focus thread.
void ICS_UpdateTrackingCurve(TVernierLensdInfo* pThis, u32 dwZoomPos);

// Sets adwPanFocus[iDev], a focus position, from the curve in use.  If that curve did not load, sets it to the present
// focus, which then stays where it is.  Zoom thread; after a positioning also the focus thread.
void ICS_PanFocusShift(TVernierLensdInfo* pThis, u32 dwZoomPos, i32 iDev);

// Returns the position that ICS_PanFocusShift would set, and sets and prints nothing.  Zoom and focus thread.
u32 ICS_PanFocusAt(const TVernierLensdInfo* pThis, u32 dwZoomPos, i32 iDev);
