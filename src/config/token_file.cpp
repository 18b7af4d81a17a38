#include "config/token_file.h"

#include <cctype>
#include <cstring>

#include "core/number.h"
#include "core/regular_file.h"

namespace {

struct TFound {
  bool bFound;
  u32 dwValue;
};

void TakeToken(const TToken& tToken, std::span<const TTokenRow> atRows, std::span<TFound, dwMaxTokenRows> atFound) {
  for (std::size_t i = 0; i < atRows.size(); i++) {
    const char* pszValue = Token_Value(tToken, atRows[i].sKey);
    if (pszValue == nullptr) continue;
    atFound[i] = {.bFound = true, .dwValue = Text_ToU32(pszValue)};
    return;
  }
}

}  // namespace

bool TokenFile_Next(FILE* pFile, TToken* ptToken) {
  while (std::fscanf(pFile, "%131s", ptToken->szText) == 1) {
    int iNext = std::getc(pFile);
    if (iNext == EOF || std::isspace(iNext) != 0) return true;
    while (iNext != EOF && std::isspace(iNext) == 0) iNext = std::getc(pFile);
  }
  return false;
}
static_assert(iMaxToken == 131, "the width in the format above");

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
  }
  return 0;
}
