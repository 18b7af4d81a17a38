// The whole camera at one moment: taken under one lock, and worked on without it.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "cli/cli.h"
#include "world/world_image.h"

struct TSnapshot {
  std::string sRoot;
  const TLensModel* ptModel;
  bool bRun;      // a simcamera runs this camera
  TWorld tWorld;  // a copy whose time stands still; the lens is settled to that time
  // What the daemon has put into the focus statistics blocks: the positions of each channel since its last rest.
  bool abBlockIsHeld[iLensChannels];  // the daemon lives and has the block; else the words below tell nothing
  u32 aadwBlock[iLensChannels][BLOCK_WORDS];
};

std::unique_ptr<TSnapshot> Snapshot_Take(const TOpenCamera& tCamera);

inline double Snapshot_Time_s(const TSnapshot& tSnapshot) {
  return static_cast<double>(tSnapshot.tWorld.qwBase_us) / 1e6;
}
std::optional<u32> Snapshot_Believed(const TSnapshot& tSnapshot, i32 iChannel, ELensAxis eAxis);

// What show --json prints.
nlohmann::ordered_json Snapshot_ToJson(const TSnapshot& tSnapshot);
nlohmann::ordered_json Snapshot_SceneToJson(const TWorld& tWorld);

// A number as JSON with at most six decimals, and none if it is whole.
nlohmann::ordered_json Json_Number(double dValue);
