#include "explore/schedule.h"

#include <sys/mman.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "clock/tasks.h"
#include "hooks/hooks.h"
#include "support.h"

namespace {

constexpr u32 dwMaxPoints = 1 << 17;

// The record of one life.  The life's process writes it, its parent reads it.
struct TRecord {
  u32 dwPoints;
  u32 dwTaken;  // deviations made so far
  bool bFull;
  char szFault[200];
  TPoint atPoints[dwMaxPoints];
};

TRecord* g_ptRecord = nullptr;
const TSchedule* g_ptSchedule = nullptr;
u64 g_qwStart_us = 0;
std::size_t g_dwArrived = 0;
bool g_bWhole = false;

TRecord& Record() {
  if (g_ptRecord == nullptr) {
    void* pv = mmap(nullptr, sizeof(TRecord), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (pv == MAP_FAILED) std::abort();
    g_ptRecord = static_cast<TRecord*>(pv);
  }
  return *g_ptRecord;
}

u64 LifeTime_us() {
  return Clock_Now_us() - g_qwStart_us;
}

bool IsInWindow() {
  return LifeTime_us() >= g_ptSchedule->qwOpens_us && LifeTime_us() < g_ptSchedule->qwCloses_us;
}

bool MainWaitsForInput() {
  return g_atTasks[0].eState == TASK_WAITING && g_atTasks[0].tWait.pfnReady != nullptr;
}

bool MayArrive(EPoint ePoint) {
  if (g_dwArrived >= g_ptSchedule->atArrivals.size()) return false;
  switch (g_ptSchedule->atArrivals[g_dwArrived].eSeenBy) {
    case SEEN_BY_SELECT:
      return MainWaitsForInput();
    case SEEN_BY_ANYONE:
      return true;
    case SEEN_BY_CLOCK:
      return ePoint == POINT_IDLE;
  }
  return false;
}

// Notes the point.  Returns the deviation to make there, or null.
const TDeviation* Note(EPoint ePoint, u32 dwReady, u64 qwWord, u64 qwPlace, bool bWrite) {
  TRecord& tRecord = *g_ptRecord;
  if (tRecord.dwPoints >= dwMaxPoints) {
    tRecord.bFull = true;
    return nullptr;
  }
  const u32 dwPoint = tRecord.dwPoints++;
  tRecord.atPoints[dwPoint] = {.qwWord = qwWord,
                               .qwPlace = qwPlace,
                               .qwTime_us = LifeTime_us(),
                               .wReady = static_cast<std::uint16_t>(dwReady),
                               .byTask = static_cast<u8>(g_tSelf.iTask),
                               .ePoint = ePoint,
                               .bWrite = bWrite,
                               .bMayArrive = MayArrive(ePoint)};
  const auto& atDeviations = g_ptSchedule->atDeviations;
  const bool bWanted = tRecord.dwTaken < atDeviations.size() && atDeviations[tRecord.dwTaken].dwPoint == dwPoint;
  return bWanted ? &atDeviations[tRecord.dwTaken++] : nullptr;
}

// Lets the next arrival come.  The latest time of the one after it counts from now.
void Arrive(void*) {
  const TArrival& tArrival = g_ptSchedule->atArrivals[g_dwArrived++];
  tArrival.fnHappen(Clock_World());
  if (g_dwArrived == g_ptSchedule->atArrivals.size()) return;
  const auto AtTheLatest = [](void* pv) {
    if (g_dwArrived == reinterpret_cast<std::size_t>(pv)) Arrive(nullptr);
  };
  Clock_At(Clock_Now_us() + g_ptSchedule->atArrivals[g_dwArrived].qwLatest_us, AtTheLatest,
           reinterpret_cast<void*>(g_dwArrived));
}

void ArriveHere() {
  Transcript_Note("arrives here");
  Clock_RunNow(&Arrive, nullptr);
}

bool NeverGivesWay() {
  return false;  // the points of access make threads give way instead
}

i32 NextTask(u32 dwReady) {
  const i32 iLowest = dwReady == 0 ? iNobody : std::countr_zero(dwReady);
  if (!IsInWindow()) return iLowest;
  if (dwReady == 0) {
    if (!MayArrive(POINT_IDLE)) return iNobody;
    u64 qwPlace = 0;
    for (const TTask& tTask : g_atTasks) {
      if (tTask.eState == TASK_WAITING) qwPlace = qwPlace * 31 + reinterpret_cast<u64>(tTask.szCall);
    }
    if (Note(POINT_IDLE, 0, 0, qwPlace, false) == nullptr) return iNobody;
    ArriveHere();
    return 0;
  }
  if (std::has_single_bit(dwReady)) return iLowest;
  const TDeviation* ptDeviation = Note(POINT_ORDER, dwReady, 0, 0, false);
  return ptDeviation != nullptr ? static_cast<i32>(ptDeviation->dwArgument) : iLowest;
}

u64 Overrun_us(u64) {
  const char* szCall = Task_Self().szCall;
  if (!IsInWindow() || szCall == nullptr || std::strstr(szCall, "sleep") == nullptr) return 0;
  const TDeviation* ptDeviation = Note(POINT_SLEEP, 0, 0, 0, false);
  return ptDeviation != nullptr ? ptDeviation->dwArgument : 0;
}

}  // namespace

TLifeResult Schedule_Live(const TSchedule& tSchedule, TLifePlan tPlan) {
  TRecord& tRecord = Record();
  tRecord.dwPoints = tRecord.dwTaken = 0;
  tRecord.bFull = false;
  tRecord.szFault[0] = 0;
  g_ptSchedule = &tSchedule;
  g_dwArrived = 0;
  if (!tSchedule.atArrivals.empty()) {
    tPlan.atEvents.push_back({.qwAt_us = tSchedule.qwOpens_us + tSchedule.atArrivals[0].qwLatest_us,
                              .eKind = TLifeEvent::CALL,
                              .fnCall = [](TWorld*) {
                                if (g_dwArrived == 0) Arrive(nullptr);
                              }});
  }
  g_qwStart_us = NextStart_us(tPlan.sRoot);
  Clock_SetChoices({.pfnGivesWay = &NeverGivesWay, .pfnNext = &NextTask, .pfnOverrun_us = &Overrun_us});
  TLifeResult tResult = Life_Run(tPlan);
  g_bWhole = !tRecord.bFull && tRecord.dwTaken == tSchedule.atDeviations.size();
  g_ptSchedule = nullptr;
  return tResult;
}

std::span<const TPoint> Schedule_Points() {
  return {g_ptRecord->atPoints, g_ptRecord->dwPoints};
}

bool Schedule_IsWhole() {
  return g_bWhole;
}

std::string Schedule_Fault() {
  return g_ptRecord->szFault;
}

void Schedule_Access(const volatile void* pvWord, bool bWrite, const void* pvPlace) {
  if (!g_bClockRuns || g_tSelf.iInside > 0 || g_tSelf.eKind != THREAD_TASK || !IsInWindow()) return;
  TInside tInside;
  const u32 dwReady = Clock_ReadyTasks();
  const TDeviation* ptDeviation =
      Note(POINT_ACCESS, dwReady, reinterpret_cast<u64>(pvWord), reinterpret_cast<u64>(pvPlace), bWrite);
  if (ptDeviation == nullptr) return;
  i32 iNext = static_cast<i32>(ptDeviation->dwArgument);
  if (ptDeviation->eDeviation == DEVIATION_ARRIVAL) {
    ArriveHere();
    iNext = 0;
  }
  if (iNext == g_tSelf.iTask || (Clock_ReadyTasks() >> iNext & 1) == 0) {
    Task_RunHandlers(Task_Self());
    return;
  }
  Transcript_Note("hands over here to task %d", iNext);
  Clock_GiveWayTo(iNext);
}

void Schedule_Blame(const char* szFault) {
  Transcript_Note("FAULT %s", szFault);
  if (g_ptRecord->szFault[0] == 0) std::snprintf(g_ptRecord->szFault, sizeof g_ptRecord->szFault, "%s", szFault);
}
