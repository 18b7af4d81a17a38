#include "core/daemon/startup.h"

#include <expat.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "autofocus/focus_block.h"
#include "autofocus/zoom_tracking.h"
#include "compensation/focus_shift_table.h"
#include "compensation/thermal_shift.h"
#include "config/config_load.h"
#include "config/saved_state.h"
#include "core/daemon/inputs.h"
#include "core/daemon/instance.h"
#include "core/daemon/recovery.h"
#include "core/daemon/status_file.h"
#include "core/fail.h"
#include "core/paths.h"
#include "core/regular_file.h"
#include "core/table.h"
#include "ics/curve_tables.h"
#include "ics/ics_day_night.h"
#include "ics/ics_setup.h"
#include "motor/positioning.h"
#include "motor/reference.h"
#include "motor/thread/motor_thread.h"
#include "sxmlparser/sxmlparser.h"
#include "temperature/temperature.h"

namespace {

void ClearContext(TVernierLensdInfo* pThis);
i32 PrepareICS(TVernierLensdInfo* pThis);
i32 RestorePositions(TVernierLensdInfo* pThis);
i32 StartFocusThread(TVernierLensdInfo* pThis);
void InitConfigSemaphore(TVernierLensdInfo* pThis);
i32 CreatePanTable(TVernierLensdInfo* pThis);
void PrepareTemperature(TVernierLensdInfo* pThis);
i32 PrepareDayNight(TVernierLensdInfo* pThis);
i32 StartZoomThread(TVernierLensdInfo* pThis);
void CreateWakePair(TVernierLensdInfo* pThis, const TAxis& tAxis);
i32 CreateFocusValueTable();

}  // namespace

i32 VernierLensd_Init(TVernierLensdInfo* pThis) {
  ClearContext(pThis);
  if (Instance_Claim(pThis) != 0) return -1;
  if (VernierLensd_InitSXMLParser(&pThis->hSXMLParser) != 0) {
    return Fail("[vernierlensd] : VernierLensd_InitSXMLParser failed.");
  }
  if (VernierLensd_CheckLensType(pThis) != 0) return Fail("[vernierlensd] : VernierLensd_CheckLensType failed.");
  // An ICS lens is parked and set up from its driver before its files are read.  After that its positions are sent to
  // it.
  if (PrepareICS(pThis) != 0 || VernierLensd_LoadConfigFile(pThis) != 0 || RestorePositions(pThis) != 0) {
    return Fail("[vernierlensd] : VernierLensd_LoadConfigFile failed.");
  }
  Recovery_LookAtLogs(pThis);
  if (VernierLensd_LoadStatusFile(pThis) != 0) return Fail("[vernierlensd] : VernierLensd_LoadStatusFile failed.");
  if (VernierLensd_InitGateLink(pThis) != 0) return Fail("[vernierlensd] : VernierLensd_InitGateLink failed.");
  if (VernierLensd_InitFIFO(pThis) != 0) return Fail("[vernierlensd] : VernierLensd_InitFIFO failed.");
  if (VernierLensd_InitShareMem(pThis) != 0) return Fail("[vernierlensd] : VernierLensd_InitShareMem failed.");
  if (VernierLensd_InitXMLParser(pThis) != 0) return Fail("[vernierlensd] : VernierLensd_InitXMLParser failed.");
  if (StartFocusThread(pThis) != 0) return Fail("[vernierlensd] : VernierLensd_InitFocusMotorThread failed.");
  InitConfigSemaphore(pThis);
  if (CreatePanTable(pThis) != 0) return Fail("[vernierlensd] : Create focus pan table failed.");
  PrepareTemperature(pThis);
  if (PrepareDayNight(pThis) != 0) return -1;
  if (StartZoomThread(pThis) != 0) return Fail("[vernierlensd] : VernierLensd_InitZoomMotorThread failed.");
  pThis->bPidFile = VernierLensd_WritePidFile() == 0;
  pThis->dwPid = static_cast<u32>(getpid());
  CreateWakePair(pThis, g_tFocusAxis);
  CreateWakePair(pThis, g_tZoomAxis);
  if (CreateFocusValueTable() != 0) return Fail("[vernierlensd] : Create focus value table failed.");
  const bool bFocusOnly = g_tVernierLensdConfigInfo.dwCapability == CAPABILITY_FOCUS_ONLY;
  if (bFocusOnly && pThis->bSupportICS == 0) VernierLensd_LoadFocusDefault();
  return 0;
}

