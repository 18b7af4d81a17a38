#include "motor/thread/dispatch.h"

#include <algorithm>
#include <cstdio>

#include "autofocus/auto_focus.h"
#include "autofocus/focus_block.h"
#include "compensation/day_night.h"
#include "compensation/thermal_shift.h"
#include "config/saved_state.h"
#include "core/wait.h"
#include "ics/ics_tracking.h"
#include "motor/axis_move.h"
#include "motor/command_box.h"
#include "motor/focus_recovery.h"
#include "motor/positioning.h"
#include "motor/reference.h"

namespace {

constexpr u32 dwSingleStepHold_ms = 1000;  // a zoom button held longer moves in large steps

using FStep = void (*)(TVernierLensdInfo* pThis, i32 fd);

void RunFocusCommand(TVernierLensdInfo* pThis, i32 fd);
void RunUnderLog(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, FStep pfnStep);
void MoveFocus(TVernierLensdInfo* pThis, i32 fd);
void MoveZoom(TVernierLensdInfo* pThis, i32 fd);
void Search(TVernierLensdInfo* pThis, i32 fd, FStep pfnSearch);
bool FindLostReference(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd);
void RunReferenceWalk(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, FStep pfnStep);
bool FindOtherReferences(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd);
bool SaveRunningChannel(TVernierLensdInfo* pThis, const TAxis& tAxis);
void CloseLog(TVernierLensdInfo* pThis, const TAxis& tAxis, bool bSaved);
void EndWithoutWalk(TVernierLensdInfo* pThis, const TAxis& tAxis);
void StoreFocusDefault(TVernierLensdInfo* pThis, u32 dwDefaultPosition);
void EndThermalRecheck(TVernierLensdInfo* pThis);
void RunZoomCommand(TVernierLensdInfo* pThis, i32 fd);
void RepeatHeldZoom(TVernierLensdInfo* pThis);
u32 HeldZoomSteps(const TVernierLensdInfo* pThis);

}  // namespace

void VernierLensd_DispatchFocusCommand(TVernierLensdInfo* pThis, i32 fd) {
  if (pThis->bSupportFocus == 0) return;
  Command_Take(pThis, g_tFocusAxis, nullptr);
  FocusRecovery_MakeWay(pThis);
  VernierLensd_CarryOutFocusWishes(pThis);  // first, since they were asked for first
  RunFocusCommand(pThis, fd);
  EndWithoutWalk(pThis, g_tFocusAxis);
  EndThermalRecheck(pThis);
  Command_Leave(pThis, g_tFocusAxis);
}

void VernierLensd_CarryOutFocusWishes(TVernierLensdInfo* pThis) {
  TCommandBox& tBox = pThis->tFocusBox;
  const TFocusWishes tWishes = Command_TakeWishes(pThis);
  const i32 iChannel = tBox.iRunningChannel;
  for (i32 i = 0; i < iMaxChannels; i++) {
    if (tWishes.aeIris[i] == IRIS_NO_WISH) continue;
    tBox.iRunningChannel = i;
    VernierLensd_RequestIris(pThis, tWishes.aeIris[i] == IRIS_OPEN ? 1 : 0);
  }
  tBox.iRunningChannel = iChannel;
  if (tWishes.bDefaultPosition != 0) StoreFocusDefault(pThis, tWishes.dwDefaultPosition);
}

void VernierLensd_DispatchZoomCommand(TVernierLensdInfo* pThis, i32 fd) {
  if (pThis->bSupportZoom == 0) return;
  Command_Take(pThis, g_tZoomAxis, ZoomPositioning_Taken);
  RunZoomCommand(pThis, fd);
  EndWithoutWalk(pThis, g_tZoomAxis);
  Command_Leave(pThis, g_tZoomAxis);
}

