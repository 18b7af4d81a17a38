#include "ics/ics_setup.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "config/config_rows.h"
#include "config/token_file.h"
#include "core/fail.h"
#include "core/paths.h"
#include "core/wait.h"
#include "ics/curve_tables.h"
#include "ics/ics_driver.h"
#include "motor/motor_device.h"

namespace {

constexpr i32 iFocusMargin = 50;      // positions at either end of the driver's range that are left unused
constexpr u64 qwRestoreSteps = 3000;  // a restore waits for the time of this many steps, whatever the distance
constexpr i64 llMicrosPerSecond = 1'000'000;

// Reads an axis's speed and sends it back, because the driver uses a speed only after it has been set.
i32 TakeSpeed(i32 fd, EICSRequest eGet, EICSRequest eSet) {
  const i32 iSpeed = Motor_Request(fd, eGet);
  Motor_Request(fd, eSet, iSpeed);
  return iSpeed;
}

// Returns 0 for a speed of 0, and for an answer below 0, which is no speed.
u32 OneStepTime_us(u32 dwSpeed) {
  const i32 iSpeed = static_cast<i32>(dwSpeed);
  return iSpeed <= 0 ? 0 : static_cast<u32>(llMicrosPerSecond / iSpeed);
}

// A driver that answers wrongly can put the end of a range below its start.  Such a range becomes empty.
void SetRange(i32 iStart, i32 iEnd, u32* pdwStart, u32* pdwEnd, u32* pdwTotal) {
  *pdwStart = static_cast<u32>(iStart);
  *pdwEnd = static_cast<u32>(std::max(iStart, iEnd));
  *pdwTotal = *pdwEnd - *pdwStart;
}

void FillZoom(const TVernierLensdInfo* pThis) {
  TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  const i32 iMin = Motor_Request(pThis->fdICS, ICS_GET_ZOOM_MIN);
  const i32 iMax = Motor_Request(pThis->fdICS, ICS_GET_ZOOM_MAX);
  SetRange(iMin, iMax, &tConfig.dwZoomVirtualStart, &tConfig.dwZoomVirtualEnd, &tConfig.dwZoomVirtualTotalStep);
  tConfig.dwZoomMotorTotalStep = tConfig.dwZoomVirtualTotalStep;
  tConfig.dwZoomVirtualOneStep = 1;
  tConfig.dwZoomMotorPositioningStep = static_cast<u32>(Motor_Request(pThis->fdICS, ICS_GET_ZOOM_PI_POSITION));
  tConfig.dwZoomOneStepTime = OneStepTime_us(pThis->dwICSZoomSpeed);
  tConfig.dwZoomAdjustStep = 0;
}

void FillFocus(const TVernierLensdInfo* pThis) {
  TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  const i32 iMin = Motor_Request(pThis->fdICS, ICS_GET_FOCUS_MIN);
  const i32 iMax = Motor_Request(pThis->fdICS, ICS_GET_FOCUS_MAX);
  // Unsigned, because it may wrap: an answer so near an end of i32 is wrong in any case.
  SetRange(static_cast<i32>(static_cast<u32>(iMin) + iFocusMargin),
           static_cast<i32>(static_cast<u32>(iMax) - iFocusMargin), &tConfig.dwFocusVirtualStart,
           &tConfig.dwFocusVirtualEnd, &tConfig.dwFocusVirtualTotalStep);
  tConfig.dwFocusMotorTotalStep = tConfig.dwFocusVirtualTotalStep;
  tConfig.dwFocusVirtualOneStep = 1;
  tConfig.dwFocusMotorPositioningStep = static_cast<u32>(Motor_Request(pThis->fdICS, ICS_GET_FOCUS_PI_POSITION));
  tConfig.dwFocusOneStepTime = OneStepTime_us(pThis->dwICSFocusSpeed);
}

// Fills in the constants of the lens, and the values that follow from its ranges.
void FillRest() {
  TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  const i32 iRange = static_cast<i32>(tConfig.dwFocusMotorTotalStep);
  tConfig.iSearchRangeFirstLevel = iRange >> 1;
  tConfig.iSearchRangeSecondLevel = iRange >> 3;
  tConfig.iSearchRangeThirdLevel = iRange >> 7;
  tConfig.dwFocusMotorReverseCalibration = 0;
  tConfig.dwFocusAdjustStep = 0;
  tConfig.bBlockingMode = 1;
  tConfig.bFineTuning = 1;
  tConfig.dwSearchStepFineTune = 4;
  tConfig.dwSearchStepSmall = 20;
  tConfig.dwSearchStepLarge = 50;
  tConfig.dwOneStepSearchTime = 120'000;
  tConfig.dwOpenIrisTime = 2'000'000;
  tConfig.iFocusValueTableSize = static_cast<i32>(tConfig.dwFocusVirtualTotalStep);
  tConfig.iZoomPositionInterval = static_cast<i32>(tConfig.dwZoomVirtualTotalStep) / iFocusStartEntries;
}

i32 ReadPositions(TVernierLensdInfo* pThis, i32 iDev) {
  // bUnsigned, because an ICS lens may have positions below 0.
  const TTokenRow atRows[] = {
      {.sKey = "zoom_motor", .pdwDest = &pThis->adwZoomMotorPosition[iDev], .bUnsigned = true},
      {.sKey = "focus_motor", .pdwDest = &pThis->adwFocusMotorPosition[iDev], .bUnsigned = true}};
  return TokenFile_Read(szICSPositionsPath, atRows);
}

// The step time comes from the driver's answer, and a wrong answer must not keep all clients waiting for an hour.
void WaitForRestore(u32 dwOneStepTime) {
  Delay_WhileRunning(std::min(qwRestoreSteps * dwOneStepTime, qwMaxTravel_us));
}

// Each wait is measured in steps of the other axis: after the zoom's request in focus steps, then in zoom steps.
void SendPositions(const TVernierLensdInfo* pThis, i32 iDev) {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  pthread_mutex_lock(&gICSMutex);
  Motor_Request(pThis->fdICS, ICS_SET_ZOOM_POSITION, static_cast<i32>(pThis->adwZoomMotorPosition[iDev]));
  WaitForRestore(tConfig.dwFocusOneStepTime);
  Motor_Request(pThis->fdICS, ICS_SET_FOCUS_POSITION, static_cast<i32>(pThis->adwFocusMotorPosition[iDev]));
  pthread_mutex_unlock(&gICSMutex);
  WaitForRestore(tConfig.dwZoomOneStepTime);
}

// The driver stops at the ends of its range, so a position beyond them, from a broken file, becomes the nearer end.
void LimitToDriver(u32* pdwPosition, u32 dwStart, u32 dwEnd, i32 iMargin) {
  if (dwStart == dwEnd) return;  // the driver has not answered: keep the saved position
  const i64 llLowest = i64{static_cast<i32>(dwStart)} - iMargin;
  const i64 llHighest = std::max(llLowest, i64{static_cast<i32>(dwEnd)} + iMargin);
  *pdwPosition = static_cast<u32>(std::clamp(i64{static_cast<i32>(*pdwPosition)}, llLowest, llHighest));
}

}  // namespace

