// What a person or a script does to a camera from outside: buttons and the scene.
#include <courier.h>

#include <cstdio>

#include "cli/commands.h"

namespace {

// Under the lock, so that the line of the transcript comes before what the daemon does about the event.
void SendEvent(const TOpenCamera& tCamera, const std::string& sButton, const char* pszWord, const char* pszNote) {
  if (sButton != "af" && sButton != "zoomin" && sButton != "zoomout") {
    Cli_RefuseUsage("a button is af, zoomin or zoomout, not \"" + sButton + "\"");
  }
  const TScopedFd tDirectory = Camera_OpenDirectory(tCamera.sRoot, "tmp");
  TCourierSendOptions tOptions{};
  std::snprintf(tOptions.szFIFO, sizeof tOptions.szFIFO, "%s", Camera_ShortPath(tDirectory, "VernierLensFIFO").c_str());
  std::snprintf(tOptions.szPayload, sizeof tOptions.szPayload, "<message><%sbutton>%s</%sbutton></message>",
                sButton.c_str(), pszWord, sButton.c_str());
  const TWorldLock tLock(tCamera.ptWorld.get());
  if (Courier_Util_SendbyFIFO(&tOptions) != 0) Cli_Fail("the daemon does not listen to its buttons");
  Camera_Note(tCamera, pszNote + sButton);
}

EScene ParseScene(const std::string& sText) {
  std::string sNames;
  for (const TScene& tScene : g_atScenes) {
    if (sText == tScene.pszName) return tScene.eScene;
    sNames += std::string(sNames.empty() ? "" : ", ") + tScene.pszName;
  }
  Cli_RefuseUsage("there is no scene \"" + sText + "\"; there are " + sNames);
}

// The part of the world that is set.
struct TSetting {
  double dDistance_m, dTemperature_C;
  u32 bNight;
  EScene eScene;
};

void SetOne(TSetting& tSetting, const std::string& sKey, const std::string& sValue) {
  if (sKey == "distance") {
    tSetting.dDistance_m = Number_Parse(sValue, sKey, 0.1, 1e6);
  } else if (sKey == "temperature") {
    tSetting.dTemperature_C = Number_Parse(sValue, sKey, -60, 120);
  } else if (sKey == "mode") {
    if (sValue != "day" && sValue != "night") Cli_RefuseUsage("mode is day or night, not \"" + sValue + "\"");
    tSetting.bNight = sValue == "night" ? 1 : 0;
  } else if (sKey == "scene") {
    tSetting.eScene = ParseScene(sValue);
  } else {
    Cli_RefuseUsage("there is no \"" + sKey + "\" to set; there are distance, temperature, mode and scene");
  }
}

}  // namespace

void Button_Press(const TOpenCamera& tCamera, const std::string& sButton) {
  SendEvent(tCamera, sButton, "pressed", "press ");
}

void Button_Release(const TOpenCamera& tCamera, const std::string& sButton) {
  SendEvent(tCamera, sButton, "released", "release ");
}

void Button_Hold(const TOpenCamera& tCamera, const std::string& sButton, u64 qwFor_us) {
  Button_Press(tCamera, sButton);
  Camera_Sleep(tCamera, qwFor_us);
  Button_Release(tCamera, sButton);
}

void Scene_Set(const TOpenCamera& tCamera, const std::vector<std::string>& asSettings) {
  TWorld* ptWorld = tCamera.ptWorld.get();
  const TWorldLock tLock(ptWorld);
  TSetting tSetting{ptWorld->dDistance_m, ptWorld->dTemperature_C, ptWorld->bNight, ptWorld->eScene};
  std::string sNote = "set";
  for (const std::string& sSetting : asSettings) {
    const size_t dwEquals = sSetting.find('=');
    if (dwEquals == std::string::npos) Cli_RefuseUsage("KEY=VALUE, not \"" + sSetting + "\"");
    SetOne(tSetting, sSetting.substr(0, dwEquals), sSetting.substr(dwEquals + 1));
    sNote += " " + sSetting;
  }
  ptWorld->dDistance_m = tSetting.dDistance_m;
  ptWorld->dTemperature_C = tSetting.dTemperature_C;
  ptWorld->bNight = tSetting.bNight;
  ptWorld->eScene = tSetting.eScene;
  Camera_Note(tCamera, sNote);
}
