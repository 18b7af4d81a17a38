// Prints the believed and the true positions side by side.
#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>

#include "cli/commands.h"
#include "cli/faults.h"
#include "cli/snapshot.h"

namespace {

void PrintAxis(const TSnapshot& tSnapshot, i32 iChannel, ELensAxis eAxis) {
  const TWorld* ptWorld = &tSnapshot.tWorld;
  const auto dwBelieved = Snapshot_Believed(tSnapshot, iChannel, eAxis);
  std::printf("%-8d%-8s%10s%12.3f%12.3f", iChannel, eAxis == LENS_ZOOM ? "zoom" : "focus",
              dwBelieved ? std::to_string(*dwBelieved).c_str() : "-",
              Lens_TrueVirtual(&ptWorld->tLens, iChannel, eAxis), Lens_GlassVirtual(&ptWorld->tLens, iChannel, eAxis));
  if (eAxis == LENS_FOCUS) std::printf("%12.1f", World_SharpFocus(ptWorld, iChannel));
  std::printf("\n");
}

}  // namespace

void Show_PrintText(const TOpenCamera& tCamera) {
  const auto ptSnapshot = Snapshot_Take(tCamera);
  const TWorld& tWorld = ptSnapshot->tWorld;
  std::printf("lens %s, %s, %.1f C, object at %g m, camera time %.3f s\n", tWorld.tModel.szName,
              tWorld.bNight != 0 ? "night" : "day", tWorld.dTemperature_C, tWorld.dDistance_m,
              Snapshot_Time_s(*ptSnapshot));
  std::printf("%-8s%-8s%10s%12s%12s%12s\n", "channel", "axis", "believed", "true", "glass", "sharp");
  for (i32 iChannel = 0; iChannel < tCamera.ptModel->iChannels; ++iChannel) {
    for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
      if (tWorld.tLens.atModel[eAxis].bPresent != 0) PrintAxis(*ptSnapshot, iChannel, eAxis);
    }
  }
  for (const std::string& sFault : Fault_List(tCamera.sRoot, tWorld)) std::printf("fault %s\n", sFault.c_str());
}

void Show_PrintJson(const TOpenCamera& tCamera) {
  std::cout << Snapshot_ToJson(*Snapshot_Take(tCamera)) << '\n';
}
