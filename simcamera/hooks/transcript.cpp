#include <string.h>

#include "hooks/hooks.h"

namespace {
constinit FTranscriptSink g_pfnSink = nullptr;
constinit bool g_bNotes = false;
constinit char g_szPrinted[512] = "";
constinit size_t g_iPrinted = 0;
constinit bool g_bOutputClosed = false;
}  // namespace

static void Record(const char* szFormat, va_list tArgs);

void Transcript_Begin(FTranscriptSink pfnSink, bool bNotes) {
  g_pfnSink = pfnSink;
  g_bNotes = bNotes;
}

void Transcript_Fact(const char* szFormat, ...) {
  if (g_pfnSink == nullptr) return;
  TInside tInside;
  va_list tArgs;
  va_start(tArgs, szFormat);
  Record(szFormat, tArgs);
  va_end(tArgs);
}

void Transcript_Note(const char* szFormat, ...) {
  if (g_pfnSink == nullptr || !g_bNotes) return;
  TInside tInside;
  va_list tArgs;
  va_start(tArgs, szFormat);
  Record(szFormat, tArgs);
  va_end(tArgs);
}

void Transcript_Printed(const char* pcText, size_t iLength) {
  TInside tInside;
  for (size_t i = 0; i < iLength && !g_bOutputClosed; ++i) {
    if (pcText[i] != '\n' && g_iPrinted < sizeof g_szPrinted - 1) g_szPrinted[g_iPrinted++] = pcText[i];
    if (pcText[i] == '\n') Transcript_PrintTheRest();
  }
}

void Transcript_CloseOutput() {
  Transcript_PrintTheRest();
  g_bOutputClosed = true;
}

void Transcript_PrintTheRest() {
  TInside tInside;
  if (g_iPrinted == 0 || g_bOutputClosed) return;
  g_szPrinted[g_iPrinted] = '\0';
  g_iPrinted = 0;
  Transcript_Fact("print %s", g_szPrinted);
}

static void Record(const char* szFormat, va_list tArgs) {
  char szLine[768];
  const u64 qwNow_us = Clock_Now_us();
  const char* pszThread = "-";
  if (g_tSelf.eKind == THREAD_TASK && !Clock_RunsScript()) pszThread = Clock_TaskName();
  size_t iLength = static_cast<size_t>(snprintf(szLine, sizeof szLine, "%6llu.%06llu %-5s ",
                                                static_cast<unsigned long long>(qwNow_us / 1'000'000),
                                                static_cast<unsigned long long>(qwNow_us % 1'000'000), pszThread));
  const size_t iRoom = sizeof szLine - iLength - 1;
  const i32 iText = vsnprintf(szLine + iLength, iRoom, szFormat, tArgs);
  iLength += static_cast<size_t>(iText) < iRoom ? static_cast<size_t>(iText) : iRoom - 1;
  szLine[iLength++] = '\n';
  g_pfnSink(szLine, iLength);
}
