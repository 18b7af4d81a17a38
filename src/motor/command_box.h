// How a command reaches a motor thread, and how the axis becomes idle again.
//
// A command is the axis's block (tZoomCommand, tFocusCommand), its channel and its wake flag.  Block, channel and flag
// are written together under the box's lock, taken together under it, and the block is set idle under it only while the
// flag is clear.  So a thread never sees half a command, a command that arrives while the one before ends is never
// wiped out, and a later query that changes iCurChannel does not turn a move to another channel.  There is no queue:
// the last writer wins, and the flag interrupts the command under way.
//
// The words of a block stay readable one by one without the lock (status replies, waits); all accesses are Word_* ones.
#pragma once

#include "motor/axis.h"

// What a function demands of an axis.  This is the one place that tells which functions walk.
enum EDemand : u32 {
  DEMAND_NONE,  // nothing: the main thread answers it, or the code is not known
  DEMAND_WALK,
  DEMAND_STOP,
  DEMAND_WISH,  // of the focus, without a walk: iris, focus default
};
EDemand Function_Demand(u32 dwFunction);

void Command_Lock(TCommandBox& tBox);
void Command_Unlock(TCommandBox& tBox);

// A new command of a client, a button, the start or a held zoom.  Any thread.
TCommandId Command_New(i32 iChannel);

// The running command.  Owner thread.
TCommandId Command_Running(TVernierLensdInfo* pThis, const TAxis& tAxis);

// What has been written into the block is a command now.  A command that neither walks nor says where the lens is to be
// (iris, focus default) leaves the number of the one before, and is noted as a wish: it may be written over, and is
// carried out all the same.  Under the lock; for Command_Write and Command_WriteFollowUp.
void Command_Publish(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel, u32 dwNumber);

// Sends the wake flag's 4 bytes on the axis's pair without waiting.  0, or -1 with nothing printed; the flag stays set,
// and the next command's bytes carry this one as well.
i32 Command_Wake(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Writes a command into an axis's block without waking the thread; also where the lens lacks the axis.  fnWrite gets
// the block and stores its words with Word_Store.  Any thread.
template <typename TWrite>
void Command_Write(TVernierLensdInfo* pThis, const TAxis& tAxis, TCommandId tId, TWrite fnWrite) {
  TCommandBox& tBox = Axis_Box(pThis, tAxis);
  Command_Lock(tBox);
  fnWrite(Axis_Command(pThis, tAxis));
  Command_Publish(pThis, tAxis, tId.iChannel, tId.dwNumber);
  Command_Unlock(tBox);
}

// Writes a command and wakes the axis's thread.  Any thread.  0, or -1 when the wake-up failed: the caller prints its
// path's line and goes on.
template <typename TWrite>
i32 Command_Send(TVernierLensdInfo* pThis, const TAxis& tAxis, TCommandId tId, TWrite fnWrite) {
  Command_Write(pThis, tAxis, tId, fnWrite);
  return Command_Wake(pThis, tAxis);
}

// The one rule for what the daemon sends by itself: a follow-up of a command is never written over a block whose
// command is newer than that command.  A follow-up is as new as the command that it follows from, and no newer: the
// focus after a zoom, the auto focus after a positioning, the move after a focus reset, a scan's walk of the zoom, a
// recovery that is sent again.  True: a follow-up of command dwNumber may be written.  Under the lock.
bool Command_MayFollow(TVernierLensdInfo* pThis, const TAxis& tAxis, u32 dwNumber);

// Writes a follow-up of command tOf, by that rule, without waking the thread.  Any thread.  False: left out.
template <typename TWrite>
bool Command_WriteFollowUp(TVernierLensdInfo* pThis, const TAxis& tAxis, TCommandId tOf, TWrite fnWrite) {
  TCommandBox& tBox = Axis_Box(pThis, tAxis);
  Command_Lock(tBox);
  const bool bMay = Command_MayFollow(pThis, tAxis, tOf.dwNumber);
  if (bMay) {
    fnWrite(Axis_Command(pThis, tAxis));
    Command_Publish(pThis, tAxis, tOf.iChannel, tOf.dwNumber);
  }
  Command_Unlock(tBox);
  return bMay;
}

// The same, and wakes the thread.  As Command_Send; left out counts as 0.
template <typename TWrite>
i32 Command_SendFollowUp(TVernierLensdInfo* pThis, const TAxis& tAxis, TCommandId tOf, TWrite fnWrite) {
  return Command_WriteFollowUp(pThis, tAxis, tOf, fnWrite) ? Command_Wake(pThis, tAxis) : 0;
}

// True while no other command has been written into the block since command dwNumber.  Any thread.
bool Command_StandsIn(TVernierLensdInfo* pThis, const TAxis& tAxis, u32 dwNumber);

// Sends the bytes once more while the flag is set: those of a send that failed would be missed for ever.  For long
// waits.
void Command_WakeAgain(TVernierLensdInfo* pThis, const TAxis& tAxis);

// True while a command of the axis is pending or its thread is inside the dispatcher.  Any thread.  dwFunction tells
// less: it falls before the command's bracket is closed, and a search that failed leaves it standing.
bool Command_IsBusy(TVernierLensdInfo* pThis, const TAxis& tAxis);

// The thread has left its dispatcher.  Owner thread.
void Command_Leave(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Clears the wake flag, counts the thread as busy, and copies block and channel to the box's running command, which
// carries out its own wish.  Then calls pfnTaken, unless it is null, under the box's lock.  If a correction was
// claimed, does nothing: the wake flag belongs to a later command.  Owner thread.
using FTaken = void (*)(TVernierLensdInfo* pThis);
void Command_Take(TVernierLensdInfo* pThis, const TAxis& tAxis, FTaken pfnTaken);

// Takes the wishes away whose commands have been written over.  Focus thread.
TFocusWishes Command_TakeWishes(TVernierLensdInfo* pThis);

// A correction of the daemon's own: writes a direct move to dwPosition (virtual steps) into the block of an idle focus
// and takes it at once, for the dispatcher that the thread calls next; nobody is woken.  Focus thread.  False: a
// command of somebody else stands there or is on its way, and goes first, or the daemon is ending; nothing is written.
bool Command_ClaimFocusMove(TVernierLensdInfo* pThis, i32 iChannel, u32 dwPosition);

// True while no command stands in the block.  Owner thread.
bool Command_IsIdle(TVernierLensdInfo* pThis, const TAxis& tAxis);

// The running command has ended: dwFunction becomes 0, unless a newer command stands in the block.  Owner thread.
void Command_Finish(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Writes a word of the running command back to its block, unless a newer command stands there.  Owner thread.
void Command_WriteBack(TVernierLensdInfo* pThis, const TAxis& tAxis, u32 TMotorCommand::*pdwWord, u32 dwValue);
