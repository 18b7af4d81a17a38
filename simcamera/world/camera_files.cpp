#include "world/camera_files.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "lens/ics_optics.h"
#include "lens/optics.h"
#include "lens/shift_tables.h"
#include "world/world.h"

namespace {

// The file that is being written: opened below ROOT, closed with a check that all of it has been written.
struct TOutput {
  FILE* pFile = nullptr;
  char szPath[dwCameraPath];
};

bool Output_Open(TOutput& tOutput, const char* pszRoot, const char* pszBelow) {
  if (!CameraFiles_JoinPath(tOutput.szPath, pszRoot, pszBelow)) return false;
  tOutput.pFile = fopen(tOutput.szPath, "w");
  if (tOutput.pFile == nullptr) fprintf(stderr, "simcamera: %s: %s\n", tOutput.szPath, strerror(errno));
  return tOutput.pFile != nullptr;
}

bool Output_Close(TOutput& tOutput) {
  const bool bWritten = ferror(tOutput.pFile) == 0;
  if (fclose(tOutput.pFile) == 0 && bWritten) return true;
  fprintf(stderr, "simcamera: %s: %s\n", tOutput.szPath, strerror(errno));
  return false;
}

// One leaf of an XML document: the path of element names, and its text.
struct TXmlRow {
  const char* pszPath;
  const char* pszText;
};

// A path cut at its slashes.
struct TXmlPath {
  i32 iNames = 0;
  std::string_view asNames[8];
};

TXmlPath Xml_Cut(std::string_view sPath) {
  TXmlPath tPath;
  while (!sPath.empty()) {
    const size_t dwSlash = sPath.find('/');
    tPath.asNames[tPath.iNames++] = sPath.substr(0, dwSlash);
    sPath = dwSlash == sPath.npos ? std::string_view() : sPath.substr(dwSlash + 1);
  }
  return tPath;
}

void Xml_Tag(FILE* pFile, i32 iDepth, const char* pszBefore, std::string_view sName) {
  fprintf(pFile, "%*s%s%.*s>", 2 * iDepth, "", pszBefore, static_cast<i32>(sName.size()), sName.data());
}

// Writes rows as an XML document.  Rows that share parents must stand together.
bool WriteXml(const char* pszRoot, const char* pszBelow, const TXmlRow* ptRows, size_t dwRows) {
  TOutput tOutput;
  if (!Output_Open(tOutput, pszRoot, pszBelow)) return false;
  FILE* pFile = tOutput.pFile;
  fputs("<?xml version=\"1.0\"?>\n", pFile);
  TXmlPath tLast;
  for (size_t i = 0; i <= dwRows; ++i) {
    const TXmlPath tPath = i < dwRows ? Xml_Cut(ptRows[i].pszPath) : TXmlPath();
    i32 iShared = 0;
    while (iShared < tLast.iNames - 1 && tPath.asNames[iShared] == tLast.asNames[iShared]) ++iShared;
    for (i32 iDepth = tLast.iNames - 2; iDepth >= iShared; --iDepth) {
      Xml_Tag(pFile, iDepth, "</", tLast.asNames[iDepth]);
      fputc('\n', pFile);
    }
    if (i == dwRows) break;
    const i32 iLeaf = tPath.iNames - 1;
    for (i32 iDepth = iShared; iDepth < iLeaf; ++iDepth) {
      Xml_Tag(pFile, iDepth, "<", tPath.asNames[iDepth]);
      fputc('\n', pFile);
    }
    Xml_Tag(pFile, iLeaf, "<", tPath.asNames[iLeaf]);
    fputs(ptRows[i].pszText, pFile);
    Xml_Tag(pFile, 0, "</", tPath.asNames[iLeaf]);
    fputc('\n', pFile);
    tLast = tPath;
  }
  return Output_Close(tOutput);
}

struct TNumber {
  char szText[24];
};

TNumber Number(i64 llValue) {
  TNumber tNumber;
  snprintf(tNumber.szText, sizeof tNumber.szText, "%lld", static_cast<long long>(llValue));
  return tNumber;
}

// Up to 16 numbers with a comma between them.
struct TList {
  char szText[16 * sizeof "-2147483648," + 1] = "";
  size_t dwLength = 0;
};

void List_Add(TList& tList, i64 llValue) {
  const i32 iAdded = snprintf(tList.szText + tList.dwLength, sizeof tList.szText - tList.dwLength,
                              tList.dwLength == 0 ? "%lld" : ",%lld", static_cast<long long>(llValue));
  tList.dwLength += static_cast<size_t>(iAdded);
}

constexpr u32 dwFocusStartEntries = iFocusStartEntries;

// The lowest search position at each sixteenth of the zoom range, as the daemon divides it.  The daemon expects starts
// that rise with the zoom.  If those of the lens do not, all of them become the lowest start of any zoom.
TList FocusStarts(const TLensModel& tModel) {
  const u32 dwInterval = std::max(tModel.tZoom.dwTotalStep / dwFocusStartEntries, 1U);
  u32 adwStarts[dwFocusStartEntries] = {};
  const bool bBoth = Model_HasFocus(tModel) && Model_HasZoom(tModel);
  for (u32 i = 0; i < dwFocusStartEntries && bBoth; ++i) adwStarts[i] = Optics_SearchStart(tModel, i * dwInterval);
  if (tModel.bFlatStarts != 0 || !std::is_sorted(std::begin(adwStarts), std::end(adwStarts))) {
    u32 dwLowest = adwStarts[0];
    for (u32 dw = 0; dw <= tModel.tZoom.dwTotalStep && bBoth; ++dw) {
      dwLowest = std::min(dwLowest, Optics_SearchStart(tModel, dw));
    }
    std::fill(std::begin(adwStarts), std::end(adwStarts), dwLowest);
  }
  TList tStarts;
  for (const u32 dwStart : adwStarts) List_Add(tStarts, dwStart);
  return tStarts;
}

// The texts of the thermal table, and the element name of each row.
struct TThermalTexts {
  TList tTemperatures, tZooms;
  char aszNames[dwThermalRows][64];
  TList atRows[dwThermalRows];
};

TThermalTexts ThermalTexts(const TLensModel& tModel) {
  TThermalTexts tTexts{};
  for (i32 iColumn = 0; iColumn < tModel.iThermalColumnsUsed; ++iColumn) {
    List_Add(tTexts.tTemperatures, ThermalTable_Temperature(iColumn));
  }
  for (u32 dwRow = 0; dwRow < tModel.dwThermalRowsUsed; ++dwRow) {
    const u32 dwZoom = ThermalTable_Zoom(tModel, dwRow);
    List_Add(tTexts.tZooms, dwZoom);
    snprintf(tTexts.aszNames[dwRow], sizeof tTexts.aszNames[dwRow], "root/shift_table/thermal/zoomposition/zoom%u",
             dwZoom);
    for (i32 iColumn = 0; iColumn < tModel.iThermalColumnsUsed; ++iColumn) {
      List_Add(tTexts.atRows[dwRow], ThermalTable_Focus(tModel, dwRow, iColumn));
    }
  }
  return tTexts;
}

bool WriteDaemonConfig(const char* pszRoot, const TLensModel& tModel) {
  const TAxisSheet& tZoom = tModel.tZoomKeys.dwEnd != 0 ? tModel.tZoomKeys : tModel.tZoom;
  const TAxisSheet& tFocus = tModel.tFocusKeys.dwEnd != 0 ? tModel.tFocusKeys : tModel.tFocus;
  const TSearchSheet& tSearch = tModel.tSearch;
  const TList tStarts = FocusStarts(tModel);
  const TThermalTexts tThermal = ThermalTexts(tModel);
  struct TRow {
    const char* pszPath;
    TNumber tNumber;
  };
  const TRow atNumbers[] = {
      {"root/vernierlensd/zoom/virtual/start", Number(tZoom.dwStart)},
      {"root/vernierlensd/zoom/virtual/end", Number(tZoom.dwEnd)},
      {"root/vernierlensd/zoom/virtual/onestep", Number(tZoom.dwOneStep)},
      {"root/vernierlensd/zoom/virtual/totalstep", Number(tZoom.dwTotalStep)},
      {"root/vernierlensd/zoom/motor/totalstep", Number(static_cast<i64>(tZoom.dwTotalStep) * tZoom.dwOneStep)},
      {"root/vernierlensd/zoom/motor/positioningstep", Number(tZoom.dwPositioningStep)},
      {"root/vernierlensd/zoom/onesteptime", Number(tZoom.dwOneStepTime_us)},
      {"root/vernierlensd/zoom/adjuststep", Number(tZoom.dwAdjustStep)},
      {"root/vernierlensd/zoom/pi/support", Number(tZoom.bPISupport)},
      {"root/vernierlensd/zoom/pi/searchstep", Number(tZoom.dwPISearchStep)},
      {"root/vernierlensd/zoom/pi/forwardshitf", Number(0)},  // no move of a zoom uses it
      {"root/vernierlensd/zoom/pi/backwardshitf", Number(Sheet_PIBackwardShift(tZoom))},
      {"root/vernierlensd/focus/virtual/start", Number(tFocus.dwStart)},
      {"root/vernierlensd/focus/virtual/end", Number(tFocus.dwEnd)},
      {"root/vernierlensd/focus/virtual/onestep", Number(tFocus.dwOneStep)},
      {"root/vernierlensd/focus/virtual/totalstep", Number(tFocus.dwTotalStep)},
      {"root/vernierlensd/focus/motor/totalstep", Number(static_cast<i64>(tFocus.dwTotalStep) * tFocus.dwOneStep)},
      {"root/vernierlensd/focus/motor/positioningstep", Number(tFocus.dwPositioningStep)},
      {"root/vernierlensd/focus/motor/reversecalibration", Number(tFocus.bReverseCalibration)},
      {"root/vernierlensd/focus/onesteptime", Number(tFocus.dwOneStepTime_us)},
      {"root/vernierlensd/focus/adjuststep", Number(tFocus.dwAdjustStep)},
      {"root/vernierlensd/focus/pi/support", Number(tFocus.bPISupport)},
      {"root/vernierlensd/focus/pi/searchstep", Number(tFocus.dwPISearchStep)},
      {"root/vernierlensd/focus/pi/forwardshitf", Number(Sheet_PIForwardShift(tFocus))},
      {"root/vernierlensd/focus/pi/backwardshitf", Number(Sheet_PIBackwardShift(tFocus))},
      {"root/vernierlensd/focus/FlangeBackCompensation", Number(tModel.bFlangeBack)},
      {"root/vernierlensd/search/range/firstlevel", Number(tSearch.iRangeFirst)},
      {"root/vernierlensd/search/range/secondlevel", Number(tSearch.iRangeSecond)},
      {"root/vernierlensd/search/range/thirdlevel", Number(tSearch.iRangeThird)},
      {"root/vernierlensd/search/step/finetune", Number(tSearch.dwStepFine)},
      {"root/vernierlensd/search/step/small", Number(tSearch.dwStepSmall)},
      {"root/vernierlensd/search/step/large", Number(tSearch.dwStepLarge)},
      {"root/vernierlensd/onestepsearchtime", Number(tSearch.dwOneStepSearchTime_us)},
      {"root/vernierlensd/openiristime", Number(tSearch.dwOpenIrisTime_us)},
      {"root/vernierlensd/blockingmode", Number(tModel.bBlockingMode)},
      {"root/vernierlensd/finetunning", Number(tSearch.bFineTuning)},
  };
  constexpr size_t dwNumbers = sizeof atNumbers / sizeof atNumbers[0];
  constexpr size_t dwPlain = dwNumbers + 1;
  TXmlRow atRows[dwPlain + 4 + dwThermalRows];
  for (size_t i = 0; i < dwNumbers; ++i) atRows[i] = {atNumbers[i].pszPath, atNumbers[i].tNumber.szText};
  atRows[dwNumbers] = {"root/vernierlensd/table/focusstart", tStarts.szText};
  const TNumber tColumns = Number(tModel.iThermalColumnsUsed), tZooms = Number(tModel.dwThermalRowsUsed);
  atRows[dwPlain] = {"root/shift_table/thermal/temperature/total_step", tColumns.szText};
  atRows[dwPlain + 1] = {"root/shift_table/thermal/temperature/offset", tThermal.tTemperatures.szText};
  atRows[dwPlain + 2] = {"root/shift_table/thermal/zoomposition/total_step", tZooms.szText};
  atRows[dwPlain + 3] = {"root/shift_table/thermal/zoomposition/offset", tThermal.tZooms.szText};
  const u32 dwRows = tModel.dwThermalRowsUsed;
  for (u32 i = 0; i < dwRows; ++i) atRows[dwPlain + 4 + i] = {tThermal.aszNames[i], tThermal.atRows[i].szText};
  const size_t dwAllRows = dwPlain + (tModel.bThermalTable != 0 ? 4 + dwRows : 0);
  return WriteXml(pszRoot, "etc/conf.d/vernierlensd/config_vernierlensd.xml", atRows, dwAllRows);
}

bool WriteXmlText(const char* pszRoot, const char* pszBelow, const char* pszPath, const char* pszText) {
  const TXmlRow tRow{pszPath, pszText};
  return WriteXml(pszRoot, pszBelow, &tRow, 1);
}

bool WriteCameraConfig(const char* pszRoot, const TLensModel& tModel) {
  return WriteXmlText(pszRoot, "etc/conf.d/config_capability.xml", "root/capability/nvideoin",
                      Number(tModel.iChannels).szText) &&
         WriteXmlText(pszRoot, "etc/conf.d/config_imagefeature.xml", "root/capability/image/c0/vernierlens",
                      Number(tModel.dwCapability).szText) &&
         WriteXmlText(pszRoot, "etc/conf.d/config_videoin_c0.xml", "root/videoin/c0/lens/modelname",
                      tModel.szModelName) &&
         WriteXmlText(pszRoot, "etc/conf.d/config_videomode_c0.xml", "root/capability/videoin/c0/lens/type",
                      tModel.szLensType);
}

// The files for the daemon's focus correction between day and night.
bool WriteNightConfig(const char* pszRoot, const TLensModel& tModel) {
  if (!Model_HasFocus(tModel) || Model_IsICS(tModel)) return true;
  constexpr const char* szProfile = "etc/conf.d/image_cfgs/c0/imgsys/mdp_lens_profile.xml";
  if (!Model_HasZoom(tModel)) {
    return World_WriteIRCutFile(pszRoot) == 0 && WriteXmlText(pszRoot, szProfile, "root/Focus/IRCORRECTION/FOCUS_SHIFT",
                                                              Number(NightTable_Offset(tModel, 0)).szText);
  }
  TList tSteps, tOffsets;
  for (u32 dwRange = 0; dwRange < dwNightRanges; ++dwRange) {
    List_Add(tSteps, NightTable_FirstIndex(tModel, dwRange));
    List_Add(tOffsets, NightTable_Offset(tModel, dwRange));
  }
  const TNumber tRanges = Number(dwNightRanges);
  const TXmlRow atRows[] = {{"root/Focus/IRCORRECTION/STEP_NUM", tRanges.szText},
                            {"root/Focus/IRCORRECTION/ZOOM_STEP", tSteps.szText},
                            {"root/Focus/IRCORRECTION/FOCUS_OFFSET", tOffsets.szText}};
  return World_WriteIRCutFile(pszRoot) == 0 && WriteXml(pszRoot, szProfile, atRows, sizeof atRows / sizeof atRows[0]);
}

bool WriteSensorConfig(const char* pszRoot, const TLensModel& tModel) {
  if (tModel.bThermalTable == 0) return true;
  const TNumber tAddress = Number(dwTMP103BAddress);
  const TXmlRow atRows[] = {{"root/tsensor/dev0/sensortype", "TMP103B"},
                            {"root/tsensor/dev0/devpath", "/dev/i2c-2"},
                            {"root/tsensor/dev0/devaddr", tAddress.szText}};
  return WriteXml(pszRoot, "etc/conf.d/config_temperature.xml", atRows, sizeof atRows / sizeof atRows[0]);
}

// A curve file has hexadecimal words; a coefficient is the word with its bits.  The first and the last word are unused.
bool WriteCurve(const char* pszRoot, ECurveFamily eFamily, u32 dwFile) {
  char szPath[64];
  snprintf(szPath, sizeof szPath, "etc/conf.d/vernierlensd/%s_y%u", g_atCurveFamilies[eFamily].pszName, dwFile);
  const TCurveSheet tSheet = ICSOptics_Curve(eFamily, dwFile);
  TOutput tOutput;
  if (!Output_Open(tOutput, pszRoot, szPath)) return false;
  fprintf(tOutput.pFile, "%x %x %x\n", dwFile, tSheet.dwToken1, tSheet.dwToken2);
  for (const float fCoefficient : tSheet.afCoefficients) {
    fprintf(tOutput.pFile, "%08x\n", std::bit_cast<u32>(fCoefficient));
  }
  fprintf(tOutput.pFile, "%08x\n", 0U);
  return Output_Close(tOutput);
}

bool WriteICS(const char* pszRoot, const TLensModel& tModel) {
  if (!Model_IsICS(tModel)) return true;
  TXmlRow atRows[CURVE_FAMILIES];
  char aszPaths[CURVE_FAMILIES][32];
  TNumber atCounts[CURVE_FAMILIES];
  for (u32 dwFamily = 0; dwFamily < CURVE_FAMILIES; ++dwFamily) {
    const TCurveFamily& tFamily = g_atCurveFamilies[dwFamily];
    snprintf(aszPaths[dwFamily], sizeof aszPaths[dwFamily], "root/ics/%s", tFamily.pszCount);
    atCounts[dwFamily] = Number(tFamily.dwFiles);
    atRows[dwFamily] = {aszPaths[dwFamily], atCounts[dwFamily].szText};
    for (u32 dwFile = 0; dwFile < tFamily.dwFiles; ++dwFile) {
      if (!WriteCurve(pszRoot, static_cast<ECurveFamily>(dwFamily), dwFile)) return false;
    }
  }
  return World_WriteIRCutFile(pszRoot) == 0 &&
         CameraFiles_WriteText(pszRoot, "etc/conf.d/vernierlensd/focus_default", "100\n") &&
         WriteXml(pszRoot, "etc/conf.d/config_ics.xml", atRows, CURVE_FAMILIES);
}

bool WriteState(const char* pszRoot, const TLensModel& tModel) {
  TOutput tOutput;
  const char* pszPositions =
      Model_IsICS(tModel) ? "etc/conf.d/vernierlensd/ics.conf" : "etc/conf.d/vernierlensd/vernierlensd.conf";
  if (!Output_Open(tOutput, pszRoot, pszPositions)) return false;
  if (Model_HasZoom(tModel)) fprintf(tOutput.pFile, "zoom_motor=%u\n", tModel.tZoom.dwFirstPosition);
  if (Model_HasFocus(tModel)) fprintf(tOutput.pFile, "focus_motor=%u\n", tModel.tFocus.dwFirstPosition);
  if (!Output_Close(tOutput)) return false;

  // A lens without zoom has a default focus of its own.
  if (tModel.dwCapability != CAPABILITY_FOCUS_ONLY) return true;
  if (!Output_Open(tOutput, pszRoot, "etc/conf.d/vernierlensd/focus_default")) return false;
  fprintf(tOutput.pFile, "%u\n", tModel.tFocus.dwFirstPosition);
  return Output_Close(tOutput);
}

bool WritePanTable(const char* pszRoot, const TLensModel& tModel) {
  if (!Model_HasZoom(tModel) || Model_IsICS(tModel)) return true;
  TOutput tOutput;
  if (!Output_Open(tOutput, pszRoot, "etc/conf.d/vernierlensd/pan_focus.tab")) return false;
  constexpr u32 dwPerLine = 16;
  for (u32 dwZoom = 1; dwZoom <= tModel.tZoom.dwTotalStep; ++dwZoom) {
    fprintf(tOutput.pFile, "%u%c", Optics_PanFocus(tModel, dwZoom), dwZoom % dwPerLine == 0 ? '\n' : ' ');
  }
  fputc('\n', tOutput.pFile);
  return Output_Close(tOutput);
}

}  // namespace

