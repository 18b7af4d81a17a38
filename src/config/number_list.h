// Decimal numbers, and lists of them separated by ",", as the texts of the camera's XML files hold them.  Any thread.
#pragma once

#include "core/types.h"

// Returns true if a text, or the first field of a list, begins with a number or is empty.  An empty one counts as 0.
bool Text_MayBeNumber(const char* psz);

// Returns true if the list has at least iCount fields and each of them may be a number.
bool NumberList_Holds(const char* pszList, i32 iCount);

// Takes the first field off a list that NumberList_Holds has checked.  Returns its number, limited to i32.  Moves
// *ppszList to the next field, or sets it to null after the last one.
i32 NumberList_Take(const char** ppszList);
