#include "motor/command_box.h"

#include <sys/socket.h>

#include <atomic>
#include <utility>

namespace {

std::atomic<u32> g_dwLastNumber = 0;  // the last number given, for both axes together

bool IsIdle(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  return Word_Load(pThis->*tAxis.pbWake) == 0 && Word_Load(Axis_Command(pThis, tAxis).dwFunction) == FUNCTION_IDLE;
}

// If the block holds a wish, notes it in the box, or removes the note if bNote is false.  Returns false if the block
// holds no wish.  Under the lock.
bool SetWishNote(TCommandBox& tBox, const TMotorCommand& tBlock, bool bNote) {
  TFocusWishes& tWishes = tBox.tWishes;
  const u32 dwFunction = Word_Load(tBlock.dwFunction);
  if (Function_Demand(dwFunction) != DEMAND_WISH) return false;
  if (dwFunction == FUNCTION_SETFOCUSDEFAULT) {
    tWishes.bDefaultPosition = bNote ? 1 : 0;
    tWishes.dwDefaultPosition = Word_Load(tBlock.dwDefaultPosition);
  } else {
    const EIrisWish eWish = dwFunction == FUNCTION_IRISOPEN ? IRIS_OPEN : IRIS_GIVE_BACK;
    tWishes.aeIris[tBox.iChannel] = bNote ? eWish : IRIS_NO_WISH;
  }
  return true;
}

void CopyToRunning(TCommandBox& tBox, const TMotorCommand& tBlock) {
  tBox.bBusy = 1;
  tBox.tRunning = {
      .dwFunction = Word_Load(tBlock.dwFunction),
      .dwDirection = Word_Load(tBlock.dwDirection),
      .dwSteps = Word_Load(tBlock.dwSteps),
      .dwPosition = Word_Load(tBlock.dwPosition),
      .dwDefaultPosition = Word_Load(tBlock.dwDefaultPosition),
      .dwStart = Word_Load(tBlock.dwStart),
      .dwEnd = Word_Load(tBlock.dwEnd),
      .bIris = Word_Load(tBlock.bIris),
      .bZoomContinuous = Word_Load(tBlock.bZoomContinuous),
  };
  tBox.bRunningStop = tBox.bStop;
  tBox.iRunningChannel = tBox.iChannel;
  tBox.dwRunningNumber = tBox.dwNumber;
}

}  // namespace

EDemand Function_Demand(u32 dwFunction) {
  switch (static_cast<EFunction>(dwFunction)) {
    case FUNCTION_ZOOM:
    case FUNCTION_FOCUS:
    case FUNCTION_AUTO:
    case FUNCTION_SCAN:
    case FUNCTION_POSITIONING:
    case FUNCTION_MOTORRESET:
    case FUNCTION_RESETFOCUS:
      return DEMAND_WALK;
    case FUNCTION_STOP:
      return DEMAND_STOP;
    case FUNCTION_IRISOPEN:
    case FUNCTION_IRISENABLE:
    case FUNCTION_SETFOCUSDEFAULT:
      return DEMAND_WISH;
    case FUNCTION_IDLE:
    case FUNCTION_GETSTATUS:
    case FUNCTION_GETPARAM:
    case FUNCTION_GETFOCUSDEFAULT:
      break;
  }
  return DEMAND_NONE;
}

void Command_Lock(TCommandBox& tBox) {
  pthread_mutex_lock(&tBox.mutex);
}

void Command_Unlock(TCommandBox& tBox) {
  pthread_mutex_unlock(&tBox.mutex);
}

TCommandId Command_New(i32 iChannel) {
  return {.iChannel = iChannel, .dwNumber = ++g_dwLastNumber};
}

TCommandId Command_Running(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  const TCommandBox& tBox = Axis_Box(pThis, tAxis);
  return {.iChannel = tBox.iRunningChannel, .dwNumber = tBox.dwRunningNumber};
}

bool Command_MayFollow(TVernierLensdInfo* pThis, const TAxis& tAxis, u32 dwNumber) {
  return static_cast<i32>(Axis_Box(pThis, tAxis).dwNumber - dwNumber) <= 0;
}

void Command_Publish(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 iChannel, u32 dwNumber) {
  TCommandBox& tBox = Axis_Box(pThis, tAxis);
  tBox.iChannel = iChannel;
  const TMotorCommand& tBlock = Axis_Command(pThis, tAxis);
  if (!SetWishNote(tBox, tBlock, true)) {
    tBox.dwNumber = dwNumber;
    tBox.bStop = Function_Demand(Word_Load(tBlock.dwFunction)) == DEMAND_STOP ? 1 : 0;
  }
  Word_Publish(pThis->*tAxis.pbWake, 1);
}

