// Threads, mutexes, semaphores and condition variables.  On the virtual clock the real objects keep the state, through
// calls that never wait, so that nothing has to be made anew in a child and a race detector sees every edge.
#include <errno.h>
#include <pthread.h>
#include <semaphore.h>

#include <dlfcn.h>
#include <string.h>

#include "clock/pace.h"
#include "hooks/hooks.h"
#include "hooks/times.h"

namespace {
using TEntry = void* (*)(void*);

constinit TReal<int(pthread_t*, const pthread_attr_t*, TEntry, void*)> g_realCreate{"pthread_create"};
constinit TReal<int(pthread_t, void**)> g_realJoin{"pthread_join"};
constinit TReal<void(void*)> g_realExit{"pthread_exit"};
constinit TReal<int(pthread_mutex_t*)> g_realLock{"pthread_mutex_lock"};
constinit TReal<int(pthread_mutex_t*)> g_realTrylock{"pthread_mutex_trylock"};
constinit TReal<int(pthread_mutex_t*)> g_realUnlock{"pthread_mutex_unlock"};
constinit TReal<int(sem_t*)> g_realSemWait{"sem_wait"};
constinit TReal<int(sem_t*)> g_realSemTrywait{"sem_trywait"};
constinit TReal<int(sem_t*, const timespec*)> g_realSemTimedwait{"sem_timedwait"};
constinit TReal<int(sem_t*)> g_realSemPost{"sem_post"};
constinit TReal<int(pthread_cond_t*, pthread_mutex_t*)> g_realCondWait{"pthread_cond_wait"};
constinit TReal<int(pthread_cond_t*, pthread_mutex_t*, const timespec*)> g_realCondTimedwait{"pthread_cond_timedwait"};
constinit TReal<int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*)> g_realCondClockwait{
    "pthread_cond_clockwait"};
constinit TReal<int(sem_t*, const TTimespec64*)> g_realSemTimedwait64{"__sem_timedwait64"};
constinit TReal<int(pthread_cond_t*, pthread_mutex_t*, const TTimespec64*)> g_realCondTimedwait64{
    "__pthread_cond_timedwait64"};
constinit TReal<int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const TTimespec64*)> g_realCondClockwait64{
    "__pthread_cond_clockwait64"};
constinit TReal<int(pthread_cond_t*)> g_realCondSignal{"pthread_cond_signal"};
constinit TReal<int(pthread_cond_t*)> g_realCondBroadcast{"pthread_cond_broadcast"};

struct TStart {
  TEntry pfnEntry;
  void* pvArgument;
};
constinit TStart g_atStart[iMaxTasks]{};  // by task; read by the new thread only
constinit TStart g_atForeignStart[16]{};  // by place of a thread outside the clock
}  // namespace

int Hook_create(pthread_t* pThread, const pthread_attr_t* ptAttr, TEntry pfnEntry, void* pv) asm("pthread_create");
int Hook_join(pthread_t thread, void** ppvResult) asm("pthread_join");
[[noreturn]] void Hook_exit(void* pvResult) asm("pthread_exit");
int Hook_lock(pthread_mutex_t* ptMutex) asm("pthread_mutex_lock");
int Hook_trylock(pthread_mutex_t* ptMutex) asm("pthread_mutex_trylock");
int Hook_unlock(pthread_mutex_t* ptMutex) asm("pthread_mutex_unlock");
int Hook_sem_wait(sem_t* ptSem) asm("sem_wait");
int Hook_sem_trywait(sem_t* ptSem) asm("sem_trywait");
int Hook_sem_timedwait(sem_t* ptSem, const timespec* ptUntil) asm("sem_timedwait");
int Hook_sem_post(sem_t* ptSem) asm("sem_post");
int Hook_cond_wait(pthread_cond_t* ptCond, pthread_mutex_t* ptMutex) asm("pthread_cond_wait");
int Hook_cond_timedwait(pthread_cond_t* ptCond, pthread_mutex_t* ptMutex,
                        const timespec* ptUntil) asm("pthread_cond_timedwait");
int Hook_cond_clockwait(pthread_cond_t* ptCond, pthread_mutex_t* ptMutex, clockid_t iClock,
                        const timespec* ptUntil) asm("pthread_cond_clockwait");
int Hook_sem_timedwait64(sem_t* ptSem, const TTimespec64* ptUntil) asm("__sem_timedwait64");
int Hook_cond_timedwait64(pthread_cond_t* ptCond, pthread_mutex_t* ptMutex,
                          const TTimespec64* ptUntil) asm("__pthread_cond_timedwait64");
