#include "ics/curve_tables.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "config/token_file.h"
#include "core/fail.h"
#include "core/paths.h"
#include "core/regular_file.h"
#include "core/table.h"
#include "motor/motor_device.h"

namespace {

constexpr const char* szNoTable = "[vernierlensd] : Create ICS curve table failed.";
constexpr const char* szEnd = "=====";

constexpr i32 iFirstCoefficient = 3;  // number of the token that becomes word 0 of a row
constexpr i32 iMaxTokens = 15;
constexpr u32 dwInfrared = 1;  // wave length code
constexpr i32 iNoAnswer = -1;  // result of a request that the driver did not answer

struct TCurveFile {
  char szPath[100];
  u32 adwToken[iMaxTokens];
  i32 iTokens;  // tokens that were read
};

i32 g_iTrackingRows = 0;  // rows of the loaded table; 0 without one
i32 g_iTempRows = 0;      // likewise

// Returns false at the end of the file, or at a token that is no 32-bit hexadecimal number.
bool NextToken(FILE* pFile, u32* pdwToken) {
  constexpr i64 llMax = std::numeric_limits<u32>::max();
  TToken tToken = {};
  if (!TokenFile_NextOfAnyLength(pFile, &tToken)) return false;
  char* pszEnd = tToken.szText;
  const i64 llToken = std::strtoll(tToken.szText, &pszEnd, 16);  // leading zeros may make the token long
  const bool bWhole = tToken.dwLength > 0 && tToken.dwLength == static_cast<u32>(pszEnd - tToken.szText);
  if (!bWhole || llToken > llMax || llToken < -llMax) return false;
  *pdwToken = static_cast<u32>(llToken);
  return true;
}

i32 ReadFile(const char* szPaths, i32 iFile, TCurveFile* ptFile) {
  *ptFile = {};
  std::snprintf(ptFile->szPath, sizeof ptFile->szPath, szPaths, iFile);
  FILE* pFile = RegularFile_Read(ptFile->szPath);
  if (pFile == nullptr) return Fail("[vernierlensd] : fopen failed!");
  while (ptFile->iTokens < iMaxTokens && NextToken(pFile, &ptFile->adwToken[ptFile->iTokens])) ptFile->iTokens++;
  std::fclose(pFile);
  return 0;
}

void PrintCoefficients(const TCurveFile& tFile) {
  for (i32 i = iFirstCoefficient; i < tFile.iTokens; i++) {
    std::printf("%f\n", static_cast<double>(std::bit_cast<float>(tFile.adwToken[i])));
  }
}

void FreeRows(TCurveRow**& pptTable, i32& iRows) {
  for (i32 i = 0; i < iRows; i++) std::free(pptTable[i]);
  iRows = 0;
  Table_Free(pptTable);
}

// Returns null if the file is not whole, with a line printed, or if there is no memory.
TCurveRow* NewRow(const TCurveFile& tFile) {
  if (tFile.iTokens < iFirstCoefficient + iCurveTerms) {
    std::printf("[vernierlensd] : %s holds no whole curve and is not used.\n", tFile.szPath);
    return nullptr;
  }
  TCurveRow* ptRow = Table_New<TCurveRow>(1);
  if (ptRow == nullptr) return nullptr;
  std::copy(tFile.adwToken + iFirstCoefficient, tFile.adwToken + tFile.iTokens, ptRow->adwWord);
  return ptRow;
}

// Calls fnTake(file number, file) for each file, after its row has been made.
template <typename TTake>
i32 LoadRows(const char* szPaths, TCurveRow** pptTable, i32 iRows, TTake fnTake) {
  for (i32 i = 0; i < iRows; i++) {
    TCurveFile tFile;
    if (ReadFile(szPaths, i, &tFile) != 0) return -1;
    pptTable[i] = NewRow(tFile);
    fnTake(i, tFile);
    std::puts(szEnd);
  }
  return 0;
}

void FreeTrack() {
  FreeRows(g_pdwtabTrackingCurveTable, g_iTrackingRows);
  Table_Free(g_pdwtabObjDistTable);
}

void FreeTemp() {
  FreeRows(g_pdwtabTempCurveTable, g_iTempRows);
  Table_Free(g_pdwtabBaseTempTable);
  Table_Free(g_pdwtabZoomTempTable);
}

void FreeAD() {
  Table_Free(g_pdwtabRawADCurveTable);
  Table_Free(g_pdwtabADValueTable);
}

void FreeIR() {
  Table_Free(g_pdwtabIRCurveTable);
  Table_Free(g_pdwtabWaveLenTable);
  Table_Free(g_pdwtabICSNightFocusShiftTable);
}

void AskADRange(const TVernierLensdInfo* pThis) {
  TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  pthread_mutex_lock(&gICSMutex);
  tConfig.dwMinAD = static_cast<u32>(Motor_Request(pThis->fdICS, ICS_GET_MIN_AD));
  tConfig.dwMaxAD = static_cast<u32>(Motor_Request(pThis->fdICS, ICS_GET_MAX_AD));
  pthread_mutex_unlock(&gICSMutex);
  tConfig.dwTotalAD = tConfig.dwMinAD - tConfig.dwMaxAD + 1;
  std::printf("dwMinAD=%d,dwMaxAD=%d,dwTotalAD=%d\n", static_cast<i32>(tConfig.dwMinAD),
              static_cast<i32>(tConfig.dwMaxAD), static_cast<i32>(tConfig.dwTotalAD));
}

// "Min" is the end of low temperatures; its reading is the larger number.
void BuildADTable() {
  const i32 iMinAD = static_cast<i32>(g_tVernierLensdConfigInfo.dwMinAD);
  const i32 iMaxAD = static_cast<i32>(g_tVernierLensdConfigInfo.dwMaxAD);
  if (g_pdwtabRawADCurveTable == nullptr || iMinAD == iNoAnswer || iMaxAD == iNoAnswer || iMinAD < iMaxAD) return;
  i32* piTable = Table_New<i32>(i64{iMinAD} - iMaxAD + 1);
  if (piTable == nullptr) return;
  for (i32 i = 0; i <= iMinAD - iMaxAD; i++) piTable[i] = ICS_DegreesAt(g_pdwtabRawADCurveTable, iMinAD - i);
  g_pdwtabADValueTable = piTable;
}

// Returns the number of the file to use, or -1 if a file cannot be opened.
i32 ChooseIRFile() {
  i32 iChosen = 0;
  for (i32 i = 0; i < g_tVernierLensdConfigInfo.iIRCurveCount; i++) {
    TCurveFile tFile;
    if (ReadFile(szIRCurvePaths, i, &tFile) != 0) return -1;
    if (tFile.iTokens <= 1) continue;
    g_pdwtabWaveLenTable[i] = tFile.adwToken[1];
    std::printf("Wave length table [%d] %d \n", i, static_cast<i32>(tFile.adwToken[1]));
    if (tFile.adwToken[1] == dwInfrared) iChosen = i;
  }
  return iChosen;
}

i32 BuildNightTable() {
  const i32 iEntries = static_cast<i32>(g_tVernierLensdConfigInfo.dwZoomVirtualTotalStep);
  if (iEntries <= 0) return 0;  // the driver's zoom range is empty, or ends below its start
  i32* piTable = Table_New<i32>(iEntries);
  if (piTable == nullptr) return Fail(szNoTable);
  const u32 dwStart = g_tVernierLensdConfigInfo.dwZoomVirtualStart;
  for (i32 i = 0; i < iEntries; i++) {
    piTable[i] = ICS_PositionAt(g_pdwtabIRCurveTable, dwStart + static_cast<u32>(i));
  }
  g_pdwtabICSNightFocusShiftTable = piTable;
  return 0;
}

}  // namespace

