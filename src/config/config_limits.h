// Values that no lens has come from broken files.  They are replaced once, when they have been read, so that no move
// can be endless and no product can wrap; sound configurations are left as they are.  Start-up, main thread.
#pragma once

#include "core/types.h"

// Highest target of a plain lens, virtual steps: what lies above is a number below 0 that wrapped.
constexpr u32 dwMaxVirtual = 0xFFFF;

// Limits both ends of the configured ranges to 0..65535 virtual steps.  What lies above becomes the highest, what is
// negative 0; each with a line.  Not for ranges that an ICS lens's driver gave, which may be signed.
void Config_LimitRanges();

// Where values come from: a configuration file, or the driver of an ICS lens.
enum EValueSource : u32 { VALUES_OF_FILE, VALUES_OF_DRIVER };

// Limits the rest of g_tVernierLensdConfigInfo in the same way: driver steps in a virtual step to 0..32767, step times
// to 0..1 second, backlash to 0..65535 virtual steps, walks to a reference to 0..1000000 driver steps or twice the
// range, the waits of a search and for the iris to 10 and 30 seconds.  0 moves or waits nothing.  The lines name what
// the values came from.
void Config_Limit(EValueSource eSource);

// A line for each axis whose walk to the stop would not be slept out for as long as a driver may take for the range:
// the next walk would then be asked of a running motor, and the counter be false.  Plain lens, after the limits.
void Config_CheckReferenceWalks();

// Limits a saved position or focus default to 0..dwVirtualEnd (65535 if that is 0), with a line.  The counter of such a
// lens was false already; now at least its moves end.  True: it was outside.
bool Config_LimitPosition(u32* pdwPosition, u32 dwVirtualEnd);
