#include "lens/lens.h"

#include <cerrno>
#include <cstring>

#include "motor/motor_device.h"

namespace {

constexpr u64 qwNanosPerMicro = 1000;
constexpr i64 llMicrosPerSecond = 1'000'000;

TDriverAnswer Answer(i32 iResult, u64 qwUntil_us = 0) {
  return {iResult, 0, qwUntil_us};
}
TDriverAnswer Refuse(i32 iErrno) {
  return {-1, iErrno, 0};
}

u64 Walk_Duration_us(const TAxisModel& tModel, i32 iCount) {
  return (static_cast<u64>(iCount) * tModel.qwStepTime_ns + qwNanosPerMicro - 1) / qwNanosPerMicro;
}

// True if a fault takes this driver step.
bool Axis_SlipsNow(TAxisTruth& tAxis) {
  if (tAxis.iSlipNow > 0) {
    --tAxis.iSlipNow;
    return true;
  }
  if (tAxis.iSlipOneIn > 0 && ++tAxis.iSlipCount >= tAxis.iSlipOneIn) {
    tAxis.iSlipCount = 0;
    return true;
  }
  return false;
}

bool Axis_IsAtStop(const TAxisModel& tModel, const TAxisTruth& tAxis, bool bForward) {
  return bForward ? tAxis.iRotor >= tModel.iTravel : tAxis.iRotor <= 0;
}

// One driver step: the rotor turns unless a stop or a fault takes the step, and the glass follows through the slack.
void Axis_Step(const TAxisModel& tModel, TAxisTruth& tAxis, bool bForward) {
  if (Axis_IsAtStop(tModel, tAxis, bForward)) {
    ++tAxis.iLostToStops;
    return;
  }
  if (tAxis.bSticky != 0 || Axis_SlipsNow(tAxis)) {
    ++tAxis.iLostToFaults;
    return;
  }
  tAxis.iRotor += bForward ? 1 : -1;
  if (tAxis.iGlass < tAxis.iRotor) tAxis.iGlass = tAxis.iRotor;
  if (tAxis.iGlass > tAxis.iRotor + tModel.iSlack) tAxis.iGlass = tAxis.iRotor + tModel.iSlack;
}

void Axis_Walk(const TAxisModel& tModel, TAxisTruth& tAxis, u64 qwNow_us) {
  if (tAxis.iWalkCount == 0 || qwNow_us <= tAxis.qwWalkStart_us) return;
  const u64 qwPassed = (qwNow_us - tAxis.qwWalkStart_us) * qwNanosPerMicro / tModel.qwStepTime_ns;
  const u64 qwCount = static_cast<u64>(tAxis.iWalkCount);
  const i32 iDue = static_cast<i32>(qwPassed < qwCount ? qwPassed : qwCount);
  for (; tAxis.iWalkDone < iDue; ++tAxis.iWalkDone) Axis_Step(tModel, tAxis, tAxis.bWalkForward != 0);
  if (tAxis.iWalkDone == tAxis.iWalkCount) tAxis.iWalkCount = tAxis.iWalkDone = 0;
}

// Settles the axis.  On the way it notes the glass at the frame's beginning, however rarely this is called.
void Axis_Settle(const TAxisModel& tModel, TAxisTruth& tAxis, u64 qwNow_us) {
  const u64 qwFrame = qwNow_us / qwFrameTime_us;
  if (qwFrame != tAxis.qwFrame) {
    Axis_Walk(tModel, tAxis, qwFrame * qwFrameTime_us);
    tAxis.qwFrame = qwFrame;
    tAxis.iFrameGlass = tAxis.iGlass;
  }
  Axis_Walk(tModel, tAxis, qwNow_us);
}

// Ends the walk of a settled axis.  Returns the driver steps that were still to go.
i32 Axis_EndWalk(TAxisTruth& tAxis) {
  const i32 iLeft = tAxis.iWalkCount - tAxis.iWalkDone;
  tAxis.iWalkCount = tAxis.iWalkDone = 0;
  return iLeft;
}

// After power-on a driver stands still, and its direction is forward.
void Axis_Wake(TAxisTruth& tAxis) {
  Axis_EndWalk(tAxis);
  tAxis.bForward = 1;
}

// Starts a walk of a settled axis.  Returns the time at which it will have ended.
u64 Axis_StartWalk(const TAxisModel& tModel, TAxisTruth& tAxis, bool bForward, i32 iCount, u64 qwNow_us) {
  Axis_EndWalk(tAxis);
  tAxis.iWalkCount = iCount;
  tAxis.bWalkForward = bForward;
  tAxis.qwWalkStart_us = qwNow_us;
  return qwNow_us + Walk_Duration_us(tModel, iCount);
}

// Driver steps after which a walk stands at the PI sensor: 0 if it stands there already, -1 if iCount steps do not
// reach it.  The walk is tried on a copy of the axis, since steps may be lost on the way.
i32 Axis_StepsToPI(const TAxisModel& tModel, TAxisTruth tAxis, bool bForward, i32 iCount) {
  if (tAxis.iRotor == tModel.iPI) return 0;
  for (i32 iStep = 1; iStep <= iCount; ++iStep) {
    Axis_Step(tModel, tAxis, bForward);
    if (tAxis.iRotor == tModel.iPI) return iStep;
  }
  return -1;
}

TDriverAnswer Axis_SearchPI(const TAxisModel& tModel, TAxisTruth& tAxis, bool bPower, i32 iCount, u64 qwNow_us) {
  Axis_EndWalk(tAxis);
  if (tModel.iPI < 0 || !bPower) return Refuse(EIO);
  const bool bForward = tAxis.iRotor == tModel.iPI ? tAxis.bForward != 0 : tAxis.iRotor < tModel.iPI;
  const i32 iSteps = Axis_StepsToPI(tModel, tAxis, bForward, iCount);
  const u64 qwUntil_us = Axis_StartWalk(tModel, tAxis, bForward, iSteps < 0 ? iCount : iSteps, qwNow_us);
  return {iSteps < 0 ? -1 : 0, iSteps < 0 ? EIO : 0, qwUntil_us};
}

TDriverAnswer Axis_CheckPIWalk(const TAxisModel& tModel, TAxisTruth& tAxis, i32 iCount, u64 qwNow_us) {
  if (tModel.bCheckPIWalk == 0) return Refuse(EOPNOTSUPP);
  Axis_EndWalk(tAxis);
  const bool bForward = tAxis.bForward != 0;
  const i32 iSteps = Axis_StepsToPI(tModel, tAxis, bForward, iCount);
  return Answer(0, Axis_StartWalk(tModel, tAxis, bForward, iSteps < 0 ? iCount : iSteps, qwNow_us));
}

TDriverAnswer Stepper_Request(TLens* ptLens, ELensAxis eAxis, u32 dwRequest, i32 iArgument, u64 qwNow_us) {
  const bool bPark = ptLens->bICS != 0;
  const TAxisModel& tModel = bPark ? ptLens->tParkModel : ptLens->atModel[eAxis];
  if (tModel.bPresent == 0) return Refuse(ENODEV);
  TAxisTruth& tAxis = bPark ? ptLens->tParkAxis : ptLens->atAxis[ptLens->adwSelected[eAxis]][eAxis];
  // Settle before any request: a new direction must not change the steps already made.
  Axis_Settle(tModel, tAxis, qwNow_us);

  switch (dwRequest) {
    case MOTOR_SET_FORWARD:
      tAxis.bForward = 1;
      return Answer(0);
    case MOTOR_SET_BACKWARD:
      tAxis.bForward = 0;
      return Answer(0);
    case MOTOR_STOP_WALK:
      return Answer(Axis_EndWalk(tAxis));
    case MOTOR_SET_PI_POWER_ON:
    case MOTOR_SET_PI_POWER_OFF:
      ptLens->bPIPower = dwRequest == MOTOR_SET_PI_POWER_ON ? 1 : 0;
      return Answer(0);
    case MOTOR_SELECT_DEVICE:
      if (iArgument < 0 || iArgument >= iLensChannels) return Refuse(EINVAL);
      ptLens->adwSelected[eAxis] = static_cast<u32>(iArgument);
      return Answer(0);
    default:
      break;
  }

  if (iArgument < 0) return Refuse(EINVAL);
  switch (dwRequest) {
    case MOTOR_WALK_STEPS:
      Axis_StartWalk(tModel, tAxis, tAxis.bForward != 0, iArgument, qwNow_us);
      return Answer(0);
    case MOTOR_WALK_STEPS_BLOCK:
      return Answer(0, Axis_StartWalk(tModel, tAxis, tAxis.bForward != 0, iArgument, qwNow_us));
    case MOTOR_SEARCH_PI:
      return Axis_SearchPI(tModel, tAxis, ptLens->bPIPower != 0, iArgument, qwNow_us);
    case MOTOR_CHECK_PI_WALK_STEPS:
      return Axis_CheckPIWalk(tModel, tAxis, iArgument, qwNow_us);
    default:
      return Refuse(ENOTTY);
  }
}

bool Fault_Takes(TDriverFault& tFault, u32 dwRequest) {
  if (tFault.iTimes == 0 || (tFault.dwRequest != 0 && tFault.dwRequest != dwRequest)) return false;
  if (tFault.iPassed > 0) {
    --tFault.iPassed;
    return false;
  }
  --tFault.iTimes;
  return true;
}

TDriverAnswer Driver_Request(TLens* ptLens, ELensAxis eAxis, u32 dwRequest, i32 iArgument, u64 qwNow_us) {
  TDriverFault& tFault = ptLens->atFault[eAxis];
  const bool bWrong = Fault_Takes(tFault, dwRequest);
  if (bWrong && tFault.iAdded == 0) return Refuse(EIO);
  TDriverAnswer tAnswer = Stepper_Request(ptLens, eAxis, dwRequest, iArgument, qwNow_us);
  if (bWrong) tAnswer.iResult += tFault.iAdded;
  return tAnswer;
}

i32 ICS_Position(const TICSAxisTruth& tAxis, u64 qwNow_us) {
  const i64 llPassed_us = qwNow_us > tAxis.qwMoveStart_us ? static_cast<i64>(qwNow_us - tAxis.qwMoveStart_us) : 0;
  const i64 llDistance = static_cast<i64>(tAxis.iTarget) - tAxis.iFrom;
  const i64 llLength = llDistance < 0 ? -llDistance : llDistance;
  // A pause of years between two requests must not overflow the product.
  const bool bDone = tAxis.iSpeed > 0 && llPassed_us / llMicrosPerSecond > llLength / tAxis.iSpeed;
  if (bDone) return tAxis.iTarget;
  const i64 llSteps = llPassed_us * tAxis.iSpeed / llMicrosPerSecond;
  if (llSteps >= llLength) return tAxis.iTarget;
  return static_cast<i32>(tAxis.iFrom + (llDistance < 0 ? -llSteps : llSteps));
}

void ICS_HoldAt(TICSAxisTruth& tAxis, u64 qwNow_us) {
  tAxis.iFrom = ICS_Position(tAxis, qwNow_us);
  tAxis.qwMoveStart_us = qwNow_us;
}

void ICS_Stop(TLens* ptLens, u64 qwNow_us) {
  for (TICSAxisTruth& tAxis : ptLens->atICS) {
    ICS_HoldAt(tAxis, qwNow_us);
    tAxis.iTarget = tAxis.iFrom;
  }
}

// An ICS lens has no slack and loses no steps: rotor and glass are where the driver says.
void ICS_Settle(TLens* ptLens, u64 qwNow_us) {
  for (u32 dwAxis = 0; dwAxis < LENS_AXES; ++dwAxis) {
    const u64 qwFrame = qwNow_us / qwFrameTime_us;
    const i32 iNow = ICS_Position(ptLens->atICS[dwAxis], qwNow_us);
    for (auto& atChannel : ptLens->atAxis) {
      TAxisTruth& tAxis = atChannel[dwAxis];
      tAxis.iRotor = tAxis.iGlass = iNow;
      if (tAxis.qwFrame == qwFrame) continue;  // noted already; a new target may have changed the course since
      tAxis.qwFrame = qwFrame;
      tAxis.iFrameGlass = ICS_Position(ptLens->atICS[dwAxis], qwFrame * qwFrameTime_us);
    }
  }
}

TDriverAnswer ICS_SetPosition(TLens* ptLens, ELensAxis eAxis, i32 iTarget, u64 qwNow_us) {
  TICSAxisTruth& tAxis = ptLens->atICS[eAxis];
  ICS_HoldAt(tAxis, qwNow_us);
  tAxis.iTarget = iTarget < tAxis.iMin ? tAxis.iMin : iTarget > tAxis.iMax ? tAxis.iMax : iTarget;
  return Answer(0);
}

TDriverAnswer ICS_SetSpeed(TLens* ptLens, ELensAxis eAxis, i32 iSpeed, u64 qwNow_us) {
  if (iSpeed < 0) return Refuse(EINVAL);
  ICS_HoldAt(ptLens->atICS[eAxis], qwNow_us);
  ptLens->atICS[eAxis].iSpeed = iSpeed;
  return Answer(0);
}

bool ICS_IsGet(u32 dwRequest) {
  const char* pszName = Lens_RequestName(DEVICE_ICS, dwRequest);
  return pszName != nullptr && std::strncmp(pszName, "ICS_GET_", 8) == 0;
}

TDriverAnswer ICS_Request(TLens* ptLens, u32 dwRequest, i32 iArgument, u64 qwNow_us) {
  if (ptLens->bICS == 0) return Refuse(ENODEV);
  if (ptLens->bICSDetached != 0 && dwRequest != ICS_CHECK_DETACHED) return Refuse(EIO);
  if (ptLens->bICSGetsFail != 0 && ICS_IsGet(dwRequest)) return Refuse(EIO);
  ICS_Settle(ptLens, qwNow_us);
  const TICSAxisTruth& tZoom = ptLens->atICS[LENS_ZOOM];
  const TICSAxisTruth& tFocus = ptLens->atICS[LENS_FOCUS];
  switch (dwRequest) {
    case ICS_GET_FOCUS_PI_POSITION:
      return Answer(tFocus.iPI);
    case ICS_GET_ZOOM_PI_POSITION:
      return Answer(tZoom.iPI);
    case ICS_GET_FOCUS_POSITION:
      return Answer(ICS_Position(tFocus, qwNow_us));
    case ICS_GET_ZOOM_POSITION:
      return Answer(ICS_Position(tZoom, qwNow_us));
    case ICS_GET_ZOOM_MIN:
      return Answer(tZoom.iMin);
    case ICS_GET_ZOOM_MAX:
      return Answer(tZoom.iMax);
    case ICS_GET_FOCUS_MIN:
      return Answer(tFocus.iMin);
    case ICS_GET_FOCUS_MAX:
      return Answer(tFocus.iMax);
    case ICS_GET_FOCUS_SPEED:
      return Answer(tFocus.iSpeed);
    case ICS_GET_ZOOM_SPEED:
      return Answer(tZoom.iSpeed);
    case ICS_GET_FOCUS_HOME:
      return Answer(tFocus.iHome);
    case ICS_GET_ZOOM_HOME:
      return Answer(tZoom.iHome);
    case ICS_INIT_STEP_A:
    case ICS_INIT_STEP_B:
      return Answer(0);
    case ICS_SET_FOCUS_POSITION:
      return ICS_SetPosition(ptLens, LENS_FOCUS, iArgument, qwNow_us);
    case ICS_SET_ZOOM_POSITION:
      return ICS_SetPosition(ptLens, LENS_ZOOM, iArgument, qwNow_us);
    case ICS_SET_FOCUS_SPEED:
      return ICS_SetSpeed(ptLens, LENS_FOCUS, iArgument, qwNow_us);
    case ICS_SET_ZOOM_SPEED:
      return ICS_SetSpeed(ptLens, LENS_ZOOM, iArgument, qwNow_us);
    case ICS_GET_AD_VALUE:
      return Answer(ptLens->iAD);
    case ICS_GET_MIN_AD:
      return Answer(ptLens->iMinAD);
    case ICS_GET_MAX_AD:
      return Answer(ptLens->iMaxAD);
    case ICS_CHECK_DETACHED:
      if (iArgument != 1) return Refuse(EINVAL);
      return Answer(ptLens->bICSDetached != 0 ? 1 : 0);
    default:
      return Refuse(ENOTTY);
  }
}

double InVirtualSteps(const TAxisModel& tModel, i32 iPlace) {
  if (tModel.iDriverPerVirtual == 0) return 0;
  return static_cast<double>(iPlace - tModel.iOrigin) / tModel.iDriverPerVirtual;
}

}  // namespace

