#include "autofocus/zoom_tracking.h"

#include <algorithm>
#include <cstdio>

#include "config/token_file.h"
#include "core/number.h"
#include "core/paths.h"
#include "core/regular_file.h"
#include "ics/ics_tracking.h"
#include "motor/command_box.h"
#include "motor/reference.h"

namespace {

// Divides before it multiplies, in double precision, and cuts the result.
u32 Interpolate(u32 dwDifference, i32 iInterval, u32 dwRemainder) {
  return static_cast<u32>(static_cast<double>(dwDifference) / iInterval * dwRemainder);
}

// Returns false, with nothing sent, if the focus's command is newer than tOf.
bool SendToPanFocus(TVernierLensdInfo* pThis, TCommandId tOf) {
  const bool bWritten = Command_WriteFollowUp(pThis, g_tFocusAxis, tOf, [&](TMotorCommand& tBlock) {
    pThis->tFocusBox.dwFollowOwed = tOf.dwNumber;
    Word_Store(tBlock.dwDirection, DIRECTION_DIRECT);
    Word_Store(tBlock.dwPosition, Word_Load(pThis->adwPanFocus[tOf.iChannel]));
    Word_Store(tBlock.dwFunction, FUNCTION_FOCUS);
    Word_Store(pThis->bThermalRecheck, 0);
  });
  if (bWritten && Command_Wake(pThis, g_tFocusAxis) != 0) std::puts(szFocusWakeFailed);
  return bWritten;
}

bool HasStartTable(const TVernierLensdInfo* pThis) {
  return pThis->bSupportFocus != 0 && g_pdwtabFocusingStartTable != nullptr;
}

u32 FocusingStart(u32 dwZoomPos) {
  const i32 iInterval = std::max(g_tVernierLensdConfigInfo.iZoomPositionInterval, 1);
  const u32 dwInterval = static_cast<u32>(iInterval);
  const u32 dwEntry = dwZoomPos / dwInterval;
  if (dwEntry >= iFocusStartEntries - 1) return g_pdwtabFocusingStartTable[iFocusStartEntries - 1];
  const u32 dwThis = g_pdwtabFocusingStartTable[dwEntry];
  const u32 dwSigned = dwThis - g_pdwtabFocusingStartTable[dwEntry + 1];
  const u32 dwMagnitude = static_cast<i32>(dwSigned) < 0 ? 0U - dwSigned : dwSigned;
  return dwThis + Interpolate(dwMagnitude, iInterval, dwZoomPos - dwEntry * dwInterval);
}

u32 PanFocusAt(const TVernierLensdInfo* pThis, u32 dwZoomPos, i32 iChannel) {
  if (pThis->bSupportICS != 0) return ICS_PanFocusAt(pThis, dwZoomPos, iChannel);
  const u32 dwEntries = g_tVernierLensdConfigInfo.dwZoomVirtualTotalStep;
  if (g_pdwtabFocusPanTable == nullptr || dwEntries == 0) return Word_Load(pThis->adwPanFocus[iChannel]);
  return g_pdwtabFocusPanTable[dwZoomPos == 0 ? 0 : std::min(dwZoomPos, dwEntries) - 1];
}

// Returns true if the zoom is sure to walk to its reference: a positioning is pending, a recovery is due, or a walking
// command finds the reference lost.  A lost reference alone moves nothing, and neither does a stop.
bool IsBoundForReference(TVernierLensdInfo* pThis, i32 iChannel) {
  if (pThis->bSupportZoom == 0) return false;
  TCommandBox& tBox = pThis->tZoomBox;
  Command_Lock(tBox);
  const u32 dwFunction = Word_Load(pThis->tZoomCommand.dwFunction);
  const bool bWaits = Word_Load(pThis->bZoomWake) != 0;
  const bool bPositions =
      bWaits && tBox.iChannel == iChannel && (dwFunction == FUNCTION_POSITIONING || dwFunction == FUNCTION_MOTORRESET);
  const bool bDue = tBox.bReferenceDue != 0;
  const bool bAtWork =
      (bWaits && dwFunction != FUNCTION_STOP) || (tBox.bBusy != 0 && tBox.tRunning.dwFunction != FUNCTION_STOP);
  Command_Unlock(tBox);
  return bPositions || bDue || (bAtWork && Reference_IsLost(pThis, g_tZoomAxis, iChannel));
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
  // A token that is too long fills its entry too: else all later entries would shift.
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
  Word_Store(pThis->adwPanFocus[iDev], PanFocusAt(pThis, dwZoomPos, iDev));
}

void VernierLensd_UpdateFocusingStart(TVernierLensdInfo* pThis, u32 dwZoomPos) {
  if (HasStartTable(pThis)) Word_Store(pThis->tFocusCommand.dwStart, FocusingStart(dwZoomPos));
}

void ZoomTracking_SetWords(TVernierLensdInfo* pThis, u32 dwZoomPos, i32 iChannel) {
  VernierLensd_UpdatePanFocus(pThis, dwZoomPos, iChannel);
  if (pThis->bSupportZoom == 0 || pThis->bSupportICS != 0) return;
  VernierLensd_UpdateFocusingStart(pThis, dwZoomPos);
  if (HasStartTable(pThis)) Word_Store(pThis->adwSearchStart[iChannel], FocusingStart(dwZoomPos));
}

void ZoomTracking_SetReferenceWords(TVernierLensdInfo* pThis, u32 dwZoomPos, i32 iChannel) {
  if (pThis->bSupportFocus == 0) return;
  if (pThis->bSupportICS != 0) {
    Word_Store(pThis->adwPanFocus[iChannel], PanFocusAt(pThis, dwZoomPos, iChannel));
  } else {
    ZoomTracking_SetWords(pThis, dwZoomPos, iChannel);
  }
}

TSearchWords ZoomTracking_SearchWords(TVernierLensdInfo* pThis, i32 iChannel) {
  const u32 dwReference = g_tVernierLensdConfigInfo.dwZoomVirtualStart;
  const bool bTable = HasStartTable(pThis);
  if (IsBoundForReference(pThis, iChannel)) {
    return {.dwPanFocus = PanFocusAt(pThis, dwReference, iChannel),
            .dwStart = bTable ? FocusingStart(dwReference) : Word_Load(pThis->tFocusCommand.dwStart)};
  }
  // The shared bound belongs to the last zoom of any channel.
  const bool bOwn = bTable && g_tVernierLensdConfigInfo.iMaxDevNum > 1;
  return {.dwPanFocus = Word_Load(pThis->adwPanFocus[iChannel]),
          .dwStart = Word_Load(bOwn ? pThis->adwSearchStart[iChannel] : pThis->tFocusCommand.dwStart)};
}

void VernierLensd_FollowZoom(TVernierLensdInfo* pThis, u32 dwZoomPos) {
  if (pThis->bSupportFocus == 0) return;
  const TCommandId tOf = Command_Running(pThis, g_tZoomAxis);
  ZoomTracking_SetWords(pThis, dwZoomPos, tOf.iChannel);
  // A pending zoom will send the focus itself, and after a pending stop the focus is to rest.
  if (Word_Take(pThis->bZoomWake) == 0 && SendToPanFocus(pThis, tOf)) return;
  // A stop is written to the zoom's block first.  So a stop that has kept the focus from following is seen here.
  if (Word_Take(pThis->bZoomWake) == 0) return;
  Command_Lock(pThis->tFocusBox);
  pThis->tFocusBox.dwFollowOwed = tOf.dwNumber;
  Command_Unlock(pThis->tFocusBox);
}

void VernierLensd_FollowStoppedZoom(TVernierLensdInfo* pThis) {
  const bool bInterruptible = g_tVernierLensdConfigInfo.bBlockingMode == 0 && pThis->bSupportICS == 0;
  TCommandBox& tBox = pThis->tZoomBox;
  if (pThis->bSupportFocus == 0 || bInterruptible) return;
  Command_Lock(pThis->tFocusBox);
  const bool bOwed = pThis->tFocusBox.dwFollowOwed == tBox.dwRunningNumber;
  Command_Unlock(pThis->tFocusBox);
  if (!bOwed) return;
  Command_Lock(tBox);
  const bool bStopWaits =
      Word_Load(pThis->bZoomWake) != 0 && Word_Load(pThis->tZoomCommand.dwFunction) == FUNCTION_STOP;
  // The move gets the stop's number: that stop's own focus half does not hold it back, but every newer command does.
  const TCommandId tStop = {.iChannel = tBox.iRunningChannel, .dwNumber = tBox.dwNumber};
  Command_Unlock(tBox);
  if (bStopWaits) SendToPanFocus(pThis, tStop);
}

void VernierLensd_AutoFocusAfterPositioning(TVernierLensdInfo* pThis) {
  if (pThis->bSupportFocus == 0) return;
  const TCommandId tOf = Command_Running(pThis, g_tFocusAxis);
  // A newer zoom, perhaps of another channel, has set its own words, and the block's position is not this command's.
  if (pThis->bSupportZoom != 0 && Command_StandsIn(pThis, g_tZoomAxis, tOf.dwNumber)) {
    ZoomTracking_SetWords(pThis, Word_Load(pThis->tZoomCommand.dwPosition), tOf.iChannel);
  }
  const i32 iWoken = Command_SendFollowUp(pThis, g_tFocusAxis, tOf,
                                          [](TMotorCommand& tBlock) { Word_Store(tBlock.dwFunction, FUNCTION_AUTO); });
  if (iWoken != 0) std::puts(szFocusWakeFailed);
}
