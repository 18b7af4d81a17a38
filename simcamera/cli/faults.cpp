#include "cli/faults.h"

#include <regex.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

#include "cli/snapshot.h"

namespace {

constexpr i32 iMostSteps = 1'000'000;
constexpr const char* szOneIn = "one-in=";

struct TSensorRow {
  const char* pszName;
  ESensorFault eFault;
};

constexpr TSensorRow g_atSensorFaults[] = {
    {"off", SENSOR_GOOD},    {"none", SENSOR_ABSENT},  {"silent", SENSOR_SILENT},
    {"short", SENSOR_SHORT}, {"bad", SENSOR_BAD_ONCE},
};

// Does it under the lock, with the steps made that came before the fault, and notes it.
template <typename FChange>
void Change(const TOpenCamera& tCamera, const std::string& sWords, FChange pfnChange) {
  TWorld* ptWorld = tCamera.ptWorld.get();
  const TWorldLock tLock(ptWorld);
  Lens_Settle(&ptWorld->tLens, World_Now_us(ptWorld));
  pfnChange(*ptWorld);
  Camera_Note(tCamera, "fault " + sWords);
}

std::string WordsOf(const char* pszKind, const TAxisName& tName, const std::string& sRest) {
  const std::string sChannel = tName.iChannel == 0 ? "" : " --channel " + std::to_string(tName.iChannel);
  return std::string(pszKind) + " " + tName.sAxis + (sRest.empty() ? "" : " ") + sRest + sChannel;
}

TAxisTruth& FindAxis(const TOpenCamera& tCamera, const TAxisName& tName) {
  if (tName.sAxis != "zoom" && tName.sAxis != "focus") {
    Cli_RefuseUsage("an axis is zoom or focus, not \"" + tName.sAxis + "\"");
  }
  if (Model_IsICS(*tCamera.ptModel)) Cli_Fail("an axis of an ICS lens neither stalls nor slips");
  const ELensAxis eAxis = tName.sAxis == "zoom" ? LENS_ZOOM : LENS_FOCUS;
  if (tCamera.ptWorld->tLens.atModel[eAxis].bPresent == 0) Cli_Fail("this lens has no " + tName.sAxis + " motor");
  if (tName.iChannel >= tCamera.ptModel->iChannels) {
    Cli_Fail("this camera has no channel " + std::to_string(tName.iChannel));
  }
  return tCamera.ptWorld->tLens.atAxis[tName.iChannel][eAxis];
}

// "torn" is what a cut in the middle of writing leaves: the first half of the file.
void WriteIRCutFile(const std::string& sRoot, const std::string& sHow) {
  const std::string sPath = sRoot + "/" + szIRCutFile;
  bool bDone = true;
  if (sHow == "missing")
    bDone = unlink(sPath.c_str()) == 0 || errno == ENOENT;
  else
    bDone = World_WriteIRCutFile(sRoot.c_str()) == 0;
  struct stat tStat {};
  if (sHow == "torn")
    bDone = bDone && stat(sPath.c_str(), &tStat) == 0 && truncate(sPath.c_str(), tStat.st_size / 2) == 0;
  if (!bDone) Cli_Fail(sPath + ": " + std::strerror(errno));
}

// A whole file ends with its root element's end.
const char* StateOfIRCutFile(const std::string& sRoot) {
  std::ifstream tIn(sRoot + "/" + szIRCutFile);
  if (!tIn) return "missing";
  const std::string sText{std::istreambuf_iterator<char>(tIn), {}};
  return sText.find("</root>") == std::string::npos ? "torn" : "good";
}

void AddAxisFaults(std::vector<std::string>& asFaults, const TAxisTruth& tAxis, const TAxisName& tName) {
  if (tAxis.bSticky != 0) asFaults.push_back(WordsOf("stall", tName, ""));
  if (tAxis.iSlipNow > 0) asFaults.push_back(WordsOf("slip", tName, std::to_string(tAxis.iSlipNow)));
  if (tAxis.iSlipOneIn > 0) asFaults.push_back(WordsOf("slip", tName, szOneIn + std::to_string(tAxis.iSlipOneIn)));
}

i32 DaemonOf(const std::string& sRoot) {
  i32 iDaemon = 0;
  FILE* pFile = std::fopen((sRoot + "/sim/daemon.pid").c_str(), "r");
  if (pFile == nullptr) return 0;
  if (std::fscanf(pFile, "%d", &iDaemon) != 1) iDaemon = 0;
  std::fclose(pFile);
  return iDaemon;
}

void SetCutAt(TWorld& tWorld, const std::string& sPattern) {
  std::snprintf(tWorld.szCutAt, sizeof tWorld.szCutAt, "%s", sPattern.c_str());
  Word_Publish(tWorld.dwCutPatterns, tWorld.dwCutPatterns + 1);
}

}  // namespace

