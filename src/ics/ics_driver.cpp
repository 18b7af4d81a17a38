#include "ics/ics_driver.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

u64 ICS_TravelTime_us(const TAxis& tAxis, i32 iFrom, i32 iTo) {
  const i64 llRange = i64{static_cast<i32>(Axis_Config(tAxis.pdwVirtualEnd))} -
                      i64{static_cast<i32>(Axis_Config(tAxis.pdwVirtualStart))};
  const i64 llDistance = std::min(std::abs(i64{iTo} - i64{iFrom}), 2 * std::max<i64>(llRange, 0));
  return std::min(static_cast<u64>(llDistance) * Axis_Config(tAxis.pdwOneStepTime), qwMaxTravel_us);
}

void ICS_SetDetached(TVernierLensdInfo* pThis) {
  Word_Store(pThis->bICSDetached, 1);
  std::puts("[vernierlensd] : [ICS] ICS Detached.");
}
