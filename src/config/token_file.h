// State files of "key=value" tokens, separated by white space.  Keys are compared over the length of the wanted key
// only, so a longer key with the same start matches too; where a key occurs twice the last one stands.
#pragma once

#include <cstdio>
#include <span>
#include <string_view>

#include "core/types.h"

struct TTokenRow {
  std::string_view sKey;
  u32* pdwDest;              // shared word; takes the number behind the first '='
  bool* pbFound = nullptr;   // set where the key was there; null: not asked for
  bool* pbNumber = nullptr;  // set where its value is a number and nothing else; null: not asked for
  bool bUnsigned = false;    // a number below 0 was saved as "%u" prints it, and comes back as what it was
};

constexpr i32 iMaxToken = 131;  // characters
constexpr std::size_t dwMaxTokenRows = 4;

struct TToken {
  char szText[iMaxToken + 1];  // its first characters
  u32 dwLength;                // characters of the whole token; NUL bytes count, which end szText
};

// The next token of an open file, however long.  False at the end.
bool TokenFile_NextOfAnyLength(FILE* pFile, TToken* ptToken);

// The same, but one longer than iMaxToken is passed over whole: its tail is no token.
bool TokenFile_Next(FILE* pFile, TToken* ptToken);

// The value of a token whose key is sKey, or null: another key, or no '='.
const char* Token_Value(const TToken& tToken, std::string_view sKey);

// Reads the rows' keys.  Of several rows that match a token the first takes it; a token that no row wants is passed
// over.  0; -1: the file cannot be opened, and every destination is as it was.  Any thread.
i32 TokenFile_Read(const char* pszPath, std::span<const TTokenRow> atRows);
