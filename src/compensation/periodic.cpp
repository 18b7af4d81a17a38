#include "compensation/periodic.h"

#include <cstdio>

#include "compensation/focus_shift_table.h"
#include "compensation/thermal_shift.h"
#include "compensation/thermal_table.h"

namespace {

bool IsIdle(TVernierLensdInfo* pThis) {
  return Word_Load(pThis->tFocusCommand.dwFunction) == FUNCTION_IDLE && !Daemon_IsEnding();
}

bool HasThermalTable(const TVernierLensdInfo* pThis) {
  return Word_Load(pThis->bThermalShift) != 0 && pThis->dwLensKind == LENS_KIND_THERMAL;
}

}  // namespace

void Compensation_Begin(TVernierLensdInfo* pThis, [[maybe_unused]] i32 fd) {
  if (!HasThermalTable(pThis) || VernierLensd_LoadThermalFocusShiftTable(pThis) == 0) return;
  Word_Store(pThis->bThermalShift, 0);
  std::puts("[vernierlensd] : VernierLensd_LoadThermalFocusShiftTable failed.");
}

void Compensation_Check(TVernierLensdInfo* pThis, TIRCutState* ptIRCut, i32 fd) {
  if (Word_Take(pThis->bPowerLossChecked) == 0 || !IsIdle(pThis)) return;
  if (Word_Load(pThis->bDayNightCorrection) != 0) {
    DayNightFocusShift_Check(pThis, &pThis->tFocusCommand, ptIRCut, fd);
  }
  if (HasThermalTable(pThis) && IsIdle(pThis)) ThermalFocusShift_Check(pThis, &pThis->tFocusCommand, fd);
}
