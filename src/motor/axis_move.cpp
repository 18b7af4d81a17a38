#include "motor/axis_move.h"

#include <algorithm>
#include <cstdio>
#include <limits>

#include "autofocus/zoom_tracking.h"
#include "config/config_limits.h"
#include "core/wait.h"
#include "ics/ics_driver.h"
#include "motor/command_box.h"
#include "motor/reference.h"

namespace {

constexpr u32 dwMaxRelativeSteps = 30;
constexpr u64 qwFocusLead_us = 300'000;                        // the focus starts this long before the zoom
constexpr i32 iUnknownWalk = std::numeric_limits<i32>::max();  // any answer is possible

// A walk that was interrupted.
struct TBrokenWalk {
  u32 dwLeft;  // virtual steps that are not yet counted
  EDirection eDirection;
  i32 iAsked;  // driver steps of the whole walk
};

u32 Axis_Clamp(const TVernierLensdInfo* pThis, const TAxis& tAxis, u32 dwTarget);
i32 Axis_MoveStepper(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, u32 dwTarget);
i32 Axis_MoveICS(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, u32 dwTarget);
i32 Axis_Walk(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, u32 dwTarget, EDirection eDirection);
i32 Axis_CountSteps(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, u32 dwDelta, EDirection eDirection);
void Axis_Recover(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, const TBrokenWalk& tWalk);
i32 Axis_TakeUpBacklash(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, u32 dwTarget);
i32 Axis_DriverSteps(const TAxis& tAxis, u32 dwVirtualSteps);
void Axis_AddToPosition(TVernierLensdInfo* pThis, const TAxis& tAxis, u32 dwChange);

i32 Axis_Move(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, u32 dwTarget) {
  if (pThis->*tAxis.pbSupport == 0) return -1;
  Motor_Request(fd, MOTOR_SELECT_DEVICE, Axis_Box(pThis, tAxis).iRunningChannel);
  dwTarget = Axis_Clamp(pThis, tAxis, dwTarget);
  if (tAxis.bFocusLeads) {
    VernierLensd_FollowZoom(pThis, dwTarget);
    Delay_us(qwFocusLead_us);
  }
  const i32 iResult =
      pThis->bSupportICS != 0 ? Axis_MoveICS(pThis, tAxis, fd, dwTarget) : Axis_MoveStepper(pThis, tAxis, fd, dwTarget);
  if (tAxis.bFocusLeads && iResult == 0) VernierLensd_FollowStoppedZoom(pThis);
  return iResult;
}

i32 Axis_MoveStepper(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, u32 dwTarget) {
  if (dwTarget >= Word_Load(Axis_Position(pThis, tAxis)))
    return Axis_Walk(pThis, tAxis, fd, dwTarget, DIRECTION_FORWARD);
  if (Axis_Walk(pThis, tAxis, fd, dwTarget, DIRECTION_BACKWARD) != 0) return -1;
  return Axis_TakeUpBacklash(pThis, tAxis, fd, dwTarget);
}

// A configured start above the end counts as the end.
u32 Axis_Clamp(const TVernierLensdInfo* pThis, const TAxis& tAxis, u32 dwTarget) {
  if (pThis->bSupportICS != 0) {
    const i32 iHighest = static_cast<i32>(Axis_Config(tAxis.pdwVirtualEnd));
    const i32 iLowest = std::min(static_cast<i32>(Axis_Config(tAxis.pdwVirtualStart)), iHighest);
    // Signed, so that a backward move past 0 never ends at the far end of the lens.
    return static_cast<u32>(std::clamp(static_cast<i32>(dwTarget), iLowest, iHighest));
  }
  const u32 dwHighest = Axis_Config(tAxis.pdwVirtualEnd);
  if (dwTarget > dwMaxVirtual) return std::min(Axis_Config(tAxis.pdwVirtualStart), dwHighest);
  return std::min(dwTarget, dwHighest);
}

i32 Axis_MoveICS(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, u32 dwTarget) {
  if (Word_Load(pThis->bICSDetached) != 0) return 0;
  u32& dwPosition = Axis_Position(pThis, tAxis);
  const i32 iTarget = static_cast<i32>(dwTarget);
  i32 iPresent = 0;
  pthread_mutex_lock(&gICSMutex);
  const bool bAttached = Motor_Request(fd, tAxis.eICSSetPosition, iTarget) >= 0;
  if (bAttached) {
    Delay_us(ICS_TravelTime_us(tAxis, static_cast<i32>(Word_Load(dwPosition)), iTarget));
    iPresent = Motor_Request(fd, tAxis.eICSGetPosition);
  } else {
    ICS_SetDetached(pThis);
  }
  pthread_mutex_unlock(&gICSMutex);
  if (!bAttached) return 0;

  std::printf(tAxis.szICSMoved, iPresent, iTarget);
  Word_Store(dwPosition, dwTarget);
  return 0;
}

i32 Axis_Walk(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, u32 dwTarget, EDirection eDirection) {
  const u32 dwPosition = Word_Load(Axis_Position(pThis, tAxis));
  const u32 dwDelta = eDirection == DIRECTION_FORWARD ? dwTarget - dwPosition : dwPosition - dwTarget;
  const bool bBlocking = g_tVernierLensdConfigInfo.bBlockingMode != 0;
  if (!Axis_SetDirection(pThis, tAxis, fd, eDirection)) return -1;
  if (bBlocking) Word_Store(Axis_Position(pThis, tAxis), dwTarget);
  if (!Axis_RequestWalk(pThis, tAxis, fd, Axis_DriverSteps(tAxis, dwDelta))) {
    Word_Store(Axis_Position(pThis, tAxis), dwPosition);  // a refused walk has most likely not begun
    return -1;
  }
  return bBlocking ? 0 : Axis_CountSteps(pThis, tAxis, fd, dwDelta, eDirection);
}

i32 Axis_CountSteps(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, u32 dwDelta, EDirection eDirection) {
  for (u32 dwLeft = dwDelta; dwLeft-- > 0;) {
    Delay_us(Axis_Config(tAxis.pdwOneStepTime));
    Axis_AddToPosition(pThis, tAxis, eDirection == DIRECTION_FORWARD ? 1 : ~0U);
    // Count first, then look at the flag: an interrupted last step is still a step.
    if (Word_Take(pThis->*tAxis.pbWake) == 0) continue;
    std::puts("[vernierlensd] : Operation interrupted!");
    Axis_Recover(pThis, tAxis, fd,
                 {.dwLeft = dwLeft, .eDirection = eDirection, .iAsked = Axis_DriverSteps(tAxis, dwDelta)});
    return -1;
  }
  return 0;
}

// Walks on backward and comes forward again: the gears then stand as after a forward move.  The counter stays.
i32 Axis_TakeUpBacklash(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, u32 dwTarget) {
  const u32 dwBacklash = Axis_Config(tAxis.pdwAdjustStep);
  if (dwTarget < dwBacklash) return 0;  // too near 0 to overshoot
  const bool bStepped = g_tVernierLensdConfigInfo.bBlockingMode == 0;
  const u64 qwTime_us = u64{dwBacklash} * Axis_Config(tAxis.pdwOneStepTime);
  if (!Axis_RequestWalk(pThis, tAxis, fd, Axis_DriverSteps(tAxis, dwBacklash))) return -1;
  if (bStepped) Delay_us(qwTime_us);
  if (!Axis_SetDirection(pThis, tAxis, fd, DIRECTION_FORWARD)) return -1;
  if (!Axis_RequestWalk(pThis, tAxis, fd, Axis_DriverSteps(tAxis, dwBacklash))) return -1;
  if (bStepped) Delay_us(qwTime_us);
  return 0;
}

i32 Axis_DriverSteps(const TAxis& tAxis, u32 dwVirtualSteps) {
  return Steps_ToDriver(dwVirtualSteps, Axis_Config(tAxis.pdwVirtualOneStep));
}

// The sum wraps in 32 bits: ~0 is one step down.
void Axis_AddToPosition(TVernierLensdInfo* pThis, const TAxis& tAxis, u32 dwChange) {
  u32& dwPosition = Axis_Position(pThis, tAxis);
  Word_Store(dwPosition, Word_Load(dwPosition) + dwChange);
}

// The sleeps run over a little, so the driver may be ahead of the count.  If the driver has nothing left, all steps are
// walked.
void Axis_Recover(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, const TBrokenWalk& tWalk) {
  if (pThis->*tAxis.pbSupport == 0) return;
  const i32 iDriverLeft = Motor_Request(fd, MOTOR_STOP_WALK);
  std::printf(tAxis.szRemaining, iDriverLeft);

  const i32 iOneStep = static_cast<i32>(Axis_Config(tAxis.pdwVirtualOneStep));
  const i32 iWholeLeft = iOneStep == 0 ? 0 : iDriverLeft / iOneStep;
  const i32 iPart = iDriverLeft - iWholeLeft * iOneStep;
  // The driver may also be slower than the sleeps: the correction is then negative.
  const i64 llCorrection = i64{tWalk.dwLeft} - iWholeLeft;
  u32& dwPosition = Axis_Position(pThis, tAxis);
  const i64 llPosition =
      i64{Word_Load(dwPosition)} + (tWalk.eDirection == DIRECTION_FORWARD ? llCorrection : -llCorrection);
  const bool bCanBe = iDriverLeft >= 0 && iDriverLeft <= tWalk.iAsked && llPosition >= 0 &&
                      llPosition <= i64{Axis_Config(tAxis.pdwVirtualEnd)};
  if (!bCanBe) {
    Reference_LoseByAnswer(pThis, tAxis, "MOTOR_STOP_WALK", iDriverLeft);
    return;
  }
  Word_Store(dwPosition, static_cast<u32>(llPosition));
  if (iPart == 0) return;

  // The direction still stands: finish the broken virtual step, so that the counter names a place.
  if (!Axis_RequestWalk(pThis, tAxis, fd, iPart)) return;
  if (g_tVernierLensdConfigInfo.bBlockingMode == 0) Delay_us(Axis_Config(tAxis.pdwOneStepTime));
}

// Returns 0, or -1 if the lens lacks the axis, or the move was interrupted or refused.  A newer command in the block is
// left alone.
i32 Axis_RunCommand(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd) {
  if (pThis->*tAxis.pbSupport == 0) return -1;
  Axis_ResolveTarget(pThis, tAxis);
  const TMotorCommand& tRunning = Axis_Box(pThis, tAxis).tRunning;
  const bool bMoves = tRunning.dwDirection == DIRECTION_DIRECT;
  const i32 iResult = bMoves ? Axis_Move(pThis, tAxis, fd, tRunning.dwPosition) : 0;
  // A held button must not ask a refusing driver for ever.
  if (iResult != 0) Command_WriteBack(pThis, tAxis, &TMotorCommand::bZoomContinuous, 0);
  Command_Finish(pThis, tAxis);
  return iResult;
}

// Starts the focus search that was to follow this zoom, on the zoom's channel.
void StartChainedFocus(TVernierLensdInfo* pThis) {
  const u32 dwFunction = pThis->dwChainedFocusCommand;
  pThis->dwChainedFocusCommand = FUNCTION_IDLE;
  if (dwFunction != FUNCTION_AUTO && dwFunction != FUNCTION_SCAN) return;
  std::puts(dwFunction == FUNCTION_AUTO ? "[vernierlensd] : Start auto focus..."
                                        : "[vernierlensd] : Start focus scan...");
  const i32 iWoken =
      Command_SendFollowUp(pThis, g_tFocusAxis, Command_Running(pThis, g_tZoomAxis), [&](TMotorCommand& tBlock) {
        Word_Store(tBlock.bIris, 1);
        Word_Store(tBlock.dwFunction, dwFunction);
      });
  if (iWoken != 0) std::puts(g_tFocusAxis.szWakeFailed);
}

}  // namespace

