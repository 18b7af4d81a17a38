#include "camera/world_image.h"

#include "lens/optics.h"
#include "lenses/lens_model.h"

namespace {

constexpr u32 dwNoiseShare = 512;  // a value is off by up to one part in so many

u64 Mix(u64 qw) {
  qw = (qw ^ (qw >> 30)) * 0xBF58476D1CE4E5B9;
  qw = (qw ^ (qw >> 27)) * 0x94D049BB133111EB;
  return qw ^ (qw >> 31);
}

u32 Noisy(u32 dwValue, u64 qwSeed, i32 iChannel, u64 qwFrame) {
  const u64 qwDraw = Mix(qwSeed + Mix(qwFrame * iLensChannels + static_cast<u64>(iChannel) + 1));
  const u32 dwSpan = dwValue / dwNoiseShare;
  return dwValue - dwSpan + static_cast<u32>(qwDraw % (2 * static_cast<u64>(dwSpan) + 1));
}

u32 FocusValue(TWorld* ptWorld, i32 iChannel) {
  const TLensModel* ptModel = Lenses_Find(ptWorld->szModel);
  if (ptModel == nullptr || !Model_HasFocus(*ptModel)) return 0;
  const u64 qwNow_us = World_Now_us(ptWorld);
  Lens_Settle(&ptWorld->tLens, qwNow_us);
  const double dFocus = Lens_GlassVirtual(&ptWorld->tLens, iChannel, LENS_FOCUS);
  const u32 dwValue = Optics_FocusValue(*ptModel, dFocus, World_SharpFocus(ptWorld, iChannel));
  return Noisy(dwValue, ptWorld->qwSeed, iChannel, qwNow_us / qwFrameTime_us);
}

}  // namespace

void World_ImageFrame(TWorld* ptWorld, i32 iChannel, u32* pdwBlock) {
  World_Lock(ptWorld);
  if (ptWorld->bImageSideSilent == 0) {
    Word_Store(pdwBlock[BLOCK_DAY_NIGHT_MODE], ptWorld->bNight);
    if (Word_Load(pdwBlock[BLOCK_FOCUS_VALUE_WANTED]) != 0) {
      Word_Store(pdwBlock[BLOCK_FOCUS_VALUE], FocusValue(ptWorld, iChannel));
    }
    if (Word_Take(pdwBlock[BLOCK_IRIS_PENDING]) != 0) Word_Publish(pdwBlock[BLOCK_IRIS_PENDING], 0);
  }
  World_Unlock(ptWorld);
}

double World_SharpFocus(const TWorld* ptWorld, i32 iChannel) {
  const TLensModel* ptModel = Lenses_Find(ptWorld->szModel);
  if (ptModel == nullptr || !Model_HasFocus(*ptModel)) return 0;
  const double dZoom = Lens_GlassVirtual(&ptWorld->tLens, iChannel, LENS_ZOOM);
  return Optics_SharpFocus(*ptModel, dZoom, ptWorld->dDistance_m, ptWorld->dTemperature_C, ptWorld->bNight != 0);
}