int Hook_cond_clockwait64(pthread_cond_t* ptCond, pthread_mutex_t* ptMutex, clockid_t iClock,
                          const TTimespec64* ptUntil) asm("__pthread_cond_clockwait64");
int Hook_cond_signal(pthread_cond_t* ptCond) asm("pthread_cond_signal");
int Hook_cond_broadcast(pthread_cond_t* ptCond) asm("pthread_cond_broadcast");

static void* RunTask(void* pvTask) {
  const i32 iTask = static_cast<i32>(reinterpret_cast<intptr_t>(pvTask));
  Clock_EnterTask(iTask);
  void* pvResult = g_atStart[iTask].pfnEntry(g_atStart[iTask].pvArgument);
  if (g_tSelf.eKind == THREAD_TASK) Clock_LeaveTask();
  return pvResult;
}

static void* RunForeign(void* pvPlace) {
  const i32 iPlace = static_cast<i32>(reinterpret_cast<intptr_t>(pvPlace));
  Foreign_Enter(iPlace);
  void* pvResult = g_atForeignStart[iPlace].pfnEntry(g_atForeignStart[iPlace].pvArgument);
  Foreign_Leave();
  return pvResult;
}

static int CreateForeign(pthread_t* pThread, const pthread_attr_t* ptAttr, TEntry pfnEntry, void* pv) {
  const i32 iPlace = Foreign_New();
  if (iPlace < 0) return EAGAIN;
  g_atForeignStart[iPlace] = {.pfnEntry = pfnEntry, .pvArgument = pv};
  const i32 iError = g_realCreate(pThread, ptAttr, &RunForeign, reinterpret_cast<void*>(static_cast<intptr_t>(iPlace)));
  if (iError != 0) Foreign_Forget(iPlace);
  return iError;
}

// The daemon makes its threads through the thread library; whoever else makes one is a library with threads of its own,
// which keep real time.
static bool IsMadeByDaemon(const void* pvCaller) {
  TInside tInside;
  Dl_info tInfo{};
  if (dladdr(pvCaller, &tInfo) == 0 || tInfo.dli_fname == nullptr) return false;
  return strstr(tInfo.dli_fname, "libtaskshim") != nullptr || strstr(tInfo.dli_fname, ".so") == nullptr;
}

int Hook_create(pthread_t* pThread, const pthread_attr_t* ptAttr, TEntry pfnEntry, void* pv) {
  const bool bForeign =
      Pace_IsOn() && g_tSelf.iInside == 0 && (Foreign_IsSelf() || !IsMadeByDaemon(__builtin_return_address(0)));
  if (bForeign) return CreateForeign(pThread, ptAttr, pfnEntry, pv);
  if (!Hooks_OnVirtualClock("pthread_create")) return g_realCreate(pThread, ptAttr, pfnEntry, pv);
  Clock_Point("pthread_create");
  const i32 iTask = Clock_NewTask();
  if (iTask < 0) return EAGAIN;
  g_atStart[iTask] = {.pfnEntry = pfnEntry, .pvArgument = pv};
  const i32 iError = g_realCreate(pThread, ptAttr, &RunTask, reinterpret_cast<void*>(static_cast<intptr_t>(iTask)));
  if (iError != 0) {
    Clock_ForgetTask(iTask);
    return iError;
  }
  Clock_TaskMade(iTask, *pThread);
  Transcript_Note("thread made");
  Clock_Point("pthread_create");
  return 0;
}

int Hook_join(pthread_t thread, void** ppvResult) {
  if (!Hooks_OnVirtualClock("pthread_join")) return g_realJoin(thread, ppvResult);
  Clock_Point("pthread_join");
  if (Hooks_Fails("pthread_join")) return EDEADLK;
  const i32 iTask = Clock_TaskOf(thread);
  if (iTask < 0) return Pace_IsOn() ? g_realJoin(thread, ppvResult) : ESRCH;
  while (!Clock_TaskEnded(iTask)) Clock_Wait({.pvKey = Clock_TaskKey(iTask)});
  const i32 iError = g_realJoin(thread, ppvResult);
  if (iError == 0) Clock_ForgetTask(iTask);
  return iError;
}

void Hook_exit(void* pvResult) {
  if (Hooks_OnVirtualClock("pthread_exit")) Clock_LeaveTask();
  g_realExit(pvResult);
  __builtin_unreachable();
}