TDriverAnswer Lens_Request(TLens* ptLens, ELensDevice eDevice, u32 dwRequest, i32 iArgument, u64 qwNow_us) {
  if (++ptLens->qwRequests == ptLens->qwDetachAtRequest) Lens_SetDetached(ptLens, true, qwNow_us);
  switch (eDevice) {
    case DEVICE_FOCUS_MOTOR:
      return Driver_Request(ptLens, LENS_FOCUS, dwRequest, iArgument, qwNow_us);
    case DEVICE_ZOOM_MOTOR:
      return Driver_Request(ptLens, LENS_ZOOM, dwRequest, iArgument, qwNow_us);
    case DEVICE_ICS:
      return ICS_Request(ptLens, dwRequest, iArgument, qwNow_us);
    case DEVICE_I2C:
      break;
  }
  return Refuse(ENOTTY);
}

void Lens_Settle(TLens* ptLens, u64 qwNow_us) {
  if (ptLens->bICS != 0) {
    ICS_Settle(ptLens, qwNow_us);
    Axis_Settle(ptLens->tParkModel, ptLens->tParkAxis, qwNow_us);
    return;
  }
  for (auto& atChannel : ptLens->atAxis) {
    for (u32 dwAxis = 0; dwAxis < LENS_AXES; ++dwAxis)
      Axis_Settle(ptLens->atModel[dwAxis], atChannel[dwAxis], qwNow_us);
  }
}

