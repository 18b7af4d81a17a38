#include "explore/oracle.h"

#include <cstdio>

#include "clock/inside.h"
#include "explore/schedule.h"
#include "hooks/hooks.h"
#include "motor/axis.h"
#include "taskshim.h"

namespace {

// What has been seen of one axis's box.
struct TSeen {
  const TAxis* ptAxis;
  const char* szName;
  TMotorCommand tWritten = {};  // the command that was written last
  u32 dwNumber = 0;             // its number; higher is newer, for both axes together
  bool bTaken = false;
  bool bByZoom = false;       // focus: the zoom thread wrote it
  u32 dwRunning = 0;          // number of the command that the thread runs
  bool bHasFollowed = false;  // zoom: the focus has taken the follow-up of the running command
};
TSeen g_tZoom = {.ptAxis = &g_tZoomAxis, .szName = "zoom"};
TSeen g_tFocus = {.ptAxis = &g_tFocusAxis, .szName = "focus"};

TVernierLensdInfo* g_ptContext = nullptr;
u32 g_dwCommands = 0;                    // commands of clients, buttons and the daemon's start, so far
const TSeen* g_ptWrittenLast = nullptr;  // the box that the main thread has written last

template <typename... TArguments>
void Blame(const char* szFormat, TArguments... tArguments) {
  char szFault[160];
  std::snprintf(szFault, sizeof szFault, szFormat, tArguments...);
  Schedule_Blame(szFault);
}

// A wish does not move the lens.  Other commands may be written over it; whether it was fulfilled is judged at rest.
bool IsWish(u32 dwFunction) {
  return dwFunction == FUNCTION_IRISOPEN || dwFunction == FUNCTION_IRISENABLE || dwFunction == FUNCTION_SETFOCUSDEFAULT;
}

// True for the focus command of a pair that the main thread sends to both axes, the zoom first.
bool IsSecondHalf(const TSeen& tSeen, u32 dwFunction) {
  if (&tSeen != &g_tFocus || g_ptWrittenLast != &g_tZoom) return false;
  const u32 dwOther = g_tZoom.tWritten.dwFunction;
  const bool bSearch = dwFunction == FUNCTION_AUTO || dwFunction == FUNCTION_SCAN;
  const bool bBoth =
      dwFunction == FUNCTION_STOP || dwFunction == FUNCTION_POSITIONING || dwFunction == FUNCTION_MOTORRESET;
  return bSearch ? dwOther == FUNCTION_STOP : bBoth && dwOther == dwFunction;
}

// The axis whose motor thread is running.
TSeen& SeenOfTask() {
  const bool bFocus = g_ptContext->bSupportZoom == 0 || (g_ptContext->bSupportFocus != 0 && g_tSelf.iTask == 1);
  return bFocus ? g_tFocus : g_tZoom;
}

// A zoom that cannot be interrupted reaches its target in spite of a stop.  If the stop came before the focus began to
// follow, the focus follows once the zoom is there.  That follow-up counts as a part of the stop.
bool EndsStop(const TSeen& tCause, const TSeen& tSeen) {
  const bool bInterruptible = g_tVernierLensdConfigInfo.bBlockingMode == 0 && g_ptContext->bSupportICS == 0;
  return !bInterruptible && &tCause == &g_tZoom && &tSeen == &g_tFocus && !tCause.bHasFollowed && !tCause.bTaken &&
         tCause.tWritten.dwFunction == FUNCTION_STOP;
}

// Returns the number of a follow-up: that of the command from which it follows.
u32 JudgeFollowUp(const TSeen& tSeen, u32 dwFunction) {
  const TSeen& tCause = SeenOfTask();
  // While a button is held, each of its steps counts as a new command: only the release ends them.
  if (&tSeen == &g_tZoom && g_ptContext->tZoomCommand.bZoomContinuous != 0) return ++g_dwCommands;
  const u32 dwCause = EndsStop(tCause, tSeen) ? tCause.dwNumber : tCause.dwRunning;
  if (tSeen.dwNumber > dwCause) {
    Blame("%s thread writes %s function %u for an older command over a newer function %u, %s", tCause.szName,
          tSeen.szName, dwFunction, tSeen.tWritten.dwFunction, tSeen.bTaken ? "taken" : "waiting");
  }
  return dwCause;
}

u32 CountOfMain(const TSeen& tSeen, u32 dwFunction) {
  if (IsWish(dwFunction)) return tSeen.dwNumber;
  const u32 dwNumber = IsSecondHalf(tSeen, dwFunction) ? g_dwCommands : ++g_dwCommands;
  g_ptWrittenLast = &tSeen;
  return dwNumber;
}

void Written(TSeen& tSeen) {
  const TMotorCommand& tBlock = Axis_Command(g_ptContext, *tSeen.ptAxis);
  const bool bMain = g_tSelf.iTask == 0;
  tSeen.dwNumber = bMain ? CountOfMain(tSeen, tBlock.dwFunction) : JudgeFollowUp(tSeen, tBlock.dwFunction);
  tSeen.tWritten = tBlock;
  tSeen.bTaken = false;
  tSeen.bByZoom = !bMain && &SeenOfTask() == &g_tZoom;
  Transcript_Note("writes %s function %u, command %u", tSeen.szName, tBlock.dwFunction, tSeen.dwNumber);
}

void Taken(TSeen& tSeen) {
  const TMotorCommand& tBlock = Axis_Command(g_ptContext, *tSeen.ptAxis);
  const TMotorCommand& tWritten = tSeen.tWritten;
  Transcript_Note("takes %s function %u, command %u", tSeen.szName, tBlock.dwFunction, tSeen.dwNumber);
  if (tBlock.dwFunction != tWritten.dwFunction || tBlock.dwDirection != tWritten.dwDirection ||
      tBlock.dwSteps != tWritten.dwSteps || tBlock.dwPosition != tWritten.dwPosition) {
    Blame("%s thread takes function %u to %u where function %u to %u was written", tSeen.szName, tBlock.dwFunction,
          tBlock.dwPosition, tWritten.dwFunction, tWritten.dwPosition);
  }
  tSeen.bTaken = true;
  tSeen.dwRunning = tSeen.dwNumber;
  tSeen.bHasFollowed = false;
  if (&tSeen == &g_tFocus && tSeen.bByZoom) g_tZoom.bHasFollowed = true;
}

}  // namespace

