// Focus that follows zoom: the pan table gives the sharp focus position of each zoom position, and a 16-point table the
// lower bound of a search there.  Both follow the zoom's target, not its progress.
#pragma once

#include "core/context.h"

// Fills the pan table from its file: entry i is for zoom position i + 1.  A file that cannot be read leaves zeroes,
// with a line; a token above 7 characters is passed over whole and takes no entry.  Start-up.  Always 0.
i32 VernierLensd_LoadPanFocusTable();

// Sets adwPanFocus[iDev] for a zoom position.  Zoom thread; in positioning also the focus thread.
void VernierLensd_UpdatePanFocus(TVernierLensdInfo* pThis, u32 dwZoomPos, i32 iDev);

// Sets the lower bound of the focus search, one for all channels, for a zoom position: between two entries of the table
// the magnitude of their difference is added in proportion, also where they fall.  As above.
void VernierLensd_UpdateFocusingStart(TVernierLensdInfo* pThis, u32 dwZoomPos);

// Sends the focus to the pan focus of the zoom's target, which cuts off whatever the focus does.  Zoom thread.  Where a
// newer zoom command waits, only the words are set: that command will send its own.
void VernierLensd_FollowZoom(TVernierLensdInfo* pThis, u32 dwZoomPos);

// Behind a zoom that has reached its target although a stop waits, as one that cannot be interrupted does: sends the
// focus after it, if the stop has kept it from going.  Zoom thread.
void VernierLensd_FollowStoppedZoom(TVernierLensdInfo* pThis);

// Asks for the auto focus behind a positioning, round the pan focus of the zoom's target.  Focus thread.
void VernierLensd_AutoFocusAfterPositioning(TVernierLensdInfo* pThis);
