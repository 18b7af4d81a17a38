#include "motor/positioning.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "autofocus/zoom_tracking.h"
#include "config/config_limits.h"
#include "config/config_load.h"
#include "config/saved_state.h"
#include "core/fail.h"
#include "core/paths.h"
#include "core/wait.h"
#include "ics/ics_positioning.h"
#include "motor/command_box.h"
#include "motor/focus_recovery.h"
#include "motor/pi_search.h"
#include "motor/reference.h"

namespace {

void FindFocusReference(TVernierLensdInfo* pThis, i32 fd);
void FindZoomReferenceAndStart(TVernierLensdInfo* pThis, i32 fd);
i32 WalkToFocusEnd(i32 fd);
i32 WalkResult(i32 iAnswer);
void SleepWalk(u32 dwDriverSteps, u32 dwOneStepTime, u32 dwOneStep);
u32 ZoomTarget(const TVernierLensdInfo* pThis);
u32 LimitToRange(u32 dwZoom);
i32 FindZoomReference(TVernierLensdInfo* pThis, i32 fd, u32 dwPosition);
i32 SearchZoomPI(i32 fd, u32 dwPosition);
i32 WalkZoomToEnd(i32 fd, u32 dwPosition);
bool WalkZoom(i32 fd, u32 dwDirection, i32 iSteps);

bool IsBlocking() {
  return g_tVernierLensdConfigInfo.bBlockingMode != 0;
}
bool IsFocusOnly() {
  return g_tVernierLensdConfigInfo.dwCapability == CAPABILITY_FOCUS_ONLY;
}

}  // namespace

void FocusMotorPositioning(TVernierLensdInfo* pThis, i32 fd) {
  if (pThis->bSupportFocus == 0) return;
  const TCommandBox& tBox = pThis->tFocusBox;
  Motor_Request(fd, MOTOR_SELECT_DEVICE, tBox.iRunningChannel);
  const bool bNeedsSearch = FocusRecovery_NeedsSearch(pThis);
  if (pThis->bSupportICS == 0) {
    FindFocusReference(pThis, fd);
  } else if (Word_Load(pThis->bICSDetached) == 0) {
    ICS_FocusMotorPositioning(pThis, fd);
  }
  if (bNeedsSearch) FocusRecovery_LeaveSearch(pThis);
  if (tBox.tRunning.dwFunction == FUNCTION_MOTORRESET) {
    Command_Finish(pThis, g_tFocusAxis);
  } else {
    VernierLensd_AutoFocusAfterPositioning(pThis);
  }
}

void ZoomMotorPositioning(TVernierLensdInfo* pThis, i32 fd) {
  if (pThis->bSupportZoom == 0) return;
  const TCommandBox& tBox = pThis->tZoomBox;
  Motor_Request(fd, MOTOR_SELECT_DEVICE, tBox.iRunningChannel);
  if (pThis->bSupportICS == 0) {
    FindZoomReference(pThis, fd, ZoomTarget(pThis));
  } else if (Word_Load(pThis->bICSDetached) == 0) {
    ICS_ZoomMotorPositioning(pThis, &tBox.tRunning, fd);
  }
  Command_Finish(pThis, g_tZoomAxis);
}

void ZoomPositioning_Taken(TVernierLensdInfo* pThis) {
  const TCommandBox& tBox = pThis->tZoomBox;
  const u32 dwFunction = tBox.tRunning.dwFunction;
  if (dwFunction != FUNCTION_POSITIONING && dwFunction != FUNCTION_MOTORRESET) return;
  ZoomTracking_SetReferenceWords(pThis, ZoomTarget(pThis), tBox.iRunningChannel);
}

void VernierLensd_ResetFocus(TVernierLensdInfo* pThis, i32 fd) {
  if (pThis->bSupportFocus == 0) return;
  if (pThis->bSupportICS != 0) {
    if (Word_Load(pThis->bICSDetached) == 0) ICS_FocusMotorReset(pThis, fd);
    Command_Finish(pThis, g_tFocusAxis);  // else the periodic corrections would rest until the next command
    return;
  }
  const i32 iFound = FocusReference_SetDirection(fd) < 0 ? iWalkRefused : WalkToFocusEnd(fd);
  if (g_tVernierLensdConfigInfo.iMaxDevNum <= 1 || iFound != 0) {
    Reference_Arrive(pThis, g_tFocusAxis, iFound, FocusReference_Place());
  } else {
    // No channel was selected: another one's motor may have walked.  So a lost reference stays lost, and the next move
    // finds it.
    Word_Store(Axis_Position(pThis, g_tFocusAxis), FocusReference_Place());
  }
  const i32 iWoken =
      Command_SendFollowUp(pThis, g_tFocusAxis, Command_Running(pThis, g_tFocusAxis), [&](TMotorCommand& tBlock) {
        Word_Store(tBlock.dwDirection, DIRECTION_DIRECT);
        Word_Store(tBlock.dwPosition, g_dwFocusDefault.load());
        Word_Store(tBlock.dwFunction, FUNCTION_FOCUS);
        Word_Store(pThis->bThermalRecheck, 0);
      });
  if (iWoken != 0) std::puts(szFocusWakeFailed);
}

