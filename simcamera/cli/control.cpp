// What a person or a script does to a camera from outside: buttons, the scene, faults.
#include <courier.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cli/cli.h"

namespace {

void Note(const TOpenCamera& tCamera, std::string sText, const TArguments& asArgs) {
  for (size_t i = 1; i < asArgs.size(); ++i) sText += " " + asArgs[i];
  Camera_Note(tCamera, sText);
}

void SendEvent(const TScopedFd& tDirectory, const std::string& sElement, const char* pszWord) {
  TCourierSendOptions tOptions{};
  std::snprintf(tOptions.szFIFO, sizeof tOptions.szFIFO, "%s", Camera_ShortPath(tDirectory, "VernierLensFIFO").c_str());
  std::snprintf(tOptions.szPayload, sizeof tOptions.szPayload, "<message><%s>%s</%s></message>", sElement.c_str(),
                pszWord, sElement.c_str());
  if (Courier_Util_SendbyFIFO(&tOptions) != 0) Cli_Fail("the daemon does not listen to its buttons");
}

EScene ParseScene(const std::string& sText) {
  std::string sNames;
  for (const TScene& tScene : g_atScenes) {
    if (sText == tScene.pszName) return tScene.eScene;
    sNames += std::string(sNames.empty() ? "" : ", ") + tScene.pszName;
  }
  Cli_RefuseUsage("there is no scene \"" + sText + "\"; there are " + sNames);
}

void SetScene(TWorld* ptWorld, const std::string& sKey, const std::string& sValue) {
  if (sKey == "distance") {
    ptWorld->dDistance_m = Number_Parse(sValue, sKey, 0.1, 1e6);
  } else if (sKey == "temperature") {
    ptWorld->dTemperature_C = Number_Parse(sValue, sKey, -60, 120);
  } else if (sKey == "mode") {
    if (sValue != "day" && sValue != "night") Cli_RefuseUsage("mode is day or night, not \"" + sValue + "\"");
    ptWorld->bNight = sValue == "night" ? 1 : 0;
  } else if (sKey == "scene") {
    ptWorld->eScene = ParseScene(sValue);
  } else {
    Cli_RefuseUsage("there is no \"" + sKey + "\" to set; there are distance, temperature, mode and scene");
  }
}

constexpr const char* szFaultUsage =
    "fault ROOT power-cut | detach [on|off] | stall AXIS [on|off] [--channel N] | slip AXIS STEPS|one-in=N [--channel "
    "N] | "
    "silent-peer|peer-zero|peer-backwards|flash-full|flash-readonly on|off | sensor off|none|silent|short|bad | "
    "ircut-file missing|torn|good";

struct TSwitchRow {
  const char* pszName;
  u32 TWorld::*pbSwitch;
};

constexpr TSwitchRow g_atSwitches[] = {
    {"silent-peer", &TWorld::bImageSideSilent},       {"peer-zero", &TWorld::bImageSideZero},
    {"peer-backwards", &TWorld::bImageSideBackwards}, {"flash-full", &TWorld::bFlashFull},
    {"flash-readonly", &TWorld::bFlashReadOnly},
};

const TSwitchRow* FindSwitch(const std::string& sKind) {
  for (const TSwitchRow& tRow : g_atSwitches) {
    if (sKind == tRow.pszName) return &tRow;
  }
  return nullptr;
}

struct TSensorRow {
  const char* pszName;
  ESensorFault eFault;
};

constexpr TSensorRow g_atSensorFaults[] = {
    {"off", SENSOR_GOOD},    {"none", SENSOR_ABSENT},  {"silent", SENSOR_SILENT},
    {"short", SENSOR_SHORT}, {"bad", SENSOR_BAD_ONCE},
};

ESensorFault ParseSensorFault(const std::string& sText) {
  for (const TSensorRow& tRow : g_atSensorFaults) {
    if (sText == tRow.pszName) return tRow.eFault;
  }
  Cli_RefuseUsage("a sensor is off (no fault), none, silent, short or bad, not \"" + sText + "\"");
}

// "torn" is what a cut in the middle of writing leaves: the first half of the file.
void SpoilIRCutFile(const TOpenCamera& tCamera, const std::string& sHow) {
  if (sHow != "missing" && sHow != "torn" && sHow != "good") {
    Cli_RefuseUsage("the file is missing, torn or good, not \"" + sHow + "\"");
  }
  if (!Model_HasFocus(*tCamera.ptModel)) Cli_Fail("this camera has no IR-cut settings");
  const std::string sPath = tCamera.sRoot + "/" + szIRCutFile;
  bool bDone = true;
  if (sHow == "missing")
    bDone = unlink(sPath.c_str()) == 0 || errno == ENOENT;
  else
    bDone = World_WriteIRCutFile(tCamera.sRoot.c_str()) == 0;
  struct stat tStat {};
  if (sHow == "torn")
    bDone = bDone && stat(sPath.c_str(), &tStat) == 0 && truncate(sPath.c_str(), tStat.st_size / 2) == 0;
  if (!bDone) Cli_Fail(sPath + ": " + std::strerror(errno));
}

bool ParseSwitch(const std::string& sText) {
  if (sText != "on" && sText != "off") Cli_RefuseUsage("on or off, not \"" + sText + "\"");
  return sText == "on";
}

TAxisTruth& FindAxis(const TOpenCamera& tCamera, const std::string& sAxis, i32 iChannel) {
  if (sAxis != "zoom" && sAxis != "focus") Cli_RefuseUsage("an axis is zoom or focus, not \"" + sAxis + "\"");
  const ELensAxis eAxis = sAxis == "zoom" ? LENS_ZOOM : LENS_FOCUS;
  if (tCamera.ptWorld->tLens.atModel[eAxis].bPresent == 0) Cli_Fail("this lens has no " + sAxis + " motor");
  if (iChannel >= tCamera.ptModel->iChannels) Cli_Fail("this camera has no channel " + std::to_string(iChannel));
  return tCamera.ptWorld->tLens.atAxis[iChannel][eAxis];
}

void Slip(TAxisTruth& tAxis, const std::string& sHowMuch) {
  constexpr const char* szOneIn = "one-in=";
  if (sHowMuch.starts_with(szOneIn)) {
    const std::string sNumber = sHowMuch.substr(std::string(szOneIn).size());
    tAxis.iSlipOneIn = static_cast<i32>(Integer_Parse(sNumber, "one-in", 0, 1'000'000));
    tAxis.iSlipCount = 0;
  } else {
    tAxis.iSlipNow += static_cast<i32>(Integer_Parse(sHowMuch, "the number of driver steps", 0, 1'000'000));
  }
}

// Kills the daemon and stops the motors.  The caller holds the world's lock, so no request comes in between.
void CutPower(const TOpenCamera& tCamera) {
  if (!Camera_IsRun(tCamera.sRoot)) Cli_Fail(tCamera.sRoot + ": the camera is not running");
  i32 iDaemon = 0;
  FILE* pFile = std::fopen((tCamera.sRoot + "/sim/daemon.pid").c_str(), "r");
  if (pFile != nullptr) {
    if (std::fscanf(pFile, "%d", &iDaemon) != 1) iDaemon = 0;
    std::fclose(pFile);
  }
  if (iDaemon <= 1 || kill(iDaemon, SIGKILL) != 0) Cli_Fail(tCamera.sRoot + ": no daemon to cut the power of");
  World_PowerCut(tCamera.ptWorld.get(), World_Now_us(tCamera.ptWorld.get()));
}

}  // namespace

