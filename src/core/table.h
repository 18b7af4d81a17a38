// Tables, allocated at start-up.
#pragma once

#include <algorithm>
#include <cstdlib>

#include "core/types.h"

// A row with more entries means a broken file and is refused: a plain lens has no target above 0xFFFF, and no ICS lens
// comes near a million.
constexpr u32 dwMaxTableEntries = 1'000'000;

// Allocates a zeroed table.  Returns null if a row has too many entries or there is no memory; an empty table is not
// null.
template <typename TEntry>
TEntry* Table_New(i64 llEntries, i64 llRows = 1) {
  if (llEntries > dwMaxTableEntries) return nullptr;
  const i64 llAll = std::max<i64>(llEntries, 0) * std::max<i64>(llRows, 0);
  return static_cast<TEntry*>(std::calloc(static_cast<std::size_t>(std::max<i64>(llAll, 1)), sizeof(TEntry)));
}

// Frees a table, which may be null, and sets the pointer to null.
template <typename TEntry>
void Table_Free(TEntry*& ptTable) {
  std::free(ptTable);
  ptTable = nullptr;
}