namespace {

void RunFocusCommand(TVernierLensdInfo* pThis, i32 fd) {
  const TMotorCommand& tRunning = pThis->tFocusBox.tRunning;
  switch (static_cast<EFunction>(tRunning.dwFunction)) {
    case FUNCTION_FOCUS:
      return RunUnderLog(pThis, g_tFocusAxis, fd, MoveFocus);
    case FUNCTION_AUTO:
      return Search(pThis, fd, VernierLensd_PerformAutoFocus);
    case FUNCTION_SCAN:
      return Search(pThis, fd, PerformFocusScan);
    case FUNCTION_POSITIONING:
    case FUNCTION_MOTORRESET:
      return RunReferenceWalk(pThis, g_tFocusAxis, fd, FocusMotorPositioning);
    case FUNCTION_RESETFOCUS:
      return RunReferenceWalk(pThis, g_tFocusAxis, fd, VernierLensd_ResetFocus);
    case FUNCTION_IRISOPEN:
      return VernierLensd_RequestIris(pThis, 1);
    case FUNCTION_IRISENABLE:
      return VernierLensd_RequestIris(pThis, 0);
    case FUNCTION_SETFOCUSDEFAULT:
      return StoreFocusDefault(pThis, tRunning.dwDefaultPosition);
    case FUNCTION_STOP:
    case FUNCTION_IDLE:
    case FUNCTION_ZOOM:
    case FUNCTION_GETSTATUS:
    case FUNCTION_GETPARAM:
    case FUNCTION_GETFOCUSDEFAULT:
      return;
  }
}

// Runs a move: the log stands on flash before the motor starts, and goes when the result is saved.
void RunUnderLog(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, FStep pfnStep) {
  tAxis.pfnCreateLog();
  Axis_ResolveTarget(pThis, tAxis);  // before the walk: the client means the position that it has seen
  const bool bFound = FindLostReference(pThis, tAxis, fd);
  const bool bBegun = !bFound || !Daemon_IsEnding();  // the daemon's end may have come during that walk
  if (bBegun) pfnStep(pThis, fd);
  CloseLog(pThis, tAxis, SaveRunningChannel(pThis, tAxis) && bBegun);
}

void MoveFocus(TVernierLensdInfo* pThis, i32 fd) {
  const bool bThere = VernierLensd_FocusCommand(pThis, fd) == 0;
  // A client has chosen this position, whatever comes next.  A correction only shifts the focus from where it stood.
  if (bThere && pThis->tFocusBox.bClaimed == 0) FocusRecovery_End(pThis);
}

void MoveZoom(TVernierLensdInfo* pThis, i32 fd) {
  VernierLensd_ZoomCommand(pThis, fd);
}

// Runs a search.  The image side is told that it runs.
void Search(TVernierLensdInfo* pThis, i32 fd, FStep pfnSearch) {
  g_tFocusAxis.pfnCreateLog();
  VernierLensd_SetAutoFocusBusy(pThis, 1);
  if (pfnSearch != PerformFocusScan) FindLostReference(pThis, g_tFocusAxis, fd);
  FocusRecovery_TakeSearch(pThis);
  const i32 iMode = NightMode_Present(pThis, pThis->tFocusBox.iRunningChannel);
  pfnSearch(pThis, fd);
  if (Command_IsIdle(pThis, g_tFocusAxis)) {
    NightMode_FollowSearch(pThis, iMode);
    FocusRecovery_End(pThis);
  }
  const bool bSaved = SaveRunningChannel(pThis, g_tFocusAxis);
  VernierLensd_SetAutoFocusBusy(pThis, 0);
  CloseLog(pThis, g_tFocusAxis, bSaved);
}

// Runs a walk to the reference.  After a power loss every channel's counter is false; on a lens without focus, a
// restore sends a command to all channels and only one of them runs.  The other channels then go first, under the same
// log.
void RunReferenceWalk(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, FStep pfnStep) {
  tAxis.pfnCreateLog();
  const bool bOthers = pThis->bPowerLost != 0 || pThis->bSupportFocus == 0;
  const bool bFound = bOthers && FindOtherReferences(pThis, tAxis, fd);
  if (!bFound || !Daemon_IsEnding()) pfnStep(pThis, fd);  // else this channel stays lost, and the log stands
  CloseLog(pThis, tAxis, SaveRunningChannel(pThis, tAxis));
}

// Returns true if at least one reference was walked to.
bool FindOtherReferences(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd) {
  TCommandBox& tBox = Axis_Box(pThis, tAxis);
  const i32 iChannel = tBox.iRunningChannel;
  bool bFound = false;
  for (i32 i = 0; i < g_tVernierLensdConfigInfo.iMaxDevNum && !Daemon_IsEnding(); i++) {
    if (i == iChannel || !Reference_IsLost(pThis, tAxis, i)) continue;  // a doubted one waits for its own first move
    tBox.iRunningChannel = i;
    if (!FindLostReference(pThis, tAxis, fd)) continue;
    SavedState_Publish(pThis, i);
    bFound = true;
  }
  tBox.iRunningChannel = iChannel;
  // The step may rely on the channel that was selected before.
  if (bFound) Motor_Request(fd, MOTOR_SELECT_DEVICE, iChannel);
  return bFound;
}

// Walks to the running channel's reference if it is lost or doubted, so that no command starts from a false counter.
// Returns true if it has walked.
bool FindLostReference(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd) {
  const i32 iChannel = Axis_Box(pThis, tAxis).iRunningChannel;
  if (!Reference_IsToBeFound(pThis, tAxis, iChannel)) return false;
  Motor_Request(fd, MOTOR_SELECT_DEVICE, iChannel);
  Reference_Find(pThis, tAxis, fd);
  return true;
}

bool SaveRunningChannel(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  if (SavedState_Save(pThis, Axis_Box(pThis, tAxis).iRunningChannel, tAxis.eSaveMode) == 0) return true;
  std::puts("[vernierlensd] : VernierLensd_SaveConfigFile failed.");
  return false;
}

// Deletes the log if the position is saved and known; else the log stays, and the next start finds the lens itself.  It
// also stays while a recovery of the focus is incomplete: the counter is true, but nobody has chosen this position.
void CloseLog(TVernierLensdInfo* pThis, const TAxis& tAxis, bool bSaved) {
  if (bSaved && Reference_NeedsNoLog(pThis, tAxis) && !FocusRecovery_HoldsLog(pThis, tAxis)) {
    tAxis.pfnDeleteLog();
  } else {
    tAxis.pfnCreateLog();  // before the move this may have failed
  }
}

// Ends a running stop or wish.  If that command has interrupted a recovery or was written over its walk, the missing
// part follows.  There is no idle moment before it: a search that waits for the zoom waits for that too.
void EndWithoutWalk(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  const TCommandBox& tBox = Axis_Box(pThis, tAxis);
  const EDemand eDemand = Function_Demand(tBox.tRunning.dwFunction);
  if (eDemand != DEMAND_STOP && eDemand != DEMAND_WISH) return;
  const TCommandId tRunning = Command_Running(pThis, tAxis);
  const bool bStop = tBox.bRunningStop != 0;
  if (!bStop && FocusRecovery_Resume(pThis)) return;
  // A reference that was lost otherwise sends nothing: a stop must not set a lens at rest going.
  if (tBox.bReferenceDue == 0) {
    Command_Finish(pThis, tAxis);
    return;
  }
  // The recovery's walk has not begun, and a false counter must not stay.  Function 6: no search starts by itself after
  // a stop.
  const i32 iLost = Reference_FirstLost(pThis, tAxis);
  Command_SendFollowUp(pThis, tAxis, {.iChannel = std::max(iLost, 0), .dwNumber = tRunning.dwNumber},
                       [&](TMotorCommand& tBlock) { Positioning_Write(tAxis, &tBlock, FUNCTION_MOTORRESET); });
}

void StoreFocusDefault(TVernierLensdInfo* pThis, u32 dwDefaultPosition) {
  if (pThis->bSupportICS != 0) return;
  g_dwFocusDefault = dwDefaultPosition;
  std::printf("g_dwFocusDefault =%d\n", static_cast<i32>(dwDefaultPosition));
  VernierLensd_SaveFocusDefault(pThis);
}

// The focus that a client has chosen is right for the present temperature.  If the wake flag is set, the pending
// command has asked for the recheck, and it is done when that one ends.
void EndThermalRecheck(TVernierLensdInfo* pThis) {
  Command_Lock(pThis->tFocusBox);
  const bool bTaken = Word_Load(pThis->bFocusWake) == 0 && Word_Load(pThis->bThermalShift) != 0 &&
                      Word_Load(pThis->bThermalRecheck) != 0;
  if (bTaken) Word_Store(pThis->bThermalRecheck, 0);
  Command_Unlock(pThis->tFocusBox);
  if (!bTaken) return;
  if (pThis->dwLensKind == LENS_KIND_ICS) {
    ICS_UpdateTrackingCurve(pThis, Word_Load(pThis->adwZoomMotorPosition[pThis->tFocusBox.iRunningChannel]));
  } else if (pThis->dwLensKind == LENS_KIND_THERMAL) {
    ThermalFocusShift_TemperatureUpdae(pThis, 0);
  }
}

void RunZoomCommand(TVernierLensdInfo* pThis, i32 fd) {
  switch (static_cast<EFunction>(pThis->tZoomBox.tRunning.dwFunction)) {
    case FUNCTION_ZOOM:
      RunUnderLog(pThis, g_tZoomAxis, fd, MoveZoom);
      return RepeatHeldZoom(pThis);
    case FUNCTION_POSITIONING:
    case FUNCTION_MOTORRESET:
      return RunReferenceWalk(pThis, g_tZoomAxis, fd, ZoomMotorPositioning);
    case FUNCTION_STOP:
    case FUNCTION_IDLE:
    case FUNCTION_FOCUS:
    case FUNCTION_AUTO:
    case FUNCTION_SCAN:
    case FUNCTION_GETSTATUS:
    case FUNCTION_GETPARAM:
    case FUNCTION_IRISOPEN:
    case FUNCTION_IRISENABLE:
    case FUNCTION_RESETFOCUS:
    case FUNCTION_GETFOCUSDEFAULT:
    case FUNCTION_SETFOCUSDEFAULT:
      return;
  }
}

void RepeatHeldZoom(TVernierLensdInfo* pThis) {
  const u32 dwSteps = HeldZoomSteps(pThis);
  TMotorCommand& tBlock = pThis->tZoomCommand;
  TCommandBox& tBox = pThis->tZoomBox;
  Command_Lock(tBox);
  // The release takes the lock too: after it, no pending command is overwritten.
  const bool bHeld = Word_Load(tBlock.bZoomContinuous) != 0;
  if (bHeld) {
    // A newer zoom in the block has brought its own direction and channel.
    const bool bNewerZoom = Word_Load(pThis->bZoomWake) != 0 && Word_Load(tBlock.dwFunction) == FUNCTION_ZOOM;
    const TCommandId tRepeat = Command_New(bNewerZoom ? tBox.iChannel : tBox.iRunningChannel);
    Word_Store(tBlock.dwSteps, dwSteps);
    Word_Store(tBlock.dwFunction, FUNCTION_ZOOM);
    Command_Publish(pThis, g_tZoomAxis, tRepeat.iChannel, tRepeat.dwNumber);
  }
  Command_Unlock(tBox);
  if (bHeld && Command_Wake(pThis, g_tZoomAxis) != 0) {
    std::puts(g_tZoomAxis.szWakeFailed);
  }
}

u32 HeldZoomSteps(const TVernierLensdInfo* pThis) {
  // Read the press time before the clock: a second press in between must not make the difference negative.
  const u32 dwPressed_ms = Word_Load(pThis->dwButtonPressTime);
  if (Clock_Milliseconds() - dwPressed_ms <= dwSingleStepHold_ms) return 1;
  const i32 iLargeStep = static_cast<i32>(g_tVernierLensdConfigInfo.dwZoomMotorTotalStep) / 10;
  return iLargeStep == 0 ? 1 : static_cast<u32>(iLargeStep);  // a lens of fewer than 10 steps still moves
}

}  // namespace