i32 Cli_Press(TArguments asArgs) {
  const auto sFor = Arguments_TakeOption(asArgs, "--for");
  Arguments_Expect(asArgs, 2, 2, "press ROOT af|zoomin|zoomout [--for MS]");
  const u64 qwFor_us = sFor ? static_cast<u64>(Integer_Parse(*sFor, "--for", 0, 3'600'000)) * 1000 : 100'000;
  const std::string& sButton = asArgs[1];
  if (sButton != "af" && sButton != "zoomin" && sButton != "zoomout") {
    Cli_RefuseUsage("a button is af, zoomin or zoomout, not \"" + sButton + "\"");
  }
  const TOpenCamera tCamera = Camera_Open(asArgs[0]);
  const TScopedFd tDirectory = Camera_OpenDirectory(tCamera.sRoot, "tmp");
  SendEvent(tDirectory, sButton + "button", "pressed");
  Camera_Sleep(tCamera, qwFor_us);
  SendEvent(tDirectory, sButton + "button", "released");
  return 0;
}

i32 Cli_Set(TArguments asArgs) {
  Arguments_Expect(asArgs, 2, 16, "set ROOT distance=METRES|temperature=CELSIUS|mode=day|night|scene=NAME...");
  const TOpenCamera tCamera = Camera_Open(asArgs[0]);
  const TWorldLock tLock(tCamera.ptWorld.get());
  for (size_t i = 1; i < asArgs.size(); ++i) {
    const size_t dwEquals = asArgs[i].find('=');
    if (dwEquals == std::string::npos) Cli_RefuseUsage("KEY=VALUE, not \"" + asArgs[i] + "\"");
    SetScene(tCamera.ptWorld.get(), asArgs[i].substr(0, dwEquals), asArgs[i].substr(dwEquals + 1));
  }
  Note(tCamera, "set", asArgs);
  return 0;
}

