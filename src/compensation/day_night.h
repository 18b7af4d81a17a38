// What the day/night correction of both kinds of lens does alike: the mode that was acted on last, and the check for a
// switch.  When the image side switches between daylight and infra-red light, focus moves by an offset of the lens.
#pragma once

#include "core/context.h"

// Scratch record of the focus thread; one for the life of the thread, zeroed first.
struct TIRCutState {
  u32 bIRLedEnabled;  // the inverse of the key "disableirled"
  u32 bExtLedEnabled;
  i32 iFocusOffset;  // of the switch that is handled
};
static_assert(sizeof(TIRCutState) == 12);

// The offset of entering night, for the channel's zoom position; 0 where the switch moves nothing.
using FNightOffset = i32 (*)(const TVernierLensdInfo* pThis, const TIRCutState& tIRCut, i32 iChannel, bool bNight);

// Reads the mode that the daemon acted on last into each channel's aiNightMode from a state file.  A file without it:
// the channel's present mode is taken and saved, with a line in front if szTaken (one %d) is given, and the next
// channel finds it there.  Start-up.  0; -1: the file cannot be read, nothing is printed.
i32 NightMode_Load(TVernierLensdInfo* pThis, const char* pszPath, const char* szTaken);

// Reads the saved mode, if there is one, and does nothing else: where the correction stays off, a save must not lose
// it. Start-up.
void NightMode_Keep(TVernierLensdInfo* pThis, const char* pszPath);

// The channel's present mode; 0 where no block is attached.
i32 NightMode_Present(const TVernierLensdInfo* pThis, i32 iChannel);

// A search that began in a mode has found focus: where the saved mode is not known to belong to the position, that one
// does now.  Focus thread, for the channel of the running command, before its save.
void NightMode_FollowSearch(TVernierLensdInfo* pThis, i32 iMode);

// Looks for the next channel whose mode has changed, and claims the move of its focus (command_box.h).  The new mode is
// stored before the move, whose save writes both.  If a client's command has arrived meanwhile, that goes first, and
// the switch waits for the next pass.  Focus thread, while the axis is idle.  True: a move has been claimed, and this
// is to be called again after the dispatcher has run it.
bool DayNight_Check(TVernierLensdInfo* pThis, TIRCutState* ptIRCut, FNightOffset pfnOffset);
