#include "core/daemon/release.h"

#include <expat.h>
#include <unistd.h>

#include <cstdio>

#include "autofocus/focus_block.h"
#include "compensation/focus_shift_table.h"
#include "compensation/thermal_table.h"
#include "core/daemon/inputs.h"
#include "core/daemon/instance.h"
#include "core/fail.h"
#include "core/paths.h"
#include "core/table.h"
#include "ics/curve_tables.h"
#include "motor/axis.h"
#include "motor/thread/motor_thread.h"
#include "sxmlparser/sxmlparser.h"
#include "temperature/temperature.h"

namespace {

void CloseWakePair(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  for (i32& fd : pThis->*tAxis.paiWakePair) {
    if (fd >= 0) close(fd);
    fd = -1;
  }
}

void ReleaseTemperature(TVernierLensdInfo* pThis) {
  if (pThis->hTemperature != nullptr) Temperature_Release(&pThis->hTemperature);
  ThermalTable_Free(pThis);
}

void ReleaseICS(TVernierLensdInfo* pThis) {
  std::puts("released ics driver oK");
  if (pThis->fdICS >= 0) close(pThis->fdICS);
  pThis->fdICS = -1;
}

}  // namespace

i32 VernierLensd_Release(TVernierLensdInfo* pThis) {
  std::printf("[vernierlensd] : Release resources...");
  g_bRunThread = 0;
  // Wait before anything is freed or detached: a thread may still be finishing its move.
  if (MotorThreads_WaitForEnd(pThis) != 0) return Fail("[vernierlensd] : TaskShim_Release failed.");
  if (FocusBlock_Release(pThis) != 0) return -1;
  if (MotorThread_Release(pThis, g_tFocusAxis) != 0) return Fail("[vernierlensd] : TaskShim_Release failed.");
  if (MotorThread_Release(pThis, g_tZoomAxis) != 0) return Fail("[vernierlensd] : TaskShim_Release failed.");
  CloseWakePair(pThis, g_tFocusAxis);
  CloseWakePair(pThis, g_tZoomAxis);
  Table_Free(g_pdwtabFocusPanTable);
  Table_Free(g_pdwtabFocusingStartTable);
  ICSTables_Release();
  DayNightFocusShift_Release(pThis);
  Table_Free(g_pdwtabFocusValueTable);
  SXMLParser_Release(&pThis->hSXMLParser);
  if (pThis->hXMLParser != nullptr) XML_ParserFree(static_cast<XML_Parser>(pThis->hXMLParser));
  pThis->hXMLParser = nullptr;
  if (pThis->bConfigSemaphore != 0) sem_destroy(&pThis->semConfigFile);
  pThis->bConfigSemaphore = 0;
  VernierLensd_CloseGateLink(pThis);
  VernierLensd_CloseFIFO(pThis);
  if (pThis->bPidFile != 0) unlink(szPidPath);
  pThis->bPidFile = 0;
  if (pThis->bSupportICS != 0) ReleaseICS(pThis);
  ReleaseTemperature(pThis);
  Instance_Release(pThis);
  std::puts("OK");
  return 0;
}
