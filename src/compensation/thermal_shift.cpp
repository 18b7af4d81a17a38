#include "compensation/thermal_shift.h"

#include <cstdio>
#include <cstdlib>

#include "core/fail.h"
#include "core/wait.h"
#include "motor/command_box.h"
#include "motor/thread/dispatch.h"
#include "temperature/temperature.h"

namespace {

constexpr i32 iPeriod_min = 2;
constexpr u32 dwTolerance_C = 1;  // a drift up to this builds up until it is larger

// Where a check stands in the table.  Carried from channel to channel: a search that finds nothing leaves the value of
// the one before.
struct TTableIndices {
  i32 iZoomPositionIndex;
  i32 iCurrTempIndex;
  i32 iRefTempIndex;
};

u32 Distance(i32 iLeft, i32 iRight) {
  return iLeft > iRight ? static_cast<u32>(iLeft) - static_cast<u32>(iRight)
                        : static_cast<u32>(iRight) - static_cast<u32>(iLeft);
}

void PrintReading(const TTemperatureValue& tReading) {
  std::printf("[vernierlensd] : Temperature sensor raw (%d), T (%d, %f)\n", tReading.byRaw, tReading.iTemperature,
              tReading.dTemperature);
}

// The last column not above each temperature.
void FindColumns(const TVernierLensdInfo* pThis, i32 iReference, i32 iTemperature, TTableIndices* ptAt) {
  for (i32 i = 0; i < pThis->iThermalTempCount; i++) {
    if (iReference >= pThis->piThermalTemp[i]) ptAt->iRefTempIndex = i;
    if (iTemperature >= pThis->piThermalTemp[i]) ptAt->iCurrTempIndex = i;
  }
}

// The last row not above the zoom position.
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

// The magnitude of the signed 32-bit product, as the maker of the lens counts it.
u32 ShiftTime_us(i32 iShift) {
  const i32 iProduct = static_cast<i32>(g_tVernierLensdConfigInfo.dwFocusOneStepTime * static_cast<u32>(iShift));
  return Distance(iProduct, 0);
}

void SetReferences(TVernierLensdInfo* pThis, i32 iFirst, i32 iEnd, const TTemperatureValue* ptReading) {
  for (i32 i = iFirst; i < iEnd; i++) {
    pThis->abRefTemperature[i] = ptReading != nullptr ? 1 : 0;
    if (ptReading != nullptr) pThis->aiRefTemperature[i] = ptReading->iTemperature;
  }
}

// False: a client's command came first.
bool MoveChannel(TVernierLensdInfo* pThis, TMotorCommand* ptCommand, i32 fdMotor, i32 iChannel, i32 iShift) {
  const u32 dwPosition = Word_Load(pThis->adwFocusMotorPosition[iChannel]) + static_cast<u32>(iShift);
  if (!Command_ClaimDirectMove(pThis, g_tFocusAxis, iChannel, ptCommand, dwPosition)) return false;
  std::printf("[vernierlensd] : %s move to %d\n", "ThermalFocusShift_Check", static_cast<i32>(dwPosition));
  VernierLensd_DispatchFocusCommand(pThis, fdMotor);
  Delay_WhileRunning(ShiftTime_us(iShift));
  return true;
}

bool CheckChannels(TVernierLensdInfo* pThis, TMotorCommand* ptCommand, i32 fdMotor, const TTemperatureValue& tReading) {
  const i32 iTemperature = tReading.iTemperature;
  TTableIndices tAt = {};
  for (i32 i = 0; i < g_tVernierLensdConfigInfo.iMaxDevNum; i++) {
    i32& iReference = pThis->aiRefTemperature[i];
    if (pThis->abRefTemperature[i] == 0) {
      // Which temperature the present focus is right for, nobody has read.
      std::printf("[vernierlensd] : Channel %d had no reference temperature, takes %d.\n", i, iTemperature);
      SetReferences(pThis, i, i + 1, &tReading);
      continue;
    }
    std::printf("[vernierlensd] : iRefTemperature = %d, sdwTemperature = %d\n", iReference, iTemperature);
    if (Distance(iReference, iTemperature) <= dwTolerance_C) continue;
    const i32 iShift = LookUpShift(pThis, i, iTemperature, &tAt);
    if (!MoveChannel(pThis, ptCommand, fdMotor, i, iShift)) return false;
    iReference = iTemperature;
  }
  return true;
}

}  // namespace

i32 ThermalFocusShift_TemperatureUpdae(TVernierLensdInfo* pThis, u32 bAllChannels) {
  TTemperatureValue tReading = {};
  const i32 iFirst = bAllChannels == 1 ? 0 : pThis->tFocusBox.iRunningChannel;
  const i32 iEnd = bAllChannels == 1 ? g_tVernierLensdConfigInfo.iMaxDevNum : iFirst + 1;
  if (Temperature_ReadValue(pThis->hTemperature, &tReading) != 0) {
    SetReferences(pThis, iFirst, iEnd, nullptr);
    return Fail("[vernierlensd] : Temperature_ReadValue fail");
  }
  PrintReading(tReading);
  SetReferences(pThis, iFirst, iEnd, &tReading);
  return 0;
}

void ThermalFocusShift_Check(TVernierLensdInfo* pThis, TMotorCommand* ptCommand, i32 fdMotor) {
  pThis->ptTime = Clock_UTC();
  const i32 iMinute = pThis->ptTime->tm_min;
  // Of minute numbers, so that behind minute 59 the next check comes at minute 0.
  if (std::abs(iMinute - pThis->iInitTime) < iPeriod_min) return;
  std::printf("[vernierlensd] : %d Mins fly\n", iPeriod_min);
  TTemperatureValue tReading = {};
  const bool bRead = Temperature_ReadValue(pThis->hTemperature, &tReading) == 0;
  if (bRead) PrintReading(tReading);
  std::printf("[vernierlensd] : tm_min = %d, iInitTime = %d\n", iMinute, pThis->iInitTime);
  if (bRead && !CheckChannels(pThis, ptCommand, fdMotor, tReading)) return;
  pThis->iInitTime = iMinute;
}
