// Whether the counter of an axis can be trusted, by channel.  Words are shared; start-up and the owner thread write
// them.
#pragma once

#include "motor/axis.h"

// Every channel of the axis is taken as lost.  Does nothing where the lens lacks the axis or has a driver that knows
// where it stands.  Start-up, before the axis's thread.
void Reference_LoseAll(TVernierLensdInfo* pThis, const TAxis& tAxis);

// Every channel of the axis is taken as in doubt.  As above.
void Reference_DoubtAll(TVernierLensdInfo* pThis, const TAxis& tAxis);

// What the walk to the reference of the running channel came to.  Owner thread.
void Reference_Set(TVernierLensdInfo* pThis, const TAxis& tAxis, bool bFound);

// The counter of a channel is not to be trusted any more.  Owner thread.
void Reference_Lose(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel);

// The same for the running channel, with a line: the driver's answer to a request leaves open where the motor stands.
void Reference_LoseByAnswer(TVernierLensdInfo* pThis, const TAxis& tAxis, const char* szRequest, i32 iAnswer);

bool Reference_IsLost(const TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel);

// Lost or in doubt: the channel's next move is preceded by the walk to the reference.
bool Reference_IsToBeFound(const TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel);

// A channel whose counter is lost: the running one, else the first; -1 if none is.
i32 Reference_FirstLost(const TVernierLensdInfo* pThis, const TAxis& tAxis);

// True if no channel's counter is lost and no search has failed: only then may the working log go.
bool Reference_NeedsNoLog(const TVernierLensdInfo* pThis, const TAxis& tAxis);
