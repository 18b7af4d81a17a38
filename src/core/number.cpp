#include "core/number.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

i32 Text_ToI32(const char* psz) {
  const long long llValue = std::strtoll(psz, nullptr, 10);
  return static_cast<i32>(
      std::clamp<long long>(llValue, std::numeric_limits<i32>::min(), std::numeric_limits<i32>::max()));
}
