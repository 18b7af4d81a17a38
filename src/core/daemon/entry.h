// The daemon from its command line to its exit status.
#pragma once

#include "core/types.h"

// Runs a whole life: options, signals, start-up, main loop, release.  Returns the exit status 0.  If the release fails,
// it ends the process with status 1 instead.  Called once in a process, on its first thread.
i32 VernierLensd_Main(i32 argc, char** argv);

// Enters daemon mode after the last option if -d was among them.  -v prints the version; -h and any other option print
// the usage.  These exit with 0 at once.
void VernierLensd_ParseOptions(i32 argc, char** argv);
void VernierLensd_ShowUsage();
void VernierLensd_ShowVersion();

// SIGTERM and SIGINT end the daemon; SIGPIPE only prints a line.
void VernierLensd_InstallSignals();
void VernierLensd_SignalHandler(i32 iSignal);
