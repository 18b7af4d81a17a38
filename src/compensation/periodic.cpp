#include "compensation/periodic.h"

#include <cstdio>

#include "compensation/focus_shift_table.h"
#include "compensation/thermal_shift.h"
#include "compensation/thermal_table.h"
#include "ics/ics_day_night.h"
#include "ics/ics_temperature.h"

namespace {

bool IsIdle(TVernierLensdInfo* pThis) {
  return Word_Load(pThis->tFocusCommand.dwFunction) == FUNCTION_IDLE && !Daemon_IsEnding();
}

}  // namespace

void Compensation_Begin(TVernierLensdInfo* pThis, i32 fd) {
  if (Word_Load(pThis->bThermalShift) == 0) return;
  if (pThis->dwLensKind == LENS_KIND_ICS) ICS_TemperatureInitial(pThis, fd);
  if (pThis->dwLensKind != LENS_KIND_THERMAL || VernierLensd_LoadThermalFocusShiftTable(pThis) == 0) return;
  Word_Store(pThis->bThermalShift, 0);
  std::puts("[vernierlensd] : VernierLensd_LoadThermalFocusShiftTable failed.");
}

void Compensation_Check(TVernierLensdInfo* pThis, TIRCutState* ptIRCut, i32 fd) {
  TMotorCommand* ptCommand = &pThis->tFocusCommand;
  if (Word_Take(pThis->bPowerLossChecked) == 0 || !IsIdle(pThis)) return;
  if (Word_Load(pThis->bDayNightCorrection) != 0) {
    if (pThis->bSupportICS != 0) {
      ICS_DayNightShift_Check(pThis, ptCommand, ptIRCut, fd);
    } else {
      DayNightFocusShift_Check(pThis, ptCommand, ptIRCut, fd);
    }
  }
  if (Word_Load(pThis->bThermalShift) == 0 || !IsIdle(pThis)) return;
  if (pThis->dwLensKind == LENS_KIND_ICS) ICS_TemperatureCheck(pThis, ptCommand, fd);
  if (pThis->dwLensKind == LENS_KIND_THERMAL) ThermalFocusShift_Check(pThis, ptCommand, fd);
}
