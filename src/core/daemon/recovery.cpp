#include "core/daemon/recovery.h"

#include <algorithm>
#include <cstdio>

#include "core/working_log.h"
#include "motor/command_box.h"
#include "motor/focus_recovery.h"
#include "motor/positioning.h"
#include "motor/reference.h"

namespace {

void CreateLogs(const TVernierLensdInfo* pThis) {
  if (pThis->bSupportZoom != 0) VernierLensd_ZoomCreateLogFile();
  if (pThis->bSupportFocus != 0) VernierLensd_FocusCreateLogFile();
}

void LoseAll(TVernierLensdInfo* pThis) {
  Reference_LoseAll(pThis, g_tZoomAxis);
  Reference_LoseAll(pThis, g_tFocusAxis);
  std::ranges::fill(pThis->abNightModeUnknown, 1U);
}

void SendPositioning(TVernierLensdInfo* pThis, const TAxis& tAxis, TCommandId tId) {
  if (pThis->*tAxis.pbSupport == 0) return;
  const i32 iWoken = Command_Send(pThis, tAxis, tId, [&](TMotorCommand& tBlock) {
    Positioning_Write(tAxis, &tBlock, FUNCTION_POSITIONING);
    Axis_Box(pThis, tAxis).bReferenceDue = 1;
  });
  if (iWoken != 0) std::puts(tAxis.szWakeFailed);
}

}  // namespace

void Recovery_LookAtLogs(TVernierLensdInfo* pThis) {
  const bool bWrongPositions = pThis->bPowerLost != 0;
  if (VernierLensd_ZoomLogExists() == 0 || VernierLensd_FocusLogExists() == 0) pThis->bPowerLost = 1;
  if (pThis->bPowerLost == 0) return;
  LoseAll(pThis);
  if (bWrongPositions) CreateLogs(pThis);  // the next save would hide the wrong positions from the next start
}

void Recovery_LoseReferences(TVernierLensdInfo* pThis) {
  CreateLogs(pThis);
  LoseAll(pThis);
}

void VernierLensd_CheckPowerLoss(TVernierLensdInfo* pThis) {
  if (pThis->bPowerLost != 0) {
    std::puts("[vernierlensd] : Power loss unexpectedly! Need positioning.");
    const TCommandId tId = Command_New(0);
    if (pThis->bSupportFocus != 0) FocusRecovery_Begin(pThis, tId);
    SendPositioning(pThis, g_tFocusAxis, tId);
    SendPositioning(pThis, g_tZoomAxis, tId);
  }
  Word_Publish(pThis->bPowerLossChecked, 1);
}