void Lens_SetDetached(TLens* ptLens, bool bDetached, u64 qwNow_us) {
  Lens_Settle(ptLens, qwNow_us);
  if (bDetached) ICS_Stop(ptLens, qwNow_us);
  ptLens->bICSDetached = bDetached ? 1 : 0;
}

void Lens_PowerCut(TLens* ptLens, u64 qwNow_us) {
  Lens_Settle(ptLens, qwNow_us);
  for (auto& atChannel : ptLens->atAxis) {
    for (TAxisTruth& tAxis : atChannel) Axis_Wake(tAxis);
  }
  Axis_Wake(ptLens->tParkAxis);
  ptLens->bPIPower = 0;
  for (u32& dwSelected : ptLens->adwSelected) dwSelected = 0;
  ICS_Stop(ptLens, qwNow_us);
}

double Lens_TrueVirtual(const TLens* ptLens, i32 iChannel, ELensAxis eAxis) {
  return InVirtualSteps(ptLens->atModel[eAxis], ptLens->atAxis[iChannel][eAxis].iRotor);
}

double Lens_GlassVirtual(const TLens* ptLens, i32 iChannel, ELensAxis eAxis) {
  return InVirtualSteps(ptLens->atModel[eAxis], ptLens->atAxis[iChannel][eAxis].iGlass);
}

