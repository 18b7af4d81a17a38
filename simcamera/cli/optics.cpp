// Prints what the true lens would need to be sharp, over its zoom range and in the present scene.
#include "lens/optics.h"

#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>

#include "cli/commands.h"
#include "cli/snapshot.h"

namespace {

constexpr u32 dwRows = 20;  // between the first and the last

struct TOpticsRow {
  u32 dwZoom;
  double dSharp, dDepth, dWidth;      // virtual steps
  std::optional<u32> dwPan, dwStart;  // of the tables that a plain lens has
};

std::vector<TOpticsRow> Work(const TSnapshot& tSnapshot) {
  const TLensModel& tModel = *tSnapshot.ptModel;
  const TWorld& tWorld = tSnapshot.tWorld;
  if (!Model_HasFocus(tModel)) Cli_Fail("this lens has no focus motor");
  const TScene& tScene = g_atScenes[tWorld.eScene];
  const u32 dwRange = tModel.tZoom.dwEnd - tModel.tZoom.dwStart;
  std::vector<TOpticsRow> atRows;
  for (u32 dwRow = 0; dwRow <= (Model_HasZoom(tModel) ? dwRows : 0); ++dwRow) {
    const u32 dwZoom = tModel.tZoom.dwStart + dwRange * dwRow / dwRows;
    TOpticsRow tRow{dwZoom,
                    Optics_SharpFocus(tModel, dwZoom, tWorld.dDistance_m, tWorld.dTemperature_C, tWorld.bNight != 0),
                    Optics_DepthOfFocus(tModel, tScene, dwZoom),
                    Optics_PeakWidth(tModel, tScene, dwZoom),
                    std::nullopt,
                    std::nullopt};
    if (!Model_IsICS(tModel) && Model_HasZoom(tModel)) {
      tRow.dwPan = Optics_PanFocus(tModel, dwZoom);
      tRow.dwStart = Optics_SearchStart(tModel, dwZoom);
    }
    atRows.push_back(tRow);
  }
  return atRows;
}

}  // namespace

void Optics_PrintText(const TOpenCamera& tCamera) {
  const auto ptSnapshot = Snapshot_Take(tCamera);
  const auto Text = [](const std::optional<u32>& dwValue) { return dwValue ? std::to_string(*dwValue) : "-"; };
  std::printf("%8s%10s%10s%12s%12s%14s\n", "zoom", "sharp", "depth", "peak width", "pan focus", "search start");
  for (const TOpticsRow& tRow : Work(*ptSnapshot)) {
    const std::string sZoom = Model_HasZoom(*tCamera.ptModel) ? std::to_string(tRow.dwZoom) : "-";
    std::printf("%8s%10.1f%10.2f%12.2f%12s%14s\n", sZoom.c_str(), tRow.dSharp, tRow.dDepth, tRow.dWidth,
                Text(tRow.dwPan).c_str(), Text(tRow.dwStart).c_str());
  }
}

void Optics_PrintJson(const TOpenCamera& tCamera) {
  using TJson = nlohmann::ordered_json;
  const auto ptSnapshot = Snapshot_Take(tCamera);
  const auto OrNull = [](const std::optional<u32>& dwValue) { return dwValue ? TJson(*dwValue) : TJson(nullptr); };
  TJson tJson = {{"model", ptSnapshot->tWorld.tModel.szName},
                 {"scene", Snapshot_SceneToJson(ptSnapshot->tWorld)},
                 {"optics", TJson::array()}};
  for (const TOpticsRow& tRow : Work(*ptSnapshot)) {
    tJson["optics"].push_back({{"zoom_vsteps", Model_HasZoom(*tCamera.ptModel) ? TJson(tRow.dwZoom) : TJson(nullptr)},
                               {"sharp_vsteps", Json_Number(tRow.dSharp)},
                               {"depth_vsteps", Json_Number(tRow.dDepth)},
                               {"peak_width_vsteps", Json_Number(tRow.dWidth)},
                               {"pan_focus_vsteps", OrNull(tRow.dwPan)},
                               {"search_start_vsteps", OrNull(tRow.dwStart)}});
  }
  std::cout << tJson << '\n';
}
