#include "compensation/thermal_shift.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "core/fail.h"
#include "core/wait.h"
#include "motor/command_box.h"
#include "temperature/temperature.h"

namespace {

constexpr i32 iPeriod_min = 2;
constexpr u32 dwTolerance_C = 1;  // a drift up to this is not corrected, and adds up

u32 Distance(i32 iLeft, i32 iRight) {
  return iLeft > iRight ? static_cast<u32>(iLeft) - static_cast<u32>(iRight)
                        : static_cast<u32>(iRight) - static_cast<u32>(iLeft);
}

void PrintReading(const TTemperatureValue& tReading) {
  std::printf("[vernierlensd] : Temperature sensor raw (%d), T (%d, %f)\n", tReading.byRaw, tReading.iTemperature,
              tReading.dTemperature);
}

// Finds the last column that is not above each temperature.
void FindColumns(const TVernierLensdInfo* pThis, i32 iReference, i32 iTemperature, TTableIndices* ptAt) {
  for (i32 i = 0; i < pThis->iThermalTempCount; i++) {
    if (iReference >= pThis->piThermalTemp[i]) ptAt->iRefTempIndex = i;
    if (iTemperature >= pThis->piThermalTemp[i]) ptAt->iCurrTempIndex = i;
  }
}

// Finds the last row that is not above the zoom position.
void FindRow(const TVernierLensdInfo* pThis, u32 dwZoom, TTableIndices* ptAt) {
  const auto IsAbove = [&](i32 iRow) { return static_cast<u32>(pThis->piThermalZoom[iRow]) > dwZoom; };
  if (pThis->iThermalZoomCount <= 0 || IsAbove(0)) return;
  i32 iRow = 0;
  while (iRow + 1 < pThis->iThermalZoomCount && !IsAbove(iRow + 1)) iRow++;
  ptAt->iZoomPositionIndex = iRow;
}

i32 LookUpShift(const TVernierLensdInfo* pThis, i32 iChannel, i32 iTemperature, TTableIndices* ptAt) {
  FindColumns(pThis, pThis->aiRefTemperature[iChannel], iTemperature, ptAt);
  FindRow(pThis, Word_Load(pThis->adwZoomMotorPosition[iChannel]), ptAt);
  std::printf("[vernierlensd] : iZoomPositionIndex = %d, iCurrTempIndex = %d, iRefTempIndex = %d\n",
              ptAt->iZoomPositionIndex, ptAt->iCurrTempIndex, ptAt->iRefTempIndex);
  const i32* piRow = pThis->ppiThermalOffset[ptAt->iZoomPositionIndex];
  const i32 iCurrTempFocusPos = piRow[ptAt->iCurrTempIndex];
  const i32 iRefTempFocusPos = piRow[ptAt->iRefTempIndex];
  std::printf("[vernierlensd] : iCurrTempFocusPos = %d, iRefTempFocusPos = %d\n", iCurrTempFocusPos, iRefTempFocusPos);
  const i32 iShift = static_cast<i32>(static_cast<u32>(iCurrTempFocusPos) - static_cast<u32>(iRefTempFocusPos));
  std::printf("[vernierlensd] : CurChannel = %d, ThermalFocusShift: %d\n", iChannel, iShift);
  return iShift;
}

// The magnitude of the product in signed 32 bits, as the maker of the lens counts it.
u32 ShiftTime_us(i32 iShift) {
  const i32 iProduct = static_cast<i32>(g_tVernierLensdConfigInfo.dwFocusOneStepTime * static_cast<u32>(iShift));
  return Distance(iProduct, 0);
}

void SetReferenceTemperature(TVernierLensdInfo* pThis, i32 iChannel, i32 iTemperature) {
  pThis->abRefTemperature[iChannel] = 1;
  pThis->aiRefTemperature[iChannel] = iTemperature;
}

// Returns false if no check is due or the sensor gives no reading.
bool BeginCheck(TVernierLensdInfo* pThis) {
  pThis->ptTime = Clock_UTC();
  const i32 iMinute = pThis->ptTime->tm_min;
  // Minute numbers, not minutes gone: after minute 59 the next check comes at minute 0.
  if (std::abs(iMinute - pThis->iInitTime) < iPeriod_min) return false;
  std::printf("[vernierlensd] : %d Mins fly\n", iPeriod_min);
  TTemperatureValue tReading = {};
  const bool bRead = Temperature_ReadValue(pThis->hTemperature, &tReading) == 0;
  if (bRead) PrintReading(tReading);
  std::printf("[vernierlensd] : tm_min = %d, iInitTime = %d\n", iMinute, pThis->iInitTime);
  if (!bRead) pThis->iInitTime = iMinute;
  TCorrections& tPass = pThis->tCorrections;
  tPass.iTemperature = tReading.iTemperature;
  tPass.iMinute = iMinute;
  tPass.tAt = {};
  return bRead;
}

// Gives the lens the time of its claimed move, and the channel its new reference temperature.
void EndMove(TVernierLensdInfo* pThis) {
  const TCorrections& tPass = pThis->tCorrections;
  Delay_WhileRunning(tPass.dwTravel_us);
  pThis->aiRefTemperature[tPass.iChannel] = tPass.iTemperature;
}

bool NeedsMove(TVernierLensdInfo* pThis, i32 iChannel, i32 iTemperature) {
  if (pThis->abRefTemperature[iChannel] == 0) {
    // Nobody knows which temperature the present focus is right for.
    std::printf("[vernierlensd] : Channel %d had no reference temperature, takes %d.\n", iChannel, iTemperature);
    SetReferenceTemperature(pThis, iChannel, iTemperature);
    return false;
  }
  const i32 iReference = pThis->aiRefTemperature[iChannel];
  std::printf("[vernierlensd] : iRefTemperature = %d, sdwTemperature = %d\n", iReference, iTemperature);
  return Distance(iReference, iTemperature) > dwTolerance_C;
}

// Returns false if a client's command came first.
bool ClaimMove(TVernierLensdInfo* pThis) {
  TCorrections& tPass = pThis->tCorrections;
  const i32 iShift = LookUpShift(pThis, tPass.iChannel, tPass.iTemperature, &tPass.tAt);
  const u32 dwPosition = Word_Load(pThis->adwFocusMotorPosition[tPass.iChannel]) + static_cast<u32>(iShift);
  if (!Command_ClaimFocusMove(pThis, tPass.iChannel, dwPosition)) return false;
  std::printf("[vernierlensd] : %s move to %d\n", "ThermalFocusShift_Check", static_cast<i32>(dwPosition));
  tPass.dwTravel_us = ShiftTime_us(iShift);
  return true;
}

}  // namespace