double Lens_FrameGlassVirtual(const TLens* ptLens, i32 iChannel, ELensAxis eAxis) {
  return InVirtualSteps(ptLens->atModel[eAxis], ptLens->atAxis[iChannel][eAxis].iFrameGlass);
}

bool Lens_AxisWalks(const TLens* ptLens, i32 iChannel, ELensAxis eAxis, u64 qwNow_us) {
  if (ptLens->bICS == 0) return ptLens->atAxis[iChannel][eAxis].iWalkCount != 0;
  const TICSAxisTruth& tAxis = ptLens->atICS[eAxis];
  return tAxis.iSpeed > 0 && ICS_Position(tAxis, qwNow_us) != tAxis.iTarget;
}

bool Lens_AxisTurns(const TLens* ptLens, i32 iChannel, ELensAxis eAxis, u64 qwNow_us) {
  if (!Lens_AxisWalks(ptLens, iChannel, eAxis, qwNow_us)) return false;
  const TAxisTruth& tAxis = ptLens->atAxis[iChannel][eAxis];
  if (ptLens->bICS != 0) return true;
  return tAxis.bSticky == 0 && !Axis_IsAtStop(ptLens->atModel[eAxis], tAxis, tAxis.bWalkForward != 0);
}

bool Lens_IsMoving(const TLens* ptLens, u64 qwNow_us) {
  for (const auto& atChannel : ptLens->atAxis) {
    for (u32 dwAxis = 0; dwAxis < LENS_AXES; ++dwAxis) {
      const TAxisTruth& tAxis = atChannel[dwAxis];
      if (tAxis.iWalkCount == 0) continue;
      if (qwNow_us < tAxis.qwWalkStart_us + Walk_Duration_us(ptLens->atModel[dwAxis], tAxis.iWalkCount)) return true;
    }
  }
  if (ptLens->bICS == 0) return false;
  return Lens_AxisWalks(ptLens, 0, LENS_ZOOM, qwNow_us) || Lens_AxisWalks(ptLens, 0, LENS_FOCUS, qwNow_us);
}
