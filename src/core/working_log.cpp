#include "core/working_log.h"

#include <unistd.h>

#include <cstdio>

#include "core/paths.h"
#include "core/regular_file.h"

namespace {

void CreateLog(const char* szPath, const char* szFailed) {
  // Without the log a power cut in this move would leave no sign, so a failure is tried once more.
  FILE* pFile = RegularFile_Write(szPath);
  if (pFile == nullptr) pFile = RegularFile_Write(szPath);
  if (pFile == nullptr) {
    std::puts(szFailed);
    return;
  }
  std::fclose(pFile);
  sync();
}

void DeleteLog(const char* szPath, const char* szFailed) {
  if (std::remove(szPath) < 0) {
    std::puts(szFailed);
    return;
  }
  sync();
}

}  // namespace

void VernierLensd_ZoomCreateLogFile() {
  CreateLog(szZoomLogPath, "[vernierlensd] : VernierLensd_ZoomCreateLogFile failed!");
}

void VernierLensd_ZoomDeleteLogFile() {
  DeleteLog(szZoomLogPath, "[vernierlensd] : VernierLensd_ZoomDeleteLogFile failed!");
}

void VernierLensd_FocusCreateLogFile() {
  CreateLog(szFocusLogPath, "[vernierlensd] : VernierLensd_FocusCreateLogFile failed!");
}

void VernierLensd_FocusDeleteLogFile() {
  DeleteLog(szFocusLogPath, "[vernierlensd] : VernierLensd_FocusDeleteLogFile failed!");
}

i32 VernierLensd_FocusLogExists() {
  return access(szFocusLogPath, F_OK) == 0 ? 0 : -1;
}

i32 VernierLensd_ZoomLogExists() {
  return access(szZoomLogPath, F_OK) == 0 ? 0 : -1;
}