i32 ICS_Setup(TVernierLensdInfo* pThis) {
  const i32 iResult = TreeReader_ReadAll(szICSConfigPath, g_atICSCurveRows);
  if (iResult != 0) {
    std::printf("[vernierlensd] : XML parser failed, index = %d.\n", iResult);
    return -1;
  }
  pThis->fdICS = open(szICSDriverPath, O_RDWR | O_CLOEXEC);
  if (pThis->fdICS < 0) return Fail("[vernierlensd] : Failed to open ics device");
  const i32 fd = pThis->fdICS;
  pthread_mutex_lock(&gICSMutex);
  pThis->dwICSZoomSpeed = static_cast<u32>(TakeSpeed(fd, ICS_GET_ZOOM_SPEED, ICS_SET_ZOOM_SPEED));
  pThis->dwICSFocusSpeed = static_cast<u32>(TakeSpeed(fd, ICS_GET_FOCUS_SPEED, ICS_SET_FOCUS_SPEED));
  Motor_Request(fd, ICS_SET_ZOOM_POSITION, Motor_Request(fd, ICS_GET_ZOOM_HOME));
  Motor_Request(fd, ICS_SET_FOCUS_POSITION, Motor_Request(fd, ICS_GET_FOCUS_HOME));
  g_tVernierLensdConfigInfo.dwCapability = CAPABILITY_ZOOM_AND_FOCUS;
  FillZoom(pThis);
  FillFocus(pThis);
  FillRest();
  pthread_mutex_unlock(&gICSMutex);
  return 0;
}

i32 ICS_RestorePosition(TVernierLensdInfo* pThis, i32 iDev) {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  if (pThis->fdICS < 0) return -1;
  pthread_mutex_lock(&gICSMutex);
  Motor_Request(pThis->fdICS, ICS_INIT_STEP_A);
  Motor_Request(pThis->fdICS, ICS_INIT_STEP_B);
  pthread_mutex_unlock(&gICSMutex);
  if (ReadPositions(pThis, iDev) != 0) return Fail("[vernierlensd] : fopen failed!");
  SendPositions(pThis, iDev);
  u32* pdwZoom = &pThis->adwZoomMotorPosition[iDev];
  u32* pdwFocus = &pThis->adwFocusMotorPosition[iDev];
  LimitToDriver(pdwZoom, tConfig.dwZoomVirtualStart, tConfig.dwZoomVirtualEnd, 0);
  LimitToDriver(pdwFocus, tConfig.dwFocusVirtualStart, tConfig.dwFocusVirtualEnd, iFocusMargin);
  std::printf("[ics init]pThis->dwZoomMotorPosition[iDev] = %d\n", static_cast<i32>(*pdwZoom));
  std::printf("[ics init]pThis->dwFocusMotorPosition[iDev]  = %d\n", static_cast<i32>(*pdwFocus));
  std::puts("load Track value");
  ICS_LoadTrackCurve(pThis);
  std::puts("load AD value");
  ICS_LoadADValue(pThis);
  std::puts("load Temp value");
  ICS_LoadTempCurve(pThis);
  return 0;
}
