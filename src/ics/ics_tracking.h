// Focus of an ICS lens follows the zoom along one tracking curve, that of the object distance which the client's focus
// came nearest to.  One choice for the daemon, not for each channel; curve 0 until the first.
#pragma once

#include "core/context.h"

// Chooses the curve that passes nearest to the present focus of the running command's channel; of equal distances the
// higher curve.  Curves that did not load are passed over; without any the choice stays.  Focus thread.
void ICS_UpdateTrackingCurve(TVernierLensdInfo* pThis, u32 dwZoomPos);

// Sets adwPanFocus[iDev], a focus position, from the curve in use; without that curve to the present focus, which then
// stays where it is.  Zoom thread; behind a positioning also the focus thread.
void ICS_PanFocusShift(TVernierLensdInfo* pThis, u32 dwZoomPos, i32 iDev);

// The same position, without setting or printing anything.  Zoom and focus thread.
u32 ICS_PanFocusAt(const TVernierLensdInfo* pThis, u32 dwZoomPos, i32 iDev);
