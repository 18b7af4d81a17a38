#include "config/token_file.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "core/number.h"

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
  FILE* pFile = std::fopen(pszPath, "r");
  if (pFile == nullptr) return -1;
  TToken tToken = {};
  while (TokenFile_Next(pFile, &tToken)) {
    const auto itRow = std::find_if(atRows.begin(), atRows.end(),
                                    [&](const TTokenRow& tRow) { return Token_Value(tToken, tRow.sKey) != nullptr; });
    if (itRow != atRows.end()) Word_Store(*itRow->pdwDest, Text_ToU32(Token_Value(tToken, itRow->sKey)));
  }
  std::fclose(pFile);
  return 0;
}
