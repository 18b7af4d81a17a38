// Decimal numbers, and lists of them separated by ",", as the texts of the camera's XML files hold them.  Any thread.
#pragma once

#include "core/types.h"

// False for a text, or a field of a list, that has something in it but no number at its beginning.  An empty one counts
// as 0.
bool Text_MayBeNumber(const char* psz);

// True if the list has at least iCount fields, and none of these is a word.
bool NumberList_Holds(const char* pszList, i32 iCount);

// Takes the first field off the list, which NumberList_Holds has passed: *ppszList becomes what follows it, null behind
// the last.  Numbers stop at the ends of i32.
i32 NumberList_Take(const char** ppszList);
