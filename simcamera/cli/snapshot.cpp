#include "cli/snapshot.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>

#include "cli/faults.h"

namespace {

using TJson = nlohmann::ordered_json;

constexpr const char* g_apszAxes[LENS_AXES] = {"zoom", "focus"};

bool Lives(i32 iProcess) {
  return iProcess > 0 && (kill(iProcess, 0) == 0 || errno != ESRCH);
}

// The caller holds the lock.
void CopyBlocks(TSnapshot& tSnapshot) {
  for (i32 iChannel = 0; iChannel < tSnapshot.ptModel->iChannels; ++iChannel) {
    const std::string sPath = tSnapshot.sRoot + "/shm/" + std::to_string(iChannel);
    const TScopedFd tFile(open(sPath.c_str(), O_RDONLY | O_CLOEXEC));
    u32(&adwBlock)[BLOCK_WORDS] = tSnapshot.aadwBlock[iChannel];
    const bool bRead = tFile.Get() >= 0 && read(tFile.Get(), adwBlock, sizeof adwBlock) == ssize_t{sizeof adwBlock};
    tSnapshot.abBlockIsHeld[iChannel] = bRead && Lives(tSnapshot.tWorld.aiBlockHolder[iChannel]);
  }
}

template <typename TValue>
TJson OrNull(const std::optional<TValue>& tValue) {
  return tValue ? TJson(*tValue) : TJson(nullptr);
}

TJson AxisToJson(const TSnapshot& tSnapshot, i32 iChannel, ELensAxis eAxis) {
  const TLens& tLens = tSnapshot.tWorld.tLens;
  const TAxisTruth& tAxis = tLens.atAxis[iChannel][eAxis];
  TJson tJson;
  tJson["believed"] = OrNull(Snapshot_Believed(tSnapshot, iChannel, eAxis));
  tJson["true"] = Json_Number(Lens_TrueVirtual(&tLens, iChannel, eAxis));
  tJson["glass"] = Json_Number(Lens_GlassVirtual(&tLens, iChannel, eAxis));
  tJson["moving"] = Lens_AxisTurns(&tLens, iChannel, eAxis, tSnapshot.tWorld.qwBase_us);
  tJson["walking"] = Lens_AxisWalks(&tLens, iChannel, eAxis, tSnapshot.tWorld.qwBase_us);
  tJson["slack_open_steps"] = tAxis.iGlass - tAxis.iRotor;
  tJson["lost_to_faults_steps"] = tAxis.iLostToFaults;
  tJson["lost_to_stops_steps"] = tAxis.iLostToStops;
  return tJson;
}

void AddImage(TJson& tFocus, const TSnapshot& tSnapshot, i32 iChannel) {
  const TWorld* ptWorld = &tSnapshot.tWorld;
  const double dSharp = World_SharpFocus(ptWorld, iChannel);
  const double dDepth = World_DepthOfFocus(ptWorld, iChannel);
  const TImageView tView = World_ImageView(ptWorld, iChannel);
  tFocus["sharp"] = Json_Number(dSharp);
  tFocus["off-depths"] =
      Json_Number(std::fabs(Lens_GlassVirtual(&ptWorld->tLens, iChannel, LENS_FOCUS) - dSharp) / dDepth);
  tFocus["depth_vsteps"] = Json_Number(dDepth);
  tFocus["peak_width_vsteps"] = Json_Number(tView.dPeakWidth);
  tFocus["value_now"] = Json_Number(tView.dValueNow);
  tFocus["value_best"] = Json_Number(tView.dValueBest);
  tFocus["brightness"] = Json_Number(tView.dBrightness);
}

TJson ConstantsToJson(const TSnapshot& tSnapshot, ELensAxis eAxis) {
  const TAxisSheet& tSheet = Model_Sheet(*tSnapshot.ptModel, eAxis);
  const TAxisModel& tModel = tSnapshot.tWorld.tLens.atModel[eAxis];
  TJson tJson;
  tJson["range_start_vsteps"] = tSheet.dwStart;
  tJson["range_end_vsteps"] = tSheet.dwEnd;
  tJson["steps_per_vstep"] = tModel.iDriverPerVirtual;
  tJson["adjust_vsteps"] = tSheet.dwAdjustStep;
  if (Model_IsICS(*tSnapshot.ptModel)) {
    const TICSAxisTruth& tAxis = tSnapshot.tWorld.tLens.atICS[eAxis];
    tJson["min_steps"] = tAxis.iMin;
    tJson["max_steps"] = tAxis.iMax;
    tJson["pi_sensor_steps"] = tAxis.iPI;
    tJson["speed_steps_per_s"] = tAxis.iSpeed;
    return tJson;
  }
  tJson["slack_steps"] = tModel.iSlack;
  tJson["travel_steps"] = tModel.iTravel;
  tJson["origin_steps"] = tModel.iOrigin;
  tJson["pi_sensor_at_steps"] = tModel.iPI < 0 ? TJson(nullptr) : TJson(tModel.iPI);
  tJson["step_time_ns"] = tModel.qwStepTime_ns;
  return tJson;
}

TJson SpeedToJson(const TSnapshot& tSnapshot) {
  const double dSpeed = tSnapshot.tWorld.tPace.dSpeed;
  if (!tSnapshot.bRun || dSpeed <= 0) return nullptr;
  return dSpeed >= dSpeedMax ? TJson("max") : Json_Number(dSpeed);
}

}  // namespace

