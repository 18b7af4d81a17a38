#include "clock/clock.h"

#include <linux/futex.h>
#include <stdio.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <bit>
#include <vector>

#include "clock/pace.h"
#include "clock/tasks.h"
#include "world/draw.h"

namespace {

constexpr u32 dwYieldOneIn = 4;
constexpr u32 dwMaxOversleep_us = 200;
constexpr u32 dwMaxStill = 10'000;  // events with the clock standing still, then the life is taken to spin

struct TScripted {
  u64 qwAt_us;
  void (*pfn)(void* pv);
  void* pv;
};

constinit TClockPlan g_tPlan{};
constinit u64 g_qwNow_us = 0;
constinit u64 g_qwStart_us = 0;
constinit u64 g_qwDraw = 0;
constinit u32 g_dwStill = 0;
constinit bool g_bDescriptorsChanged = false;
constexpr u64 qwFloodSleep_us = 100;
constinit bool g_bRunsScript = false;
constinit std::vector<TScripted>* g_patScript = nullptr;  // latest first

bool DrawGivesWay() {
  return Clock_Draw(dwYieldOneIn) == 0;
}

i32 DrawNext(u32 dwReady) {
  const u32 dwTasks = static_cast<u32>(std::popcount(dwReady));
  if (dwTasks == 0) return iNobody;
  for (u32 dwBehind = dwTasks > 1 ? Clock_Draw(dwTasks) : 0; dwBehind > 0; --dwBehind) dwReady &= dwReady - 1;
  return std::countr_zero(dwReady);
}

u64 DrawOverrun_us(u64) {
  return Clock_Draw(dwMaxOversleep_us + 1);
}

constinit TClockChoices g_tChoices{
    .pfnGivesWay = &DrawGivesWay, .pfnNext = &DrawNext, .pfnOverrun_us = &DrawOverrun_us};
}  // namespace

constinit TTask g_atTasks[iMaxTasks]{};

static void SwitchFrom(TTask& tSelf);
static TTask& Pick(const TTask* ptSelf);
static TTask* DescriptorWaiter(const TTask* ptSelf);
static u32 ReadyTasks();
static void RunScript();
static void PollDescriptors();
static u64 NextDeadline_us();
static u64 PacedTo_us(u64 qwNext_us);
static void JumpToNextDeadline();
static void HandOver(TTask& tTask);
static void Park(TTask& tTask);
static void CountStill();
[[noreturn]] static void Deadlock();

void Clock_Start(const TClockPlan& tPlan) {
  g_tPlan = tPlan;
  g_qwDraw = tPlan.qwSeed;
  g_qwNow_us = g_qwStart_us = tPlan.ptWorld->qwBase_us;
  if (g_patScript == nullptr) g_patScript = new std::vector<TScripted>;
  TTask& tMain = g_atTasks[0];
  tMain.eState = TASK_RUNNING;
  tMain.qwThread = pthread_self();
  tMain.iThread = static_cast<i32>(syscall(SYS_gettid));
  strcpy(tMain.szName, "main");
  sigemptyset(&tMain.tMask);
  g_tSelf.iTask = 0;
  g_tSelf.eKind = THREAD_TASK;
  g_bClockRuns = true;
}

void Clock_SetChoices(const TClockChoices& tChoices) {
  g_tChoices = tChoices;
}

u64 Clock_Now_us() {
  return g_qwNow_us;
}
u64 Clock_Events() {
  return g_tPlan.ptTally->qwEvents;
}
u64 Clock_Wall_us() {
  return g_tPlan.ptWorld->qwWallAtZero_us + Clock_Now_us();
}
TWorld* Clock_World() {
  return g_tPlan.ptWorld;
}

u32 Clock_Draw(u32 dwBelow) {
  return Draw_Below(g_qwDraw, dwBelow);
}

u64 Clock_Deadline(u64 qwDuration_us) {
  return g_qwNow_us + qwDuration_us + g_tChoices.pfnOverrun_us(qwDuration_us);
}

void Clock_Point(const char* szCall) {
  TInside tInside;
  TTask& tSelf = Task_Self();
  tSelf.szCall = szCall;
  TClockTally& tTally = *g_tPlan.ptTally;
  ++tTally.qwEvents;
  tTally.qwTime_us = g_qwNow_us - g_qwStart_us;
  tTally.szCall = szCall;
  if (tTally.qwEvents == g_tPlan.qwCutAtEvent) {
    World_PowerCut(g_tPlan.ptWorld, g_qwNow_us);
    Clock_End(CLOCK_END_CUT, nullptr);
  }
  CountStill();
  if (g_tChoices.pfnGivesWay()) {
    tSelf.eState = TASK_READY;
    SwitchFrom(tSelf);
  }
  Task_RunHandlers(tSelf);
}

