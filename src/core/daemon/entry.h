// The daemon from its command line to its exit status.
#pragma once

#include "core/types.h"

// A whole life: options, signals, start-up, main loop, release.  Returns the exit status: 0, or 1 when the release
// failed. Called once in a process, on its first thread.
i32 VernierLensd_Main(i32 argc, char** argv);

// -d is remembered, and daemon mode entered once the options are used up; -v and -h, or any other option, print their
// text and exit with 0 at once.
void VernierLensd_ParseOptions(i32 argc, char** argv);
void VernierLensd_ShowUsage();
void VernierLensd_ShowVersion();

// SIGTERM and SIGINT end the daemon, SIGPIPE costs a line.
void VernierLensd_InstallSignals();
void VernierLensd_SignalHandler(i32 iSignal);
