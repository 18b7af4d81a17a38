#include "motor/dispatch.h"

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
u32 HeldZoomSteps(const TVernierLensdInfo* pThis);

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
  Command_Lock(pThis->tFocusBox);
  const bool bTaken = Word_Load(pThis->bFocusWake) == 0 && Word_Load(pThis->bThermalShift) != 0;
  if (bTaken) Word_Store(pThis->bThermalRecheck, 0);
  Command_Unlock(pThis->tFocusBox);
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
  const u32 dwSteps = HeldZoomSteps(pThis);
  TMotorCommand& tBlock = pThis->tZoomCommand;
  TCommandBox& tBox = pThis->tZoomBox;
  Command_Lock(tBox);
  // Under the lock, as the release is: behind a release no command that waits is overwritten.
  const bool bHeld = Word_Load(tBlock.bZoomContinuous) != 0;
  if (bHeld) {
    // A newer zoom in the block brought its own direction, and so its own channel.
    const bool bNewerZoom = Word_Load(pThis->bZoomWake) != 0 && Word_Load(tBlock.dwFunction) == FUNCTION_ZOOM;
    if (!bNewerZoom) tBox.iChannel = tBox.iRunningChannel;
    Word_Store(tBlock.dwSteps, dwSteps);
    Word_Store(tBlock.dwFunction, FUNCTION_ZOOM);
    Word_Publish(pThis->bZoomWake, 1);
  }
  Command_Unlock(tBox);
  if (bHeld && Command_Wake(pThis, g_tZoomAxis) != 0) {
    std::puts("[vernierlensd] : Waking up zoom motor thread failed.");
  }
}

u32 HeldZoomSteps(const TVernierLensdInfo* pThis) {
  // The press first: a second one in between must not make the time negative.
  const u32 dwPressed_ms = Word_Load(pThis->dwButtonPressTime);
  if (Clock_Milliseconds() - dwPressed_ms <= dwSingleStepHold_ms) return 1;
  const i32 iLargeStep = static_cast<i32>(g_tVernierLensdConfigInfo.dwZoomMotorTotalStep) / 10;
  return iLargeStep == 0 ? 1 : static_cast<u32>(iLargeStep);  // a lens of fewer than 10 steps still moves
}

}  // namespace
