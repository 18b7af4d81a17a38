// The preload library's start: the daemon's own binary on a simulated camera in a run, on the paced clock.
// SIMCAMERA_ROOT names the camera. Passive in every other program, which inherits the preload on the way to the daemon.
#include <errno.h>
#include <fcntl.h>
#include <regex.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "clock/pace.h"
#include "hooks/flash.h"
#include "hooks/hooks.h"

extern "C" void Simcamera_IsPreloaded();
void Simcamera_IsPreloaded() {}

namespace {
constinit i32 g_fdTranscript = -1;
constinit TClockTally g_tTally{};
constinit char g_szLast[768] = "";  // the event printed last, as it stands from its column on
constinit u32 g_dwRepeated = 0;
constinit TWorld* g_ptWorld = nullptr;
constinit regex_t g_tCutAt{};
constinit u32 g_dwCutPattern = 0;  // number of the pattern that is compiled; 0 none
constinit bool g_bCutAt = false;   // and valid

void AppendRaw(const char* pcLine, size_t dwLine) {
  syscall(SYS_write, g_fdTranscript, pcLine, dwLine);
}

// The fault "power-cut --at": true if this is the line.
bool CutsAt(const char* pcLine, size_t dwLine) {
  const u32 dwPattern = Word_Take(g_ptWorld->dwCutPatterns);
  if (dwPattern == 0) return false;
  if (dwPattern != g_dwCutPattern) {
    if (g_bCutAt) regfree(&g_tCutAt);
    World_Lock(g_ptWorld);
    g_bCutAt = g_ptWorld->szCutAt[0] != '\0' && regcomp(&g_tCutAt, g_ptWorld->szCutAt, REG_EXTENDED | REG_NOSUB) == 0;
    g_dwCutPattern = g_ptWorld->dwCutPatterns;
    World_Unlock(g_ptWorld);
  }
  if (!g_bCutAt) return false;
  char szLine[768];
  snprintf(szLine, sizeof szLine, "%.*s", static_cast<i32>(dwLine - 1), pcLine);
  return regexec(&g_tCutAt, szLine, 0, nullptr, 0) == 0;
}

// At this moment of the camera: no thread comes any further.
[[noreturn]] void CutPower() {
  World_Lock(g_ptWorld);
  g_ptWorld->szCutAt[0] = '\0';
  ++g_ptWorld->dwCutPatterns;
  World_Unlock(g_ptWorld);
  for (;;) syscall(SYS_kill, syscall(SYS_getpid), SIGKILL);
}

// One write a line: daemon and command line may append side by side.  An idle camera prints the same line again and
// again, as fast as the host can: repetitions are counted.
void Append(const char* pcLine, size_t dwLine) {
  constexpr size_t dwEvent = 14;  // behind the time
  const bool bCut = CutsAt(pcLine, dwLine);
  const bool bAgain = !bCut && dwLine > dwEvent && strstr(pcLine, " print ") != nullptr &&
                      strncmp(pcLine + dwEvent, g_szLast, dwLine - dwEvent) == 0 && g_szLast[dwLine - dwEvent] == '\0';
  if (bAgain) {
    ++g_dwRepeated;
    return;
  }
  if (g_dwRepeated > 0) {
    char szCount[64];
    memcpy(szCount, pcLine, dwEvent);
    const i32 iCount = snprintf(szCount + dwEvent, sizeof szCount - dwEvent, "-     again %u\n", g_dwRepeated);
    g_dwRepeated = 0;
    AppendRaw(szCount, dwEvent + static_cast<size_t>(iCount));
  }
  const size_t dwKept = dwLine - dwEvent < sizeof g_szLast ? dwLine - dwEvent : 0;
  memcpy(g_szLast, pcLine + dwEvent, dwKept);
  g_szLast[dwKept] = '\0';
  AppendRaw(pcLine, dwLine);
  if (bCut) CutPower();
}
}  // namespace

[[gnu::constructor]] static void Start() {
  const char* pszRoot = getenv("SIMCAMERA_ROOT");
  if (pszRoot == nullptr || strcmp(program_invocation_short_name, "vernierlensd") != 0) return;
  unsetenv("LD_PRELOAD");
  TWorld* ptWorld = World_Map(pszRoot);
  if (ptWorld == nullptr || Flash_Open(pszRoot) != 0) _exit(1);
  Hooks_SetRoot(pszRoot);
  setvbuf(stdout, nullptr, _IOLBF, 0);
  char szTranscript[sizeof g_szHooksRoot + 32];
  snprintf(szTranscript, sizeof szTranscript, "%s/sim/transcript", g_szHooksRoot);
  g_fdTranscript = open(szTranscript, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  if (Pace_Open(pszRoot, ptWorld) != 0) _exit(1);
  World_Lock(ptWorld);
  const u64 qwSeed = ptWorld->qwSeed * 31 + ++ptWorld->tPace.dwStarts;
  const u32 dwStart = ++ptWorld->dwDaemonStarts;
  World_Unlock(ptWorld);
  g_ptWorld = ptWorld;
  Transcript_Begin(&Append, false);
  Clock_Start({.qwSeed = qwSeed,
               .qwCutAtEvent = 0,
               .ptWorld = ptWorld,
               .ptTally = &g_tTally,
               .pfnTimeMoved = &Memory_ImageSide,
               .pvTimeMoved = ptWorld});
  Transcript_Fact("start %u", dwStart);
}

[[gnu::destructor]] static void End() {
  Transcript_Fact("daemon ends");
}