i32 VernierLensd_MoveZoom(TVernierLensdInfo* pThis, i32 fd, u32 dwTarget) {
  return Axis_Move(pThis, g_tZoomAxis, fd, dwTarget);
}

i32 VernierLensd_MoveFocus(TVernierLensdInfo* pThis, i32 fd, u32 dwTarget) {
  return Axis_Move(pThis, g_tFocusAxis, fd, dwTarget);
}

void VernierLensd_RecoverZoomMove(TVernierLensdInfo* pThis, i32 fd, u32 dwLeft, u32 bForward) {
  Axis_Recover(
      pThis, g_tZoomAxis, fd,
      {.dwLeft = dwLeft, .eDirection = bForward != 0 ? DIRECTION_FORWARD : DIRECTION_BACKWARD, .iAsked = iUnknownWalk});
}

void VernierLensd_RecoverFocusMove(TVernierLensdInfo* pThis, i32 fd, u32 dwLeft, u32 bForward) {
  Axis_Recover(
      pThis, g_tFocusAxis, fd,
      {.dwLeft = dwLeft, .eDirection = bForward != 0 ? DIRECTION_FORWARD : DIRECTION_BACKWARD, .iAsked = iUnknownWalk});
}

bool Axis_SetDirection(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, EDirection eDirection) {
  const bool bForward = eDirection == DIRECTION_FORWARD;
  const i32 iAnswer = Motor_Request(fd, bForward ? MOTOR_SET_FORWARD : MOTOR_SET_BACKWARD);
  if (iAnswer < 0) Reference_LoseByAnswer(pThis, tAxis, bForward ? "MOTOR_SET_FORWARD" : "MOTOR_SET_BACKWARD", iAnswer);
  return iAnswer >= 0;
}

