// The preload library's start: the daemon's own binary on a simulated camera at a speed.  SIMCAMERA_ROOT names the
// camera. Passive in every other program, which inherits the preload on the way to the daemon.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "hooks/flash.h"
#include "hooks/hooks.h"

extern "C" void Simcamera_IsPreloaded();
void Simcamera_IsPreloaded() {}

[[gnu::constructor]] static void Start() {
  const char* pszRoot = getenv("SIMCAMERA_ROOT");
  if (pszRoot == nullptr || strcmp(program_invocation_short_name, "vernierlensd") != 0) return;
  unsetenv("LD_PRELOAD");
  TWorld* ptWorld = World_Map(pszRoot);
  if (ptWorld == nullptr || Flash_Open(pszRoot) != 0) _exit(1);
  Hooks_SetRoot(pszRoot);
  setvbuf(stdout, nullptr, _IOLBF, 0);
  Clock_StartAtASpeed(ptWorld);
  Transcript_Fact("daemon starts");
}

[[gnu::destructor]] static void End() {
  Transcript_Fact("daemon ends");
}
