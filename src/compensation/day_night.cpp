#include "compensation/day_night.h"

#include <cstdio>

#include "config/saved_state.h"
#include "config/token_file.h"
#include "core/number.h"
#include "core/paths.h"
#include "motor/command_box.h"
#include "sxmlparser/sxmlparser.h"

namespace {

// *piMode stays if the file lacks the key.
i32 ReadMode(const char* pszPath, i32* piMode, bool* pbFound) {
  u32 dwMode = static_cast<u32>(*piMode);
  const TTokenRow tRow = {.sKey = "night_mode", .pdwDest = &dwMode, .pbFound = pbFound};
  const i32 iResult = TokenFile_Read(pszPath, {&tRow, 1});
  *piMode = static_cast<i32>(dwMode);
  return iResult;
}

void SetMode(TVernierLensdInfo* pThis, i32 iChannel, i32 iMode) {
  Word_Store(pThis->aiNightMode[iChannel], iMode);
  Word_Store(pThis->aiSavedNightMode[iChannel], iMode);
}

void LookUpLeds(TVernierLensdInfo* pThis, TIRCutState* ptIRCut) {
  if (SXMLParser_Process(pThis->hSXMLParser, szIRCutPath, 1) != 0) {
    std::puts("[vernierlensd] : SXMLParser_Process failed");
    return;
  }
  const auto LookUp = [&](const char* pszKey) {
    return SXMLParser_GetElementText(pThis->hSXMLParser, "root", "ircutcontrol", pszKey, nullptr);
  };
  const char* pszDisabled = LookUp("disableirled");
  if (pszDisabled == nullptr) {
    std::puts("[vernierlensd] : Parse ircutcontrol_disableirled error.");
  } else {
    ptIRCut->bIRLedEnabled = Text_ToUnsigned(pszDisabled) == 0 ? 1 : 0;
  }
  const char* pszExternal = LookUp("enableextled");
  if (pszExternal == nullptr) {
    std::puts("[vernierlensd] : Parse ircutcontrol_enableextled error.");
  } else {
    ptIRCut->bExtLedEnabled = Text_ToUnsigned(pszExternal);
  }
}

void ReadLeds(TVernierLensdInfo* pThis, TIRCutState* ptIRCut) {
  ptIRCut->bIRLedEnabled = 0;
  ptIRCut->bExtLedEnabled = 0;
  pthread_mutex_lock(&pThis->mutexXMLParser);
  LookUpLeds(pThis, ptIRCut);
  pthread_mutex_unlock(&pThis->mutexXMLParser);
}

}  // namespace

i32 NightMode_Present(const TVernierLensdInfo* pThis, i32 iChannel) {
  const TFocusBlock* ptBlock = pThis->aptFocusBlock[iChannel];
  return ptBlock == nullptr ? 0 : static_cast<i32>(Word_Load(ptBlock->dwDayNightMode));
}

i32 NightMode_Load(TVernierLensdInfo* pThis, const char* pszPath, const char* szTaken) {
  for (i32 i = 0; i < g_tVernierLensdConfigInfo.iMaxDevNum; i++) {
    i32 iMode = NightMode_Present(pThis, i);
    bool bFound = false;
    if (ReadMode(pszPath, &iMode, &bFound) != 0) return -1;
    SetMode(pThis, i, iMode);
    if (bFound) continue;
    if (szTaken != nullptr) std::printf(szTaken, iMode);
    if (SavedState_Save(pThis, i, SAVE_WITH_MODE) != 0) {
      std::puts("[vernierlensd] : VernierLensd_SaveConfigFile failed.");
    }
  }
  return 0;
}

void NightMode_Keep(TVernierLensdInfo* pThis, const char* pszPath) {
  i32 iMode = 0;
  bool bFound = false;
  ReadMode(pszPath, &iMode, &bFound);
  for (i32 i = 0; bFound && i < g_tVernierLensdConfigInfo.iMaxDevNum; i++) SetMode(pThis, i, iMode);
}

void NightMode_FollowSearch(TVernierLensdInfo* pThis, i32 iMode) {
  const i32 iChannel = pThis->tFocusBox.iRunningChannel;
  if (pThis->abNightModeUnknown[iChannel] == 0) return;
  pThis->abNightModeUnknown[iChannel] = 0;
  Word_Store(pThis->aiNightMode[iChannel], iMode);
}

bool DayNight_Check(TVernierLensdInfo* pThis, TIRCutState* ptIRCut, FNightOffset pfnOffset) {
  i32& iChannel = pThis->tCorrections.iChannel;
  while (++iChannel < g_tVernierLensdConfigInfo.iMaxDevNum) {
    if (pThis->aptFocusBlock[iChannel] == nullptr) continue;
    const i32 iMode = NightMode_Present(pThis, iChannel);  // read once: the same mode is acted on and stored
    if (Word_Load(pThis->aiNightMode[iChannel]) == iMode) continue;
    std::puts("[vernierlensd] : day night switch");
    ReadLeds(pThis, ptIRCut);
    ptIRCut->iFocusOffset = pfnOffset(pThis, *ptIRCut, iChannel, iMode != 0);
    std::printf("[vernierlensd] : Focus Offset: %d\n", ptIRCut->iFocusOffset);
    const u32 dwFocus = Word_Load(pThis->adwFocusMotorPosition[iChannel]);
    if (!Command_ClaimFocusMove(pThis, iChannel, dwFocus + static_cast<u32>(ptIRCut->iFocusOffset))) return false;
    Word_Store(pThis->aiNightMode[iChannel], iMode);
    return true;
  }
  return false;
}