void Positioning_Write(const TAxis& tAxis, TMotorCommand* ptBlock, u32 dwFunction) {
  Word_Store(ptBlock->dwFunction, dwFunction);
  if (tAxis.bReferenceHasTarget) Word_Store(ptBlock->dwPosition, Axis_Config(tAxis.pdwVirtualStart));
}

void Reference_Find(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd) {
  if (tAxis.bReferenceHasTarget) {
    FindZoomReferenceAndStart(pThis, fd);
  } else {
    FindFocusReference(pThis, fd);
  }
}

void Reference_Arrive(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iFound, u32 dwReference) {
  if (iFound == iSearchNotBegun) {
    if (!Daemon_IsEnding()) Reference_Lose(pThis, tAxis, Axis_Box(pThis, tAxis).iRunningChannel);
    return;
  }
  if (iFound == iWalkRefused) {
    std::printf("[vernierlensd] : %s answered the walk to the reference with an error.\n", tAxis.szDevice);
  } else {
    // Also after a failed search: the reference word remembers the failure.
    Word_Store(Axis_Position(pThis, tAxis), dwReference);
  }
  Reference_Set(pThis, tAxis, iFound == 0);
}

u32 FocusReference_Place() {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  return tConfig.dwFocusMotorReverseCalibration != 0 ? tConfig.dwFocusVirtualEnd : 0;
}

i32 FocusReference_SetDirection(i32 fd) {
  const bool bReverse = g_tVernierLensdConfigInfo.dwFocusMotorReverseCalibration != 0;
  return Motor_Request(fd, bReverse ? MOTOR_SET_FORWARD : MOTOR_SET_BACKWARD);
}

i32 FocusReference_SearchPI(const char* pszName, i32 fd) {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  PISearch_Begin(g_tFocusAxis, fd);
  const i32 iFound =
      VernierLensd_SearchPI(pszName, 0, fd, tConfig.dwFocusPIForwardShift, tConfig.dwFocusPISearchStep, 0, 1);
  PISearch_End(g_tFocusAxis, fd);
  return iFound;
}

i32 FocusReference_RequestWalk(i32 fd) {
  const u32 dwBlocking = IsFocusOnly() ? MOTOR_CHECK_PI_WALK_STEPS : MOTOR_WALK_STEPS_BLOCK;
  return Motor_Request(fd, IsBlocking() ? dwBlocking : MOTOR_WALK_STEPS,
                       Steps_ToDriver(g_tVernierLensdConfigInfo.dwFocusMotorPositioningStep, 1));
}

i32 VernierLensd_GotoPI() {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  if (Config_ReadForParking() != 0) return -1;
  const i32 fd = open(szFocusMotorPath, O_WRONLY | O_CLOEXEC);
  if (fd < 0) return Fail("[vernierlensd] : Failed to open focus can't move to pi");
  const i32 iWalk = Steps_ToDriver(tConfig.dwFocusMotorPositioningStep, 1);
  FocusReference_SetDirection(fd);
  Motor_Request(fd, IsBlocking() ? MOTOR_WALK_STEPS_BLOCK : MOTOR_WALK_STEPS, iWalk);
  if (!IsBlocking()) {
    SleepWalk(tConfig.dwFocusMotorPositioningStep, tConfig.dwFocusOneStepTime, tConfig.dwFocusVirtualOneStep);
  }
  VernierLensd_LoadFocusDefault();
  const bool bReverse = tConfig.dwFocusMotorReverseCalibration != 0;
  const u32 dwEnd = tConfig.dwFocusVirtualEnd;
  u32 dwDefault = g_dwFocusDefault.load();
  Config_LimitPosition(&dwDefault, dwEnd);  // a wrong default must not make the walk endless
  const u32 dwDistance = bReverse ? dwEnd - std::min(dwDefault, dwEnd) : dwDefault;
  Motor_Request(fd, bReverse ? MOTOR_SET_BACKWARD : MOTOR_SET_FORWARD);
  Motor_Request(fd, MOTOR_WALK_STEPS_BLOCK, Steps_ToDriver(dwDistance, tConfig.dwFocusVirtualOneStep));
  close(fd);
  return 0;
}

