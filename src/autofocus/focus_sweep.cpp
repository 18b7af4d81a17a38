#include "autofocus/focus_sweep.h"

#include <algorithm>
#include <cstdio>

#include "autofocus/focus_block.h"
#include "core/wait.h"
#include "motor/axis_move.h"

namespace {

constexpr u64 qwFirstStatistics_us = 1'000'000;

struct TSweep {
  u32 dwStart;
  u32 dwRange;
  u32 dwStep;
  u32 dwBest;      // highest value so far
  u32 dwBestStep;  // distance of that value from dwStart
  u32 dwOffset;    // distance of the present position from dwStart
};

i32 ReadStart(TVernierLensdInfo* pThis, i32 fd, TSweep* ptSweep);
i32 StepThrough(TVernierLensdInfo* pThis, i32 fd, TSweep* ptSweep);
i32 StepOnce(TVernierLensdInfo* pThis, i32 fd, const TSweep& tSweep);
void StepICS(i32 fd, u32 dwTarget);
void TakeReading(TVernierLensdInfo* pThis, TSweep* ptSweep);
void StoreInTable(i32 iChannel, u32 dwOffset, u32 dwValue);
i32 GoToBest(TVernierLensdInfo* pThis, i32 fd, const TSweep& tSweep);
bool IsInterrupted(const TVernierLensdInfo* pThis);
u32 FocusValue(const TVernierLensdInfo* pThis);

}  // namespace

i32 VernierLensd_FocusSweep(TVernierLensdInfo* pThis, i32 fd, u32 dwStart, u32 dwRange, u32 dwStep) {
  if (pThis->bSupportFocus == 0 || Daemon_IsEnding()) return -1;
  TSweep tSweep = {.dwStart = dwStart,
                   .dwRange = dwRange,
                   .dwStep = std::max(dwStep, 1U),
                   .dwBest = 0,
                   .dwBestStep = 0,
                   .dwOffset = 0};
  const bool bDone =
      ReadStart(pThis, fd, &tSweep) == 0 && StepThrough(pThis, fd, &tSweep) == 0 && GoToBest(pThis, fd, tSweep) == 0;
  VernierLensd_SetFocusValueWanted(pThis, 0);
  return bDone ? 0 : -1;
}

