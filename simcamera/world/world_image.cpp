#include "world/world_image.h"

#include "lens/optics.h"
#include "world/draw.h"

namespace {

constexpr u32 dwBackwardsFrom = 100'000'000;  // start of the count down: enough for a month of 30 frames a second

// The draws of one frame of one channel, each from 0 to below 1.
struct TFrameDraws {
  double dNoise, dOutlier;
};

TFrameDraws DrawFrame(u64 qwSeed, i32 iChannel, u64 qwFrame) {
  const u64 qwDraw = Draw_Mix(qwSeed + Draw_Mix(qwFrame * iLensChannels + static_cast<u64>(iChannel) + 1));
  return {Draw_Share(qwDraw), Draw_Share(Draw_Mix(qwDraw + 1))};
}

// A wave of straight lines from -1 at time 0 up to 1 and back.
double Wave(u64 qwAt_us, u64 qwPeriod_us) {
  const double dPhase = static_cast<double>(qwAt_us % qwPeriod_us) / static_cast<double>(qwPeriod_us);
  return dPhase < 0.5 ? 4 * dPhase - 1 : 3 - 4 * dPhase;
}

// The light of the scene in a frame: lamps flicker, and the brightness drifts unless it is held.
double BrightnessNow(const TWorld* ptWorld, i32 iChannel, u64 qwFrameEnd_us) {
  const TScene& tScene = g_atScenes[ptWorld->eScene];
  const u64 qwHeldSince_us = ptWorld->aqwHeldSince_us[iChannel];
  const u64 qwDriftedTo_us = qwHeldSince_us != 0 ? qwHeldSince_us : qwFrameEnd_us;
  return (1 + tScene.dFlicker * Wave(qwFrameEnd_us, qwFlicker_us)) *
         (1 + tScene.dDrift * Wave(qwDriftedTo_us, qwDrift_us));
}

double Brightness(TWorld* ptWorld, i32 iChannel, bool bBusy, u64 qwFrameEnd_us) {
  const TScene& tScene = g_atScenes[ptWorld->eScene];
  u64& qwHeldSince_us = ptWorld->aqwHeldSince_us[iChannel];
  if (!bBusy || !tScene.bHoldsBrightness) qwHeldSince_us = 0;
  if (bBusy && tScene.bHoldsBrightness && qwHeldSince_us == 0) qwHeldSince_us = qwFrameEnd_us;
  return BrightnessNow(ptWorld, iChannel, qwFrameEnd_us);
}

double SharpAt(const TWorld& tWorld, const TLensModel& tModel, double dZoom) {
  return Optics_SharpFocus(tModel, dZoom, tWorld.dDistance_m, tWorld.dTemperature_C, tWorld.bNight != 0);
}

u32 FocusValue(TWorld* ptWorld, i32 iChannel, bool bBusy) {
  const TLensModel& tModel = ptWorld->tModel;
  if (!Model_HasFocus(tModel)) return 0;
  const u64 qwNow_us = World_Now_us(ptWorld);
  const u64 qwFrame = qwNow_us / qwFrameTime_us;
  Lens_Settle(&ptWorld->tLens, qwNow_us);
  if (ptWorld->bImageSideZero != 0) return 0;
  if (ptWorld->bImageSideBackwards != 0) return dwBackwardsFrom - static_cast<u32>(qwFrame % dwBackwardsFrom);

  const TScene& tScene = g_atScenes[ptWorld->eScene];
  const double dZoom = Lens_FrameGlassVirtual(&ptWorld->tLens, iChannel, LENS_ZOOM);
  const double dFocus = Lens_FrameGlassVirtual(&ptWorld->tLens, iChannel, LENS_FOCUS);
  const TFrameDraws tDraws = DrawFrame(ptWorld->qwSeed, iChannel, qwFrame);
  double dValue = Optics_FocusValue(tModel, tScene, dZoom, dFocus, SharpAt(*ptWorld, tModel, dZoom));
  dValue *= Brightness(ptWorld, iChannel, bBusy, qwFrame * qwFrameTime_us);
  dValue *= 1 + tScene.dNoise * (2 * tDraws.dNoise - 1);
  if (tDraws.dOutlier < tScene.dOutliers) dValue *= dOutlierFactor;
  return static_cast<u32>(dValue + 0.5);
}

}  // namespace

void World_ImageFrame(TWorld* ptWorld, i32 iChannel, u32* pdwBlock) {
  World_Lock(ptWorld);
  if (ptWorld->bImageSideSilent == 0) {
    Word_Store(pdwBlock[BLOCK_DAY_NIGHT_MODE], ptWorld->bNight);
    if (Word_Load(pdwBlock[BLOCK_FOCUS_VALUE_WANTED]) != 0) {
      Word_Store(pdwBlock[BLOCK_FOCUS_VALUE],
                 FocusValue(ptWorld, iChannel, Word_Load(pdwBlock[BLOCK_AUTO_FOCUS_BUSY]) != 0));
    }
    if (Word_Take(pdwBlock[BLOCK_IRIS_PENDING]) != 0) Word_Publish(pdwBlock[BLOCK_IRIS_PENDING], 0);
  }
  World_Unlock(ptWorld);
}

double World_SharpFocus(const TWorld* ptWorld, i32 iChannel) {
  const TLensModel& tModel = ptWorld->tModel;
  if (!Model_HasFocus(tModel)) return 0;
  return SharpAt(*ptWorld, tModel, Lens_GlassVirtual(&ptWorld->tLens, iChannel, LENS_ZOOM));
}

double World_DepthOfFocus(const TWorld* ptWorld, i32 iChannel) {
  const TLensModel& tModel = ptWorld->tModel;
  if (!Model_HasFocus(tModel)) return 0;
  return Optics_DepthOfFocus(tModel, g_atScenes[ptWorld->eScene],
                             Lens_GlassVirtual(&ptWorld->tLens, iChannel, LENS_ZOOM));
}

TImageView World_ImageView(const TWorld* ptWorld, i32 iChannel) {
  const TLensModel& tModel = ptWorld->tModel;
  if (!Model_HasFocus(tModel)) return {};
  const TScene& tScene = g_atScenes[ptWorld->eScene];
  const double dZoom = Lens_GlassVirtual(&ptWorld->tLens, iChannel, LENS_ZOOM);
  const double dFocus = Lens_GlassVirtual(&ptWorld->tLens, iChannel, LENS_FOCUS);
  const double dSharp = SharpAt(*ptWorld, tModel, dZoom);
  const u64 qwFrame = World_Now_us(ptWorld) / qwFrameTime_us;
  return {.dPeakWidth = Optics_PeakWidth(tModel, tScene, dZoom),
          .dValueNow = Optics_FocusValue(tModel, tScene, dZoom, dFocus, dSharp),
          .dValueBest = Optics_FocusValue(tModel, tScene, dZoom, dSharp, dSharp),
          .dBrightness = BrightnessNow(ptWorld, iChannel, qwFrame * qwFrameTime_us)};
}