i32 Command_Wake(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  const i32* aiPair = pThis->*tAxis.paiWakePair;
  const u32 bWake = 1;
  u32 dwDrained = 0;
  // An axis that the lens lacks has no thread to read its pair.  Without this, years of auto focus would fill the pair.
  if (pThis->*tAxis.pbSupport == 0) {
    while (recv(aiPair[1], &dwDrained, sizeof dwDrained, MSG_DONTWAIT) > 0) {
    }
  }
  return send(aiPair[0], &bWake, sizeof bWake, MSG_DONTWAIT) < 0 ? -1 : 0;
}

void Command_WakeAgain(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  if (Word_Load(pThis->*tAxis.pbWake) != 0) Command_Wake(pThis, tAxis);
}

void Command_Take(TVernierLensdInfo* pThis, const TAxis& tAxis, FTaken pfnTaken) {
  TCommandBox& tBox = Axis_Box(pThis, tAxis);
  if (tBox.bClaimed != 0) return;
  Command_Lock(tBox);
  Word_Publish(pThis->*tAxis.pbWake, 0);
  CopyToRunning(tBox, Axis_Command(pThis, tAxis));
  const bool bWish = SetWishNote(tBox, Axis_Command(pThis, tAxis), false);
  if (!bWish && tBox.bRunningStop == 0) tBox.bReferenceDue = 0;
  if (tBox.dwFollowOwed == tBox.dwNumber) tBox.dwFollowOwed = 0;
  if (pfnTaken != nullptr) pfnTaken(pThis);
  Command_Unlock(tBox);
}

TFocusWishes Command_TakeWishes(TVernierLensdInfo* pThis) {
  Command_Lock(pThis->tFocusBox);
  const TFocusWishes tWishes = std::exchange(pThis->tFocusBox.tWishes, {});
  Command_Unlock(pThis->tFocusBox);
  return tWishes;
}

bool Command_ClaimFocusMove(TVernierLensdInfo* pThis, i32 iChannel, u32 dwPosition) {
  TCommandBox& tBox = pThis->tFocusBox;
  TMotorCommand& tBlock = pThis->tFocusCommand;
  Command_Lock(tBox);
  const bool bIdle = IsIdle(pThis, g_tFocusAxis) && !Daemon_IsEnding();
  if (bIdle) {
    Word_Store(tBlock.dwFunction, FUNCTION_FOCUS);
    Word_Store(tBlock.dwDirection, DIRECTION_DIRECT);
    Word_Store(tBlock.dwPosition, dwPosition);
    Word_Store(pThis->bThermalRecheck, 0);  // no client has chosen this position
    tBox.iChannel = iChannel;
    CopyToRunning(tBox, tBlock);
    tBox.bClaimed = 1;
  }
  Command_Unlock(tBox);
  return bIdle;
}

bool Command_IsIdle(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  TCommandBox& tBox = Axis_Box(pThis, tAxis);
  Command_Lock(tBox);
  const bool bIdle = IsIdle(pThis, tAxis);
  Command_Unlock(tBox);
  return bIdle;
}

bool Command_IsBusy(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  TCommandBox& tBox = Axis_Box(pThis, tAxis);
  Command_Lock(tBox);
  const bool bBusy = tBox.bBusy != 0 || Word_Load(pThis->*tAxis.pbWake) != 0;
  Command_Unlock(tBox);
  return bBusy;
}

bool Command_StandsIn(TVernierLensdInfo* pThis, const TAxis& tAxis, u32 dwNumber) {
  TCommandBox& tBox = Axis_Box(pThis, tAxis);
  Command_Lock(tBox);
  const bool bStands = tBox.dwNumber == dwNumber;
  Command_Unlock(tBox);
  return bStands;
}

void Command_Leave(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  TCommandBox& tBox = Axis_Box(pThis, tAxis);
  Command_Lock(tBox);
  tBox.bBusy = 0;
  tBox.bClaimed = 0;
  Command_Unlock(tBox);
}

void Command_Finish(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  Command_WriteBack(pThis, tAxis, &TMotorCommand::dwFunction, FUNCTION_IDLE);
}

void Command_WriteBack(TVernierLensdInfo* pThis, const TAxis& tAxis, u32 TMotorCommand::*pdwWord, u32 dwValue) {
  TCommandBox& tBox = Axis_Box(pThis, tAxis);
  Command_Lock(tBox);
  if (Word_Load(pThis->*tAxis.pbWake) == 0) Word_Store(Axis_Command(pThis, tAxis).*pdwWord, dwValue);
  Command_Unlock(tBox);
}
