// Focus that follows zoom.  The pan table gives the sharp focus position of each zoom position, the pan focus.  A table
// of 16 points gives the lower bound of a search there.  Both follow the zoom's target, not its progress.
#pragma once

#include "core/context.h"

// Fills the pan table from its file: entry i is for zoom position i + 1.  Each token fills one entry, however long it
// is.  A file that cannot be read leaves zeroes, with a line.  Always returns 0.  Start-up.
i32 VernierLensd_LoadPanFocusTable();

// Sets adwPanFocus[iDev] for a zoom position.  Zoom thread; in positioning also the focus thread.
void VernierLensd_UpdatePanFocus(TVernierLensdInfo* pThis, u32 dwZoomPos, i32 iDev);

// Sets the lower bound of the focus search, one for all channels, for a zoom position.  Between two entries of the
// table the magnitude of their difference is added in proportion, even if they fall.  Threads as for the pan focus.
void VernierLensd_UpdateFocusingStart(TVernierLensdInfo* pThis, u32 dwZoomPos);

// Sets the search words of a channel for its zoom's target: pan focus, the bound of all channels, and the channel's
// own.  A search uses its own if there are several channels.  Moves nothing.  Threads as for the pan focus.
void ZoomTracking_SetWords(TVernierLensdInfo* pThis, u32 dwZoomPos, i32 iChannel);

// Sets the search words of a channel whose zoom walks to its reference; prints no lines for an ICS lens.  Zoom thread.
void ZoomTracking_SetReferenceWords(TVernierLensdInfo* pThis, u32 dwZoomPos, i32 iChannel);

// Returns what a search uses: pan focus and lower bound for the zoom's latest target.  If the zoom is sure to walk to
// its reference but has not yet set them for it, returns those of the reference.  Focus thread.
struct TSearchWords {
  u32 dwPanFocus;
  u32 dwStart;
};
TSearchWords ZoomTracking_SearchWords(TVernierLensdInfo* pThis, i32 iChannel);

// Sets the search words for the running zoom's target and sends the focus to the pan focus, which interrupts what the
// focus does.  If a newer command waits for the zoom, or was given to the focus, only sets the words.  Zoom thread.
void VernierLensd_FollowZoom(TVernierLensdInfo* pThis, u32 dwZoomPos);

// Call this when the running zoom has reached its target.  In blocking mode, or with an ICS lens, it does so even when
// a stop is pending.  If that stop has kept the focus from following, sends the focus now, unless a client has since
// asked something of the focus.  Zoom thread.
void VernierLensd_FollowStoppedZoom(TVernierLensdInfo* pThis);

// Sends the auto focus that follows a positioning, round the pan focus of the zoom's target.  Focus thread.
void VernierLensd_AutoFocusAfterPositioning(TVernierLensdInfo* pThis);