EWaitEnd Clock_Wait(const TClockWait& tWait) {
  TInside tInside;
  TTask& tSelf = Task_Self();
  tSelf.tWait = tWait;
  tSelf.eState = TASK_WAITING;
  SwitchFrom(tSelf);
  tSelf.tWait = {};
  const EWaitEnd eWaitEnd = tSelf.eWaitEnd;
  const bool bCutShort = Task_RunHandlers(tSelf);
  if (eWaitEnd != WAIT_INTERRUPTED) return eWaitEnd;
  if (tWait.eInterrupt == INTERRUPT_ALWAYS || (tWait.eInterrupt == INTERRUPT_UNLESS_RESTART && bCutShort)) {
    return WAIT_INTERRUPTED;
  }
  return WAIT_WOKEN;
}

void Clock_HandedIn() {
  if (!Pace_IsOn()) return;
  TInside tInside;
  g_dwStill = 0;  // a client may ask at one time as often as it likes while the clock is held
  if (!Pace_TakesMore(g_qwNow_us)) Clock_Wait({.qwUntil_us = Clock_Deadline(qwFloodSleep_us)});
}

void Clock_Wake(const void* pvKey) {
  for (TTask& tTask : g_atTasks) {
    if (tTask.eState == TASK_WAITING && tTask.tWait.pvKey == pvKey) Task_MakeReady(tTask, WAIT_WOKEN);
  }
}

void Clock_WakeOne(const void* pvKey) {
  TTask* aptWaiting[iMaxTasks];
  u32 dwWaiting = 0;
  for (TTask& tTask : g_atTasks) {
    if (tTask.eState == TASK_WAITING && tTask.tWait.pvKey == pvKey) aptWaiting[dwWaiting++] = &tTask;
  }
  if (dwWaiting > 0) Task_MakeReady(*aptWaiting[dwWaiting > 1 ? Clock_Draw(dwWaiting) : 0], WAIT_WOKEN);
}

void Clock_DescriptorsChanged() {
  g_bDescriptorsChanged = true;
}

void Clock_At(u64 qwAt_us, void (*pfn)(void* pv), void* pv) {
  TInside tInside;
  if (g_patScript == nullptr) g_patScript = new std::vector<TScripted>;
  auto it = g_patScript->begin();
  while (it != g_patScript->end() && it->qwAt_us > qwAt_us) ++it;
  g_patScript->insert(it, TScripted{.qwAt_us = qwAt_us, .pfn = pfn, .pv = pv});
}

bool Clock_RunsScript() {
  return g_bRunsScript;
}

i32 Clock_NewTask() {
  TInside tInside;
  for (i32 iTask = 0; iTask < iMaxTasks; ++iTask) {
    TTask& tTask = g_atTasks[iTask];
    if (tTask.eState != TASK_FREE) continue;
    tTask.dwToken.store(0, std::memory_order_relaxed);
    tTask.eState = TASK_READY;
    tTask.eWaitEnd = WAIT_WOKEN;
    tTask.tWait = {};
    tTask.qwPending = 0;
    tTask.tMask = Task_Self().tMask;
    tTask.qwThread = 0;
    tTask.iThread = 0;
    tTask.szCall = "start";
    snprintf(tTask.szName, sizeof tTask.szName, "t%d", iTask);
    return iTask;
  }
  return -1;
}

void Clock_ForgetTask(i32 iTask) {
  g_atTasks[iTask].eState = TASK_FREE;
}

void Clock_TaskMade(i32 iTask, unsigned long qwThread) {
  g_atTasks[iTask].qwThread = qwThread;
}

void Clock_EnterTask(i32 iTask) {
  g_tSelf.iTask = iTask;
  g_atTasks[iTask].iThread = static_cast<i32>(syscall(SYS_gettid));
  Park(g_atTasks[iTask]);
  g_tSelf.eKind = THREAD_TASK;
}

