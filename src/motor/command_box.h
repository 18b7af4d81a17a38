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

void Command_Lock(TCommandBox& tBox);
void Command_Unlock(TCommandBox& tBox);

// What has been written into the block is a command now.  Under the lock; for Command_WriteIf.
void Command_Publish(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel);

// Sends the wake flag's 4 bytes on the axis's pair without waiting.  0, or -1 with nothing printed; the flag stays set,
// and the next command's bytes carry this one as well.
i32 Command_Wake(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Writes a command into an axis's block, if fnMay still says so under the lock; also where the lens lacks the axis.
// fnWrite gets the block and stores its words with Word_Store.  Any thread.  False: left out.
template <typename TMay, typename TWrite>
bool Command_WriteIf(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel, TMay fnMay, TWrite fnWrite) {
  TCommandBox& tBox = Axis_Box(pThis, tAxis);
  Command_Lock(tBox);
  const bool bMay = fnMay();
  if (bMay) {
    fnWrite(Axis_Command(pThis, tAxis));
    Command_Publish(pThis, tAxis, iChannel);
  }
  Command_Unlock(tBox);
  return bMay;
}

// Writes a command without waking the thread.  A command for both axes writes the zoom's first and wakes the focus
// first: a zoom that is on its way to send the focus along then sees its flag and leaves that out.
template <typename TWrite>
void Command_Write(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel, TWrite fnWrite) {
  Command_WriteIf(
      pThis, tAxis, iChannel, [] { return true; }, fnWrite);
}

// Writes a command and wakes the axis's thread.  Any thread.  0, or -1 when the wake-up failed: the caller prints its
// path's line and goes on.
template <typename TWrite>
i32 Command_Send(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel, TWrite fnWrite) {
  Command_Write(pThis, tAxis, iChannel, fnWrite);
  return Command_Wake(pThis, tAxis);
}

// A command that follows from the axis's own work: written like any other, but left out where a newer command stands in
// the block already.  As Command_Send; left out counts as 0.
template <typename TWrite>
i32 Command_SendFollowUp(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel, TWrite fnWrite) {
  const auto IsFree = [&] { return Word_Load(pThis->*tAxis.pbWake) == 0; };
  return Command_WriteIf(pThis, tAxis, iChannel, IsFree, fnWrite) ? Command_Wake(pThis, tAxis) : 0;
}

// Sends the bytes once more while the flag is set: those of a send that failed would be missed for ever.  For long
// waits.
void Command_WakeAgain(TVernierLensdInfo* pThis, const TAxis& tAxis);

// True while a command of the axis is pending or its thread is inside the dispatcher.  Any thread.  dwFunction tells
// less: it falls before the command's bracket is closed, and a search that failed leaves it standing.
bool Command_IsBusy(TVernierLensdInfo* pThis, const TAxis& tAxis);

// True where a command of tOther was written behind the running one of tAxis.  tAxis's owner thread, under tOther's
// lock.
bool Command_IsBehind(TVernierLensdInfo* pThis, const TAxis& tOther, const TAxis& tAxis);

// The thread has left its dispatcher.  Owner thread.
void Command_Leave(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Clears the wake flag, counts the thread as busy, and copies block and channel to the box's running command; a claimed
// one is there already, and the flag is another's.  Owner thread.
void Command_Take(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Writes a direct move to dwPosition (virtual steps) into an idle axis's block and takes it at once, for the dispatcher
// that the thread calls next; nobody is woken.  ptCommand is the block.  Owner thread.  False: a command of somebody
// else stands there or is on its way, and goes first, or the daemon is ending; nothing is written.
bool Command_ClaimDirectMove(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel, TMotorCommand* ptCommand,
                             u32 dwPosition);

// True while no command stands in the block.  Owner thread.
bool Command_IsIdle(TVernierLensdInfo* pThis, const TAxis& tAxis);

// The running command has ended: dwFunction becomes 0, unless a newer command stands in the block.  Owner thread.
void Command_Finish(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Writes a word of the running command back to its block, unless a newer command stands there.  Owner thread.
void Command_WriteBack(TVernierLensdInfo* pThis, const TAxis& tAxis, u32 TMotorCommand::*pdwWord, u32 dwValue);
