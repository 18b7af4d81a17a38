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

void SetCorrection(TCorrections* ptPass, ECorrection eCorrection) {
  ptPass->eCorrection = eCorrection;
  ptPass->iChannel = -1;
}

bool CorrectDayNight(TVernierLensdInfo* pThis, TIRCutState* ptIRCut) {
  if (Word_Load(pThis->bDayNightCorrection) == 0) return false;
  return pThis->bSupportICS != 0 ? ICS_DayNightShift_Check(pThis, ptIRCut) : DayNightFocusShift_Check(pThis, ptIRCut);
}

bool CorrectTemperature(TVernierLensdInfo* pThis, i32 fd) {
  if (pThis->dwLensKind == LENS_KIND_THERMAL) return ThermalFocusShift_Check(pThis);
  if (pThis->dwLensKind != LENS_KIND_ICS || !ICS_TemperatureCheck(pThis, fd)) return false;
  pThis->tCorrections.eCorrection = CORRECTION_OVER;  // the check of an ICS lens makes one move
  return true;
}

}  // namespace

void Compensation_Begin(TVernierLensdInfo* pThis, i32 fd) {
  if (Word_Load(pThis->bThermalShift) == 0) return;
  if (pThis->dwLensKind == LENS_KIND_ICS) ICS_TemperatureInitial(pThis, fd);
  if (pThis->dwLensKind != LENS_KIND_THERMAL || VernierLensd_LoadThermalFocusShiftTable(pThis) == 0) return;
  Word_Store(pThis->bThermalShift, 0);
  std::puts("[vernierlensd] : VernierLensd_LoadThermalFocusShiftTable failed.");
}

bool Compensation_Check(TVernierLensdInfo* pThis, TIRCutState* ptIRCut, i32 fd) {
  TCorrections& tPass = pThis->tCorrections;
  if (tPass.eCorrection == CORRECTION_NONE) {
    if (Word_Take(pThis->bPowerLossChecked) == 0 || !IsIdle(pThis)) return false;
    SetCorrection(&tPass, CORRECTION_DAY_NIGHT);
  }
  if (tPass.eCorrection == CORRECTION_DAY_NIGHT) {
    if (CorrectDayNight(pThis, ptIRCut)) return true;
    const bool bTemperature = Word_Load(pThis->bThermalShift) != 0 && IsIdle(pThis);
    SetCorrection(&tPass, bTemperature ? CORRECTION_TEMPERATURE : CORRECTION_OVER);
  }
  if (tPass.eCorrection == CORRECTION_TEMPERATURE && CorrectTemperature(pThis, fd)) return true;
  SetCorrection(&tPass, CORRECTION_NONE);
  return false;
}
