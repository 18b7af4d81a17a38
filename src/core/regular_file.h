// Opens files that somebody else may have replaced.  If a FIFO or a device stands in a file's place, an ordinary open
// could block for ever.
//
// Any thread.  Paths are borrowed for the call and never null.  The caller closes what it gets.
#pragma once

#include <cstdio>

// Opens a file for reading.  Returns null if it cannot be opened, or, with a line printed, if it is no regular file.
FILE* RegularFile_Read(const char* pszPath);

// Opens a file for writing, new or emptied.  A new file has mode 0644 less the umask, so that only its owner can write
// it; an existing file keeps its mode.  Returns null if it cannot be opened, or if it is a FIFO that nobody reads.
FILE* RegularFile_Write(const char* pszPath);

// Gives a file the mode of the file pszLike, limited to 0644.  If that file is missing, limits the file's own mode.
// Both paths may be the same.
void RegularFile_TakeMode(const char* pszPath, const char* pszLike);
