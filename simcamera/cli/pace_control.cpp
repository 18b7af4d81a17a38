// The pace of a run, changed by command at any moment.
#include "cli/commands.h"

namespace {

void Change(const TOpenCamera& tCamera, void (*pfnChange)(TPace& tPace, double dSpeed), double dSpeed) {
  if (!Camera_IsRun(tCamera.sRoot)) Cli_Fail(tCamera.sRoot + ": this camera is not running");
  TWorld* ptWorld = tCamera.ptWorld.get();
  World_SetSpeed(ptWorld, 0);  // from here on by the new words
  {
    const TWorldLock tLock(ptWorld);
    pfnChange(ptWorld->tPace, dSpeed);
  }
  World_Ring(tCamera.sRoot.c_str());
}

}  // namespace

void Pace_LetEnd(const TOpenCamera& tCamera) {
  TWorld* ptWorld = tCamera.ptWorld.get();
  World_SetSpeed(ptWorld, dSpeedMax);
  {
    const TWorldLock tLock(ptWorld);
    ptWorld->tPace.bPaused = 0;
    for (THold& tHold : ptWorld->tPace.atHolds) tHold = {};
  }
  World_Ring(tCamera.sRoot.c_str());
}

double Speed_Parse(const std::string& sText) {
  return sText == "max" ? dSpeedMax : Number_Parse(sText, "the speed", 0.01, 1000);
}

void Pace_SetSpeed(const TOpenCamera& tCamera, double dSpeed) {
  Change(
      tCamera, [](TPace& tPace, double dNew) { tPace.dSpeed = dNew; }, dSpeed);
}

void Pace_Pause(const TOpenCamera& tCamera) {
  Change(
      tCamera, [](TPace& tPace, double) { tPace.bPaused = 1; }, 0);
}

void Pace_Go(const TOpenCamera& tCamera) {
  Change(
      tCamera,
      [](TPace& tPace, double) {
        tPace.bPaused = 0;
        tPace.dwSteps = 0;
      },
      0);
}

// Each step is the next thing that the daemon does by itself.
void Pace_Step(const TOpenCamera& tCamera, u32 dwEvents) {
  Change(
      tCamera,
      [](TPace& tPace, double dMore) {
        tPace.bPaused = 1;
        tPace.dwSteps += static_cast<u32>(dMore);
      },
      dwEvents);
}
