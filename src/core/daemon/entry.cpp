#include "core/daemon/entry.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "core/context.h"
#include "core/daemon/log.h"
#include "core/daemon/main_loop.h"
#include "core/daemon/release.h"
#include "core/daemon/startup.h"
#include "core/daemon/status_file.h"

namespace {

constexpr const char* szUsage =
    "Vernier Lens daemon\nUsage:\nvernierlensd [-d][-v][-h]\nOptions:\n-d              Daemon mode\n"
    "-v              Show current version\n-h              This help";
constexpr const char* szVersion = "1.0.4.0";
constexpr const char* szLastModifyDate = "2018/06/10";

// For the signal handler, in which puts and printf are not safe.
void WriteLine(std::string_view sLine) {
  const int iSaved = errno;
  if (Log_WriteFromHandler(sLine) != 0 && errno == EPIPE) {
    // Nobody reads the log any more.  Each line written here would raise the next SIGPIPE, for ever.
    struct sigaction tIgnore = {};
    tIgnore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &tIgnore, nullptr);
  }
  errno = iSaved;
}

}  // namespace

i32 VernierLensd_Main(i32 argc, char** argv) {
  TVernierLensdInfo tInfo = {};
  Log_Open();
  VernierLensd_ParseOptions(argc, argv);
  VernierLensd_InstallSignals();
  if (VernierLensd_Init(&tInfo) != 0) {
    std::puts("[vernierlensd] : VernierLensd_Init failed.");
  } else if (VernierLensd_RestoreAutoFocus() != 0) {
    std::puts("[vernierlensd] : VernierLensd_RestoreAutoFocus failed.");
  } else {
    VernierLensd_MainLoop(&tInfo);
  }
  if (VernierLensd_Release(&tInfo) == 0) return 0;
  std::puts("[vernierlensd] : VernierLensd_Release failed.");
  // A motor thread may still use tInfo, so the process must end before this stack frame does.
  std::fflush(nullptr);
  _exit(1);
}

void VernierLensd_ParseOptions(i32 argc, char** argv) {
  bool bDaemon = false;
  for (int iOption = getopt(argc, argv, "dvh"); iOption != -1; iOption = getopt(argc, argv, "dvh")) {
    switch (iOption) {
      case 'd':
        bDaemon = true;
        break;
      case 'v':
        VernierLensd_ShowVersion();
        std::exit(0);
      default:
        VernierLensd_ShowUsage();
        std::exit(0);
    }
  }
  if (!bDaemon) return;
  std::puts("[vernierlensd] : Entering daemon mode...");
  if (daemon(0, 0) != 0) {
    // The daemon goes on in the foreground: the camera still needs its lens.
  }
  Log_Open();  // standard output is /dev/null from here on
}

void VernierLensd_ShowUsage() {
  std::puts(szUsage);
}

void VernierLensd_ShowVersion() {
  std::printf("VernierLensd Version: %s\n", szVersion);
  std::printf("Last Modify Date:     %s \n", szLastModifyDate);
  std::puts("Zoom, focus and ICS lenses, up to 4 channels");
}

void VernierLensd_InstallSignals() {
  struct sigaction tAction = {};
  tAction.sa_handler = VernierLensd_SignalHandler;
  sigemptyset(&tAction.sa_mask);
  tAction.sa_flags = SA_RESTART;
  for (const int iSignal : {SIGTERM, SIGINT, SIGPIPE}) sigaction(iSignal, &tAction, nullptr);
}

void VernierLensd_SignalHandler(i32 iSignal) {
  if (iSignal == SIGPIPE) {
    WriteLine("[vernierlensd] : Receive SIGPIPE!\n");
    return;
  }
  g_bTerminated = 1;
  WriteLine("[vernierlensd] : Receive TERM/INT signal!\n");
}
