// Fuzzes the table of a thermal lens: afterwards it is whole and in order, or absent.
#include "compensation/thermal_table.h"

#include <algorithm>

#include "core/paths.h"
#include "fuzz.h"
#include "sxmlparser/sxmlparser.h"

extern "C" int LLVMFuzzerTestOneInput(const u8* pbyInput, std::size_t dwInput) {
  static TVernierLensdInfo t = {};
  if (t.hSXMLParser == nullptr) SXMLParser_Initial(&t.hSXMLParser);
  Files_Put(szConfigPath, Input_Text(pbyInput, dwInput));
  if (VernierLensd_LoadThermalFocusShiftTable(&t) == 0) {
    Check(t.iThermalTempCount > 0 && t.iThermalZoomCount > 0, "there is a row and a column");
    Check(std::is_sorted(t.piThermalTemp, t.piThermalTemp + t.iThermalTempCount), "columns rise");
    for (i32 i = 0; i < t.iThermalZoomCount; i++) {
      Check(i == 0 || static_cast<u32>(t.piThermalZoom[i - 1]) <= static_cast<u32>(t.piThermalZoom[i]), "rows rise");
      const volatile i32* piRow = t.ppiThermalOffset[i];
      static_cast<void>(piRow[t.iThermalTempCount - 1]);  // reads the last column: a sanitizer sees a short row
    }
    ThermalTable_Free(&t);
  }
  Check(t.ppiThermalOffset == nullptr && t.piThermalTemp == nullptr && t.piThermalZoom == nullptr, "nothing is left");
  return 0;
}