i32 ThermalFocusShift_TemperatureUpdae(TVernierLensdInfo* pThis, u32 bAllChannels) {
  TTemperatureValue tReading = {};
  const i32 iFirst = bAllChannels == 1 ? 0 : pThis->tFocusBox.iRunningChannel;
  const i32 iEnd = bAllChannels == 1 ? g_tVernierLensdConfigInfo.iMaxDevNum : iFirst + 1;
  if (Temperature_ReadValue(pThis->hTemperature, &tReading) != 0) {
    std::fill(pThis->abRefTemperature + iFirst, pThis->abRefTemperature + iEnd, 0U);
    return Fail("[vernierlensd] : Temperature_ReadValue fail");
  }
  PrintReading(tReading);
  for (i32 i = iFirst; i < iEnd; i++) SetReferenceTemperature(pThis, i, tReading.iTemperature);
  return 0;
}

bool ThermalFocusShift_Check(TVernierLensdInfo* pThis) {
  TCorrections& tPass = pThis->tCorrections;
  if (tPass.iChannel >= 0) {
    EndMove(pThis);
  } else if (!BeginCheck(pThis)) {
    return false;
  }
  while (++tPass.iChannel < g_tVernierLensdConfigInfo.iMaxDevNum) {
    if (NeedsMove(pThis, tPass.iChannel, tPass.iTemperature)) return ClaimMove(pThis);
  }
  pThis->iInitTime = tPass.iMinute;
  return false;
}
