#include "config/token_file.h"

#include <cctype>
#include <cstring>

#include "core/number.h"
#include "core/regular_file.h"

namespace {

struct TFound {
  bool bFound;
  bool bNumber;
  u32 dwValue;
};

bool IsNumber(const TToken& tToken, const char* pszValue) {
  return std::strlen(tToken.szText) == tToken.dwLength && Text_IsNumber(pszValue);
}

void TakeToken(const TToken& tToken, std::span<const TTokenRow> atRows, std::span<TFound, dwMaxTokenRows> atFound) {
  for (std::size_t i = 0; i < atRows.size(); i++) {
    const char* pszValue = Token_Value(tToken, atRows[i].sKey);
    if (pszValue == nullptr) continue;
    atFound[i] = {.bFound = true,
                  .bNumber = IsNumber(tToken, pszValue),
                  .dwValue = atRows[i].bUnsigned ? Text_ToUnsigned(pszValue) : Text_ToU32(pszValue)};
    return;
  }
}

}  // namespace

bool TokenFile_NextOfAnyLength(FILE* pFile, TToken* ptToken) {
  int iFrom = 0;
  int iTo = 0;
  if (std::fscanf(pFile, " %n%131s%n", &iFrom, ptToken->szText, &iTo) != 1) return false;
  ptToken->dwLength = static_cast<u32>(iTo - iFrom);
  for (int iNext = std::getc(pFile); iNext != EOF && std::isspace(iNext) == 0; iNext = std::getc(pFile)) {
    ptToken->dwLength++;
  }
  return true;
}
static_assert(iMaxToken == 131, "the width in the format above");

bool TokenFile_Next(FILE* pFile, TToken* ptToken) {
  while (TokenFile_NextOfAnyLength(pFile, ptToken)) {
    if (ptToken->dwLength <= iMaxToken) return true;
  }
  return false;
}

const char* Token_Value(const TToken& tToken, std::string_view sKey) {
  const char* pszEquals = std::strchr(tToken.szText, '=');
  if (pszEquals == nullptr) return nullptr;
  const std::string_view sTokenKey(tToken.szText, static_cast<std::size_t>(pszEquals - tToken.szText));
  return sTokenKey.starts_with(sKey) ? pszEquals + 1 : nullptr;
}

i32 TokenFile_Read(const char* pszPath, std::span<const TTokenRow> atRows) {
  FILE* pFile = RegularFile_Read(pszPath);
  if (pFile == nullptr) return -1;
  TFound atFound[dwMaxTokenRows] = {};
  TToken tToken = {};
  while (TokenFile_Next(pFile, &tToken)) TakeToken(tToken, atRows, atFound);
  const bool bWhole = std::ferror(pFile) == 0;
  std::fclose(pFile);
  if (!bWhole) return -1;
  for (std::size_t i = 0; i < atRows.size(); i++) {
    if (!atFound[i].bFound) continue;
    Word_Store(*atRows[i].pdwDest, atFound[i].dwValue);
    if (atRows[i].pbFound != nullptr) *atRows[i].pbFound = true;
    if (atRows[i].pbNumber != nullptr) *atRows[i].pbNumber = atFound[i].bNumber;
  }
  return 0;
}
