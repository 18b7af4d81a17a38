// The way out of a step that failed: one line on the log, then -1.
#pragma once

#include <cstdio>

#include "core/types.h"

inline i32 Fail(const char* szText) {
  std::puts(szText);
  return -1;
}
