#include "core/table.h"

#include <algorithm>

void* Table_AllocateWords(i32 iRows, u32 dwEntries) {
  if (dwEntries > dwMaxTableEntries) return nullptr;
  const std::size_t dwAll = static_cast<std::size_t>(std::max(iRows, 0)) * dwEntries;
  return std::calloc(std::max<std::size_t>(dwAll, 1), sizeof(u32));
}