i32 VernierLensd_InitSXMLParser(TSXMLParser** phParser) {
  if (phParser == nullptr) return -1;
  const i32 iResult = SXMLParser_Initial(phParser);
  if (iResult != 0) {
    std::printf("[vernierlensd] : SXMLParser_Initial failed = 0x%x!\r\n", static_cast<u32>(iResult));
    return -1;
  }
  TSXMLOption tOption = {};
  tOption.dwFlags = 3;
  tOption.dwMode = 1;
  SXMLParser_SetOption(*phParser, &tOption);
  return 0;
}

i32 VernierLensd_InitXMLParser(TVernierLensdInfo* pThis) {
  pThis->hXMLParser = XML_ParserCreate(nullptr);
  return pThis->hXMLParser != nullptr ? 0 : Fail("[vernierlensd] : XML_ParserCreate failed.");
}

i32 VernierLensd_InitTemperatureSensor(TVernierLensdInfo* pThis) {
  return Temperature_Initial(&pThis->hTemperature, 0) != 0 ? -1 : 0;
}

i32 VernierLensd_WritePidFile() {
  FILE* pFile = RegularFile_Write(szPidPath);
  if (pFile == nullptr) return -1;
  RegularFile_TakeMode(szPidPath, szPidPath);  // whoever can write it decides which process gets a signal
  char szPid[8] = {};
  // A longer number is cut; a kernel hands out at most 4194304.
  if (std::snprintf(szPid, sizeof szPid, "%d", getpid()) > 0) std::fputs(szPid, pFile);
  std::fclose(pFile);
  return 0;
}

