// The C library's own function behind a hook, or a sanitizer's interceptor of it.
#pragma once

#include "core/types.h"

// Finds it by name, or ends the process.  Linked into a test program a hook lies above the sanitizer's interceptor,
// which is to see every call all the same; preloaded, it lies wherever the loader put it and calls what comes next.
void* Real_Find(const char* szName);

// Constant-initialised and resolved at first use: sanitizers call hooked functions before any constructor has run.
template <class TFunction>
struct TReal {
  const char* szName;
  std::atomic<TFunction*> pfnReal{nullptr};

  template <class... TArgs>
  auto operator()(TArgs... tArgs) {
    TFunction* pfn = pfnReal.load(std::memory_order_relaxed);
    if (pfn == nullptr) {
      pfn = reinterpret_cast<TFunction*>(Real_Find(szName));
      pfnReal.store(pfn, std::memory_order_relaxed);
    }
    return pfn(tArgs...);
  }
};
