// Tables of 32-bit words, allocated at start-up.
#pragma once

#include <cstdlib>

#include "core/types.h"

// A row with more entries is refused: a plain lens has no target above 0xFFFF, and no ICS lens comes near it, so more
// is a broken file.
constexpr u32 dwMaxTableEntries = 1'000'000;

// Zeroed; null when a row has too many entries or there is no memory.  An empty table still has an address.
void* Table_AllocateWords(i32 iRows, u32 dwEntries);

// Null stays null.
template <typename TEntry>
void Table_Free(TEntry*& ptTable) {
  std::free(ptTable);
  ptTable = nullptr;
}