static int LockVirtually(pthread_mutex_t* ptMutex) {
  for (;;) {
    const i32 iError = g_realTrylock(ptMutex);
    if (iError != EBUSY) return iError;
    // Held by a thread outside the clock: a real lock, and the clock stands while the task waits for it.
    const i32 iOwner = std::atomic_ref(ptMutex->__data.__owner).load(std::memory_order_relaxed);
    if (Pace_IsOn() && !Clock_IsTask(iOwner)) return g_realLock(ptMutex);
    Clock_Wait({.pvKey = ptMutex});
  }
}

static thread_local i32 t_iHeldMutexes = 0;

i32 Hooks_HeldMutexes() {
  return t_iHeldMutexes;
}

int Hook_lock(pthread_mutex_t* ptMutex) {
  if (!Hooks_OnVirtualClock("pthread_mutex_lock")) return g_realLock(ptMutex);
  Clock_Point("pthread_mutex_lock");
  const i32 iError = LockVirtually(ptMutex);
  if (iError == 0) ++t_iHeldMutexes;
  return iError;
}

int Hook_trylock(pthread_mutex_t* ptMutex) {
  Hooks_Point("pthread_mutex_trylock");
  return g_realTrylock(ptMutex);
}

int Hook_unlock(pthread_mutex_t* ptMutex) {
  if (!Hooks_OnVirtualClock("pthread_mutex_unlock")) return g_realUnlock(ptMutex);
  const i32 iError = g_realUnlock(ptMutex);
  if (iError == 0) --t_iHeldMutexes;
  Clock_Wake(ptMutex);
  Clock_Point("pthread_mutex_unlock");
  return iError;
}

// 0, EINTR or ETIMEDOUT.
static i32 SemWaitVirtually(sem_t* ptSem, u64 qwUntil_us) {
  for (;;) {
    if (g_realSemTrywait(ptSem) == 0) return 0;
    if (errno != EAGAIN) return errno;
    const EWaitEnd eEnd =
        Clock_Wait({.pvKey = ptSem, .qwUntil_us = qwUntil_us, .eInterrupt = INTERRUPT_UNLESS_RESTART});
    if (eEnd == WAIT_INTERRUPTED) return EINTR;
    if (eEnd == WAIT_TIMED_OUT) return g_realSemTrywait(ptSem) == 0 ? 0 : ETIMEDOUT;
  }
}

static i32 Fail(i32 iError) {
  if (iError == 0) return 0;
  errno = iError;
  return -1;
}

int Hook_sem_wait(sem_t* ptSem) {
  if (!Hooks_OnVirtualClock("sem_wait")) return g_realSemWait(ptSem);
  Clock_Point("sem_wait");
  return Fail(SemWaitVirtually(ptSem, qwNever_us));
}

int Hook_sem_trywait(sem_t* ptSem) {
  Hooks_Point("sem_trywait");
  return g_realSemTrywait(ptSem);
}

// The virtual time at which an absolute time of a clock is reached.
template <class TTimespec>
static u64 Until_us(clockid_t iClock, const TTimespec& tUntil) {
  const u64 qwZero_us = iClock == CLOCK_REALTIME ? Clock_Wall_us() - Clock_Now_us() : 0;
  const u64 qwUntil_us = Times_Micros(tUntil);
  const u64 qwCamera_us = qwUntil_us > qwZero_us ? qwUntil_us - qwZero_us : 0;
  return Clock_Deadline(qwCamera_us > Clock_Now_us() ? qwCamera_us - Clock_Now_us() : 0);
}

template <class TTimespec>
static int SemTimedwait(TReal<int(sem_t*, const TTimespec*)>& tReal, sem_t* ptSem, const TTimespec* ptUntil) {
  if (!Hooks_OnVirtualClock("sem_timedwait")) return tReal(ptSem, ptUntil);
  Clock_Point("sem_timedwait");
  return Fail(SemWaitVirtually(ptSem, Until_us(CLOCK_REALTIME, *ptUntil)));
}

int Hook_sem_timedwait(sem_t* ptSem, const timespec* ptUntil) {
  return SemTimedwait(g_realSemTimedwait, ptSem, ptUntil);
}
int Hook_sem_timedwait64(sem_t* ptSem, const TTimespec64* ptUntil) {
  return SemTimedwait(g_realSemTimedwait64, ptSem, ptUntil);
}

// A task that waits would not be woken.
static void RefuseForeign(const char* szCall) {
  if (!Foreign_IsSelf() || g_tSelf.iInside > 0) return;
  char szWhy[96];
  snprintf(szWhy, sizeof szWhy, "%s by a library's own thread", szCall);
  Clock_End(CLOCK_END_ERROR, szWhy);
}

