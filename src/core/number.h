// The one reader of decimal numbers: from clients, state files and tables.
#pragma once

#include "core/types.h"

// Reads as atoi does on the 32-bit target, on every word size: leading white space, a sign, digits; it stops at the
// ends of i32; text that is no number gives 0.  psz is never null.  Any thread.
i32 Text_ToI32(const char* psz);

// Reads as strtoul does in base 10 on the 32-bit target, on every word size: as above, but above 2^32 - 1, and below
// the negative of that, it gives 2^32 - 1; a negative number gives 2^32 less its magnitude.
u32 Text_ToUnsigned(const char* psz);

// True for a sign or none, digits, and nothing else.  Any thread.
bool Text_IsNumber(const char* psz);

// A number of Text_ToI32 stored in an unsigned word: a negative one keeps its bit pattern.
inline u32 Text_ToU32(const char* psz) {
  return static_cast<u32>(Text_ToI32(psz));
}