i32 ICS_LoadTrackCurve(TVernierLensdInfo* /*pThis*/) {
  std::puts("==load Track curve===");
  FreeTrack();
  const i32 iRows = g_tVernierLensdConfigInfo.iTrackCurveCount;
  g_pdwtabTrackingCurveTable = Table_New<TCurveRow*>(iRows);
  g_pdwtabObjDistTable = Table_New<u32>(iRows);
  if (g_pdwtabTrackingCurveTable == nullptr || g_pdwtabObjDistTable == nullptr) {
    FreeTrack();
    return Fail(szNoTable);
  }
  g_iTrackingRows = iRows;
  return LoadRows(szTrackingCurvePaths, g_pdwtabTrackingCurveTable, iRows,
                  [](i32 iRow, const TCurveFile& tFile) { g_pdwtabObjDistTable[iRow] = tFile.adwToken[1]; });
}

i32 ICS_LoadADValue(TVernierLensdInfo* pThis) {
  std::puts("==load AD value===");
  FreeAD();
  AskADRange(pThis);
  for (i32 i = 0; i < g_tVernierLensdConfigInfo.iADCurveCount; i++) {
    TCurveFile tFile;
    if (ReadFile(szADCurvePaths, i, &tFile) != 0) return -1;
    PrintCoefficients(tFile);
    Table_Free(g_pdwtabRawADCurveTable);
    g_pdwtabRawADCurveTable = NewRow(tFile);
  }
  BuildADTable();
  std::puts(szEnd);
  return 0;
}

