// What the ICS lens's moves have in common.  The driver goes to a position by itself and takes its time; the daemon
// only waits for as long as the distance takes, holding gICSMutex, so that the axes move one after the other.
#pragma once

#include "motor/axis.h"

constexpr u64 qwMaxTravel_us = 120'000'000;  // the longest that one move is waited for

// Step time of the axis for the distance between two positions, limited to twice the axis's range: positions lie a
// little outside of it at most.  And to qwMaxTravel_us, since the range and the speed are the driver's own answers: a
// wrong one must not hold the lens's lock for hours.
u64 ICS_TravelTime_us(const TAxis& tAxis, i32 iFrom, i32 iTo);

// The lens does not answer any more: no request is made to it, and no move, until the daemon starts again.
void ICS_SetDetached(TVernierLensdInfo* pThis);
