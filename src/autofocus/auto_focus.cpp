#include "autofocus/auto_focus.h"

#include <algorithm>
#include <cstdio>

#include "autofocus/focus_block.h"
#include "autofocus/focus_sweep.h"
#include "autofocus/zoom_tracking.h"
#include "core/wait.h"
#include "ics/ics_positioning.h"
#include "motor/command_box.h"
#include "motor/pi_search.h"
#include "motor/positioning.h"

namespace {

constexpr u64 qwZoomPoll_us = 500'000;

// Where a search may go: virtual steps, dwStart <= dwEnd.
struct TBounds {
  u32 dwStart;
  u32 dwEnd;
};

struct TRange {
  u32 dwStart;
  u32 dwLength;
};

u32 OpenIris(TVernierLensdInfo* pThis);
void GiveIrisBack(TVernierLensdInfo* pThis, u32 bIris);
TBounds SearchBounds(const TVernierLensdInfo* pThis, u32 dwStart);
TBounds PresentBounds(TVernierLensdInfo* pThis);
TRange CentredRange(const TBounds& tBounds, i32 iLength, u32 dwCentre);
TRange FirstRange(TVernierLensdInfo* pThis);
void WaitForZoom(TVernierLensdInfo* pThis);
i32 SweepLevels(TVernierLensdInfo* pThis, i32 fd, const TRange& tFirst, u32 dwFirstStep, const char* szThird);
void ClearTableRow(i32 iChannel);
void SendZoomToReference(TVernierLensdInfo* pThis);
i32 ScanFindReference(TVernierLensdInfo* pThis, i32 fd);
i32 ScanWalkToReference(i32 fd, bool* pbWalking);
i32 CountDownToReference(TVernierLensdInfo* pThis, bool bWalking);

}  // namespace

void VernierLensd_PerformAutoFocus(TVernierLensdInfo* pThis, i32 fd) {
  if (pThis->bSupportFocus == 0) return;
  const u32 bIris = OpenIris(pThis);
  // Take the range before the wait: the pan focus already belongs to the zoom's target.
  const TRange tFirst = FirstRange(pThis);
  WaitForZoom(pThis);
  std::puts("[vernierlensd] : Start first-level searching...");
  const i32 iResult = SweepLevels(pThis, fd, tFirst, g_tVernierLensdConfigInfo.dwSearchStepLarge,
                                  "[vernierlensd] : Start Third-level searching...");
  if (iResult == 0) Command_Finish(pThis, g_tFocusAxis);
  GiveIrisBack(pThis, bIris);
}

void PerformFocusScan(TVernierLensdInfo* pThis, i32 fd) {
  if (pThis->bSupportFocus == 0) return;
  Motor_Request(fd, MOTOR_SELECT_DEVICE, pThis->tFocusBox.iRunningChannel);
  const u32 bIris = OpenIris(pThis);
  ClearTableRow(pThis->tFocusBox.iRunningChannel);
  const bool bGoesOn = !Daemon_IsEnding();  // no walk is begun when the daemon is ending
  if (bGoesOn && pThis->bSupportZoom != 0) SendZoomToReference(pThis);
  i32 iResult = bGoesOn ? 0 : -1;
  if (bGoesOn) iResult = ScanFindReference(pThis, fd);
  if (iResult == 0) {
    WaitForZoom(pThis);
    std::puts("[vernierlensd] : Start searching...");
    const TBounds tBounds = PresentBounds(pThis);
    iResult = SweepLevels(pThis, fd, {.dwStart = tBounds.dwStart, .dwLength = tBounds.dwEnd - tBounds.dwStart},
                          g_tVernierLensdConfigInfo.dwSearchStepSmall, "[vernierlensd] : Start Fine tune searching...");
  }
  if (iResult == 0) Command_Finish(pThis, g_tFocusAxis);
  GiveIrisBack(pThis, bIris);
}

