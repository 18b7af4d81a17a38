#include "config/config_load.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "config/config_limits.h"
#include "config/config_rows.h"
#include "config/token_file.h"
#include "core/fail.h"
#include "core/number.h"
#include "core/paths.h"
#include "sxmlparser/sxmlparser.h"

namespace {

constexpr std::string_view sThermalModel = "Q31";  // a model name that begins with this
constexpr std::string_view sICSType = "ics";

i32 ProcessFile(TVernierLensdInfo* pThis, const char* szPath);
i32 ReadRows(const char* szPath, const TTreeRow* ptRows);
bool IsParkingKey(std::string_view sKey);
i32 LoadRows(TVernierLensdInfo* pThis);
void PrintSettings();
void PrintRows(std::span<const TTreeRow> atRows);
void SetSupport(TVernierLensdInfo* pThis);
i32 CreateFocusStartTable(const TVernierLensdInfo* pThis);

}  // namespace

i32 VernierLensd_CheckLensType(TVernierLensdInfo* pThis) {
  if (ProcessFile(pThis, szVideoInPath) != 0) return -1;
  const char* pszModel =
      SXMLParser_GetElementText(pThis->hSXMLParser, "root", "videoin", "c0", "lens", "modelname", nullptr);
  if (pszModel == nullptr) return Fail("[vernierlensd] : Parse root_videoin_c0_lens_modelname error.");
  const bool bThermal = std::string_view(pszModel).starts_with(sThermalModel);
  pThis->dwLensKind = bThermal ? LENS_KIND_THERMAL : LENS_KIND_OTHER;
  if (bThermal) Word_Store(pThis->bThermalShift, 1);

  if (ProcessFile(pThis, szVideoModePath) != 0) return -1;
  const char* pszType =
      SXMLParser_GetElementText(pThis->hSXMLParser, "root", "capability", "videoin", "c0", "lens", "type", nullptr);
  if (pszType == nullptr) return Fail("[vernierlensd] : Parse root_capability_videoin_c0_lens_type error.");
  pThis->bSupportICS = std::string_view(pszType).starts_with(sICSType) ? 1 : 0;
  if (pThis->bSupportICS == 0) return 0;
  Word_Store(pThis->bICSDetached, 0);
  pThis->dwLensKind = LENS_KIND_ICS;
  Word_Store(pThis->bThermalShift, 1);
  return 0;
}

i32 VernierLensd_LoadConfigFile(TVernierLensdInfo* pThis) {
  constexpr const char* szHeader = "******VernierLensd Daemon Configuration******";
  if (LoadRows(pThis) != 0) return -1;
  g_tVernierLensdConfigInfo.iMaxDevNum = std::min(g_tVernierLensdConfigInfo.iMaxDevNum, iMaxChannels);
  std::puts(szHeader);
  PrintSettings();
  if (pThis->bSupportICS == 0) Config_LimitRanges();
  // Config_ReadForParking has already limited what the file of an ICS lens gave.
  Config_Limit(pThis->bSupportICS == 0 ? VALUES_OF_FILE : VALUES_OF_DRIVER);
  if (pThis->bSupportICS == 0) Config_CheckReferenceWalks();
  SetSupport(pThis);
  if (CreateFocusStartTable(pThis) != 0) return -1;
  std::printf("IsSupportZoom = %d\n", static_cast<i32>(pThis->bSupportZoom));
  std::printf("IsSupportFocus = %d\n", static_cast<i32>(pThis->bSupportFocus));
  std::printf("IsSupportICS = %d\n", static_cast<i32>(pThis->bSupportICS));
  std::puts(szHeader);
  return 0;
}

i32 Config_ReadForParking() {
  if (ReadRows(szConfigPath, g_atConfigRows) != 0) return -1;
  std::puts("****************");
  for (const TTreeRow& tRow : std::span(g_atConfigRows).first(std::size(g_atConfigRows) - 1)) {
    if (IsParkingKey(tRow.pszKey)) PrintRows({&tRow, 1});
  }
  Config_LimitRanges();
  Config_Limit(VALUES_OF_FILE);
  return 0;
}

i32 Config_LoadPositions(TVernierLensdInfo* pThis, i32 iChannel) {
  bool abNumber[2] = {};
  const TTokenRow atRows[] = {
      {.sKey = "zoom_motor", .pdwDest = &pThis->adwZoomMotorPosition[iChannel], .pbNumber = &abNumber[0]},
      {.sKey = "focus_motor", .pdwDest = &pThis->adwFocusMotorPosition[iChannel], .pbNumber = &abNumber[1]}};
  const u32 abSupport[] = {pThis->bSupportZoom, pThis->bSupportFocus};
  const u32 adwEnd[] = {g_tVernierLensdConfigInfo.dwZoomVirtualEnd, g_tVernierLensdConfigInfo.dwFocusVirtualEnd};
  if (TokenFile_Read(szPositionsPath, atRows) != 0) {
    std::printf("[vernierlensd] : fopen %s failed!\n", szPositionsPath);
    return -1;
  }
  for (std::size_t i = 0; i < std::size(atRows); i++) {
    u32& dwPosition = *atRows[i].pdwDest;
    if (abSupport[i] == 0) {
      Word_Store(dwPosition, 0);
      continue;
    }
    if (Config_LimitPosition(&dwPosition, adwEnd[i])) pThis->bPowerLost = 1;
    if (abNumber[i]) continue;
    std::printf("[vernierlensd] : Saved %s is absent or no number, %u is used.\n", atRows[i].sKey.data(),
                Word_Load(dwPosition));
    pThis->bPowerLost = 1;
  }
  return 0;
}

