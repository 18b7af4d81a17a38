#include "autofocus/zoom_tracking.h"

#include <algorithm>
#include <cstdio>

#include "config/token_file.h"
#include "core/number.h"
#include "core/paths.h"
#include "core/regular_file.h"
#include "ics/ics_tracking.h"
#include "motor/command_box.h"

namespace {

constexpr const char* szWakingFocusFailed = "[vernierlensd] : Waking up focus thread failed.";

// |a - b| / interval * rem: divided before it is multiplied, in double precision, and cut.
u32 Interpolate(u32 dwDifference, i32 iInterval, u32 dwRemainder) {
  return static_cast<u32>(static_cast<double>(dwDifference) / iInterval * dwRemainder);
}

// If fnMay, asked under the focus's lock, still says so.
template <typename TMay>
void SendToPanFocus(TVernierLensdInfo* pThis, i32 iChannel, TMay fnMay) {
  const bool bWritten = Command_WriteIf(pThis, g_tFocusAxis, iChannel, fnMay, [&](TMotorCommand& tBlock) {
    Word_Store(tBlock.dwDirection, DIRECTION_DIRECT);
    Word_Store(tBlock.dwPosition, Word_Load(pThis->adwPanFocus[iChannel]));
    Word_Store(tBlock.dwFunction, FUNCTION_FOCUS);
    Word_Store(pThis->bThermalRecheck, 0);
  });
  if (bWritten && Command_Wake(pThis, g_tFocusAxis) != 0) std::puts(szWakingFocusFailed);
}

}  // namespace

i32 VernierLensd_LoadPanFocusTable() {
  FILE* pFile = RegularFile_Read(szPanFocusPath);
  if (pFile == nullptr) {
    std::printf("[vernierlensd] : fopen %s failed!\n", szPanFocusPath);
    return 0;
  }
  TToken tToken = {};
  u32 dwEntry = 0;
  // A token that is too long fills its entry too: one left out would shift all that follow.
  while (dwEntry < g_tVernierLensdConfigInfo.dwZoomVirtualTotalStep && TokenFile_NextOfAnyLength(pFile, &tToken)) {
    g_pdwtabFocusPanTable[dwEntry++] = Text_ToU32(tToken.szText);
  }
  std::fclose(pFile);
  return 0;
}

void VernierLensd_UpdatePanFocus(TVernierLensdInfo* pThis, u32 dwZoomPos, i32 iDev) {
  if (pThis->bSupportFocus == 0) return;
  if (pThis->bSupportICS != 0) {
    ICS_PanFocusShift(pThis, dwZoomPos, iDev);
    return;
  }
  const u32 dwEntries = g_tVernierLensdConfigInfo.dwZoomVirtualTotalStep;
  if (g_pdwtabFocusPanTable == nullptr || dwEntries == 0) return;
  const u32 dwEntry = dwZoomPos == 0 ? 0 : std::min(dwZoomPos, dwEntries) - 1;
  Word_Store(pThis->adwPanFocus[iDev], g_pdwtabFocusPanTable[dwEntry]);
}

void VernierLensd_UpdateFocusingStart(TVernierLensdInfo* pThis, u32 dwZoomPos) {
  if (pThis->bSupportFocus == 0 || g_pdwtabFocusingStartTable == nullptr) return;
  const i32 iInterval = std::max(g_tVernierLensdConfigInfo.iZoomPositionInterval, 1);
  const u32 dwInterval = static_cast<u32>(iInterval);
  const u32 dwEntry = dwZoomPos / dwInterval;
  u32 dwStart = g_pdwtabFocusingStartTable[iFocusStartEntries - 1];
  if (dwEntry < iFocusStartEntries - 1) {
    const u32 dwThis = g_pdwtabFocusingStartTable[dwEntry];
    const u32 dwSigned = dwThis - g_pdwtabFocusingStartTable[dwEntry + 1];
    const u32 dwMagnitude = static_cast<i32>(dwSigned) < 0 ? 0U - dwSigned : dwSigned;
    dwStart = dwThis + Interpolate(dwMagnitude, iInterval, dwZoomPos - dwEntry * dwInterval);
  }
  Word_Store(pThis->tFocusCommand.dwStart, dwStart);
}

void VernierLensd_FollowZoom(TVernierLensdInfo* pThis, u32 dwZoomPos) {
  if (pThis->bSupportFocus == 0) return;
  const i32 iChannel = pThis->tZoomBox.iRunningChannel;
  VernierLensd_UpdatePanFocus(pThis, dwZoomPos, iChannel);
  if (pThis->bSupportZoom != 0 && pThis->bSupportICS == 0) VernierLensd_UpdateFocusingStart(pThis, dwZoomPos);
  // A newer command for the lens stops the zoom first and then writes the focus's block: a zoom that is to stop must
  // not send the focus away from it.
  const auto ZoomGoesOn = [&] { return Word_Load(pThis->bZoomWake) == 0; };
  SendToPanFocus(pThis, iChannel, ZoomGoesOn);
}

void VernierLensd_FollowStoppedZoom(TVernierLensdInfo* pThis) {
  const bool bStopWaits =
      Word_Take(pThis->bZoomWake) != 0 && Word_Load(pThis->tZoomCommand.dwFunction) == FUNCTION_STOP;
  if (pThis->bSupportFocus == 0 || !bStopWaits) return;
  const i32 iChannel = pThis->tZoomBox.iRunningChannel;
  // The stop came last for the focus too: what a client has wished since stays.
  const auto IsStopped = [&] {
    const bool bWaits = Word_Load(pThis->bFocusWake) != 0;
    return (bWaits ? Word_Load(pThis->tFocusCommand.dwFunction) : pThis->tFocusBox.tRunning.dwFunction) ==
           FUNCTION_STOP;
  };
  SendToPanFocus(pThis, iChannel, IsStopped);
}

void VernierLensd_AutoFocusAfterPositioning(TVernierLensdInfo* pThis) {
  if (pThis->bSupportFocus == 0) return;
  const i32 iChannel = pThis->tFocusBox.iRunningChannel;
  if (pThis->bSupportZoom != 0) {
    const u32 dwZoomPos = Word_Load(pThis->tZoomCommand.dwPosition);
    if (pThis->bSupportICS == 0) VernierLensd_UpdateFocusingStart(pThis, dwZoomPos);
    VernierLensd_UpdatePanFocus(pThis, dwZoomPos, iChannel);
  }
  const i32 iWoken = Command_SendFollowUp(pThis, g_tFocusAxis, iChannel, [&](TMotorCommand& tBlock) {
    Word_Store(tBlock.dwFunction, FUNCTION_AUTO);
    pThis->tFocusBox.bSearchFollows = pThis->abNightModeUnknown[iChannel];
  });
  if (iWoken != 0) std::puts(szWakingFocusFailed);
}
