// Small text files that must survive a power cut.
#pragma once

#include "core/types.h"

// Replaces a file as a whole: writes a new file beside it, syncs that to flash, renames it over the old one, and syncs
// the folder.  There is a file at every moment, and after a power cut it has the old text or the new one.  The mode of
// the old file is kept, limited to 0644.  A symbolic link stays, and its target is replaced.  Waits for the flash.
// Returns 0, or -1 if a step failed: the old file stands, unless only the sync of the folder failed.
i32 StateFile_Replace(const char* pszPath, const char* pszText);
