// Opens files that somebody else may have replaced.  A FIFO or a device in a file's place would hold up whoever opens
// it the ordinary way, for ever.
//
// Any thread.  Paths are borrowed for the call and never null.  The caller closes what it gets.
#pragma once

#include <cstdio>

// For reading.  Null: it cannot be opened; or it is no regular file, with a line printed.
FILE* RegularFile_Read(const char* pszPath);

// For writing: made, or emptied.  A new one has mode 0644 less the umask, whatever the umask, so that nobody but its
// owner writes it; one that is there keeps its mode.  Null: it cannot be opened, or is a FIFO that nobody reads.
FILE* RegularFile_Write(const char* pszPath);

// Gives a file the mode of another one, and in no case more than 0644.  Where the other is missing only the limit
// counts.  Both names may be the same.
void RegularFile_TakeMode(const char* pszPath, const char* pszLike);