void Fault_CutPower(const TOpenCamera& tCamera) {
  if (!Camera_IsRun(tCamera.sRoot)) Cli_Fail(tCamera.sRoot + ": the camera is not running");
  // Under the lock no request comes in between.
  Change(tCamera, "power-cut", [&](TWorld& tWorld) {
    const i32 iDaemon = DaemonOf(tCamera.sRoot);
    if (iDaemon <= 1 || kill(iDaemon, SIGKILL) != 0) Cli_Fail(tCamera.sRoot + ": no daemon to cut the power of");
    World_PowerCut(&tWorld, World_Now_us(&tWorld));
  });
}

void Fault_CutPowerAt(const TOpenCamera& tCamera, const std::string& sPattern) {
  if (sPattern.empty() || sPattern.size() >= sizeof tCamera.ptWorld->szCutAt) {
    Cli_RefuseUsage("--at takes 1 to " + std::to_string(sizeof tCamera.ptWorld->szCutAt - 1) + " bytes");
  }
  regex_t tPattern;
  const i32 iError = regcomp(&tPattern, sPattern.c_str(), REG_EXTENDED | REG_NOSUB);
  char szError[80];
  regerror(iError, &tPattern, szError, sizeof szError);
  if (iError != 0) Cli_RefuseUsage("--at \"" + sPattern + "\": " + szError);
  regfree(&tPattern);
  Change(tCamera, "power-cut --at " + sPattern, [&](TWorld& tWorld) { SetCutAt(tWorld, sPattern); });
}

void Fault_Detach(const TOpenCamera& tCamera, bool bDetached) {
  if (!Model_IsICS(*tCamera.ptModel)) Cli_Fail("this lens is no ICS lens");
  Change(tCamera, bDetached ? "detach" : "detach off",
         [&](TWorld& tWorld) { Lens_SetDetached(&tWorld.tLens, bDetached, World_Now_us(&tWorld)); });
}

void Fault_Stall(const TOpenCamera& tCamera, const TAxisName& tName, bool bStalled) {
  TAxisTruth& tAxis = FindAxis(tCamera, tName);
  Change(tCamera, WordsOf("stall", tName, bStalled ? "" : "off"), [&](TWorld&) { tAxis.bSticky = bStalled ? 1 : 0; });
}

void Fault_Slip(const TOpenCamera& tCamera, const TAxisName& tName, const std::string& sHowMany) {
  TAxisTruth& tAxis = FindAxis(tCamera, tName);
  const bool bOneIn = sHowMany.starts_with(szOneIn);
  const std::string sNumber = bOneIn ? sHowMany.substr(std::strlen(szOneIn)) : sHowMany;
  const i32 iNumber = static_cast<i32>(
      Whole_Parse(sNumber, bOneIn ? "one-in" : "the number of driver steps", 0, static_cast<u64>(iMostSteps)));
  Change(tCamera, WordsOf("slip", tName, sHowMany), [&](TWorld&) {
    if (bOneIn) {
      tAxis.iSlipOneIn = iNumber;
      tAxis.iSlipCount = 0;
    } else {
      tAxis.iSlipNow = std::min(tAxis.iSlipNow + iNumber, iMostSteps);
    }
  });
}

