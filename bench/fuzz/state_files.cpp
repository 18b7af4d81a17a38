// Fuzzes the small text files that are read at start.  The parts of the input are, in this order: state, default focus,
// status, pan table, backup, list of focus starts.
#include "autofocus/zoom_tracking.h"
#include "command/event_message.h"
#include "config/config_load.h"
#include "config/saved_state.h"
#include "config/token_file.h"
#include "core/daemon/status_file.h"
#include "core/number.h"
#include "core/paths.h"
#include "core/table.h"
#include "fuzz.h"

namespace {

constexpr const char* aszPaths[] = {szPositionsPath, szFocusDefaultPath, szStatusPath, szPanFocusPath, szBackupPath};

// Compares the daemon's reader with a second one, which takes each word up to its first NUL.
void CheckState(const std::string& sText) {
  u32 adw[] = {7, 7};
  u32 adwWanted[] = {7, 7};
  const TTokenRow atRows[] = {{"zoom_motor", &adw[0]}, {"focus_motor", &adw[1]}};
  Check(TokenFile_Read(szPositionsPath, atRows) == 0, "a file that is there is read");
  for (const std::string& sWord : Words(sText)) {
    const std::string sToken(sWord.size() <= iMaxToken ? sWord.c_str() : "");
    const std::size_t dwEquals = sToken.find('=');
    for (u32 dw = 0; dw < 2 && dwEquals != std::string::npos; dw++) {
      const bool bKey = sToken.substr(0, dwEquals).starts_with(atRows[dw].sKey);
      if (bKey) adwWanted[dw] = Text_ToU32(sToken.c_str() + dwEquals + 1);
    }
  }
  Check(adw[0] == adwWanted[0] && adw[1] == adwWanted[1], "the last token of a key counts");
}

void ReadTables(TVernierLensdInfo* pThis, std::string sStarts, u32 dwEntries) {
  g_tVernierLensdConfigInfo.dwZoomVirtualTotalStep = dwEntries;
  g_tVernierLensdConfigInfo.iZoomPositionInterval = static_cast<i32>(dwEntries / iFocusStartEntries);
  g_pdwtabFocusPanTable = Table_New<u32>(dwEntries);
  Check(VernierLensd_LoadPanFocusTable() == 0, "the pan table always loads");
  i32 aiStarts[iFocusStartEntries] = {};
  VernierLensd_ParseFocusStartTable(aiStarts, sStarts.data(), ",");
  g_pdwtabFocusingStartTable = reinterpret_cast<u32*>(aiStarts);
  for (const u32 dwZoom : {0U, 1U, 13U, dwEntries, dwEntries + 1, ~0U}) {
    VernierLensd_UpdatePanFocus(pThis, dwZoom, 0);
    VernierLensd_UpdateFocusingStart(pThis, dwZoom);
  }
  Table_Free(g_pdwtabFocusPanTable);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* pbyInput, std::size_t dwInput) {
  std::string_view sInput = Input_Text(pbyInput, dwInput);
  const u32 dwEntries = Input_Choose(sInput, 64);
  std::vector<std::string> asParts = Fields(sInput, '|');
  asParts.resize(std::size(aszPaths) + 1);
  for (std::size_t dw = 0; dw < std::size(aszPaths); dw++) Files_Put(aszPaths[dw], asParts[dw]);
  static TVernierLensdInfo tInfo = {};
  tInfo.bSupportZoom = tInfo.bSupportFocus = 1;
  tInfo.aiFocusWakePair[0] = tInfo.aiZoomWakePair[0] = -1;

  CheckState(asParts[0]);
  VernierLensd_LoadFocusDefault();
  Check(VernierLensd_LoadStatusFile(&tInfo) == 0, "a status file that is there is read");
  Check(g_tVernierLensdConfigInfo.dwRestoreStatus <= STATUS_NORMAL, "a known status");
  ReadTables(&tInfo, asParts[5], dwEntries);
  TCourierEvent tBackup = {};
  tBackup.dwCode = 19;
  tBackup.dwSubCode = 4;
  Check(VernierLensd_HandleEventMessage(&tInfo, 1, &tBackup) == 0, "a backup that is there is read");
  return 0;
}
