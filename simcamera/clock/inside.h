// Marks the simulation's own code on a thread: hooks pass through, errno is kept, and ThreadSanitizer does not take
// what the simulation does through intercepted functions (memcpy, snprintf) for accesses of the daemon.
#pragma once

#include "core/types.h"

enum EThreadKind : u32 { THREAD_UNKNOWN = 0, THREAD_TASK = 1, THREAD_ENDED = 2 };

struct TSelf {
  i32 iInside;
  i32 iTask;
  EThreadKind eKind;
};
extern constinit thread_local TSelf g_tSelf;

class TInside {
 public:
  TInside();
  ~TInside();
  TInside(const TInside&) = delete;
  TInside& operator=(const TInside&) = delete;

 private:
  i32 m_iErrno;
};

// The opposite, within it: round a signal handler, which is the daemon's own code.
class TOutside {
 public:
  TOutside();
  ~TOutside();
  TOutside(const TOutside&) = delete;
  TOutside& operator=(const TOutside&) = delete;

 private:
  i32 m_iInside;
};
