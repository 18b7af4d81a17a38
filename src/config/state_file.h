// Small text files that must survive a power cut.
#pragma once

#include "core/types.h"

// Replaces a file as a whole: written beside it, brought to flash, renamed over it, and the name brought to flash too.
// At no moment is there no file, and after a cut there is the old text or the new one.  The mode of the old file is
// kept, as far as it is not above 0644.  A symbolic link stays, and its target is replaced.  Blocks for the flash.
// 0; -1: a step failed, and the old file stands.
i32 StateFile_Replace(const char* pszPath, const char* pszText);
