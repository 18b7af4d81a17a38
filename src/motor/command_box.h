// How a command reaches a motor thread, and how the axis becomes idle again.
//
// A command is the axis's block (tZoomCommand, tFocusCommand), its channel and its wake flag.  All three are written
// and taken together, under the box's lock.  The block is set idle under the lock too, and only while the flag is
// clear.  So a thread never sees half a command, and a command that arrives while another one ends is not lost.  A
// later query that changes iCurChannel does not redirect a command.  There is no queue: the last writer wins, and the
// flag interrupts the running command.
//
// The words of a block may be read without the lock (status replies, waits); all accesses are Word_* ones.
#pragma once

#include "motor/axis.h"

// What a function demands of an axis.  This is the one place that tells which functions walk.
enum EDemand : u32 {
  DEMAND_NONE,  // nothing: the main thread answers it, or the function is unknown
  DEMAND_WALK,
  DEMAND_STOP,
  DEMAND_WISH,  // focus only, nothing moves: iris, focus default
};
EDemand Function_Demand(u32 dwFunction);

void Command_Lock(TCommandBox& tBox);
void Command_Unlock(TCommandBox& tBox);

// Numbers a new command of a client, a button, the start or a held zoom.  Any thread.
TCommandId Command_New(i32 iChannel);

// Returns channel and number of the running command.  Owner thread.
TCommandId Command_Running(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Makes what stands in the block a command, under the lock.  A wish (DEMAND_WISH) keeps the number of the command
// before it.  The wish is noted, and carried out even if another command is written over it.
void Command_Publish(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel, u32 dwNumber);

// Sends 4 bytes on the axis's wake-up pair without waiting.  Returns 0, or -1 with nothing printed: the wake flag stays
// set, and the next command's bytes serve both.
i32 Command_Wake(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Writes a command into an axis's block without waking the thread, even if the lens lacks the axis.  fnWrite stores the
// block's words with Word_Store.  Any thread.
template <typename TWrite>
void Command_Write(TVernierLensdInfo* pThis, const TAxis& tAxis, TCommandId tId, TWrite fnWrite) {
  TCommandBox& tBox = Axis_Box(pThis, tAxis);
  Command_Lock(tBox);
  fnWrite(Axis_Command(pThis, tAxis));
  Command_Publish(pThis, tAxis, tId.iChannel, tId.dwNumber);
  Command_Unlock(tBox);
}

// Writes a command and wakes the axis's thread.  Returns 0, or -1 if the wake-up failed: the caller prints its own line
// and goes on.  Any thread.
template <typename TWrite>
i32 Command_Send(TVernierLensdInfo* pThis, const TAxis& tAxis, TCommandId tId, TWrite fnWrite) {
  Command_Write(pThis, tAxis, tId, fnWrite);
  return Command_Wake(pThis, tAxis);
}

// The one rule for follow-ups, the commands that the daemon sends by itself.  A follow-up has the number of the command
// that it follows from, and is never written over a newer one.  Follow-ups are the focus after a zoom, the auto focus
// after a positioning, and the move after a focus reset.  So are a scan's walk of the zoom, and a recovery that is sent
// again.  Returns true if a follow-up of command dwNumber may be written.  Under the lock.
bool Command_MayFollow(TVernierLensdInfo* pThis, const TAxis& tAxis, u32 dwNumber);

// Writes a follow-up of command tOf, by that rule, without waking the thread.  Returns false if it was left out.  Any
// thread.
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

// Writes a follow-up by the same rule and wakes the thread.  Returns 0, also if it was left out, or -1 as Command_Send.
template <typename TWrite>
i32 Command_SendFollowUp(TVernierLensdInfo* pThis, const TAxis& tAxis, TCommandId tOf, TWrite fnWrite) {
  return Command_WriteFollowUp(pThis, tAxis, tOf, fnWrite) ? Command_Wake(pThis, tAxis) : 0;
}

// Returns true while command dwNumber is the last in the block, apart from wishes.  Any thread.
bool Command_StandsIn(TVernierLensdInfo* pThis, const TAxis& tAxis, u32 dwNumber);

// Sends the wake-up again while the flag is set.  Long waits call this: after a failed send they would never end.
void Command_WakeAgain(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Returns true while a command of the axis is pending or its thread is inside the dispatcher.  Any thread.  dwFunction
// cannot tell this: it becomes 0 before the save has finished, and it stays set after a failed search.
bool Command_IsBusy(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Notes that the thread has left its dispatcher.  Owner thread.
void Command_Leave(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Takes the pending command: clears the wake flag, counts the thread as busy, and copies block and channel to the box's
// running command.  If that is a wish, its note is removed.  Then calls pfnTaken, unless it is null, under the lock.
// Does nothing if Command_ClaimFocusMove has filled the running command: the flag belongs to a later one.  Owner
// thread.
using FTaken = void (*)(TVernierLensdInfo* pThis);
void Command_Take(TVernierLensdInfo* pThis, const TAxis& tAxis, FTaken pfnTaken);

// Returns the wishes whose commands were written over, and clears their notes.  Focus thread.
TFocusWishes Command_TakeWishes(TVernierLensdInfo* pThis);

// Claims the idle focus for a correction of the daemon's own.  Writes a direct move to dwPosition (virtual steps) into
// the block and takes it at once, for the dispatcher that the thread calls next.  Returns false, with nothing written,
// if the daemon is ending, or if another command stands there or is on its way and goes first.  Focus thread.
bool Command_ClaimFocusMove(TVernierLensdInfo* pThis, i32 iChannel, u32 dwPosition);

// Returns true while no command stands in the block.  Owner thread.
bool Command_IsIdle(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Ends the running command: sets dwFunction to 0, unless a newer command stands in the block.  Owner thread.
void Command_Finish(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Writes a word of the running command back to its block, unless a newer command stands there.  Owner thread.
void Command_WriteBack(TVernierLensdInfo* pThis, const TAxis& tAxis, u32 TMotorCommand::*pdwWord, u32 dwValue);
