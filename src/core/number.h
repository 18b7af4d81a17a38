// The only reader of decimal numbers, for clients, state files and tables.
#pragma once

#include "core/types.h"

// Reads a number as atoi does on the 32-bit target, whatever the word size here: leading white space, a sign, digits.
// A number beyond i32 becomes the nearer end of i32; text that is no number gives 0.  psz is never null.  Any thread.
i32 Text_ToI32(const char* psz);

// Reads a number as strtoul does in base 10 on the 32-bit target, whatever the word size here.  A number above
// 2^32 - 1, or below -(2^32 - 1), gives 2^32 - 1.  Any other negative number gives 2^32 less its magnitude.
u32 Text_ToUnsigned(const char* psz);

// Returns true if the text is digits, with or without a sign, and nothing else.  Any thread.
bool Text_IsNumber(const char* psz);

// Text_ToI32 in an unsigned word: a negative number keeps its bit pattern.
inline u32 Text_ToU32(const char* psz) {
  return static_cast<u32>(Text_ToI32(psz));
}