namespace {

i32 ReadStart(TVernierLensdInfo* pThis, i32 fd, TSweep* ptSweep) {
  if (VernierLensd_MoveFocus(pThis, fd, ptSweep->dwStart) != 0) return -1;
  VernierLensd_SetFocusValueWanted(pThis, 1);
  Delay_WhileRunning(qwFirstStatistics_us);
  VernierLensd_ReadFocusValue(pThis);
  ptSweep->dwBest = FocusValue(pThis);
  StoreInTable(pThis->tFocusBox.iRunningChannel, 0, ptSweep->dwBest);
  std::printf("[vernierlensd] : [CH %d] Initial position: %d, Focus Value: %d.\n", pThis->tFocusBox.iRunningChannel,
              static_cast<i32>(ptSweep->dwStart), static_cast<i32>(ptSweep->dwBest));
  if (pThis->bSupportICS != 0) return 0;
  return Axis_SetDirection(pThis, g_tFocusAxis, fd, DIRECTION_FORWARD) ? 0 : -1;  // set once, for all steps
}

i32 StepThrough(TVernierLensdInfo* pThis, i32 fd, TSweep* ptSweep) {
  // A range that is a whole number of steps is walked to its very end.
  while (u64{ptSweep->dwOffset} + ptSweep->dwStep <= ptSweep->dwRange) {
    if (IsInterrupted(pThis)) {
      std::puts("[vernierlensd] : Operation interrupted!");
      return -1;
    }
    if (StepOnce(pThis, fd, *ptSweep) != 0) return -1;
    ptSweep->dwOffset += ptSweep->dwStep;
    TakeReading(pThis, ptSweep);
  }
  return 0;
}

// One sleep of the configured time covers the walk and a fresh reading.  Returns 0, or -1 if the ICS lens is detached
// or the driver has refused the walk.
i32 StepOnce(TVernierLensdInfo* pThis, i32 fd, const TSweep& tSweep) {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  if (pThis->bSupportICS != 0) {
    if (Word_Load(pThis->bICSDetached) != 0) return -1;
    StepICS(fd, tSweep.dwStart + tConfig.dwFocusVirtualOneStep * (tSweep.dwOffset + tSweep.dwStep));
  } else if (!Axis_RequestWalk(pThis, g_tFocusAxis, fd, Steps_ToDriver(tSweep.dwStep, tConfig.dwFocusVirtualOneStep))) {
    return -1;
  }
  Delay_us(tConfig.dwOneStepSearchTime);
  u32& dwPosition = Axis_Position(pThis, g_tFocusAxis);
  Word_Store(dwPosition, Word_Load(dwPosition) + tSweep.dwStep);
  return 0;
}

// A lens that has not arrived by the last look is not waited for.
void StepICS(i32 fd, u32 dwTarget) {
  constexpr i32 iLooks = 3;
  constexpr u64 qwLook_us = 150'000;
  const i32 iTarget = static_cast<i32>(dwTarget);
  std::printf("go to %d\n", iTarget);
  pthread_mutex_lock(&gICSMutex);
  Motor_Request(fd, ICS_SET_FOCUS_POSITION, iTarget);
  i32 iPresent = Motor_Request(fd, ICS_GET_FOCUS_POSITION);
  for (i32 i = 0; i < iLooks && iPresent != iTarget; i++) {
    Delay_us(qwLook_us);
    iPresent = Motor_Request(fd, ICS_GET_FOCUS_POSITION);
    std::printf("[%d]curpos=%d\n", i, iPresent);
  }
  pthread_mutex_unlock(&gICSMutex);
}

void TakeReading(TVernierLensdInfo* pThis, TSweep* ptSweep) {
  VernierLensd_ReadFocusValue(pThis);
  const u32 dwValue = FocusValue(pThis);
  std::printf("[vernierlensd] : Position: %d, Step: %d, Focus Value: %d.\n",
              static_cast<i32>(ptSweep->dwStart + ptSweep->dwOffset), static_cast<i32>(ptSweep->dwOffset),
              static_cast<i32>(dwValue));
  // The block, not the running command: a value that is read after a stop is no part of the scan's curve.
  if (Word_Load(pThis->tFocusCommand.dwFunction) == FUNCTION_SCAN) {
    StoreInTable(pThis->tFocusBox.iRunningChannel, ptSweep->dwOffset, dwValue);
  }
  if (dwValue <= ptSweep->dwBest) return;  // of equal values the first counts
  ptSweep->dwBest = dwValue;
  ptSweep->dwBestStep = ptSweep->dwOffset;
}

// Drops a value beyond the channel's row: a sweep over the whole range reaches one entry too far.
void StoreInTable(i32 iChannel, u32 dwOffset, u32 dwValue) {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  const u32 dwSize = static_cast<u32>(std::max(tConfig.iFocusValueTableSize, 0));
  if (g_pdwtabFocusValueTable == nullptr || iChannel >= tConfig.iMaxDevNum || dwOffset >= dwSize) return;
  Word_Store(g_pdwtabFocusValueTable[static_cast<std::size_t>(iChannel) * dwSize + dwOffset], dwValue);
}

// Moves back to the best position.  The move runs backward and so takes up backlash, unless the last step was the best.
i32 GoToBest(TVernierLensdInfo* pThis, i32 fd, const TSweep& tSweep) {
  const u32 dwPosition = Word_Load(Axis_Position(pThis, g_tFocusAxis));
  if (VernierLensd_MoveFocus(pThis, fd, dwPosition - (tSweep.dwOffset - tSweep.dwBestStep)) != 0) return -1;
  std::printf("[vernierlensd] : Best focus: %d, Motor position: %d.\n", static_cast<i32>(tSweep.dwBest),
              static_cast<i32>(tSweep.dwBestStep));
  return 0;
}

bool IsInterrupted(const TVernierLensdInfo* pThis) {
  return Word_Take(pThis->bFocusWake) != 0 || Daemon_IsEnding();
}

u32 FocusValue(const TVernierLensdInfo* pThis) {
  return pThis->adwFocusValue[pThis->tFocusBox.iRunningChannel];
}

}  // namespace