extern "C" {
// The daemon calls this to start its motor threads (linker option --wrap).  It tells where the context is.
i32 __real_TaskShim_Initial(void** phTask, const TTaskShimOptions* ptOptions);
i32 __wrap_TaskShim_Initial(void** phTask, const TTaskShimOptions* ptOptions) {
  g_ptContext = static_cast<TVernierLensdInfo*>(ptOptions->pvArgument);
  return __real_TaskShim_Initial(phTask, ptOptions);
}
}

void Oracle_Stored(const volatile void* pvWord) {
  if (g_ptContext == nullptr || g_tSelf.iInside > 0) return;
  for (TSeen* ptSeen : {&g_tZoom, &g_tFocus}) {
    const u32& bWake = g_ptContext->*ptSeen->ptAxis->pbWake;
    if (pvWord != &bWake) continue;
    TInside tInside;
    if (bWake != 0)
      Written(*ptSeen);
    else
      Taken(*ptSeen);
  }
}

void Oracle_AtRest() {
  if (g_ptContext == nullptr) return Blame("the context was not seen");
  for (const TSeen* ptSeen : {&g_tZoom, &g_tFocus}) {
    const bool bSeen = ptSeen->dwNumber != 0 || ptSeen->bTaken;
    if (!bSeen || g_ptContext->*ptSeen->ptAxis->pbSupport == 0 || ptSeen->bTaken) continue;
    Blame("%s function %u was never taken", ptSeen->szName, ptSeen->tWritten.dwFunction);
  }
}
