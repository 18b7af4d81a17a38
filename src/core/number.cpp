#include "core/number.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <limits>

i32 Text_ToI32(const char* psz) {
  const long long llValue = std::strtoll(psz, nullptr, 10);
  return static_cast<i32>(
      std::clamp<long long>(llValue, std::numeric_limits<i32>::min(), std::numeric_limits<i32>::max()));
}

u32 Text_ToUnsigned(const char* psz) {
  constexpr u32 dwMax = std::numeric_limits<u32>::max();
  const long long llValue = std::strtoll(psz, nullptr, 10);
  const bool bFits = -static_cast<long long>(dwMax) <= llValue && llValue <= static_cast<long long>(dwMax);
  return bFits ? static_cast<u32>(llValue) : dwMax;
}

bool Text_IsNumber(const char* psz) {
  if (*psz == '+' || *psz == '-') psz++;
  const char* pszDigits = psz;
  while (std::isdigit(static_cast<unsigned char>(*psz)) != 0) psz++;
  return psz != pszDigits && *psz == '\0';
}