namespace {

void FindFocusReference(TVernierLensdInfo* pThis, i32 fd) {
  const bool bPI = g_tVernierLensdConfigInfo.bFocusPISupport != 0;
  i32 iFound = iWalkRefused;
  if (FocusReference_SetDirection(fd) >= 0) {
    iFound = bPI ? FocusReference_SearchPI("FocusMotorPositioning", fd) : WalkToFocusEnd(fd);
  }
  Reference_Arrive(pThis, g_tFocusAxis, iFound, FocusReference_Place());
}

void FindZoomReferenceAndStart(TVernierLensdInfo* pThis, i32 fd) {
  const u32 dwStart = g_tVernierLensdConfigInfo.dwZoomVirtualStart;
  // Set the search words first: a search uses them as soon as the reference is known.
  ZoomTracking_SetWords(pThis, dwStart, pThis->tZoomBox.iRunningChannel);
  FindZoomReference(pThis, fd, dwStart);
}

// Returns 0 or iWalkRefused.
i32 WalkToFocusEnd(i32 fd) {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  const i32 iAnswer = FocusReference_RequestWalk(fd);
  if (!IsBlocking() && iAnswer >= 0) {
    SleepWalk(tConfig.dwFocusMotorPositioningStep, tConfig.dwFocusOneStepTime, tConfig.dwFocusVirtualOneStep);
  }
  if (!IsBlocking() || !IsFocusOnly() || iAnswer >= 0) return WalkResult(iAnswer);
  std::puts("[vernierlensd] : not support MOTOR_CHECK_PI_WALK_STEPS. Using MOTOR_WALK_STEPS_BLOCK");
  return WalkResult(Motor_Request(fd, MOTOR_WALK_STEPS_BLOCK, Steps_ToDriver(tConfig.dwFocusMotorPositioningStep, 1)));
}

i32 WalkResult(i32 iAnswer) {
  return iAnswer < 0 ? iWalkRefused : 0;
}

// Divides first: what dwOneStepTime / dwOneStep cuts off is lost for each driver step.
void SleepWalk(u32 dwDriverSteps, u32 dwOneStepTime, u32 dwOneStep) {
  const u64 qwDriverStep_us = dwOneStep == 0 ? 0 : dwOneStepTime / dwOneStep;
  Delay_us(static_cast<u64>(Steps_ToDriver(dwDriverSteps, 1)) * qwDriverStep_us);
}

// The target of the running positioning or motor reset.
u32 ZoomTarget(const TVernierLensdInfo* pThis) {
  const u32 dwPosition = pThis->tZoomBox.tRunning.dwPosition;
  return pThis->bSupportICS != 0 ? dwPosition : LimitToRange(dwPosition);
}

// Limits a target so that the walk ends, and ends at a position that the counter can name.
u32 LimitToRange(u32 dwZoom) {
  return static_cast<i32>(dwZoom) < 0 ? 0 : std::min(dwZoom, g_tVernierLensdConfigInfo.dwZoomVirtualEnd);
}

i32 FindZoomReference(TVernierLensdInfo* pThis, i32 fd, u32 dwPosition) {
  dwPosition = LimitToRange(dwPosition);
  const bool bPI = g_tVernierLensdConfigInfo.bZoomPISupport != 0;
  const i32 iFound = bPI ? SearchZoomPI(fd, dwPosition) : WalkZoomToEnd(fd, dwPosition);
  Reference_Arrive(pThis, g_tZoomAxis, iFound, dwPosition);
  return iFound;
}

i32 SearchZoomPI(i32 fd, u32 dwPosition) {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  PISearch_Begin(g_tZoomAxis, fd);
  const i32 iFound = VernierLensd_SearchPI("ZoomMotorPositioning", 1, fd, dwPosition, tConfig.dwZoomPISearchStep,
                                           tConfig.dwZoomPIBackwardShift, tConfig.dwZoomVirtualOneStep);
  PISearch_End(g_tZoomAxis, fd);
  return iFound;
}

// Returns 0, iWalkRefused, or -1 if the lens stands at the stop and the walk away from it was refused.
i32 WalkZoomToEnd(i32 fd, u32 dwPosition) {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  if (!WalkZoom(fd, MOTOR_SET_BACKWARD, Steps_ToDriver(tConfig.dwZoomMotorPositioningStep, 1))) return iWalkRefused;
  if (!IsBlocking()) {
    SleepWalk(tConfig.dwZoomMotorPositioningStep, tConfig.dwZoomOneStepTime, tConfig.dwZoomVirtualOneStep);
  }
  if (!WalkZoom(fd, MOTOR_SET_FORWARD, Steps_ToDriver(dwPosition, tConfig.dwZoomVirtualOneStep))) {
    std::puts("[vernierlensd] : The zoom's driver answered the walk from the stop with an error.");
    return -1;
  }
  if (!IsBlocking()) Delay_us(u64{dwPosition} * tConfig.dwZoomOneStepTime);
  return 0;
}

bool WalkZoom(i32 fd, u32 dwDirection, i32 iSteps) {
  if (Motor_Request(fd, dwDirection) < 0) return false;
  return Motor_Request(fd, IsBlocking() ? MOTOR_WALK_STEPS_BLOCK : MOTOR_WALK_STEPS, iSteps) >= 0;
}

}  // namespace
