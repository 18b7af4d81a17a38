// A value that no real lens can have means a broken file.  Such values are replaced once, right after they were read,
// so that no move can be endless and no product can wrap.  Sound values stay as they are.  Start-up, main thread.
#pragma once

#include "core/types.h"

// Highest target of a plain lens, virtual steps.  A higher one counts as a negative number that has wrapped.
constexpr u32 dwMaxVirtual = 0xFFFF;

// Limits both ends of the configured ranges to 0..65535 virtual steps.  A higher value becomes 65535, a negative one 0,
// each with a line printed.  Not for the ranges of an ICS lens, which come from its driver and may be signed.
void Config_LimitRanges();

// Where values come from: a configuration file, or the driver of an ICS lens.
enum EValueSource : u32 { VALUES_OF_FILE, VALUES_OF_DRIVER };

// Limits the rest of g_tVernierLensdConfigInfo in the same way: driver steps in a virtual step to 0..32767, step times
// to 0..1 second, backlash to 0..65535 virtual steps, walks to a reference to 0..1000000 driver steps, or twice the
// range if that is more, the waits of a search and for the iris to 10 and 30 seconds.  With 0 nothing moves or waits.
// The lines say where the values came from.
void Config_Limit(EValueSource eSource);

// Prints a line for each axis whose configured walk to the stop is too short: the daemon would sleep for less time than
// the driver may need for the range.  The next walk would then be requested from a running motor, and the counter would
// be false.  For a plain lens, after the limits.
void Config_CheckReferenceWalks();

// Limits a saved position or focus default to 0..dwVirtualEnd (65535 if that is 0), with a line printed.  The value was
// wrong already; the limit makes sure that moves end.  Returns true if the value was outside.
bool Config_LimitPosition(u32* pdwPosition, u32 dwVirtualEnd);
