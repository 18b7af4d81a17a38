// Prints the line of a step that failed and returns -1.
#pragma once

#include <cstdio>

#include "core/types.h"

inline i32 Fail(const char* szText) {
  std::puts(szText);
  return -1;
}
