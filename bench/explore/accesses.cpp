// Makes each access of a shared word a point of the schedule.  The daemon's sources are compiled here with
// -fsanitize=thread, and the compiler then calls these functions for every access of memory; the sanitizer's own
// library is not linked.  Word_* and std::atomic make atomic accesses.  Plain accesses do nothing here: the build with
// ThreadSanitizer shows that what they touch is not shared.
#include <pthread.h>
#include <semaphore.h>

#include "explore/oracle.h"
#include "explore/schedule.h"

// NOLINTBEGIN: the names and the parameters are the compiler's.
extern "C" {
void __tsan_init() {}
void __tsan_func_entry(void*) {}
void __tsan_func_exit() {}
void __tsan_vptr_update(void**, void*) {}
void __tsan_vptr_read(void**) {}
void __tsan_read_range(void*, unsigned long) {}
void __tsan_write_range(void*, unsigned long) {}
#define PLAIN(bytes)                          \
  void __tsan_read##bytes(void*) {}           \
  void __tsan_write##bytes(void*) {}          \
  void __tsan_unaligned_read##bytes(void*) {} \
  void __tsan_unaligned_write##bytes(void*) {}
PLAIN(1)
PLAIN(2)
PLAIN(4)
PLAIN(8)
PLAIN(16)

void __tsan_atomic_thread_fence(int) {
  __atomic_thread_fence(__ATOMIC_SEQ_CST);
}
void __tsan_atomic_signal_fence(int) {}

#define UPDATE(bits, T, name, builtin)                            \
  T __tsan_atomic##bits##_##name(volatile T* pt, T tValue, int) { \
    Schedule_Access(pt, true, __builtin_return_address(0));       \
    const T tFormer = builtin(pt, tValue, __ATOMIC_SEQ_CST);      \
    Oracle_Stored(pt);                                            \
    return tFormer;                                               \
  }
#define EXCHANGE(bits, T, name)                                                                                        \
  int __tsan_atomic##bits##_##name(volatile T* pt, T* ptExpected, T tValue, int, int) {                                \
    Schedule_Access(pt, true, __builtin_return_address(0));                                                            \
    const bool bDone = __atomic_compare_exchange_n(pt, ptExpected, tValue, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST); \
    if (bDone) Oracle_Stored(pt);                                                                                      \
    return bDone;                                                                                                      \
  }
#define ATOMIC(bits, T)                                             \
  T __tsan_atomic##bits##_load(const volatile T* pt, int) {         \
    Schedule_Access(pt, false, __builtin_return_address(0));        \
    return __atomic_load_n(pt, __ATOMIC_SEQ_CST);                   \
  }                                                                 \
  void __tsan_atomic##bits##_store(volatile T* pt, T tValue, int) { \
    Schedule_Access(pt, true, __builtin_return_address(0));         \
    __atomic_store_n(pt, tValue, __ATOMIC_SEQ_CST);                 \
    Oracle_Stored(pt);                                              \
  }                                                                 \
  UPDATE(bits, T, exchange, __atomic_exchange_n)                    \
  UPDATE(bits, T, fetch_add, __atomic_fetch_add)                    \
  UPDATE(bits, T, fetch_sub, __atomic_fetch_sub)                    \
  UPDATE(bits, T, fetch_or, __atomic_fetch_or)                      \
  UPDATE(bits, T, fetch_and, __atomic_fetch_and)                    \
  EXCHANGE(bits, T, compare_exchange_strong)                        \
  EXCHANGE(bits, T, compare_exchange_weak)
ATOMIC(8, u8)
ATOMIC(16, std::uint16_t)
ATOMIC(32, u32)
ATOMIC(64, u64)

// The daemon's calls come here first (linker option --wrap).
int __real_pthread_mutex_lock(pthread_mutex_t* ptMutex);
int __real_sem_wait(sem_t* ptSem);
int __wrap_pthread_mutex_lock(pthread_mutex_t* ptMutex) {
  Schedule_Access(ptMutex, true, __builtin_return_address(0));
  return __real_pthread_mutex_lock(ptMutex);
}
int __wrap_sem_wait(sem_t* ptSem) {
  Schedule_Access(ptSem, true, __builtin_return_address(0));
  return __real_sem_wait(ptSem);
}
}
// NOLINTEND