namespace {

// The record comes zeroed, but descriptor 0 would be standard input: -1 stands for none.
void ClearContext(TVernierLensdInfo* pThis) {
  Word_Store(pThis->bFocusWake, 0);
  Word_Store(pThis->bZoomWake, 0);
  pThis->dwChainedFocusCommand = FUNCTION_IDLE;
  Word_Store(pThis->bFocusWakeReady, 0);
  Word_Store(pThis->bZoomWakeReady, 0);
  FD_ZERO(&pThis->fdsRead);
  pThis->fdGateLink = -1;
  pThis->fdFIFO = -1;
  pThis->fdICS = -1;
  pThis->fdInstance = -1;
  pthread_mutex_init(&pThis->mutexXMLParser, nullptr);
  for (const TAxis* ptAxis : {&g_tFocusAxis, &g_tZoomAxis}) {
    std::fill_n(pThis->*ptAxis->paiWakePair, 2, -1);
    pthread_mutex_init(&Axis_Box(pThis, *ptAxis).mutex, nullptr);
  }
}

i32 PrepareICS(TVernierLensdInfo* pThis) {
  if (pThis->bSupportICS == 0) return 0;
  if (VernierLensd_GotoPI() != 0) return Fail("[vernierlensd] : [ICS]VernierLensd_GotoPI fial");
  ICS_Setup(pThis);  // without its driver the daemon ends when the focus thread starts
  return 0;
}

// The file holds one set of positions, so all channels start from the same values.
i32 RestorePositions(TVernierLensdInfo* pThis) {
  const i32 iChannels = g_tVernierLensdConfigInfo.iMaxDevNum;
  if (iChannels < 1) {
    std::printf("[vernierlensd] : nvideoin = %d is no number of channels, channel 0 is not known.\n", iChannels);
    pThis->bPowerLost = 1;  // channel 0 is served all the same, but no position was loaded for it
  }
  for (i32 iChannel = 0; iChannel < iChannels; iChannel++) {
    if (pThis->bSupportICS != 0) {
      ICS_RestorePosition(pThis, iChannel);
    } else if (Config_LoadPositions(pThis, iChannel) != 0) {
      return -1;
    }
  }
  for (const TAxis* ptAxis : {&g_tZoomAxis, &g_tFocusAxis}) {
    const bool bPass = g_tVernierLensdConfigInfo.*ptAxis->pbPISupport != 0;
    if (iChannels > 1 && !bPass) Reference_DoubtAll(pThis, *ptAxis);
  }
  return 0;
}

i32 StartFocusThread(TVernierLensdInfo* pThis) {
  return pThis->bSupportFocus != 0 ? VernierLensd_InitFocusMotorThread(pThis) : 0;
}

void InitConfigSemaphore(TVernierLensdInfo* pThis) {
  pThis->bConfigSemaphore = sem_init(&pThis->semConfigFile, 0, 1) == 0;
}

i32 CreatePanTable(TVernierLensdInfo* pThis) {
  if (pThis->bSupportZoom == 0 || pThis->bSupportICS != 0) return 0;
  g_pdwtabFocusPanTable = Table_New<u32>(g_tVernierLensdConfigInfo.dwZoomVirtualTotalStep);
  return g_pdwtabFocusPanTable != nullptr ? VernierLensd_LoadPanFocusTable() : -1;
}

// Without a sensor the lens works, but without thermal compensation.
void PrepareTemperature(TVernierLensdInfo* pThis) {
  if (Word_Load(pThis->bThermalShift) == 0 || pThis->bSupportICS != 0) return;
  if (VernierLensd_InitTemperatureSensor(pThis) != 0) {
    Word_Store(pThis->bThermalShift, 0);
    std::puts("[vernierlensd] : VernierLensd_InitTemperatureSensor failed.");
  }
  if (ThermalFocusShift_TemperatureUpdae(pThis, 1) != 0) {
    std::puts("[vernierlensd] : ThermalFocusShift_TemperatureUpdae failed.");
  }
}

i32 PrepareDayNight(TVernierLensdInfo* pThis) {
  if (pThis->bSupportICS == 0) return pThis->bSupportFocus != 0 ? DayNightFocusShift_Initial(pThis) : 0;
  // Without the driver the positions have not been restored, so nothing must be saved.
  if (ICS_LoadIRValue(pThis) == 0 && pThis->fdICS >= 0) return ICS_LoadNightMode(pThis);
  Word_Store(pThis->bDayNightCorrection, 0);
  NightMode_Keep(pThis, szICSPositionsPath);
  return 0;
}

i32 StartZoomThread(TVernierLensdInfo* pThis) {
  return pThis->bSupportZoom != 0 ? VernierLensd_InitZoomMotorThread(pThis) : 0;
}

// Without its socket pair an axis takes no commands, and its thread only waits for the end.
void CreateWakePair(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  i32* aiPair = pThis->*tAxis.paiWakePair;
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, aiPair) < 0) {
    std::fill_n(aiPair, 2, -1);
    return;
  }
  if (aiPair[1] < FD_SETSIZE) {
    Word_Publish(pThis->*tAxis.pbWakeReady, 1);
    return;
  }
  for (const i32 fd : {aiPair[0], aiPair[1]}) close(fd);  // they are too high for an fd_set
  std::fill_n(aiPair, 2, -1);
}

i32 CreateFocusValueTable() {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  g_pdwtabFocusValueTable = Table_New<u32>(static_cast<u32>(tConfig.iFocusValueTableSize), tConfig.iMaxDevNum);
  return g_pdwtabFocusValueTable != nullptr ? 0 : -1;
}

}  // namespace