int Hook_sem_post(sem_t* ptSem) {
  RefuseForeign("sem_post");
  if (!Hooks_OnVirtualClock("sem_post")) return g_realSemPost(ptSem);
  const i32 iResult = g_realSemPost(ptSem);
  Clock_Wake(ptSem);
  Clock_Point("sem_post");
  return iResult;
}

static i32 CondWaitVirtually(const char* szCall, pthread_cond_t* ptCond, pthread_mutex_t* ptMutex, u64 qwUntil_us) {
  Clock_Point(szCall);
  const i32 iError = g_realUnlock(ptMutex);
  if (iError != 0) return iError;
  Clock_Wake(ptMutex);
  const EWaitEnd eEnd = Clock_Wait({.pvKey = ptCond, .qwUntil_us = qwUntil_us});
  LockVirtually(ptMutex);
  return eEnd == WAIT_TIMED_OUT ? ETIMEDOUT : 0;
}

int Hook_cond_wait(pthread_cond_t* ptCond, pthread_mutex_t* ptMutex) {
  if (!Hooks_OnVirtualClock("pthread_cond_wait")) return g_realCondWait(ptCond, ptMutex);
  return CondWaitVirtually("pthread_cond_wait", ptCond, ptMutex, qwNever_us);
}

// The clock that the condition variable was made for: bit 1 of this word in the C library's record.
static clockid_t ClockOf(const pthread_cond_t* ptCond) {
  return (ptCond->__data.__wrefs & 2u) != 0 ? CLOCK_MONOTONIC : CLOCK_REALTIME;
}

template <class TTimespec>
static int CondTimedwait(TReal<int(pthread_cond_t*, pthread_mutex_t*, const TTimespec*)>& tReal, pthread_cond_t* ptCond,
                         pthread_mutex_t* ptMutex, const TTimespec* ptUntil) {
  if (!Hooks_OnVirtualClock("pthread_cond_timedwait")) return tReal(ptCond, ptMutex, ptUntil);
  return CondWaitVirtually("pthread_cond_timedwait", ptCond, ptMutex, Until_us(ClockOf(ptCond), *ptUntil));
}

int Hook_cond_timedwait(pthread_cond_t* ptCond, pthread_mutex_t* ptMutex, const timespec* ptUntil) {
  return CondTimedwait(g_realCondTimedwait, ptCond, ptMutex, ptUntil);
}
int Hook_cond_timedwait64(pthread_cond_t* ptCond, pthread_mutex_t* ptMutex, const TTimespec64* ptUntil) {
  return CondTimedwait(g_realCondTimedwait64, ptCond, ptMutex, ptUntil);
}

template <class TTimespec>
static int CondClockwait(TReal<int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const TTimespec*)>& tReal,
                         pthread_cond_t* ptCond, pthread_mutex_t* ptMutex, clockid_t iClock, const TTimespec* ptUntil) {
  if (!Hooks_OnVirtualClock("pthread_cond_clockwait")) return tReal(ptCond, ptMutex, iClock, ptUntil);
  return CondWaitVirtually("pthread_cond_clockwait", ptCond, ptMutex, Until_us(iClock, *ptUntil));
}

int Hook_cond_clockwait(pthread_cond_t* ptCond, pthread_mutex_t* ptMutex, clockid_t iClock, const timespec* ptUntil) {
  return CondClockwait(g_realCondClockwait, ptCond, ptMutex, iClock, ptUntil);
}
int Hook_cond_clockwait64(pthread_cond_t* ptCond, pthread_mutex_t* ptMutex, clockid_t iClock,
                          const TTimespec64* ptUntil) {
  return CondClockwait(g_realCondClockwait64, ptCond, ptMutex, iClock, ptUntil);
}

int Hook_cond_signal(pthread_cond_t* ptCond) {
  RefuseForeign("pthread_cond_signal");
  if (!Hooks_OnVirtualClock("pthread_cond_signal")) return g_realCondSignal(ptCond);
  Clock_WakeOne(ptCond);
  Clock_Point("pthread_cond_signal");
  return 0;
}

int Hook_cond_broadcast(pthread_cond_t* ptCond) {
  RefuseForeign("pthread_cond_broadcast");
  if (!Hooks_OnVirtualClock("pthread_cond_broadcast")) return g_realCondBroadcast(ptCond);
  Clock_Wake(ptCond);
  Clock_Point("pthread_cond_broadcast");
  return 0;
}
