#include "config/saved_state.h"

#include <cerrno>
#include <cstdio>

#include "autofocus/focus_block.h"
#include "config/state_file.h"
#include "config/token_file.h"
#include "core/fail.h"
#include "core/number.h"
#include "core/paths.h"
#include "core/regular_file.h"

namespace {

void LockFiles(TVernierLensdInfo* pThis) {
  while (sem_wait(&pThis->semConfigFile) != 0 && errno == EINTR) {
  }
}

}  // namespace

i32 VernierLensd_SaveConfigFile(TVernierLensdInfo* pThis) {
  return SavedState_Save(pThis, Word_Load(pThis->iCurChannel), SAVE_WITH_MODE);
}

i32 SavedState_Save(TVernierLensdInfo* pThis, i32 iChannel, ESaveMode eMode) {
  LockFiles(pThis);
  if (eMode == SAVE_WITH_MODE) Word_Store(pThis->aiSavedNightMode[iChannel], Word_Load(pThis->aiNightMode[iChannel]));
  // Read under the lock: the later of two saves then writes the later positions of both axes.
  const u32 dwZoom = Word_Load(pThis->adwZoomMotorPosition[iChannel]);
  const u32 dwFocus = Word_Load(pThis->adwFocusMotorPosition[iChannel]);
  FocusBlock_StorePositions(pThis, iChannel, dwZoom, dwFocus);
  char szZoom[32] = "";
  char szFocus[32] = "";
  char szMode[32] = "";
  if (pThis->bSupportZoom != 0) std::snprintf(szZoom, sizeof szZoom, "zoom_motor=%u\n", dwZoom);
  if (pThis->bSupportFocus != 0) std::snprintf(szFocus, sizeof szFocus, "focus_motor=%u\n", dwFocus);
  const bool bICS = pThis->bSupportICS != 0;
  if (bICS || Word_Load(pThis->bDayNightCorrection) != 0) {
    std::snprintf(szMode, sizeof szMode, "night_mode=%d\n", Word_Load(pThis->aiSavedNightMode[iChannel]));
  }
  char szText[sizeof szZoom + sizeof szFocus + sizeof szMode];
  std::snprintf(szText, sizeof szText, "%s%s%s", szZoom, szFocus, szMode);
  const char* pszPath = bICS ? szICSPositionsPath : szPositionsPath;
  const i32 iResult = StateFile_Replace(pszPath, szText);
  sem_post(&pThis->semConfigFile);
  if (iResult != 0) std::printf("[vernierlensd] : fopen %s failed!\n", pszPath);
  return iResult;
}

void SavedState_Publish(TVernierLensdInfo* pThis, i32 iChannel) {
  LockFiles(pThis);
  FocusBlock_StorePositions(pThis, iChannel, Word_Load(pThis->adwZoomMotorPosition[iChannel]),
                            Word_Load(pThis->adwFocusMotorPosition[iChannel]));
  sem_post(&pThis->semConfigFile);
}

i32 VernierLensd_SaveFocusDefault(TVernierLensdInfo* pThis) {
  char szText[16];
  std::snprintf(szText, sizeof szText, "%d\n", static_cast<i32>(g_dwFocusDefault.load()));
  LockFiles(pThis);
  const i32 iResult = StateFile_Replace(szFocusDefaultPath, szText);
  sem_post(&pThis->semConfigFile);
  if (iResult != 0) std::printf("[vernierlensd] : fopen  %s failed!\n", szFocusDefaultPath);
  return iResult;
}

i32 VernierLensd_LoadFocusDefault() {
  FILE* pFile = RegularFile_Read(szFocusDefaultPath);
  if (pFile == nullptr) return Fail("[vernierlensd] : fopen failed!");
  TToken tToken = {};
  const bool bFound = TokenFile_Next(pFile, &tToken);
  std::fclose(pFile);
  if (!bFound) return Fail("[vernierlensd] : fscanf failed!");
  g_dwFocusDefault = Text_ToU32(tToken.szText);
  return 0;
}