bool Axis_RequestWalk(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd, i32 iDriverSteps) {
  const bool bBlocking = g_tVernierLensdConfigInfo.bBlockingMode != 0;
  const i32 iAnswer = Motor_Request(fd, bBlocking ? MOTOR_WALK_STEPS_BLOCK : MOTOR_WALK_STEPS, iDriverSteps);
  if (iAnswer < 0) {
    Reference_LoseByAnswer(pThis, tAxis, bBlocking ? "MOTOR_WALK_STEPS_BLOCK" : "MOTOR_WALK_STEPS", iAnswer);
  }
  return iAnswer >= 0;
}

void Axis_ResolveTarget(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  TMotorCommand& tRunning = Axis_Box(pThis, tAxis).tRunning;
  if (tRunning.dwDirection == DIRECTION_DIRECT) return;
  if (tRunning.dwSteps > dwMaxRelativeSteps) {
    tRunning.dwSteps = dwMaxRelativeSteps;
    Command_WriteBack(pThis, tAxis, &TMotorCommand::dwSteps, dwMaxRelativeSteps);
  }
  if (tRunning.dwDirection > DIRECTION_DIRECT) return;
  const u32 dwPosition = Word_Load(Axis_Position(pThis, tAxis));
  const bool bForward = tRunning.dwDirection == DIRECTION_FORWARD;
  tRunning.dwPosition = bForward ? dwPosition + tRunning.dwSteps : dwPosition - tRunning.dwSteps;
  tRunning.dwDirection = DIRECTION_DIRECT;
}

i32 VernierLensd_ZoomCommand(TVernierLensdInfo* pThis, i32 fd) {
  const i32 iResult = Axis_RunCommand(pThis, g_tZoomAxis, fd);
  if (iResult == 0) StartChainedFocus(pThis);
  return iResult;
}

i32 VernierLensd_FocusCommand(TVernierLensdInfo* pThis, i32 fd) {
  return Axis_RunCommand(pThis, g_tFocusAxis, fd);
}
