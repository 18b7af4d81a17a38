// State files of "key=value" tokens, separated by white space.  Keys are compared over the length of the wanted key
// only, so a longer key with the same start matches too.  If a key occurs twice, the last one counts.
#pragma once

#include <cstdio>
#include <span>
#include <string_view>

#include "core/types.h"

struct TTokenRow {
  std::string_view sKey;
  u32* pdwDest;              // shared word; takes the number after the first '='
  bool* pbFound = nullptr;   // set if the key was found; may be null
  bool* pbNumber = nullptr;  // set if its value is a number and nothing else; may be null
  bool bUnsigned = false;    // the value was saved with "%u": a negative one keeps its bit pattern
};

constexpr i32 iMaxToken = 131;  // characters
constexpr std::size_t dwMaxTokenRows = 4;

struct TToken {
  char szText[iMaxToken + 1];  // the first characters of the token
  u32 dwLength;                // characters of the whole token, with any NUL bytes in it
};

// Reads the next token of an open file, however long.  Returns false at end of file.
bool TokenFile_NextOfAnyLength(FILE* pFile, TToken* ptToken);

// Reads the next token of at most iMaxToken characters.  A longer one is skipped as a whole: its tail is no token.
// Returns false at end of file.
bool TokenFile_Next(FILE* pFile, TToken* ptToken);

// Returns the value of a token whose key is sKey, or null if it has another key or no '='.
const char* Token_Value(const TToken& tToken, std::string_view sKey);

// Reads the keys of all rows.  If several rows match a token, the first takes it; a token that no row wants is ignored.
// Returns 0, or -1 if the file cannot be read; every destination is then as it was.  Any thread.
i32 TokenFile_Read(const char* pszPath, std::span<const TTokenRow> atRows);
