#include <dlfcn.h>
#include <string.h>

#include "hooks/hooks.h"

namespace {
// Every hooked name, in one place; tools/check_symbols.sh reads it too.
constexpr const char* g_aszHooked[] = {
    "usleep",
    "sleep",
    "nanosleep",
    "clock_nanosleep",
    "gettimeofday",
    "time",
    "clock_gettime",
    "select",
    "pselect",
    "poll",
    "__poll_chk",
    "read",
    "__read_chk",
    "write",
    "recv",
    "__recv_chk",
    "send",
    "socketpair",
    "close",
    "bind",
    "connect",
    "epoll_wait",
    "pthread_create",
    "pthread_join",
    "pthread_exit",
    "pthread_mutex_lock",
    "pthread_mutex_trylock",
    "pthread_mutex_unlock",
    "sem_wait",
    "sem_trywait",
    "sem_timedwait",
    "sem_post",
    "pthread_cond_wait",
    "pthread_cond_timedwait",
    "pthread_cond_clockwait",
    "pthread_cond_signal",
    "pthread_cond_broadcast",
    "open",
    "open64",
    "__open_2",
    "__open64_2",
    "fopen",
    "fopen64",
    "fclose",
    "access",
    "remove",
    "unlink",
    "mkfifo",
    "mkdir",
    "chmod",
    "rename",
    "readlink",
    "__readlink_chk",
    "stat",
    "lstat",
    "stat64",
    "lstat64",
    "opendir",
    "sync",
    "fsync",
    "fdatasync",
    "ioctl",
    "ftok",
    "shmget",
    "shmat",
    "shmdt",
    "sigaction",
    "pthread_sigmask",
    "sigprocmask",
    "getpid",
    "daemon",
    // Twins of a 32-bit machine with 64-bit time.
    "__nanosleep64",
    "__clock_nanosleep_time64",
    "__gettimeofday64",
    "__time64",
    "__clock_gettime64",
    "__select64",
    "__pselect64",
    "__sem_timedwait64",
    "__pthread_cond_timedwait64",
    "__pthread_cond_clockwait64",
    "__stat64_time64",
    "__lstat64_time64",
    "__ioctl_time64",
};
}  // namespace

// A name may be bound to another library's function, or, in one program with a sanitizer, to the sanitizer's own.
static bool IsBoundToUs(const char* szName) {
  const void* pv = dlsym(RTLD_DEFAULT, szName);
  Dl_info tBound{};
  Dl_info tOurs{};
  if (pv == nullptr || dladdr(pv, &tBound) == 0) return false;
  if (dladdr(reinterpret_cast<const void*>(&Hooks_SelfTest), &tOurs) == 0) return false;
  char szInterceptor[96];
  snprintf(szInterceptor, sizeof szInterceptor, "__interceptor_%s", szName);
  return tBound.dli_fbase == tOurs.dli_fbase && pv != dlsym(RTLD_DEFAULT, szInterceptor);
}

i32 Hooks_SelfTest() {
  i32 iResult = 0;
  for (const char* szName : g_aszHooked) {
    if (IsBoundToUs(szName)) continue;
    fprintf(stderr, "simcamera: %s is not hooked; link simcamera_hooks into the program itself\n", szName);
    iResult = -1;
  }
  return iResult;
}