std::unique_ptr<TSnapshot> Snapshot_Take(const TOpenCamera& tCamera) {
  auto ptSnapshot = std::make_unique<TSnapshot>();
  ptSnapshot->sRoot = tCamera.sRoot;
  ptSnapshot->ptModel = tCamera.ptModel;
  ptSnapshot->bRun = Camera_IsRun(tCamera.sRoot);
  TWorld* ptWorld = tCamera.ptWorld.get();
  const TWorldLock tLock(ptWorld);
  const u64 qwNow_us = World_Now_us(ptWorld);
  Lens_Settle(&ptWorld->tLens, qwNow_us);
  std::memcpy(static_cast<void*>(&ptSnapshot->tWorld), ptWorld, sizeof *ptWorld);
  ptSnapshot->tWorld.bRun = 0;
  ptSnapshot->tWorld.qwBase_us = qwNow_us;
  CopyBlocks(*ptSnapshot);
  return ptSnapshot;
}

std::optional<u32> Snapshot_Believed(const TSnapshot& tSnapshot, i32 iChannel, ELensAxis eAxis) {
  if (!tSnapshot.abBlockIsHeld[iChannel]) return std::nullopt;
  return tSnapshot.aadwBlock[iChannel][eAxis == LENS_ZOOM ? BLOCK_ZOOM_POSITION : BLOCK_FOCUS_POSITION];
}

TJson Snapshot_SceneToJson(const TWorld& tWorld) {
  return {{"name", g_atScenes[tWorld.eScene].pszName},
          {"night", tWorld.bNight != 0},
          {"temperature_C", Json_Number(tWorld.dTemperature_C)},
          {"distance_m", Json_Number(tWorld.dDistance_m)}};
}

TJson Snapshot_ToJson(const TSnapshot& tSnapshot) {
  const TWorld& tWorld = tSnapshot.tWorld;
  TJson tJson = {{"time_s", Json_Number(Snapshot_Time_s(tSnapshot))},
                 {"speed", SpeedToJson(tSnapshot)},
                 {"paused", tSnapshot.bRun && tWorld.tPace.bPaused != 0},
                 {"model", tWorld.tModel.szName},
                 {"scene", Snapshot_SceneToJson(tWorld)},
                 {"faults", Fault_List(tSnapshot.sRoot, tWorld)},
                 {"lens", TJson::object()},
                 {"channels", TJson::array()}};
  for (i32 iChannel = 0; iChannel < tSnapshot.ptModel->iChannels; ++iChannel) {
    TJson tChannel = TJson::object();
    for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
      if (tWorld.tLens.atModel[eAxis].bPresent == 0) continue;
      TJson& tAxis = tChannel[g_apszAxes[eAxis]] = AxisToJson(tSnapshot, iChannel, eAxis);
      if (eAxis == LENS_FOCUS) AddImage(tAxis, tSnapshot, iChannel);
    }
    tJson["channels"].push_back(tChannel);
  }
  for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
    if (tWorld.tLens.atModel[eAxis].bPresent == 0) continue;
    tJson["lens"][g_apszAxes[eAxis]] = ConstantsToJson(tSnapshot, eAxis);
  }
  return tJson;
}

TJson Json_Number(double dValue) {
  constexpr double dDecimals = 1e6, dLargest = 1e15;
  const double dRounded = std::round(dValue * dDecimals) / dDecimals;
  if (std::fabs(dRounded) < dLargest && dRounded == std::floor(dRounded)) return static_cast<i64>(dRounded);
  return dRounded;
}
