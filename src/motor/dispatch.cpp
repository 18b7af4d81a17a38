#include "motor/dispatch.h"

#include <algorithm>
#include <cstdio>

#include "core/wait.h"
#include "motor/axis_move.h"
#include "motor/command_box.h"

namespace {

constexpr u32 dwSingleStepHold_ms = 1000;  // a zoom button held longer moves in large steps

void RunFocusCommand(TVernierLensdInfo* pThis, i32 fd);
void StoreFocusDefault(const TVernierLensdInfo* pThis, u32 dwDefaultPosition);
void EndThermalRecheck(TVernierLensdInfo* pThis);
void RunZoomCommand(TVernierLensdInfo* pThis, i32 fd);
void RepeatHeldZoom(TVernierLensdInfo* pThis);

}  // namespace

void VernierLensd_DispatchFocusCommand(TVernierLensdInfo* pThis, i32 fd) {
  if (pThis->bSupportFocus == 0) return;
  Command_Take(pThis, g_tFocusAxis);
  RunFocusCommand(pThis, fd);
  EndThermalRecheck(pThis);
}

void VernierLensd_DispatchZoomCommand(TVernierLensdInfo* pThis, i32 fd) {
  if (pThis->bSupportZoom == 0) return;
  Command_Take(pThis, g_tZoomAxis);
  RunZoomCommand(pThis, fd);
}

namespace {

void RunFocusCommand(TVernierLensdInfo* pThis, i32 fd) {
  switch (pThis->tFocusBox.tRunning.dwFunction) {
    case FUNCTION_FOCUS:
      VernierLensd_FocusCommand(pThis, fd);
      break;
    case FUNCTION_STOP:
    case FUNCTION_IRISOPEN:
    case FUNCTION_IRISENABLE:
      Command_Finish(pThis, g_tFocusAxis);
      break;
    case FUNCTION_SETFOCUSDEFAULT:
      StoreFocusDefault(pThis, pThis->tFocusBox.tRunning.dwDefaultPosition);
      Command_Finish(pThis, g_tFocusAxis);
      break;
    default:
      break;
  }
}

void StoreFocusDefault(const TVernierLensdInfo* pThis, u32 dwDefaultPosition) {
  if (pThis->bSupportICS != 0) return;
  g_dwFocusDefault = dwDefaultPosition;
  std::printf("g_dwFocusDefault =%d\n", static_cast<i32>(dwDefaultPosition));
}

void EndThermalRecheck(TVernierLensdInfo* pThis) {
  // With the wake flag set, the recheck was asked for by the command that waits, and is taken at that one's end.
  if (Word_Take(pThis->bFocusWake) != 0) return;
  if (Word_Load(pThis->bThermalShift) != 0) Word_Store(pThis->bThermalRecheck, 0);
}

void RunZoomCommand(TVernierLensdInfo* pThis, i32 fd) {
  switch (pThis->tZoomBox.tRunning.dwFunction) {
    case FUNCTION_ZOOM:
      VernierLensd_ZoomCommand(pThis, fd);
      RepeatHeldZoom(pThis);
      break;
    case FUNCTION_STOP:
      Command_Finish(pThis, g_tZoomAxis);
      break;
    default:
      break;
  }
}

void RepeatHeldZoom(TVernierLensdInfo* pThis) {
  if (Word_Load(pThis->tZoomCommand.bZoomContinuous) == 0) return;
  const u32 dwHeld_ms = Clock_Milliseconds() - Word_Load(pThis->dwButtonPressTime);
  // A lens of fewer than 10 steps still moves.
  const i32 iLargeStep = std::max(static_cast<i32>(g_tVernierLensdConfigInfo.dwZoomMotorTotalStep) / 10, 1);
  const u32 dwSteps = dwHeld_ms <= dwSingleStepHold_ms ? 1 : static_cast<u32>(iLargeStep);
  const i32 iWoken = Command_Send(pThis, g_tZoomAxis, pThis->tZoomBox.iRunningChannel, [&](TMotorCommand& tBlock) {
    Word_Store(tBlock.dwSteps, dwSteps);
    Word_Store(tBlock.dwFunction, FUNCTION_ZOOM);
  });
  if (iWoken != 0) std::puts("[vernierlensd] : Waking up zoom motor thread failed.");
}

}  // namespace