i32 Cli_Fault(TArguments asArgs) {
  const auto sChannel = Arguments_TakeOption(asArgs, "--channel");
  Arguments_Expect(asArgs, 2, 4, szFaultUsage);
  const i32 iChannel = sChannel ? static_cast<i32>(Integer_Parse(*sChannel, "--channel", 0, iLensChannels - 1)) : 0;
  const std::string& sKind = asArgs[1];
  const size_t dwArguments = asArgs.size() - 2;
  const TOpenCamera tCamera = Camera_Open(asArgs[0]);
  TWorld* ptWorld = tCamera.ptWorld.get();
  const TWorldLock tLock(ptWorld);
  // Settle before the fault begins: the steps until now were made without it.
  Lens_Settle(&ptWorld->tLens, World_Now_us(ptWorld));

  if (sKind == "power-cut" && dwArguments == 0) {
    CutPower(tCamera);
  } else if (sKind == "stall" && (dwArguments == 1 || dwArguments == 2)) {
    FindAxis(tCamera, asArgs[2], iChannel).bSticky = dwArguments == 1 || ParseSwitch(asArgs[3]) ? 1 : 0;
  } else if (sKind == "slip" && dwArguments == 2) {
    Slip(FindAxis(tCamera, asArgs[2], iChannel), asArgs[3]);
  } else if (sKind == "sensor" && dwArguments == 1) {
    ptWorld->tI2C.eFault = ParseSensorFault(asArgs[2]);
  } else if (sKind == "detach" && dwArguments <= 1) {
    if (!Model_IsICS(*tCamera.ptModel)) Cli_Fail("this lens is no ICS lens");
    Lens_SetDetached(&ptWorld->tLens, dwArguments == 0 || ParseSwitch(asArgs[2]), World_Now_us(ptWorld));
  } else if (sKind == "ircut-file" && dwArguments == 1) {
    SpoilIRCutFile(tCamera, asArgs[2]);
  } else if (const TSwitchRow* ptSwitch = FindSwitch(sKind); ptSwitch != nullptr && dwArguments == 1) {
    ptWorld->*ptSwitch->pbSwitch = ParseSwitch(asArgs[2]) ? 1 : 0;
  } else {
    Cli_RefuseUsage(std::string("usage: simcamera ") + szFaultUsage);
  }
  Note(tCamera, "fault", asArgs);
  return 0;
}
