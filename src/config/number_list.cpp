#include "config/number_list.h"

#include <cctype>
#include <cstring>

#include "core/number.h"

namespace {

const char* NextField(const char* pszField) {
  const char* pszComma = std::strchr(pszField, ',');
  return pszComma == nullptr ? nullptr : pszComma + 1;
}

bool IsBlank(char c) {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
}

}  // namespace

bool Text_MayBeNumber(const char* psz) {
  while (IsBlank(*psz)) psz++;
  if (*psz == '\0' || *psz == ',') return true;
  if (*psz == '+' || *psz == '-') psz++;
  return std::isdigit(static_cast<unsigned char>(*psz)) != 0;
}

bool NumberList_Holds(const char* pszList, i32 iCount) {
  for (i32 i = 0; i < iCount; i++) {
    if (pszList == nullptr || !Text_MayBeNumber(pszList)) return false;
    pszList = NextField(pszList);
  }
  return true;
}

i32 NumberList_Take(const char** ppszList) {
  if (*ppszList == nullptr) return 0;
  const i32 iValue = Text_ToI32(*ppszList);
  *ppszList = NextField(*ppszList);
  return iValue;
}