void VernierLensd_ParseFocusStartTable(i32* piTable, char* pszList, const char* pszDelimiter) {
  char* pszRest = nullptr;
  const char* pszNumber = strtok_r(pszList, pszDelimiter, &pszRest);
  for (i32 i = 0; i < iFocusStartEntries && pszNumber != nullptr; i++) {
    piTable[i] = Text_ToI32(pszNumber);
    pszNumber = strtok_r(nullptr, pszDelimiter, &pszRest);
  }
}

namespace {

i32 ProcessFile(TVernierLensdInfo* pThis, const char* szPath) {
  const i32 iResult = SXMLParser_Process(pThis->hSXMLParser, szPath, 1);
  if (iResult == 0) return 0;
  std::printf("[vernierlensd] : SXMLParser_Process failed = 0x%x\r\n", static_cast<u32>(iResult));
  return -1;
}

i32 ReadRows(const char* szPath, const TTreeRow* ptRows) {
  const i32 iResult = TreeReader_ReadAll(szPath, ptRows);
  if (iResult == 0) return 0;
  std::printf("[vernierlensd] : XML parser failed, index = %d.\n", iResult);
  return -1;
}

bool IsParkingKey(std::string_view sKey) {
  constexpr std::string_view asKeys[] = {
      "/root/vernierlensd/focus/virtual/end",
      "/root/vernierlensd/focus/virtual/onestep",
      "/root/vernierlensd/focus/virtual/totalstep",
      "/root/vernierlensd/focus/motor/totalstep",
      "/root/vernierlensd/focus/motor/positioningstep",
      "/root/vernierlensd/focus/motor/reversecalibration",
      "/root/vernierlensd/focus/onesteptime",
      "/root/vernierlensd/focus/adjuststep",
      "/root/vernierlensd/onestepsearchtime",
      "/root/vernierlensd/blockingmode",
      "/root/vernierlensd/finetunning",
  };
  return std::ranges::find(asKeys, sKey) != std::end(asKeys);
}

i32 LoadRows(TVernierLensdInfo* pThis) {
  TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  if (ReadRows(szCapabilityPath, g_atChannelCountRows) != 0) return -1;
  if (pThis->bSupportICS != 0) return 0;
  // First the capability: the configuration has a row for the same key, but in most cameras no such element.
  if (ReadRows(szImageFeaturePath, g_atCapabilityRows) != 0) return -1;
  if (ReadRows(szConfigPath, g_atConfigRows) != 0) return -1;
  tConfig.iFocusValueTableSize = static_cast<i32>(tConfig.dwFocusVirtualTotalStep);
  tConfig.iZoomPositionInterval = static_cast<i32>(tConfig.dwZoomVirtualTotalStep) / iFocusStartEntries;
  return 0;
}

void PrintSettings() {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  PrintRows(std::span(g_atICSCurveRows).first(3));
  std::printf("/root/ics/iadcurve = %d\n", tConfig.iADCurveCount);
  PrintRows(std::span(g_atConfigRows).first(std::size(g_atConfigRows) - 1));
  std::printf("iMaxDevNum = %d\n", tConfig.iMaxDevNum);
  std::printf("iFocusValueTableSize = %d\n", tConfig.iFocusValueTableSize);
  std::printf("iZoomPositionInterval = %d\n", tConfig.iZoomPositionInterval);
}

void PrintRows(std::span<const TTreeRow> atRows) {
  for (const TTreeRow& tRow : atRows) {
    if (tRow.dwType == TREEREADER_STRING) {
      std::printf("%s = %s\n", tRow.pszKey, static_cast<const char*>(tRow.pvDest));
    } else {
      std::printf("%s = %d\n", tRow.pszKey, *static_cast<const i32*>(tRow.pvDest));
    }
  }
}

void SetSupport(TVernierLensdInfo* pThis) {
  const u32 dwCapability = g_tVernierLensdConfigInfo.dwCapability;
  const bool bICS = pThis->bSupportICS != 0;
  const bool bBoth = bICS || dwCapability == CAPABILITY_ZOOM_AND_FOCUS;
  pThis->bSupportZoom = bBoth || dwCapability == CAPABILITY_ZOOM_ONLY ? 1 : 0;
  pThis->bSupportFocus = bBoth || dwCapability == CAPABILITY_FOCUS_ONLY ? 1 : 0;
}

i32 CreateFocusStartTable(const TVernierLensdInfo* pThis) {
  if (pThis->bSupportZoom == 0 || pThis->bSupportICS != 0) return 0;
  g_pdwtabFocusingStartTable = static_cast<u32*>(std::calloc(iFocusStartEntries, sizeof(u32)));
  if (g_pdwtabFocusingStartTable == nullptr) return Fail("[vernierlensd] : Create focus start table failed.");
  i32* piTable = reinterpret_cast<i32*>(g_pdwtabFocusingStartTable);
  VernierLensd_ParseFocusStartTable(piTable, g_tVernierLensdConfigInfo.szFocusStartTable, ",");
  std::printf("g_pdwtabFocusingStartTable = %d", piTable[0]);
  for (i32 i = 1; i < iFocusStartEntries; i++) std::printf(",%d", piTable[i]);
  std::printf("\n");
  return 0;
}

}  // namespace
