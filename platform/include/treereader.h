/* libtreereader.so.1, the camera's table-driven XML reader. */
#ifndef TREEREADER_H
#define TREEREADER_H

#include <stdint.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

enum { TREEREADER_INTEGER = 0x2001, TREEREADER_STRING = 0x2002 };

/* One key to read.  Five words, each as large as a pointer.  A row of zeroes ends a table. */
typedef struct {
  const char* pszKey;   /* path from the root element, "/" before each name, as in "/root/capability/nvideoin" */
  uintptr_t dwType;     /* TREEREADER_INTEGER or TREEREADER_STRING */
  uintptr_t dwSize;     /* bytes at the destination: 4 for an integer, the buffer's size for a string */
  void* pvDest;         /* a 32-bit integer, or a text, which is NUL-terminated within dwSize */
  uintptr_t dwReserved; /* 0 */
} TTreeRow;

/* Reads every row's key from the file into the row's destination.  Any thread, no state between calls.
   Integer text is read as atoi reads it on a 32-bit machine: leading white space, a sign, decimal digits.  A number
   beyond the ends of int32 becomes the nearer end; text that is no number gives 0.  White space round a string is
   dropped, and a string that does not fit is cut.  Only the text directly inside the element counts, not that of its
   children.  Comments, CDATA and character references do not divide it.  If a path occurs more than once, its first
   occurrence counts.
   Returns 0 if the file was read: a destination whose key is in the file then holds the file's value, and every other
   one is as it was.  Any other result tells why reading failed, and no destination has been changed:
   -1  the file cannot be opened or read, is no regular file or is larger than 16 MiB
   -2  a row is malformed: key without leading "/", unknown type, an integer whose size is not 4, a string of size 0 or
       above 64 KiB, a null destination
   -3  out of memory, or the parser would need more than 1 MiB for the file
   a positive number: the line of the file at which it stops being well-formed XML, or declares a document type, which
   is refused */
int32_t TreeReader_ReadAll(const char* pszFile, const TTreeRow* ptRows);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
#endif