void Fault_Sensor(const TOpenCamera& tCamera, const std::string& sHow) {
  for (const TSensorRow& tRow : g_atSensorFaults) {
    if (sHow != tRow.pszName) continue;
    Change(tCamera, "sensor " + sHow, [&](TWorld& tWorld) { tWorld.tI2C.eFault = tRow.eFault; });
    return;
  }
  Cli_RefuseUsage("a sensor is off (no fault), none, silent, short or bad, not \"" + sHow + "\"");
}

void Fault_SpoilIRCutFile(const TOpenCamera& tCamera, const std::string& sHow) {
  if (sHow != "missing" && sHow != "torn" && sHow != "good") {
    Cli_RefuseUsage("the file is missing, torn or good, not \"" + sHow + "\"");
  }
  if (!Model_HasFocus(*tCamera.ptModel)) Cli_Fail("this camera has no IR-cut settings");
  Change(tCamera, "ircut-file " + sHow, [&](TWorld&) { WriteIRCutFile(tCamera.sRoot, sHow); });
}

void Fault_Switch(const TOpenCamera& tCamera, const TFaultSwitch& tSwitch, bool bOn) {
  Change(tCamera, std::string(tSwitch.pszName) + (bOn ? " on" : " off"),
         [&](TWorld& tWorld) { tWorld.*tSwitch.pbSwitch = bOn ? 1 : 0; });
}

void Fault_Clear(const TOpenCamera& tCamera) {
  Change(tCamera, "clear", [&](TWorld& tWorld) {
    for (auto& atChannel : tWorld.tLens.atAxis) {
      for (TAxisTruth& tAxis : atChannel) tAxis.bSticky = 0, tAxis.iSlipNow = tAxis.iSlipOneIn = tAxis.iSlipCount = 0;
    }
    for (const TFaultSwitch& tSwitch : g_atFaultSwitches) tWorld.*tSwitch.pbSwitch = 0;
    tWorld.tI2C.eFault = SENSOR_GOOD;
    if (tWorld.tLens.bICSDetached != 0) Lens_SetDetached(&tWorld.tLens, false, World_Now_us(&tWorld));
    SetCutAt(tWorld, "");
    const bool bSpoilt = std::strcmp(StateOfIRCutFile(tCamera.sRoot), "good") != 0;
    if (Model_HasFocus(*tCamera.ptModel) && bSpoilt) WriteIRCutFile(tCamera.sRoot, "good");
  });
}

std::vector<std::string> Fault_List(const std::string& sRoot, const TWorld& tWorld) {
  std::vector<std::string> asFaults;
  if (tWorld.szCutAt[0] != '\0') asFaults.push_back(std::string("power-cut --at ") + tWorld.szCutAt);
  if (tWorld.tLens.bICSDetached != 0) asFaults.push_back("detach");
  for (i32 iChannel = 0; iChannel < iLensChannels; ++iChannel) {
    AddAxisFaults(asFaults, tWorld.tLens.atAxis[iChannel][LENS_ZOOM], {"zoom", iChannel});
    AddAxisFaults(asFaults, tWorld.tLens.atAxis[iChannel][LENS_FOCUS], {"focus", iChannel});
  }
  for (const TFaultSwitch& tSwitch : g_atFaultSwitches) {
    if (tWorld.*tSwitch.pbSwitch != 0) asFaults.push_back(std::string(tSwitch.pszName) + " on");
  }
  for (const TSensorRow& tRow : g_atSensorFaults) {
    if (tRow.eFault == tWorld.tI2C.eFault && tRow.eFault != SENSOR_GOOD) {
      asFaults.push_back(std::string("sensor ") + tRow.pszName);
    }
  }
  const std::string sIRCut = StateOfIRCutFile(sRoot);
  if (tWorld.tLens.atModel[LENS_FOCUS].bPresent != 0 && sIRCut != "good") asFaults.push_back("ircut-file " + sIRCut);
  return asFaults;
}

void Fault_PrintList(const TOpenCamera& tCamera) {
  for (const std::string& sFault : Fault_List(tCamera.sRoot, Snapshot_Take(tCamera)->tWorld)) std::puts(sFault.c_str());
}
