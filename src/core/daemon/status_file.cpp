#include "core/daemon/status_file.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string_view>

#include "core/daemon/recovery.h"
#include "core/fail.h"
#include "core/paths.h"
#include "core/regular_file.h"
#include "courier.h"

namespace {

constexpr std::size_t dwStatusSize = 50;  // of the text with its NUL
constexpr const char* szFopenFail = "[vernierlensd] : VernierlensStatusFILE fopen fail!";

i32 CreateStatusFile(TVernierLensdInfo* pThis) {
  Recovery_LoseReferences(pThis);
  FILE* pFile = RegularFile_Write(szStatusPath);
  if (pFile == nullptr) return Fail(szFopenFail);
  std::fputs("normal\n", pFile);
  std::fclose(pFile);
  g_tVernierLensdConfigInfo.dwRestoreStatus = STATUS_RESTORE;
  return 0;
}

u32 StatusOf(std::string_view sWord) {
  if (sWord == "restore") return STATUS_RESTORE;
  if (sWord == "backup") return STATUS_BACKUP;
  return STATUS_NORMAL;
}

// Returns true for a restore, and for a backup on several channels.  These channels all start from one saved set of
// positions, and the word "backup" skips the PI pass that would find the others.
bool LosesReferences(const TVernierLensdInfo* pThis) {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  if (tConfig.dwRestoreStatus == STATUS_RESTORE) return true;
  return tConfig.dwRestoreStatus == STATUS_BACKUP && tConfig.iMaxDevNum > 1 && pThis->bSupportICS == 0;
}

i32 SendMessage(const char* const (&aszArguments)[5]) {
  TCourierSendOptions tOptions = {};
  if (Courier_Util_GetOptions(static_cast<i32>(std::size(aszArguments)), aszArguments, &tOptions) != 0) {
    return Fail("[vernierlensd] : Courier_Util_GetOptions error!");
  }
  if (Courier_Util_SendbyFIFO(&tOptions) != 0) return Fail("[vernierlensd] : Courier_Util_SendbyFIFO error!");
  return 0;
}

i32 WriteNormal() {
  char szText[dwStatusSize] = {};
  std::snprintf(szText, sizeof szText, "%s\n", "normal");
  FILE* pFile = RegularFile_Write(szStatusPath);
  if (pFile == nullptr) return Fail(szFopenFail);
  std::fputs(szText, pFile);
  std::printf("Vernierlens Status: %s\n", szText);
  std::fclose(pFile);
  return 0;
}

}  // namespace

i32 VernierLensd_LoadStatusFile(TVernierLensdInfo* pThis) {
  if (access(szStatusPath, F_OK) != 0) return CreateStatusFile(pThis);
  FILE* pFile = RegularFile_Read(szStatusPath);
  if (pFile == nullptr) return Fail(szFopenFail);
  char szText[dwStatusSize] = {};
  if (std::fgets(szText, sizeof szText, pFile) == nullptr) szText[0] = '\0';
  // Cut off the line end, without looking: a word that has none loses its last letter and becomes another word.
  const std::size_t dwLength = std::strlen(szText);
  if (dwLength > 0) szText[dwLength - 1] = '\0';
  std::printf("Vernierlens Status: %s\n", szText);
  std::fclose(pFile);
  g_tVernierLensdConfigInfo.dwRestoreStatus = StatusOf(szText);
  if (LosesReferences(pThis)) Recovery_LoseReferences(pThis);
  return 0;
}

i32 VernierLensd_RestoreAutoFocus() {
  if (access(szStatusPath, F_OK) != 0) return 0;
  switch (g_tVernierLensdConfigInfo.dwRestoreStatus) {
    case STATUS_RESTORE:
      if (VernierLensd_WriteRestoreFIFO() != 0) return Fail("[vernierlensd] : VernierLensd_WriteRestoreFIFO fail!");
      break;
    case STATUS_BACKUP:
      if (VernierLensd_WriteBackupFIFO() != 0) return Fail("[vernierlensd] : VernierLensd_WriteBackupFIFO fail!");
      break;
    default:
      return 0;
  }
  return WriteNormal();
}

i32 VernierLensd_WriteRestoreFIFO() {
  return SendMessage({"fifocmd", "-p", szFIFOPath, "-e", "<message><autofocus>falling</autofocus></message>"});
}

i32 VernierLensd_WriteBackupFIFO() {
  return SendMessage({"fifocmd", "-p", szFIFOPath, "-e", "<message><autofocus>rising</autofocus></message>"});
}
