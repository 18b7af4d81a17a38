// What the moves of an ICS lens have in common.  The driver goes to a position by itself; the daemon only waits for the
// time that the distance takes.  The daemon holds gICSMutex meanwhile, so the axes move one after the other.
#pragma once

#include "motor/axis.h"

constexpr u64 qwMaxTravel_us = 120'000'000;  // longest wait for one move

// Returns the time of a move: the axis's step time for each step between two positions.  The distance is limited to
// twice the axis's range, since positions lie at most a little outside the range.  The time is limited to
// qwMaxTravel_us: range and speed are the driver's answers, and a wrong one must not hold gICSMutex for hours.
u64 ICS_TravelTime_us(const TAxis& tAxis, i32 iFrom, i32 iTo);

// Notes that the lens does not answer any more, and prints a line.  From then on, until the daemon starts again, the
// lens is neither moved nor asked for a position or a temperature.
void ICS_SetDetached(TVernierLensdInfo* pThis);
