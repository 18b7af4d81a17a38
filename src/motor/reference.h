// Whether the counter of an axis can be trusted (EReference), by channel.  The words are shared; start-up and the owner
// thread write them.
#pragma once

#include "motor/axis.h"

// Marks every channel of the axis as lost, or as doubted.  Does nothing if the lens lacks the axis or is an ICS lens,
// whose driver knows where it stands.  Start-up, before the axis's thread.
void Reference_LoseAll(TVernierLensdInfo* pThis, const TAxis& tAxis);
void Reference_DoubtAll(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Notes whether the walk has found the running channel's reference.  Owner thread.
void Reference_Set(TVernierLensdInfo* pThis, const TAxis& tAxis, bool bFound);

// Marks a channel's counter as lost.  Owner thread.
void Reference_Lose(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel);

// Marks the running channel's counter as lost, with a line: the driver's answer leaves open where the motor stands.
// Owner thread.
void Reference_LoseByAnswer(TVernierLensdInfo* pThis, const TAxis& tAxis, const char* szRequest, i32 iAnswer);

// Returns true if the channel is lost, not doubted or failed.  Any thread.
bool Reference_IsLost(const TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel);

// Returns true if the channel is lost or doubted: its next move begins with the walk to the reference.  Any thread.
bool Reference_IsToBeFound(const TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel);

// Returns the running channel if its counter is lost, else the first lost channel, or -1 if there is none.  Owner
// thread.
i32 Reference_FirstLost(const TVernierLensdInfo* pThis, const TAxis& tAxis);

// Returns true if no channel is lost or failed: only then may the working log be deleted.  Any thread.
bool Reference_NeedsNoLog(const TVernierLensdInfo* pThis, const TAxis& tAxis);