void Clock_LeaveTask() {
  TInside tInside;
  TTask& tSelf = Task_Self();
  tSelf.eState = TASK_ENDED;
  Clock_Wake(Clock_TaskKey(g_tSelf.iTask));
  TTask& tNext = Pick(&tSelf);
  g_tSelf.eKind = THREAD_ENDED;
  HandOver(tNext);
}

i32 Clock_TaskOf(unsigned long qwThread) {
  for (i32 iTask = 0; iTask < iMaxTasks; ++iTask) {
    if (g_atTasks[iTask].eState != TASK_FREE && g_atTasks[iTask].qwThread == qwThread) return iTask;
  }
  return -1;
}

bool Clock_IsTask(i32 iThread) {
  for (const TTask& tTask : g_atTasks) {
    if (tTask.eState != TASK_FREE && tTask.iThread == iThread) return true;
  }
  return false;
}

bool Clock_TaskEnded(i32 iTask) {
  return g_atTasks[iTask].eState == TASK_ENDED;
}
const void* Clock_TaskKey(i32 iTask) {
  return &g_atTasks[iTask];
}

void Clock_NameTask(const char* szName) {
  TInside tInside;
  snprintf(Task_Self().szName, sizeof Task_Self().szName, "%s", szName);
}

const char* Clock_TaskName() {
  return Task_Self().szName;
}

// Picks who goes on, and gives it the token unless it is the caller.
static void SwitchFrom(TTask& tSelf) {
  do {
    TTask& tNext = Pick(&tSelf);
    if (&tNext == &tSelf) {
      tSelf.eState = TASK_RUNNING;
      return;
    }
    HandOver(tNext);
    Park(tSelf);
  } while (tSelf.eState != TASK_RUNNING);  // else it only has to look for the next one
}

// Who is to do a long wait of the pace: a task that waits on descriptors.
static TTask* DescriptorWaiter(const TTask* ptSelf) {
  for (TTask& tTask : g_atTasks) {
    const bool bWaits = tTask.eState == TASK_WAITING && tTask.tWait.pfnFds != nullptr;
    if (bWaits) return &tTask == ptSelf ? nullptr : &tTask;
  }
  return nullptr;
}

static TTask& Pick(const TTask* ptSelf) {
  for (;;) {
    RunScript();
    PollDescriptors();
    const u32 dwReady = ReadyTasks();
    const i32 iNext = g_tChoices.pfnNext(dwReady);
    if (dwReady > 0) return g_atTasks[iNext];
    if (iNext != iNobody) continue;
    TTask* ptWaiter = Pace_IsOn() && Pace_IsLong(g_qwNow_us, NextDeadline_us()) ? DescriptorWaiter(ptSelf) : nullptr;
    if (ptWaiter != nullptr) return *ptWaiter;
    JumpToNextDeadline();
  }
}

static u32 ReadyTasks() {
  u32 dwReady = 0;
  for (i32 iTask = 0; iTask < iMaxTasks; ++iTask) {
    if (g_atTasks[iTask].eState == TASK_READY) dwReady |= u32{1} << iTask;
  }
  return dwReady;
}

u32 Clock_ReadyTasks() {
  PollDescriptors();
  return ReadyTasks();
}

void Clock_GiveWayTo(i32 iTask) {
  TTask& tSelf = Task_Self();
  tSelf.eState = TASK_READY;
  HandOver(g_atTasks[iTask]);
  Park(tSelf);
  Task_RunHandlers(tSelf);
}

static void RunScript() {
  while (!g_patScript->empty() && g_patScript->back().qwAt_us <= g_qwNow_us) {
    const TScripted tScripted = g_patScript->back();
    g_patScript->pop_back();
    Clock_RunNow(tScripted.pfn, tScripted.pv);
  }
}

void Clock_RunNow(void (*pfn)(void* pv), void* pv) {
  g_bDescriptorsChanged = true;
  g_bRunsScript = true;
  pfn(pv);
  g_bRunsScript = false;
}

static void PollDescriptors() {
  if (!g_bDescriptorsChanged) return;
  g_bDescriptorsChanged = false;
  for (TTask& tTask : g_atTasks) {
    if (tTask.eState != TASK_WAITING || tTask.tWait.pfnReady == nullptr) continue;
    if (tTask.tWait.pfnReady(tTask.tWait.pvReady)) Task_MakeReady(tTask, WAIT_WOKEN);
  }
}

