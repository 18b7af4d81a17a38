// Prints the believed and the true positions side by side.
#include <cstdio>

#include "cli/cli.h"
#include "cli/client.h"
#include "world/world_image.h"

namespace {

struct TAxisView {
  const char* pszName;
  std::optional<i64> llBelieved;
  double dTrue, dGlass;
  std::optional<double> dSharp, dDepth;  // of a focus
};

// The believed positions of a channel, and the true ones of one moment.
std::vector<TAxisView> View(const TOpenCamera& tCamera, i32 iChannel) {
  const auto tStatus = Client_Status(tCamera.sRoot, iChannel);
  TWorld* ptWorld = tCamera.ptWorld.get();
  const TWorldLock tLock(ptWorld);
  Lens_Settle(&ptWorld->tLens, World_Now_us(ptWorld));
  std::vector<TAxisView> atViews;
  for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
    if (ptWorld->tLens.atModel[eAxis].bPresent == 0) continue;
    TAxisView tView{eAxis == LENS_ZOOM ? "zoom" : "focus",
                    std::nullopt,
                    Lens_TrueVirtual(&ptWorld->tLens, iChannel, eAxis),
                    Lens_GlassVirtual(&ptWorld->tLens, iChannel, eAxis),
                    std::nullopt,
                    std::nullopt};
    const std::string sKey = std::string("vernier_lens_") + tView.pszName + "_motor";
    if (tStatus && tStatus->contains(sKey)) tView.llBelieved = tStatus->at(sKey);
    if (eAxis == LENS_FOCUS) tView.dSharp = World_SharpFocus(ptWorld, iChannel);
    if (eAxis == LENS_FOCUS) tView.dDepth = World_DepthOfFocus(ptWorld, iChannel);
    atViews.push_back(tView);
  }
  return atViews;
}

void PrintText(const TOpenCamera& tCamera) {
  const TWorld* ptWorld = tCamera.ptWorld.get();
  std::printf("lens %s, %s, %.1f C, object at %g m, camera time %.3f s\n", tCamera.ptModel->szName,
              ptWorld->bNight != 0 ? "night" : "day", ptWorld->dTemperature_C, ptWorld->dDistance_m,
              static_cast<double>(World_Now_us(ptWorld)) / 1e6);
  std::printf("%-8s%-8s%10s%12s%12s%12s\n", "channel", "axis", "believed", "true", "lens", "sharp");
  for (i32 iChannel = 0; iChannel < tCamera.ptModel->iChannels; ++iChannel) {
    for (const TAxisView& tView : View(tCamera, iChannel)) {
      const std::string sBelieved = tView.llBelieved ? std::to_string(*tView.llBelieved) : "-";
      std::printf("%-8d%-8s%10s%12.3f%12.3f", iChannel, tView.pszName, sBelieved.c_str(), tView.dTrue, tView.dGlass);
      if (tView.dSharp) std::printf("%12.1f", *tView.dSharp);
      std::printf("\n");
    }
  }
}

void PrintJson(const TOpenCamera& tCamera) {
  const TWorld* ptWorld = tCamera.ptWorld.get();
  std::printf("{\"channels\":[");
  for (i32 iChannel = 0; iChannel < tCamera.ptModel->iChannels; ++iChannel) {
    std::printf("%s{", iChannel == 0 ? "" : ",");
    const char* pszComma = "";
    for (const TAxisView& tView : View(tCamera, iChannel)) {
      const std::string sBelieved = tView.llBelieved ? std::to_string(*tView.llBelieved) : "null";
      std::printf("%s\"%s\":{\"believed\":%s,\"true\":%.10g,\"lens\":%.10g", pszComma, tView.pszName, sBelieved.c_str(),
                  tView.dTrue, tView.dGlass);
      if (tView.dSharp) std::printf(",\"sharp\":%.10g", *tView.dSharp);
      if (tView.dDepth) std::printf(",\"depth\":%.10g", *tView.dDepth);
      std::printf("}");
      pszComma = ",";
    }
    std::printf("}");
  }
  std::printf(
      "],\"model\":\"%s\",\"scene\":\"%s\",\"mode\":\"%s\",\"temperature\":%.10g,\"distance\":%.10g,\"time\":%.6f}\n",
      tCamera.ptModel->szName, g_atScenes[ptWorld->eScene].pszName, ptWorld->bNight != 0 ? "night" : "day",
      ptWorld->dTemperature_C, ptWorld->dDistance_m, static_cast<double>(World_Now_us(ptWorld)) / 1e6);
}

}  // namespace

i32 Cli_Show(TArguments asArgs) {
  const bool bJson = Arguments_TakeFlag(asArgs, "--json");
  Arguments_Expect(asArgs, 1, 1, "show ROOT [--json]");
  const TOpenCamera tCamera = Camera_Open(asArgs[0]);
  bJson ? PrintJson(tCamera) : PrintText(tCamera);
  return 0;
}
