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

// Sends the wake flag's 4 bytes on the axis's pair without waiting.  0, or -1 with nothing printed; the flag stays set,
// and the next command's bytes carry this one as well.
i32 Command_Wake(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Writes a command and wakes the axis's thread; also where the lens lacks the axis.  fnWrite gets the block and stores
// its words with Word_Store.  Any thread.  0, or -1 when the wake-up failed: the caller prints its path's line and goes
// on.
template <typename TWrite>
i32 Command_Send(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel, TWrite fnWrite) {
  TCommandBox& tBox = Axis_Box(pThis, tAxis);
  Command_Lock(tBox);
  fnWrite(Axis_Command(pThis, tAxis));
  tBox.iChannel = iChannel;
  Word_Publish(pThis->*tAxis.pbWake, 1);
  Command_Unlock(tBox);
  return Command_Wake(pThis, tAxis);
}

// A command that follows from the axis's own work: written like any other, but left out where a newer command stands in
// the block already.  Any thread.  As Command_Send; left out counts as 0.
template <typename TWrite>
i32 Command_SendFollowUp(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel, TWrite fnWrite) {
  TCommandBox& tBox = Axis_Box(pThis, tAxis);
  Command_Lock(tBox);
  const bool bFree = Word_Load(pThis->*tAxis.pbWake) == 0;
  if (bFree) {
    fnWrite(Axis_Command(pThis, tAxis));
    tBox.iChannel = iChannel;
    Word_Publish(pThis->*tAxis.pbWake, 1);
  }
  Command_Unlock(tBox);
  return bFree ? Command_Wake(pThis, tAxis) : 0;
}

// True while a command of the axis is pending or its thread is inside the dispatcher.  Any thread.  dwFunction tells
// less: it falls before the command's bracket is closed, and a search that failed leaves it standing.
bool Command_IsBusy(TVernierLensdInfo* pThis, const TAxis& tAxis);

// The thread has left its dispatcher.  Owner thread.
void Command_Leave(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Clears the wake flag, counts the thread as busy, and copies block and channel to the box's running command.  Owner
// thread.
void Command_Take(TVernierLensdInfo* pThis, const TAxis& tAxis);

// The running command has ended: dwFunction becomes 0, unless a newer command stands in the block.  Owner thread.
void Command_Finish(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Writes a word of the running command back to its block, unless a newer command stands there.  Owner thread.
void Command_WriteBack(TVernierLensdInfo* pThis, const TAxis& tAxis, u32 TMotorCommand::*pdwWord, u32 dwValue);
