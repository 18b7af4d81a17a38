#include "motor/focus_recovery.h"

#include <algorithm>
#include <cstdio>

#include "motor/command_box.h"
#include "motor/reference.h"

namespace {

// From here on the recovery of the channel is a part of the running command.
void JoinRunningCommand(TVernierLensdInfo* pThis, i32 iChannel) {
  TCommandBox& tBox = pThis->tFocusBox;
  tBox.tRecovery.tGoesOn = {.iChannel = iChannel, .dwNumber = tBox.dwRunningNumber};
  tBox.tRecovery.bOvertaken = 0;
}

}  // namespace

void FocusRecovery_Begin(TVernierLensdInfo* pThis, TCommandId tOf) {
  pThis->tFocusBox.tRecovery.tGoesOn = tOf;
  pThis->tFocusBox.tRecovery.aeMissing[tOf.iChannel] = RECOVERY_NEEDS_REFERENCE;
}

void FocusRecovery_MakeWay(TVernierLensdInfo* pThis) {
  const TCommandBox& tBox = pThis->tFocusBox;
  if (tBox.bClaimed != 0 || tBox.dwRunningNumber == tBox.tRecovery.tGoesOn.dwNumber) return;
  // The wish has the number of a newer move or search that it was written over.  Nobody has taken that one.
  if (Function_Demand(tBox.tRunning.dwFunction) == DEMAND_WISH && tBox.bRunningStop == 0) return;
  pThis->tFocusBox.tRecovery.bOvertaken = 1;
}

// After a power cut the day/night mode is unknown until a search has found focus.  A motor reset asks only for the
// reference: a search follows only if the reference was lost or a recovery is not complete.
bool FocusRecovery_NeedsSearch(const TVernierLensdInfo* pThis) {
  const TCommandBox& tBox = pThis->tFocusBox;
  const i32 iChannel = tBox.iRunningChannel;
  if (pThis->abNightModeUnknown[iChannel] == 0) return false;
  return tBox.tRunning.dwFunction == FUNCTION_POSITIONING || Reference_IsLost(pThis, g_tFocusAxis, iChannel) ||
         tBox.tRecovery.aeMissing[iChannel] != RECOVERY_DONE;
}

void FocusRecovery_LeaveSearch(TVernierLensdInfo* pThis) {
  TCommandBox& tBox = pThis->tFocusBox;
  tBox.tRecovery.aeMissing[tBox.iRunningChannel] = RECOVERY_NEEDS_SEARCH;
  if (tBox.tRunning.dwFunction == FUNCTION_POSITIONING) JoinRunningCommand(pThis, tBox.iRunningChannel);
}

void FocusRecovery_TakeSearch(TVernierLensdInfo* pThis) {
  const i32 iChannel = pThis->tFocusBox.iRunningChannel;
  u32& eMissing = pThis->tFocusBox.tRecovery.aeMissing[iChannel];
  if (eMissing == RECOVERY_DONE) return;
  eMissing = RECOVERY_NEEDS_SEARCH;
  JoinRunningCommand(pThis, iChannel);
}

void FocusRecovery_End(TVernierLensdInfo* pThis) {
  pThis->tFocusBox.tRecovery.aeMissing[pThis->tFocusBox.iRunningChannel] = RECOVERY_DONE;
}

bool FocusRecovery_HoldsLog(const TVernierLensdInfo* pThis, const TAxis& tAxis) {
  return std::ranges::any_of((pThis->*tAxis.ptBox).tRecovery.aeMissing,
                             [](u32 eMissing) { return eMissing != RECOVERY_DONE; });
}

bool FocusRecovery_Resume(TVernierLensdInfo* pThis) {
  const TRecovery& tRecovery = pThis->tFocusBox.tRecovery;
  const i32 iChannel = tRecovery.tGoesOn.iChannel;
  const u32 eMissing = tRecovery.aeMissing[iChannel];
  if (eMissing == RECOVERY_DONE || tRecovery.bOvertaken != 0) return false;
  JoinRunningCommand(pThis, iChannel);
  const u32 dwFunction = eMissing == RECOVERY_NEEDS_SEARCH ? FUNCTION_AUTO : FUNCTION_POSITIONING;
  const i32 iWoken = Command_SendFollowUp(pThis, g_tFocusAxis, tRecovery.tGoesOn,
                                          [&](TMotorCommand& tBlock) { Word_Store(tBlock.dwFunction, dwFunction); });
  if (iWoken != 0) std::puts(g_tFocusAxis.szWakeFailed);
  return true;
}
