// What the hooks share.  A hook has a name of its own and the C library's as its assembler label, which keeps clear of
// the clashes with headers (noexcept, fortified inlines, 64-bit twins).  Each is thin: is the call ours? then a point
// of the clock, the real call or its simulation, a line in the transcript.
//
// Calls are told ours by thread, path and descriptor, before anything else: what a sanitizer or a library does for
// itself makes no event, no draw and no line.
#pragma once

#include <stdarg.h>
#include <stdio.h>

#include "clock/clock.h"
#include "clock/inside.h"
#include "hooks/real.h"

// The caller is a task of the clock: the call is simulated.  A call of a thread that a library has made for itself
// passes through in a run.  In a life a thread that the clock does not know ends it, since its waits and wakes would
// pass the clock by.
bool Hooks_OnVirtualClock(const char* szCall);
// The call comes from the daemon or a library: its paths and devices are simulated.
bool Hooks_Active();
// A task's call is a point of the clock.
void Hooks_Point(const char* szCall);
// This call of a task is one of those that are to fail.  A line tells of it.
bool Hooks_Fails(const char* szCall);

// ROOT without a slash at its end; "" before the start.
extern constinit char g_szHooksRoot[256];
void Hooks_SetRoot(const char* szRoot);

// A path as the daemon names it, and where it lies.
struct TCameraPath {
  explicit TCameraPath(const char* pszPath);
  bool bOurs;
  char szReal[512];  // valid if bOurs
};

// What is known of the descriptors that came from camera paths.
enum EDescriptor : u32 { DESCRIPTOR_FOREIGN = 0, DESCRIPTOR_FILE, DESCRIPTOR_DEVICE, DESCRIPTOR_WATCHED };
struct TDescriptor {
  EDescriptor eKind;
  ELensDevice eDevice;        // DESCRIPTOR_DEVICE
  bool bWritten;              // opened for writing
  char szPath[96];            // as the daemon named it
  void (*pfnClosed)(i32 fd);  // DESCRIPTOR_WATCHED: after its close
  u32 dwSlave = 0;            // DEVICE_I2C: 7-bit address that I2C_SLAVE_FORCE chose
};
TDescriptor* Hooks_Descriptor(i32 fd);  // null if out of range
bool Hooks_IsPipe(i32 fd);              // a pipe, FIFO or socket: what a read may wait on

// A device node of the camera, or false.
bool Device_Find(const char* pszPath, ELensDevice* peDevice);
i32 Device_Open(ELensDevice eDevice, const char* pszPath, i32 iFlags);
i32 Device_Request(i32 fd, u32 dwRequest, i32 iArgument);

// The shared memory of that number where this process has it attached, or null.
u32* Memory_Block(i32 iNumber);

// Lets the image side look at each attached block of which it wants something, at the present time; pvWorld is the
// world.  For TClockPlan::pfnTimeMoved.
void Memory_ImageSide(void* pvWorld);

// Mutexes that the calling thread holds by pthread_mutex_lock.
i32 Hooks_HeldMutexes();

// Lines of the transcript, "time thread event".  Facts (driver request, file change, printed line) are recorded in
// lives and in runs, notes (sleep, readiness) in lives only.
[[gnu::format(printf, 1, 2)]] void Transcript_Fact(const char* szFormat, ...);
[[gnu::format(printf, 1, 2)]] void Transcript_Note(const char* szFormat, ...);
// Where the lines go: whole ones, each with its line end.  Start-up.
using FTranscriptSink = void (*)(const char* pcLine, size_t dwLine);
void Transcript_Begin(FTranscriptSink pfnSink, bool bNotes);
// Printed text: whole lines are recorded, the rest waits for its end.
void Transcript_Printed(const char* pcText, size_t iLength);
void Transcript_PrintTheRest();
// From now on standard output leads nowhere, as in daemon mode.
void Transcript_CloseOutput();

// Checks that each hooked name is bound to its hook; names the others on stderr.  0 or -1.
i32 Hooks_SelfTest();
