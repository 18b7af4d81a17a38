#include "compensation/thermal_table.h"

#include <algorithm>
#include <cstdio>

#include "config/number_list.h"
#include "core/fail.h"
#include "core/number.h"
#include "core/paths.h"
#include "core/table.h"
#include "sxmlparser/sxmlparser.h"

namespace {

constexpr const char* szTempCountError = "[vernierlensd] : Parse shift_table_thermal_temperature_total_step error.";
constexpr const char* szTempListError = "[vernierlensd] : Parse shift_table_thermal_temperature_offset error.";
constexpr const char* szZoomCountError = "[vernierlensd] : Parse shift_table_thermal_zoomposition_total_step error.";
constexpr const char* szZoomListError = "[vernierlensd] : Parse shift_table_thermal_zoomposition_offset error.";

const char* TableText(const TVernierLensdInfo* pThis, const char* pszAxis, const char* pszKey) {
  return SXMLParser_GetElementText(pThis->hSXMLParser, "root", "shift_table", "thermal", pszAxis, pszKey, nullptr);
}

void TakeNumbers(const char* pszList, i32* piValues, i32 iCount) {
  for (i32 i = 0; i < iCount; i++) piValues[i] = NumberList_Take(&pszList);
}

// Stores each count as soon as it is found.  On success the counts are positive and the lists long enough.
i32 LookUpLists(TVernierLensdInfo* pThis, const char** ppszTemps, const char** ppszZooms) {
  const char* pszTemps = TableText(pThis, "temperature", "total_step");
  if (pszTemps == nullptr) return Fail(szTempCountError);
  pThis->iThermalTempCount = static_cast<i32>(Text_ToUnsigned(pszTemps));
  if (pThis->iThermalTempCount <= 0) return Fail(szTempCountError);
  *ppszTemps = TableText(pThis, "temperature", "offset");
  if (*ppszTemps == nullptr || !NumberList_Holds(*ppszTemps, pThis->iThermalTempCount)) return Fail(szTempListError);
  const char* pszZooms = TableText(pThis, "zoomposition", "total_step");
  if (pszZooms == nullptr) return Fail(szZoomCountError);
  pThis->iThermalZoomCount = static_cast<i32>(Text_ToUnsigned(pszZooms));
  if (pThis->iThermalZoomCount <= 0) return Fail(szZoomCountError);
  *ppszZooms = TableText(pThis, "zoomposition", "offset");
  if (*ppszZooms == nullptr || !NumberList_Holds(*ppszZooms, pThis->iThermalZoomCount)) return Fail(szZoomListError);
  return 0;
}

i32 LoadRow(TVernierLensdInfo* pThis, i32 iRow) {
  char szName[128];
  std::snprintf(szName, sizeof szName, "zoom%d", pThis->piThermalZoom[iRow]);
  const char* pszRow = TableText(pThis, "zoomposition", szName);
  if (pszRow == nullptr || !NumberList_Holds(pszRow, pThis->iThermalTempCount)) {
    std::printf("[vernierlensd] : Parse shift_table_thermal_zoomposition_zoomposition_%s error.\n", szName);
    return -1;
  }
  pThis->ppiThermalOffset[iRow] = Table_New<i32>(pThis->iThermalTempCount);
  if (pThis->ppiThermalOffset[iRow] == nullptr) return -1;
  TakeNumbers(pszRow, pThis->ppiThermalOffset[iRow], pThis->iThermalTempCount);
  return 0;
}

i32 LoadTable(TVernierLensdInfo* pThis) {
  const i32 iResult = SXMLParser_Process(pThis->hSXMLParser, szConfigPath, 1);
  if (iResult != 0) {
    std::printf("[vernierlensd] : SXMLParser_Process %s failed = 0x%x\r\n", szConfigPath, static_cast<u32>(iResult));
    return -1;
  }
  const char* pszTemps = nullptr;
  const char* pszZooms = nullptr;
  if (LookUpLists(pThis, &pszTemps, &pszZooms) != 0) return -1;
  const i32 iRows = pThis->iThermalZoomCount;
  pThis->piThermalTemp = Table_New<i32>(pThis->iThermalTempCount);
  pThis->piThermalZoom = Table_New<i32>(iRows);
  pThis->ppiThermalOffset = Table_New<i32*>(iRows);
  if (pThis->piThermalTemp == nullptr || pThis->piThermalZoom == nullptr || pThis->ppiThermalOffset == nullptr)
    return -1;
  TakeNumbers(pszTemps, pThis->piThermalTemp, pThis->iThermalTempCount);
  TakeNumbers(pszZooms, pThis->piThermalZoom, iRows);
  // Both lists must rise: else the check would move the lens by chance.
  if (!std::is_sorted(pThis->piThermalTemp, pThis->piThermalTemp + pThis->iThermalTempCount)) {
    return Fail(szTempListError);
  }
  const auto IsLower = [](i32 iLeft, i32 iRight) { return static_cast<u32>(iLeft) < static_cast<u32>(iRight); };
  if (!std::is_sorted(pThis->piThermalZoom, pThis->piThermalZoom + iRows, IsLower)) return Fail(szZoomListError);
  for (i32 iRow = 0; iRow < iRows; iRow++) {
    if (LoadRow(pThis, iRow) != 0) return -1;
  }
  return 0;
}

}  // namespace

i32 VernierLensd_LoadThermalFocusShiftTable(TVernierLensdInfo* pThis) {
  pthread_mutex_lock(&pThis->mutexXMLParser);
  const i32 iResult = LoadTable(pThis);
  pthread_mutex_unlock(&pThis->mutexXMLParser);
  if (iResult != 0) {
    ThermalTable_Free(pThis);
    return -1;
  }
  std::puts("[vernierlensd] : VernierLensd_LoadThermalFocusShiftTable Ok.");
  return 0;
}

void ThermalTable_Free(TVernierLensdInfo* pThis) {
  for (i32 iRow = 0; pThis->ppiThermalOffset != nullptr && iRow < pThis->iThermalZoomCount; iRow++) {
    Table_Free(pThis->ppiThermalOffset[iRow]);
  }
  Table_Free(pThis->ppiThermalOffset);
  Table_Free(pThis->piThermalTemp);
  Table_Free(pThis->piThermalZoom);
  pThis->iThermalTempCount = 0;
  pThis->iThermalZoomCount = 0;
}
