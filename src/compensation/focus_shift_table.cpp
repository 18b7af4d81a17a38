#include "compensation/focus_shift_table.h"

#include <algorithm>
#include <cstdio>

#include "config/number_list.h"
#include "core/fail.h"
#include "core/number.h"
#include "core/paths.h"
#include "core/table.h"
#include "sxmlparser/sxmlparser.h"

namespace {

constexpr const char* szStepNumError = "[vernierlensd] : Parse Focus_IRCORRECTION_STEP_NUM error.";
constexpr const char* szZoomStepError = "[vernierlensd] : Parse Focus_IRCORRECTION_ZOOM_STEP error.";
constexpr const char* szFocusOffsetError = "[vernierlensd] : Parse Focus_IRCORRECTION_FOCUS_OFFSET error.";
constexpr const char* szFocusShiftError = "[vernierlensd] : Parse Focus_IRCORRECTION_FOCUS_SHIFT error.";

const char* ProfileText(const TVernierLensdInfo* pThis, const char* pszKey) {
  return SXMLParser_GetElementText(pThis->hSXMLParser, "root", "Focus", "IRCORRECTION", pszKey, nullptr);
}

// Returns null with szError printed if the key is missing or its text cannot be a number.
const char* NumberText(const TVernierLensdInfo* pThis, const char* pszKey, const char* szError) {
  const char* pszText = ProfileText(pThis, pszKey);
  if (pszText != nullptr && Text_MayBeNumber(pszText)) return pszText;
  std::puts(szError);
  return nullptr;
}

// Fills the entries iFirst to llNext - 1, as far as the table goes.
void FillRange(i32 iFirst, i64 llNext, i32 iOffset) {
  const i64 llEnd = std::min<i64>(llNext, g_tVernierLensdConfigInfo.dwZoomVirtualTotalStep);
  for (i64 ll = std::max(iFirst, 0); ll < llEnd; ll++) g_pdwtabFocusShiftTable[ll] = iOffset;
}

// A range ends before the first index of the next one.  If the next one begins earlier, the range is empty.
i32 LoadRanges(const TVernierLensdInfo* pThis) {
  const char* pszRanges = NumberText(pThis, "STEP_NUM", szStepNumError);
  if (pszRanges == nullptr) return -1;
  const i32 iRanges = static_cast<i32>(Text_ToUnsigned(pszRanges));
  const char* pszFirsts = ProfileText(pThis, "ZOOM_STEP");
  if (pszFirsts == nullptr || !NumberList_Holds(pszFirsts, iRanges)) return Fail(szZoomStepError);
  const char* pszOffsets = ProfileText(pThis, "FOCUS_OFFSET");
  if (pszOffsets == nullptr || !NumberList_Holds(pszOffsets, iRanges)) return Fail(szFocusOffsetError);
  if (iRanges <= 0) return 0;
  i32 iFirst = NumberList_Take(&pszFirsts);
  for (i32 i = 0; i < iRanges; i++) {
    const bool bLast = i + 1 == iRanges;
    const i32 iNext = bLast ? 0 : NumberList_Take(&pszFirsts);
    const i64 llNext = bLast ? i64{g_tVernierLensdConfigInfo.dwZoomVirtualTotalStep} + 1 : iNext;
    FillRange(iFirst, llNext, NumberList_Take(&pszOffsets));
    iFirst = iNext;
  }
  return 0;
}

i32 LoadShift(const TVernierLensdInfo* pThis) {
  const char* pszShift = NumberText(pThis, "FOCUS_SHIFT", szFocusShiftError);
  if (pszShift == nullptr) return -1;
  g_pdwtabFocusShiftTable[0] = static_cast<i32>(Text_ToUnsigned(pszShift));
  return 0;
}

i32 LoadProfile(const TVernierLensdInfo* pThis, u32 bSupportZoom) {
  const i32 iResult = SXMLParser_Process(pThis->hSXMLParser, szLensProfilePath, 1);
  if (iResult != 0) {
    std::printf("[vernierlensd] : SXMLParser_Process failed = 0x%x\r\n", static_cast<u32>(iResult));
    return -1;
  }
  return bSupportZoom != 0 ? LoadRanges(pThis) : LoadShift(pThis);
}

u32 Entries(u32 bSupportZoom) {
  return bSupportZoom != 0 ? g_tVernierLensdConfigInfo.dwZoomVirtualTotalStep : 1;
}

// Position 0 uses position 1's entry, and a position beyond the table the last entry.
i32 NightOffset(const TVernierLensdInfo* pThis, const TIRCutState& tIRCut, i32 iChannel, bool bNight) {
  const bool bLed = tIRCut.bIRLedEnabled != 0 || tIRCut.bExtLedEnabled != 0;
  if (!bLed && g_tVernierLensdConfigInfo.dwFlangeBackCompensation == 0) return 0;
  const u32 dwZoom = pThis->bSupportZoom != 0 ? Word_Load(pThis->adwZoomMotorPosition[iChannel]) : 0;
  const u32 dwLast = std::max(Entries(pThis->bSupportZoom), 1U);
  const i32 iEntry = g_pdwtabFocusShiftTable[dwZoom == 0 ? 0 : std::min(dwZoom, dwLast) - 1];
  return bNight ? iEntry : static_cast<i32>(0U - static_cast<u32>(iEntry));
}

}  // namespace

i32 DayNightFocusShift_Initial(TVernierLensdInfo* pThis) {
  g_pdwtabFocusShiftTable = Table_New<i32>(Entries(pThis->bSupportZoom));
  std::puts(pThis->bSupportZoom != 0 ? "Support focus shift with zoom" : "Support focus shift without zoom");
  if (g_pdwtabFocusShiftTable == nullptr || DayNightFocusShift_LoadProfile(pThis, pThis->bSupportZoom) != 0) {
    Word_Store(pThis->bDayNightCorrection, 0);
    return 0;
  }
  Word_Store(pThis->iCurChannel, 0);
  Word_Store(pThis->bDayNightCorrection, 1);  // before the saves: they write the mode only while this is set
  if (NightMode_Load(pThis, szPositionsPath, nullptr) == 0) return 0;
  std::printf("[vernierlensd] : fopen %s failed!\n", szPositionsPath);
  return -1;
}

i32 DayNightFocusShift_LoadProfile(TVernierLensdInfo* pThis, u32 bSupportZoom) {
  pthread_mutex_lock(&pThis->mutexXMLParser);
  const i32 iResult = LoadProfile(pThis, bSupportZoom);
  pthread_mutex_unlock(&pThis->mutexXMLParser);
  return iResult;
}

bool DayNightFocusShift_Check(TVernierLensdInfo* pThis, TIRCutState* ptIRCut) {
  return DayNight_Check(pThis, ptIRCut, NightOffset);
}

void DayNightFocusShift_Release(TVernierLensdInfo* pThis) {
  if (pThis->bSupportFocus != 0 && pThis->bSupportICS == 0) Table_Free(g_pdwtabFocusShiftTable);
}
