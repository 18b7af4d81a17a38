#include "hooks/hooks.h"

#include "clock/pace.h"

#include <dlfcn.h>
#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

// Defined in the preload library only.
extern "C" [[gnu::weak]] void Simcamera_IsPreloaded();

constinit char g_szHooksRoot[256] = "";

namespace {
constinit TDescriptor g_atDescriptors[1024]{};

// Each as a directory or file of its own, or with more behind it.
struct TPrefix {
  const char* szPath;
  bool bOpenEnd;  // anything may follow, not only "/..."
};
constexpr TPrefix g_atPrefixes[] = {
    {"/etc/conf.d", false},
    {"/mnt/flash", false},
    {"/var/run", false},
    {"/tmp/VernierLens", true},
    {"/usr/sbin/vernierlensd", false},
};
}  // namespace

void* Real_Find(const char* szName) {
  TInside tInside;
  void* pv = nullptr;
  if (Simcamera_IsPreloaded == nullptr) {
    char szInterceptor[96];
    snprintf(szInterceptor, sizeof szInterceptor, "__interceptor_%s", szName);
    pv = dlsym(RTLD_DEFAULT, szInterceptor);
  }
  if (pv == nullptr) pv = dlsym(RTLD_NEXT, szName);
  if (pv != nullptr) return pv;
  char szLine[128];
  const i32 iLength = snprintf(szLine, sizeof szLine, "simcamera: no function %s below the hooks\n", szName);
  syscall(SYS_write, 2, szLine, static_cast<size_t>(iLength));
  syscall(SYS_exit_group, 1);
  return nullptr;
}

bool Hooks_OnVirtualClock(const char* szCall) {
  if (!g_bClockRuns || g_tSelf.iInside > 0) return false;
  if (g_tSelf.eKind == THREAD_TASK) return true;
  if (g_tSelf.eKind == THREAD_ENDED || Foreign_IsSelf()) return false;
  char szWhy[128];
  snprintf(szWhy, sizeof szWhy, "%s called by a thread that the clock does not know", szCall);
  Clock_End(CLOCK_END_ERROR, szWhy);
}

bool Hooks_Active() {
  return g_bClockRuns && g_tSelf.iInside == 0;
}

void Hooks_Point(const char* szCall) {
  if (Hooks_OnVirtualClock(szCall)) Clock_Point(szCall);
}

bool Hooks_Fails(const char* szCall) {
  if (!g_bClockRuns || g_tSelf.iInside > 0 || g_tSelf.eKind != THREAD_TASK) return false;
  TInside tInside;
  for (TFailingCall& tCall : Clock_World()->atFailingCalls) {
    if (strcmp(tCall.szCall, szCall) != 0) continue;
    u32& dwLeft = tCall.dwGood > 0 ? tCall.dwGood : tCall.dwFailing;
    if (dwLeft == 0) return false;
    const bool bFails = tCall.dwGood == 0;
    --dwLeft;
    if (bFails) Transcript_Note("%s fails", szCall);
    return bFails;
  }
  return false;
}

void Hooks_SetRoot(const char* szRoot) {
  size_t iLength = strnlen(szRoot, sizeof g_szHooksRoot - 1);
  while (iLength > 1 && szRoot[iLength - 1] == '/') --iLength;
  memcpy(g_szHooksRoot, szRoot, iLength);
  g_szHooksRoot[iLength] = '\0';
}

static bool HasPrefix(const char* pszPath, const TPrefix& tPrefix) {
  const size_t iLength = strlen(tPrefix.szPath);
  if (strncmp(pszPath, tPrefix.szPath, iLength) != 0) return false;
  return tPrefix.bOpenEnd || pszPath[iLength] == '\0' || pszPath[iLength] == '/';
}

TCameraPath::TCameraPath(const char* pszPath) : bOurs(false) {
  szReal[0] = '\0';
  if (!Hooks_Active() || pszPath == nullptr || pszPath[0] != '/') return;
  TInside tInside;
  for (const TPrefix& tPrefix : g_atPrefixes) {
    if (!HasPrefix(pszPath, tPrefix)) continue;
    const i32 iLength = snprintf(szReal, sizeof szReal, "%s%s", g_szHooksRoot, pszPath);
    bOurs = iLength > 0 && static_cast<size_t>(iLength) < sizeof szReal;
    return;
  }
}

TDescriptor* Hooks_Descriptor(i32 fd) {
  constexpr i32 iDescriptors = static_cast<i32>(sizeof g_atDescriptors / sizeof g_atDescriptors[0]);
  return fd >= 0 && fd < iDescriptors ? &g_atDescriptors[fd] : nullptr;
}

bool Hooks_IsPipe(i32 fd) {
  TInside tInside;
  struct stat tStat;
  return fstat(fd, &tStat) == 0 && (S_ISFIFO(tStat.st_mode) || S_ISSOCK(tStat.st_mode));
}
