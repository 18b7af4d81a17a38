// Fuzzes the lens profile: it is read into tables of exact size, for a lens with zoom and for one without.
#include "compensation/focus_shift_table.h"
#include "core/number.h"
#include "core/paths.h"
#include "core/table.h"
#include "fuzz.h"
#include "sxmlparser/sxmlparser.h"

extern "C" int LLVMFuzzerTestOneInput(const u8* pbyInput, std::size_t dwInput) {
  std::string_view sInput = Input_Text(pbyInput, dwInput);
  static TVernierLensdInfo tInfo = {};
  if (tInfo.hSXMLParser == nullptr) SXMLParser_Initial(&tInfo.hSXMLParser);
  tInfo.bSupportFocus = 1;
  const u32 dwEntries = Input_Choose(sInput, 64);
  g_tVernierLensdConfigInfo.dwZoomVirtualTotalStep = dwEntries;
  Files_Put(szLensProfilePath, sInput);
  for (const u32 bZoom : {1U, 0U}) {
    g_pdwtabFocusShiftTable = Table_New<i32>(bZoom != 0 ? dwEntries : 1);
    const i32 iResult = DayNightFocusShift_LoadProfile(&tInfo, bZoom);
    if (iResult == 0 && bZoom == 0) {
      const char* pszShift =
          SXMLParser_GetElementText(tInfo.hSXMLParser, "root", "Focus", "IRCORRECTION", "FOCUS_SHIFT", nullptr);
      Check(static_cast<u32>(g_pdwtabFocusShiftTable[0]) == Text_ToUnsigned(pszShift), "the profile's one offset");
    }
    DayNightFocusShift_Release(&tInfo);
  }
  return 0;
}
