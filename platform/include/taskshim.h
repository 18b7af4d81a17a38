/* libtaskshim.so.1, the camera's thread library.  Any thread may call; pointers are borrowed for the call and never
   null. */
#ifndef TASKSHIM_H
#define TASKSHIM_H

#include <stdint.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

typedef void* HTaskShim;

/* What a thread runs, and how.  Six words, the size of a pointer each on 64 bits where they hold one. */
typedef struct {
  uintptr_t dwReserved;      /* 0 */
  void* pvArgument;          /* handed to pfnEntry */
  uintptr_t dwStackSize_KiB; /* least stack of the thread; raised to the system's minimum where that is higher */
  uintptr_t dwPriority;      /* recorded; the thread runs under the process's own policy */
  uintptr_t dwFlags;         /* 0 */
  int32_t (*pfnEntry)(void* pvArgument); /* its result is not looked at */
} TTaskShimOptions;

/* Makes a thread that does not run yet.  The options are copied.  0: *phThread is valid, end it with TaskShim_Release.
   -1: *phThread is null (no entry, or no memory). */
int32_t TaskShim_Initial(HTaskShim* phThread, const TTaskShimOptions* ptOptions);

/* Lets the thread run.  It inherits the caller's signal mask.  0 or -1 (null handle, started before, no resources). */
int32_t TaskShim_Start(HTaskShim hThread);

/* Waits until a started thread's entry has returned, frees the handle and clears the slot.  0; -1 for a null slot or a
   slot that holds null, and for a thread that would release itself: it cannot be waited for, and its handle stays. */
int32_t TaskShim_Release(HTaskShim* phThread);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
#endif