bool CameraFiles_JoinPath(char (&szPath)[dwCameraPath], const char* pszRoot, const char* pszBelow) {
  const i32 iLength = snprintf(szPath, sizeof szPath, "%s/%s", pszRoot, pszBelow);
  if (iLength > 0 && static_cast<size_t>(iLength) < sizeof szPath) return true;
  fprintf(stderr, "simcamera: %s: the path is too long\n", pszRoot);
  return false;
}

bool CameraFiles_MakeDirectories(const char* pszPath) {
  char szPath[dwCameraPath];
  if (snprintf(szPath, sizeof szPath, "%s", pszPath) >= static_cast<i32>(sizeof szPath)) return false;
  for (char* pc = szPath + 1; *pc != 0; ++pc) {
    if (*pc != '/') continue;
    *pc = 0;
    mkdir(szPath, 0755);  // a failure shows when the last directory cannot be made
    *pc = '/';
  }
  if (mkdir(szPath, 0755) == 0 || errno == EEXIST) return true;
  fprintf(stderr, "simcamera: %s: %s\n", szPath, strerror(errno));
  return false;
}

bool CameraFiles_WriteText(const char* pszRoot, const char* pszBelow, const char* pszText) {
  TOutput tOutput;
  if (!Output_Open(tOutput, pszRoot, pszBelow)) return false;
  fputs(pszText, tOutput.pFile);
  return Output_Close(tOutput);
}

