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

// Sets pan focus and search bound of a channel for the target of its zoom: the bound of all channels, and the channel's
// own, which a search uses where there are several channels.  Moves nothing.  As above.
void ZoomTracking_SetWords(TVernierLensdInfo* pThis, u32 dwZoomPos, i32 iChannel);

// The same for a zoom that walks to its reference, without the printed lines of an ICS lens.  Zoom thread.
void ZoomTracking_SetReferenceWords(TVernierLensdInfo* pThis, u32 dwZoomPos, i32 iChannel);

// What a search of a channel goes by: pan focus and search bound, as the latest target of the zoom gave them.  While
// the zoom is sure to walk to its reference, but has not set them for it, they are those of the reference.  Focus
// thread.
struct TSearchWords {
  u32 dwPanFocus;
  u32 dwStart;
};
TSearchWords ZoomTracking_SearchWords(TVernierLensdInfo* pThis, i32 iChannel);

// Sends the focus to the pan focus of the running zoom's target, which cuts off whatever the focus does.  Zoom thread.
// If a newer command waits for the zoom, or has been given to the focus, only the words are set.
void VernierLensd_FollowZoom(TVernierLensdInfo* pThis, u32 dwZoomPos);

// Call this when the running zoom has reached its target.  If its walk cannot be interrupted, and a stop that still
// waits has come before the focus began to follow, sends the focus now, unless a client has asked something of the
// focus since the stop.  Zoom thread.
void VernierLensd_FollowStoppedZoom(TVernierLensdInfo* pThis);

// Asks for the auto focus after a positioning, round the pan focus of the zoom's target.  Focus thread.
void VernierLensd_AutoFocusAfterPositioning(TVernierLensdInfo* pThis);
