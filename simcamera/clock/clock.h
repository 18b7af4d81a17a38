// The virtual clock: a scheduler that lets one thread of a life run at a time.  Each thread is a task; who holds the
// token runs.  A task gives way where it waits, and by draw at every hooked call.  When all tasks wait, the clock jumps
// to the next deadline or scripted event.  Nothing here is drawn but from the one seed, so the same seed gives the same
// life.  A program that explores schedules puts its own choices in the place of these draws.  In a run (simcamera run)
// the same clock is held to the host's: see pace.h.
//
// All functions: any task that holds the token, unless told otherwise.  Times are microseconds of the camera's clock.
#pragma once

#include <poll.h>
#include <signal.h>

#include "world/world.h"

extern constinit bool g_bPaced;  // the clock is held to the host's: this is the daemon of a run
extern constinit bool
    g_bClockRuns;  // set at the start of a life or of a run's daemon, and cleared at the end of a life

enum EWaitEnd : u32 { WAIT_WOKEN, WAIT_TIMED_OUT, WAIT_INTERRUPTED };
// What a signal whose handler has run does to a wait.
enum EInterrupt : u32 { INTERRUPT_NEVER, INTERRUPT_UNLESS_RESTART, INTERRUPT_ALWAYS };

constexpr u64 qwNever_us = ~u64{0};
constexpr i32 iMaxTasks = 16;

// How a life ended, as the life itself tells it; 0 while it runs and after an orderly exit.
enum EClockEnd : u32 { CLOCK_END_NONE = 0, CLOCK_END_CUT, CLOCK_END_DEADLOCK, CLOCK_END_STOOD_STILL, CLOCK_END_ERROR };

// What the clock tells of a life or run: memory that outlives the process, where the parent reads it.
struct TClockTally {
  u32 eEnd;
  u64 qwEvents;
  u64 qwTime_us;       // since the start
  char szHolder[16];   // task with the token
  const char* szCall;  // its last hooked call; a literal of the program, so good in the parent too
};

struct TClockPlan {
  u64 qwSeed;
  u64 qwCutAtEvent;  // 0 never
  TWorld* ptWorld;
  TClockTally* ptTally;
  void (*pfnTimeMoved)(void* pv);  // runs each time the clock has jumped, before a task runs; null: nothing
  void* pvTimeMoved;
};

// Start-up: the calling thread becomes task 0, "main", and holds the token.
void Clock_Start(const TClockPlan& tPlan);

u64 Clock_Now_us();
u64 Clock_Wall_us();  // since 1970
u64 Clock_Events();   // hooked calls since the start
TWorld* Clock_World();

// What a life leaves open.  All three run on the task that holds the token.
constexpr i32 iNobody = -1;
struct TClockChoices {
  bool (*pfnGivesWay)();        // at a hooked call: true lets the other tasks go on
  i32 (*pfnNext)(u32 dwReady);  // which of the tasks goes on whose bits are set.  0: all of them wait; iNobody then
                                // lets the time move on, any other value looks at the tasks again
  u64 (*pfnOverrun_us)(u64 qwDuration_us);  // how much longer a sleep or time-out of that length takes
};
// Before the life.  Without it, all three are drawn.
void Clock_SetChoices(const TClockChoices& tChoices);

// For such choices.  The tasks that could go on now, by bits; hands the token to one of them, and comes back with it.
u32 Clock_ReadyTasks();
void Clock_GiveWayTo(i32 iTask);
// Runs pfn as Clock_At does, at this moment.
void Clock_RunNow(void (*pfn)(void* pv), void* pv);

// A value below dwBelow, from the seed.
u32 Clock_Draw(u32 dwBelow);
// The end of a sleep or time-out: sleeps overrun, by a drawn time.
u64 Clock_Deadline(u64 qwDuration_us);

// A hooked call begins: counts an event, cuts the power at the event wanted, runs pending signal handlers and lets
// another task go on in one of four cases.  szCall is a literal.
void Clock_Point(const char* szCall);

struct TClockWait {
  const void* pvKey = nullptr;  // what Clock_Wake names
  u64 qwUntil_us = qwNever_us;
  EInterrupt eInterrupt = INTERRUPT_NEVER;
  bool (*pfnReady)(void* pv) = nullptr;  // descriptors: true if they are ready; asked when descriptors may have changed
  void* pvReady = nullptr;
  i32 (*pfnFds)(void* pv, pollfd* ptFds, i32 iRoom) = nullptr;  // the same as a list, for a real poll: how many
};
// Gives way until woken.  May also come back as woken for no reason: callers look at what they wait for again.
EWaitEnd Clock_Wait(const TClockWait& tWait);

void Clock_Wake(const void* pvKey);     // every task that waits for the key
void Clock_WakeOne(const void* pvKey);  // one of them, drawn

// Something was written to, read from or done to a descriptor that a task may wait on.
void Clock_DescriptorsChanged();

// Something from outside has been handed to the calling task.  In a run a flood of it sleeps a little now and then.
void Clock_HandedIn();

// Runs pfn at the given time on whichever task looks for the next one; hooks pass through in it.
void Clock_At(u64 qwAt_us, void (*pfn)(void* pv), void* pv);
bool Clock_RunsScript();  // within such a call

// Tasks.  Clock_NewTask reserves one (-1: table full); the new thread calls Clock_EnterTask, which parks it until its
// first turn, and Clock_LeaveTask at its end, which hands the token on and comes back.
i32 Clock_NewTask();
void Clock_ForgetTask(i32 iTask);
void Clock_TaskMade(i32 iTask, unsigned long qwThread);
void Clock_EnterTask(i32 iTask);
void Clock_LeaveTask();
i32 Clock_TaskOf(unsigned long qwThread);  // -1: none
bool Clock_IsTask(i32 iThread);            // by the kernel's number
bool Clock_TaskEnded(i32 iTask);
const void* Clock_TaskKey(i32 iTask);
void Clock_NameTask(const char* szName);  // the calling one; at most 7 characters
const char* Clock_TaskName();

// Signals as a life sees them.  Handlers run on a task that has not blocked the signal, the main one first, and only
// while it holds the token.
i32 Clock_SetAction(i32 iSignal, const struct sigaction* ptNew, struct sigaction* ptOld);
i32 Clock_SetMask(i32 iHow, const sigset_t* ptNew, sigset_t* ptOld);
void Clock_Signal(i32 iSignal);      // to the process
void Clock_SignalSelf(i32 iSignal);  // to the calling task, handled at once

// Ends the life on the spot with a line on stderr: no destructor, no flush.
[[noreturn]] void Clock_End(EClockEnd eEnd, const char* szWhy);