namespace {

// Returns 1 if the command asks for an open iris, which is then to be given back.
u32 OpenIris(TVernierLensdInfo* pThis) {
  const u32 bIris = Word_Load(pThis->tFocusCommand.bIris);
  if (bIris != 0) VernierLensd_RequestIris(pThis, 1);
  return bIris;
}

// An iris that is held fully open by command stays open.
void GiveIrisBack(TVernierLensdInfo* pThis, u32 bIris) {
  if (bIris != 0 && g_bIrisFullyOpenStatus.load() == 0) VernierLensd_RequestIris(pThis, 0);
}

// The start table can lift the lower bound above the upper one: the range is then empty.
TBounds SearchBounds(const TVernierLensdInfo* pThis, u32 dwStart) {
  const u32 dwEnd = Word_Load(pThis->tFocusCommand.dwEnd);
  return {.dwStart = std::min(dwStart, dwEnd), .dwEnd = dwEnd};
}

TBounds PresentBounds(TVernierLensdInfo* pThis) {
  return SearchBounds(pThis, ZoomTracking_SearchWords(pThis, pThis->tFocusBox.iRunningChannel).dwStart);
}

// Returns a range of iLength round dwCentre, moved into the bounds and never longer than they are.
TRange CentredRange(const TBounds& tBounds, i32 iLength, u32 dwCentre) {
  const u32 dwLength = std::min(static_cast<u32>(iLength), tBounds.dwEnd - tBounds.dwStart);
  const u32 dwHalf = dwLength >> 1;
  if (dwCentre < dwHalf + tBounds.dwStart) return {.dwStart = tBounds.dwStart, .dwLength = dwLength};
  // The upper half of an odd length is the longer one.
  if (dwCentre > tBounds.dwEnd || dwLength - dwHalf > tBounds.dwEnd - dwCentre) {
    return {.dwStart = tBounds.dwEnd - dwLength, .dwLength = dwLength};
  }
  return {.dwStart = dwCentre - dwHalf, .dwLength = dwLength};
}

TRange FirstRange(TVernierLensdInfo* pThis) {
  const TSearchWords tWords = ZoomTracking_SearchWords(pThis, pThis->tFocusBox.iRunningChannel);
  const TBounds tBounds = SearchBounds(pThis, tWords.dwStart);
  u32 dwPanFocus = tWords.dwPanFocus;
  // A tracking curve or a broken table can give a pan focus below 0, which must not count as the far end.
  if (static_cast<i32>(dwPanFocus) < 0) dwPanFocus = 0;
  const u32 dwWhole = tBounds.dwEnd - tBounds.dwStart;
  const i32 iFirst = g_tVernierLensdConfigInfo.iSearchRangeFirstLevel;
  if (dwWhole <= static_cast<u32>(iFirst)) return {.dwStart = tBounds.dwStart, .dwLength = dwWhole};
  return CentredRange(tBounds, iFirst, dwPanFocus);
}

// The zoom's dwFunction becomes 0 when the zoom is at rest.  The wait also ends if no thread will ever set it to 0.
void WaitForZoom(TVernierLensdInfo* pThis) {
  if (pThis->bSupportZoom == 0) return;
  Wait_Poll(qwZoomPoll_us, qwNoBound_us, [&] {
    Command_WakeAgain(pThis, g_tZoomAxis);
    return Word_Load(pThis->tZoomCommand.dwFunction) == FUNCTION_IDLE || Daemon_IsEnding() ||
           Word_Take(pThis->bZoomWakeReady) == 0 || Word_Take(pThis->tZoomBox.bEnded) != 0;
  });
}

// Sweeps level by level.  A sweep leaves the lens on its best position, and the next one is centred there.
i32 SweepLevels(TVernierLensdInfo* pThis, i32 fd, const TRange& tFirst, u32 dwFirstStep, const char* szThird) {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  if (VernierLensd_FocusSweep(pThis, fd, tFirst.dwStart, tFirst.dwLength, dwFirstStep) != 0) return -1;
  const auto Sweep = [&](i32 iLength, u32 dwStep) {
    const u32 dwPosition = Word_Load(Axis_Position(pThis, g_tFocusAxis));
    const TRange tRange = CentredRange(PresentBounds(pThis), iLength, dwPosition);
    return VernierLensd_FocusSweep(pThis, fd, tRange.dwStart, tRange.dwLength, dwStep);
  };
  std::puts("[vernierlensd] : Start second-level searching...");
  if (Sweep(tConfig.iSearchRangeSecondLevel, tConfig.dwSearchStepSmall) != 0) return -1;
  if (tConfig.bFineTuning == 0) return 0;
  std::puts(szThird);
  return Sweep(tConfig.iSearchRangeThirdLevel, tConfig.dwSearchStepFineTune);
}

void ClearTableRow(i32 iChannel) {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  if (g_pdwtabFocusValueTable == nullptr || iChannel >= tConfig.iMaxDevNum) return;
  const std::size_t dwSize = static_cast<std::size_t>(std::max(tConfig.iFocusValueTableSize, 0));
  u32* pdwRow = g_pdwtabFocusValueTable + static_cast<std::size_t>(iChannel) * dwSize;
  std::for_each(pdwRow, pdwRow + dwSize, [](u32& dwEntry) { Word_Store(dwEntry, 0); });
}

// Sends the zoom to its reference and back to where it is, unless a newer command has come while the iris opened.  Else
// a walk that nothing stops would follow a client's stop, or a client's zoom would be lost.
void SendZoomToReference(TVernierLensdInfo* pThis) {
  if (Word_Take(pThis->bFocusWake) != 0) return;
  const TCommandId tScan = Command_Running(pThis, g_tFocusAxis);
  const i32 iWoken = Command_SendFollowUp(pThis, g_tZoomAxis, tScan, [&](TMotorCommand& tBlock) {
    Word_Store(tBlock.dwPosition, Word_Load(pThis->adwZoomMotorPosition[tScan.iChannel]));
    Word_Store(tBlock.dwFunction, FUNCTION_POSITIONING);
  });
  if (iWoken != 0) std::puts(g_tZoomAxis.szWakeFailed);
}

i32 ScanFindReference(TVernierLensdInfo* pThis, i32 fd) {
  if (pThis->bSupportICS != 0) {
    if (Word_Load(pThis->bICSDetached) == 0) ICS_FocusScanReference(pThis, fd);
    return 0;
  }
  bool bWalking = false;
  const i32 iFound = ScanWalkToReference(fd, &bWalking);
  const bool bMoved = iFound != iSearchNotBegun && iFound != iWalkRefused;
  i32 iResult = 0;
  if (bMoved && g_tVernierLensdConfigInfo.bBlockingMode == 0) iResult = CountDownToReference(pThis, bWalking);
  // Whatever the position was counted down to, the lens stands at the reference: the counter must say so.
  Reference_Arrive(pThis, g_tFocusAxis, iFound, FocusReference_Place());
  return iResult;
}

// Returns what Reference_Arrive takes.  Sets *pbWalking if the walk still runs in the driver.
i32 ScanWalkToReference(i32 fd, bool* pbWalking) {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  if (FocusReference_SetDirection(fd) < 0) return iWalkRefused;
  if (tConfig.bFocusPISupport != 0) return FocusReference_SearchPI("PerformFocusScan", fd);
  if (FocusReference_RequestWalk(fd) >= 0) {
    *pbWalking = tConfig.bBlockingMode == 0;
    return 0;
  }
  std::puts(
      "[vernierlensd] : not support MOTOR_CHECK_PI_WALK_STEPS or MOTOR_WALK_STEPS. Using default "
      "MOTOR_WALK_STEPS_BLOCK");
  const i32 iSteps = Steps_ToDriver(tConfig.dwFocusMotorPositioningStep, 1);
  return Motor_Request(fd, MOTOR_WALK_STEPS_BLOCK, iSteps) < 0 ? iWalkRefused : 0;
}

// Counts the position down while the driver walks to the stop.  A new command ends the scan, but a walk that still runs
// is slept out first.  Else the next walk would be asked of a running motor, from an unknown position.  If no walk
// runs, a new command or the daemon's end ends this at once.
i32 CountDownToReference(TVernierLensdInfo* pThis, bool bWalking) {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  const i32 iOneStep = static_cast<i32>(tConfig.dwFocusVirtualOneStep);
  const i32 iPasses = iOneStep == 0 ? 0 : static_cast<i32>(tConfig.dwFocusMotorPositioningStep) / iOneStep;
  u32& dwPosition = Axis_Position(pThis, g_tFocusAxis);
  i32 iResult = 0;
  for (i32 i = 0; i < iPasses; i++) {
    Delay_us(tConfig.dwFocusOneStepTime);
    Word_Store(dwPosition, Word_Load(dwPosition) - (Word_Load(dwPosition) != 0 ? 1 : 0));
    if (iResult == 0 && Word_Take(pThis->bFocusWake) != 0) {
      std::puts("[vernierlensd] : Operation interrupted!");
      iResult = -1;
    }
    if (!bWalking && (iResult != 0 || Daemon_IsEnding())) return -1;
  }
  return iResult;
}

}  // namespace