static u64 NextDeadline_us() {
  u64 qwNext_us = g_patScript->empty() ? qwNever_us : g_patScript->back().qwAt_us;
  for (const TTask& tTask : g_atTasks) {
    if (tTask.eState == TASK_WAITING && tTask.tWait.qwUntil_us < qwNext_us) qwNext_us = tTask.tWait.qwUntil_us;
  }
  return qwNext_us;
}

// How far the pace lets the clock go on: to the deadline, or to where something has come in.
static u64 PacedTo_us(u64 qwNext_us) {
  TPolled tTasks{};
  for (const TTask& tTask : g_atTasks) {
    if (tTask.eState != TASK_WAITING || tTask.tWait.pfnFds == nullptr) continue;
    tTasks.iCount += tTask.tWait.pfnFds(tTask.tWait.pvReady, tTasks.atFds + tTasks.iCount, iMaxPolled - tTasks.iCount);
  }
  if (qwNext_us == qwNever_us && tTasks.iCount == 0) Deadlock();
  g_dwStill = 0;
  const u64 qwReached_us = Pace_Wait(g_qwNow_us, qwNext_us, tTasks);
  if (qwReached_us < qwNext_us) g_bDescriptorsChanged = true;
  return qwReached_us;
}

static void JumpToNextDeadline() {
  u64 qwNext_us = NextDeadline_us();
  if (Pace_IsOn()) {
    qwNext_us = PacedTo_us(qwNext_us);
  } else if (qwNext_us != qwNever_us && qwNext_us > g_qwNow_us) {
    g_tPlan.ptWorld->qwBase_us = qwNext_us;
  }
  if (qwNext_us == qwNever_us) Deadlock();
  if (qwNext_us > g_qwNow_us) {
    g_qwNow_us = qwNext_us;
    g_dwStill = 0;
    g_tPlan.ptTally->qwTime_us = g_qwNow_us - g_qwStart_us;
    if (g_tPlan.pfnTimeMoved != nullptr) g_tPlan.pfnTimeMoved(g_tPlan.pvTimeMoved);
  }
  for (TTask& tTask : g_atTasks) {
    if (tTask.eState == TASK_WAITING && tTask.tWait.qwUntil_us <= g_qwNow_us) Task_MakeReady(tTask, WAIT_TIMED_OUT);
  }
}

static void HandOver(TTask& tTask) {
  if (tTask.eState == TASK_READY) tTask.eState = TASK_RUNNING;  // else it waits, and is to look for the next one
  memcpy(g_tPlan.ptTally->szHolder, tTask.szName, sizeof tTask.szName);
  tTask.dwToken.store(1, std::memory_order_release);
  syscall(SYS_futex, &tTask.dwToken, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

static void Park(TTask& tTask) {
  while (tTask.dwToken.load(std::memory_order_acquire) == 0) {
    syscall(SYS_futex, &tTask.dwToken, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
  }
  tTask.dwToken.store(0, std::memory_order_relaxed);
}

static void CountStill() {
  if (++g_dwStill <= dwMaxStill) return;
  char szWhy[96];
  snprintf(szWhy, sizeof szWhy, "the clock stands still: 10000 events at one time, the token is with %s",
           Task_Self().szName);
  Clock_End(CLOCK_END_STOOD_STILL, szWhy);
}

static void Deadlock() {
  char szWhy[512] = "deadlock:";
  size_t iLength = strlen(szWhy);
  for (const TTask& tTask : g_atTasks) {
    if (tTask.eState != TASK_WAITING || iLength >= sizeof szWhy - 1) continue;
    iLength += static_cast<size_t>(
        snprintf(szWhy + iLength, sizeof szWhy - iLength, " %s waits in %s;", tTask.szName, tTask.szCall));
  }
  Clock_End(CLOCK_END_DEADLOCK, szWhy);
}

void Clock_End(EClockEnd eEnd, const char* szWhy) {
  TInside tInside;
  if (g_tPlan.ptTally != nullptr) {
    g_tPlan.ptTally->eEnd = eEnd;
    g_tPlan.ptTally->qwTime_us = g_qwNow_us - g_qwStart_us;
  }
  if (szWhy != nullptr) {
    char szLine[640];
    const i32 iLength = snprintf(szLine, sizeof szLine, "simcamera: %s\n", szWhy);
    syscall(SYS_write, 2, szLine, static_cast<size_t>(iLength));
  }
  syscall(SYS_exit_group, 1);
  __builtin_unreachable();
}
