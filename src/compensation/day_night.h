// What the day/night corrections of both kinds of lens share: the mode that was acted on last, and the check for a
// switch.  When the image side switches between daylight and infra-red light, the focus moves by an offset of the lens.
#pragma once

#include "core/context.h"

// Scratch record of the focus thread; one for the life of the thread, zeroed first.
struct TIRCutState {
  u32 bIRLedEnabled;  // the inverse of the key "disableirled"
  u32 bExtLedEnabled;
  i32 iFocusOffset;  // virtual steps; of the switch that is handled
};
static_assert(sizeof(TIRCutState) == 12);

// Returns the focus offset of a switch to night, or to day if bNight is false, at the channel's zoom position.  Returns
// 0 if the switch moves nothing.
using FNightOffset = i32 (*)(const TVernierLensdInfo* pThis, const TIRCutState& tIRCut, i32 iChannel, bool bNight);

// Reads the mode that the daemon acted on last from a state file into each channel's aiNightMode.  If the file lacks
// it, takes the channel's present mode and saves it; the next channel finds it in the file.  Before the save szTaken
// (one %d) is printed, unless it is null.  Returns 0, or -1 with nothing printed if the file cannot be read.  Start-up.
i32 NightMode_Load(TVernierLensdInfo* pThis, const char* pszPath, const char* szTaken);

// Reads the saved mode, if there is one, and does nothing else.  Call this where the correction stays off: a save must
// not lose the mode.  Start-up.
void NightMode_Keep(TVernierLensdInfo* pThis, const char* pszPath);

// Returns the channel's present mode, or 0 if no block is attached.
i32 NightMode_Present(const TVernierLensdInfo* pThis, i32 iChannel);

// Call this when a search that began in iMode has found focus: if the saved mode may not belong to the position, iMode
// does now.  Focus thread, for the channel of the running command, before its save.
void NightMode_FollowSearch(TVernierLensdInfo* pThis, i32 iMode);

// Looks for the next channel whose mode has changed, and claims the move of its focus (command_box.h).  The new mode is
// stored before the move, whose save writes both.  A client's command that arrives meanwhile goes first, and the switch
// waits for the next pass.  Returns true if a move has been claimed: call this again after the dispatcher has run it.
// Focus thread, while the axis is idle.
bool DayNight_Check(TVernierLensdInfo* pThis, TIRCutState* ptIRCut, FNightOffset pfnOffset);
