// The clock's own view of the threads of a life, shared by the files of this folder.  Only the holder of the token
// touches it, so nothing here needs a lock.
#pragma once

#include <signal.h>

#include <atomic>

#include "clock/clock.h"
#include "clock/inside.h"

enum ETaskState : u32 { TASK_FREE = 0, TASK_READY, TASK_RUNNING, TASK_WAITING, TASK_ENDED };

struct TTask {
  std::atomic<u32> dwToken;  // 1: the task may run
  ETaskState eState;
  EWaitEnd eWaitEnd;
  TClockWait tWait;
  u64 qwPending;  // signals, bit by number
  sigset_t tMask;
  unsigned long qwThread;
  i32 iThread;  // the kernel's number
  const char* szCall;
  char szName[8];
};

extern TTask g_atTasks[iMaxTasks];

inline TTask& Task_Self() {
  return g_atTasks[g_tSelf.iTask];
}

inline void Task_MakeReady(TTask& tTask, EWaitEnd eWaitEnd) {
  tTask.eState = TASK_READY;
  tTask.eWaitEnd = eWaitEnd;
}

// Runs the handlers of the task's pending signals.  True if one of them was installed without SA_RESTART.
bool Task_RunHandlers(TTask& tSelf);