i32 ICS_LoadTempCurve(TVernierLensdInfo* /*pThis*/) {
  std::puts("==load Temp curve===");
  FreeTemp();
  const i32 iRows = g_tVernierLensdConfigInfo.iTempCurveCount;
  g_pdwtabTempCurveTable = Table_New<TCurveRow*>(iRows);
  g_pdwtabBaseTempTable = Table_New<u32>(iRows);
  g_pdwtabZoomTempTable = Table_New<i32>(iRows);
  if (g_pdwtabTempCurveTable == nullptr || g_pdwtabBaseTempTable == nullptr || g_pdwtabZoomTempTable == nullptr) {
    FreeTemp();
    return Fail(szNoTable);
  }
  g_iTempRows = iRows;
  return LoadRows(szTempCurvePaths, g_pdwtabTempCurveTable, iRows, [](i32 iRow, const TCurveFile& tFile) {
    const i32 iZoom = static_cast<i32>(tFile.adwToken[1]);
    g_pdwtabZoomTempTable[iRow] = iZoom;
    g_pdwtabBaseTempTable[iRow] = tFile.adwToken[2];
    if (tFile.iTokens > 1) std::printf("zoom table[%d] %d \n", iRow, iZoom);
    if (tFile.iTokens > 2) std::printf("base tempature table [%d] %d \n", iRow, static_cast<i32>(tFile.adwToken[2]));
    PrintCoefficients(tFile);
  });
}

i32 ICS_LoadIRValue(TVernierLensdInfo* /*pThis*/) {
  std::puts("==load DNS IR value===");
  FreeIR();
  g_pdwtabWaveLenTable = Table_New<u32>(g_tVernierLensdConfigInfo.iIRCurveCount);
  if (g_pdwtabWaveLenTable == nullptr) return Fail(szNoTable);
  const i32 iChosen = ChooseIRFile();
  if (iChosen < 0) return -1;
  std::printf("choose /etc/conf.d/vernierlensd/ir_curve_y%d\n", iChosen);
  TCurveFile tFile;
  if (ReadFile(szIRCurvePaths, iChosen, &tFile) != 0) return -1;
  PrintCoefficients(tFile);
  g_pdwtabIRCurveTable = NewRow(tFile);
  if (g_pdwtabIRCurveTable == nullptr || BuildNightTable() != 0) return -1;
  std::puts(szEnd);
  return 0;
}

const TCurveRow* ICS_TrackingCurve(i32 iRow) {
  return iRow >= 0 && iRow < g_iTrackingRows ? g_pdwtabTrackingCurveTable[iRow] : nullptr;
}

const TCurveRow* ICS_TempCurve(i32 iRow) {
  return iRow >= 0 && iRow < g_iTempRows ? g_pdwtabTempCurveTable[iRow] : nullptr;
}

i32 ICS_ADToTemperature(i32 iAD) {
  if (g_pdwtabADValueTable == nullptr) return 0;
  const i32 iMinAD = static_cast<i32>(g_tVernierLensdConfigInfo.dwMinAD);
  const i32 iMaxAD = static_cast<i32>(g_tVernierLensdConfigInfo.dwMaxAD);
  if (iAD <= iMaxAD) return g_pdwtabADValueTable[iMinAD - iMaxAD];
  if (iAD >= iMinAD) return g_pdwtabADValueTable[0];
  return g_pdwtabADValueTable[iMinAD - iAD];
}

void ICSTables_Release() {
  FreeTrack();
  FreeTemp();
  FreeAD();
  FreeIR();
}