bool CameraFiles_CopyOver(const char* pszRoot, const char* pszBelow, const char* pszFolder) {
  namespace fs = std::filesystem;
  std::error_code tError;
  const fs::path tTo = fs::path(pszRoot) / pszBelow;
  fs::path tAt = pszFolder;
  for (fs::recursive_directory_iterator it(tAt, fs::directory_options::follow_directory_symlink, tError);
       !tError && it != fs::end(it); it.increment(tError)) {
    tAt = it->path();
    const fs::path tTarget = tTo / tAt.lexically_relative(pszFolder);
    if (it->is_directory(tError)) {
      fs::create_directories(tTarget, tError);
    } else if (!tError) {
      fs::copy_file(tAt, tTarget, fs::copy_options::overwrite_existing, tError);
      // The daemon replaces some of the files, and a camera's own may be read-only.
      if (!tError) fs::permissions(tTarget, fs::perms(0600), fs::perm_options::add, tError);
    }
    if (tError) break;
  }
  if (tError) fprintf(stderr, "simcamera: %s: %s\n", tAt.c_str(), tError.message().c_str());
  return !tError;
}

bool CameraFiles_Write(const char* pszRoot, const TLensModel& tModel) {
  return WriteCameraConfig(pszRoot, tModel) && WriteDaemonConfig(pszRoot, tModel) && WriteState(pszRoot, tModel) &&
         WritePanTable(pszRoot, tModel) && WriteNightConfig(pszRoot, tModel) && WriteICS(pszRoot, tModel) &&
         WriteSensorConfig(pszRoot, tModel);
}

i32 World_WriteIRCutFile(const char* pszRoot) {
  constexpr TXmlRow atRows[] = {{"root/ircutcontrol/disableirled", "0"}, {"root/ircutcontrol/enableextled", "0"}};
  return WriteXml(pszRoot, szIRCutFile, atRows, sizeof atRows / sizeof atRows[0]) ? 0 : -1;
}
