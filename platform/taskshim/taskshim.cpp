#include "taskshim.h"

#include <pthread.h>
#include <stdlib.h>
#include <unistd.h>

namespace {

// What a handle points to, from TaskShim_Initial to TaskShim_Release.
struct TTaskShim {
  TTaskShimOptions tOptions;
  bool bStarted;      // set by TaskShim_Start; accessed atomically, so that one of two simultaneous starts is refused
  pthread_t tThread;  // valid while bStarted
};

void* Thread_Run(void* pvShim) {
  const TTaskShim* ptShim = static_cast<const TTaskShim*>(pvShim);
  ptShim->tOptions.pfnEntry(ptShim->tOptions.pvArgument);
  return nullptr;
}

// Returns the stack's size in bytes, rounded up to whole pages: at least the system's minimum, which includes
// thread-local storage.  Returns 0 if the size does not fit into an address.
size_t Stack_Bytes(uintptr_t dwStackSize_KiB) {
  constexpr size_t dwPage = 64 * 1024;  // the largest page of any machine that this runs on
  if (dwStackSize_KiB > (SIZE_MAX - dwPage) / 1024) return 0;
  const long iLeast = sysconf(_SC_THREAD_STACK_MIN);
  const size_t dwLeast = iLeast > 0 ? static_cast<size_t>(iLeast) : dwPage;
  const size_t dwWanted = dwStackSize_KiB * 1024;
  return ((dwWanted > dwLeast ? dwWanted : dwLeast) + dwPage - 1) / dwPage * dwPage;
}

int32_t Thread_Create(TTaskShim* ptShim) {
  const size_t dwStack = Stack_Bytes(ptShim->tOptions.dwStackSize_KiB);
  pthread_attr_t tAttributes;
  if (pthread_attr_init(&tAttributes) != 0) return -1;
  int iResult = pthread_attr_setstacksize(&tAttributes, dwStack);
  if (iResult == 0) iResult = pthread_create(&ptShim->tThread, &tAttributes, Thread_Run, ptShim);
  pthread_attr_destroy(&tAttributes);
  return iResult == 0 ? 0 : -1;
}

}  // namespace

int32_t TaskShim_Initial(HTaskShim* phThread, const TTaskShimOptions* ptOptions) {
  *phThread = nullptr;
  if (ptOptions->pfnEntry == nullptr) return -1;
  TTaskShim* ptShim = static_cast<TTaskShim*>(calloc(1, sizeof(TTaskShim)));
  if (ptShim == nullptr) return -1;
  ptShim->tOptions = *ptOptions;
  *phThread = ptShim;
  return 0;
}

int32_t TaskShim_Start(HTaskShim hThread) {
  TTaskShim* ptShim = static_cast<TTaskShim*>(hThread);
  if (ptShim == nullptr) return -1;
  if (__atomic_exchange_n(&ptShim->bStarted, true, __ATOMIC_ACQ_REL)) return -1;
  if (Thread_Create(ptShim) == 0) return 0;
  __atomic_store_n(&ptShim->bStarted, false, __ATOMIC_RELEASE);
  return -1;
}

int32_t TaskShim_Release(HTaskShim* phThread) {
  if (phThread == nullptr || *phThread == nullptr) return -1;
  TTaskShim* ptShim = static_cast<TTaskShim*>(*phThread);
  // A thread that releases itself cannot wait for itself.  Its record must outlive it, so the handle stays.
  if (__atomic_load_n(&ptShim->bStarted, __ATOMIC_ACQUIRE) && pthread_join(ptShim->tThread, nullptr) != 0) return -1;
  *phThread = nullptr;
  free(ptShim);
  return 0;
}
