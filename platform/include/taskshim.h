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

/* What a thread runs, and how.  Six words, each as large as a pointer. */
typedef struct {
  uintptr_t dwReserved;      /* 0 */
  void* pvArgument;          /* passed to pfnEntry */
  uintptr_t dwStackSize_KiB; /* smallest stack of the thread; raised to the system's minimum if that is higher */
  uintptr_t dwPriority;      /* kept but not used: the thread runs under the process's own policy */
  uintptr_t dwFlags;         /* 0 */
  int32_t (*pfnEntry)(void* pvArgument); /* its result is ignored */
} TTaskShimOptions;

/* Makes a thread that does not run yet.  The options are copied.  Returns 0 with a valid *phThread, to be ended with
   TaskShim_Release; or -1 with a null one if there is no entry or no memory. */
int32_t TaskShim_Initial(HTaskShim* phThread, const TTaskShimOptions* ptOptions);

/* Lets the thread run, with the caller's signal mask.  Returns 0, or -1 if the handle is null, if the thread was
   started before, or if resources have run out. */
int32_t TaskShim_Start(HTaskShim hThread);

/* Waits until a started thread's entry has returned, frees the handle and clears the slot.  Returns 0, or -1 for a null
   slot or a slot that holds null.  Also returns -1 for a thread that releases itself: nobody can wait for it here, so
   its handle stays. */
int32_t TaskShim_Release(HTaskShim* phThread);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
#endif
