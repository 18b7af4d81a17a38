// The pace of a run, changed by command at any moment.
#include "cli/cli.h"

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

i32 Cli_Speed(TArguments asArgs) {
  Arguments_Expect(asArgs, 2, 2, "speed ROOT X|max");
  const double dSpeed = Speed_Parse(asArgs[1]);
  Change(
      Camera_Open(asArgs[0]), [](TPace& tPace, double dNew) { tPace.dSpeed = dNew; }, dSpeed);
  return 0;
}

i32 Cli_Pause(TArguments asArgs) {
  Arguments_Expect(asArgs, 1, 1, "pause ROOT");
  Change(
      Camera_Open(asArgs[0]), [](TPace& tPace, double) { tPace.bPaused = 1; }, 0);
  return 0;
}

i32 Cli_Go(TArguments asArgs) {
  Arguments_Expect(asArgs, 1, 1, "go ROOT");
  Change(
      Camera_Open(asArgs[0]),
      [](TPace& tPace, double) {
        tPace.bPaused = 0;
        tPace.dwSteps = 0;
      },
      0);
  return 0;
}

// Each step is the next thing that the daemon does by itself.
i32 Cli_Step(TArguments asArgs) {
  Arguments_Expect(asArgs, 1, 2, "step ROOT [EVENTS]");
  const double dEvents = asArgs.size() > 1 ? static_cast<double>(Integer_Parse(asArgs[1], "EVENTS", 1, 1'000'000)) : 1;
  Change(
      Camera_Open(asArgs[0]),
      [](TPace& tPace, double dMore) {
        tPace.bPaused = 1;
        tPace.dwSteps += static_cast<u32>(dMore);
      },
      dEvents);
  return 0;
}
