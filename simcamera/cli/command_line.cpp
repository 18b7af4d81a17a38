// The commands and their arguments.  Each callback parses what is left to parse, opens the camera and does the work.
#include <arguments.h>

#include <cstdio>

#include "cli/commands.h"
#include "cli/faults.h"

namespace {

constexpr u64 qwMicrosPerMilli = 1000;

// What the arguments of the one command given are read into.
struct TValues {
  std::string sRoot, sWord, sRest;  // sWord and sRest: a command's own arguments
  std::vector<std::string> asWords;
  std::string sSpeed = "1";
  u64 qwFor_ms = 100, qwChannel = 0;
  double dTimeout_s = 120;
  bool bJson = false, bPicture = false;
  std::string sLens, sModel, sEtc, sSeed, sScript;
  bool bUntilRest = false;
  i32 iExit = 0;  // of a run
};

CLI::Option* AddWord(CLI::App& tCommand, std::string& sWord, const char* pszName, const std::string& sHelp) {
  return tCommand.add_option(pszName, sWord, sHelp)->type_name("")->required();
}

CLI::App& AddCameraCommand(CLI::App& tApp, TValues& tValues, const std::string& sName, const std::string& sHelp) {
  CLI::App& tCommand = Arguments_AddCommand(tApp, sName, sHelp);
  AddWord(tCommand, tValues.sRoot, "ROOT", "directory of the camera");
  return tCommand;
}

enum ESwitch : u32 { SWITCH_ON_BY_DEFAULT, SWITCH_REQUIRED };

void AddSwitch(CLI::App& tCommand, std::string& sWord, ESwitch eSwitch) {
  const bool bRequired = eSwitch == SWITCH_REQUIRED;
  AddWord(tCommand, sWord, "SWITCH", bRequired ? "on or off" : "on or off; default on")->required(bRequired);
}
bool ParseSwitch(const std::string& sWord) {
  if (!sWord.empty() && sWord != "on" && sWord != "off") Cli_RefuseUsage("on or off, not \"" + sWord + "\"");
  return sWord != "off";
}

void AddRun(CLI::App& tApp, TValues& t) {
  CLI::App& tRun =
      AddCameraCommand(tApp, t, "run", "run a camera until SIGTERM or Ctrl-C; lay an empty ROOT out first");
  CLI::Option* ptLens =
      tRun.add_option("--lens", t.sLens, "lens model of a new camera, see \"simcamera lenses\"; default zoom");
  tRun.add_option("--model", t.sModel, "file with the lens model of a new camera, as \"simcamera model\" prints it")
      ->excludes(ptLens);
  tRun.add_option("--etc", t.sEtc, "folder with files to use in place of a new camera's own in etc/conf.d");
  CLI::Option* ptScript = tRun.add_option("--script", t.sScript, "file with what happens to the camera, and when");
  tRun.add_flag("--until-rest", t.bUntilRest, "end when the script has ended and all is at rest")->needs(ptScript);
  tRun.add_option("--speed", t.sSpeed, "camera seconds a second, 0.01 to 1000, or max; default 1");
  tRun.add_option("--seed", t.sSeed, "decides all that is drawn; default 1, or that of ROOT");
  tRun.callback([&t] {
    TRunPlan tPlan;
    tPlan.sRoot = t.sRoot;
    const auto Given = [](const std::string& sText) { return sText.empty() ? std::nullopt : std::optional(sText); };
    tPlan.tLens = {.sLens = Given(t.sLens), .sModel = Given(t.sModel), .sEtc = Given(t.sEtc)};
    tPlan.sScript = Given(t.sScript);
    tPlan.bUntilRest = t.bUntilRest;
    tPlan.dSpeed = Speed_Parse(t.sSpeed);
    if (!t.sSeed.empty()) tPlan.qwSeed = Whole_Parse(t.sSeed, "--seed", 0, u64{1} << 52);
    t.iExit = Run_Play(tPlan);
  });
}

void AddClient(CLI::App& tApp, TValues& t) {
  Arguments_AddCommand(tApp, "lenses", "list the lens models").callback(Lenses_Print);

  CLI::App& tModel = Arguments_AddCommand(tApp, "model", "print a lens model as JSON, for a file of your own");
  AddWord(tModel, t.sWord, "NAME", "a name that \"simcamera lenses\" lists, or drawn-N");
  tModel.callback([&t] { Model_Print(t.sWord); });

  CLI::App& tAsk = AddCameraCommand(tApp, t, "ask", "send a query to the daemon and print the reply; 0 only on 200");
  AddWord(tAsk, t.sWord, "QUERY", "as in function=getstatus");
  tAsk.callback([&t] { Client_PrintReply(Camera_Open(t.sRoot), t.sWord); });

  CLI::App& tPress = AddCameraCommand(tApp, t, "press", "press a button of the camera and release it");
  AddWord(tPress, t.sWord, "BUTTON", "af, zoomin or zoomout");
  Arguments_AddWhole(tPress, "--for", t.qwFor_ms, 0, 3'600'000, "milliseconds of camera time in between; default 100");
  tPress.callback([&t] { Button_Hold(Camera_Open(t.sRoot), t.sWord, t.qwFor_ms * qwMicrosPerMilli); });

  CLI::App& tWait = AddCameraCommand(tApp, t, "wait", "wait until every axis is idle and no motor turns");
  Arguments_AddNumber(tWait, "--timeout", t.dTimeout_s, 0, 1e6, "seconds of camera time; default 120");
  tWait.callback([&t] { Client_WaitForRest(Camera_Open(t.sRoot), t.dTimeout_s); });
}

void AddViews(CLI::App& tApp, TValues& t) {
  CLI::App& tShow = AddCameraCommand(tApp, t, "show", "believed and true positions side by side, and active faults");
  tShow.add_flag("--json", t.bJson, "all that is known of this moment, as JSON");
  tShow.callback([&t] { (t.bJson ? Show_PrintJson : Show_PrintText)(Camera_Open(t.sRoot)); });

  CLI::App& tOptics = AddCameraCommand(tApp, t, "optics", "where the lens is sharp over its zoom range, in this scene");
  tOptics.add_flag("--json", t.bJson, "as JSON");
  tOptics.callback([&t] { (t.bJson ? Optics_PrintJson : Optics_PrintText)(Camera_Open(t.sRoot)); });

  CLI::App& tTranscript =
      AddCameraCommand(tApp, t, "transcript", "what the daemon has asked the drivers for and printed");
  CLI::Option* ptPicture = tTranscript.add_flag("--picture", t.bPicture, "draw both axes of channel 0 over time");
  tTranscript.add_flag("--json", t.bJson, "one JSON object a line; \"next\" is the offset after it")
      ->excludes(ptPicture);
  tTranscript.add_option("--from", t.sRest, "offset in bytes to begin at: a \"next\" of before")->excludes(ptPicture);
  tTranscript.callback([&t] {
    const u64 qwFrom = t.sRest.empty() ? 0 : Whole_Parse(t.sRest, "--from", 0, u64{1} << 52);
    const TOpenCamera tCamera = Camera_Open(t.sRoot);
    if (t.bPicture) Transcript_DrawPicture(tCamera);
    if (!t.bPicture) (t.bJson ? Transcript_PrintJson : Transcript_Print)(tCamera, qwFrom);
  });
}

void AddScene(CLI::App& tApp, TValues& t) {
  CLI::App& tSet = AddCameraCommand(tApp, t, "set", "change what the camera looks at and its temperature");
  tSet.add_option("SETTING", t.asWords,
                  "distance=METRES (0.1 to 1000000), temperature=CELSIUS (-60 to 120), mode=day or night, scene=NAME")
      ->type_name("")
      ->required();
  tSet.callback([&t] { Scene_Set(Camera_Open(t.sRoot), t.asWords); });
}

void AddPace(CLI::App& tApp, TValues& t) {
  CLI::App& tSpeed = AddCameraCommand(tApp, t, "speed", "change how fast camera time goes");
  AddWord(tSpeed, t.sWord, "X", "camera seconds a second, 0.01 to 1000, or max");
  tSpeed.callback([&t] {
    const double dSpeed = Speed_Parse(t.sWord);
    Pace_SetSpeed(Camera_Open(t.sRoot), dSpeed);
  });

  CLI::App& tPause = AddCameraCommand(tApp, t, "pause", "let camera time stand still");
  tPause.callback([&t] { Pace_Pause(Camera_Open(t.sRoot)); });

  CLI::App& tStep = AddCameraCommand(tApp, t, "step", "pause, but go on to the next event of the daemon");
  AddWord(tStep, t.sRest, "EVENTS", "so many of them; default 1")->required(false);
  tStep.callback([&t] {
    const u64 qwEvents = t.sRest.empty() ? 1 : Whole_Parse(t.sRest, "EVENTS", 1, 1'000'000);
    Pace_Step(Camera_Open(t.sRoot), static_cast<u32>(qwEvents));
  });

  CLI::App& tGo = AddCameraCommand(tApp, t, "go", "let camera time go on");
  tGo.callback([&t] { Pace_Go(Camera_Open(t.sRoot)); });
}

void AddAxisName(CLI::App& tFault, TValues& t) {
  AddWord(tFault, t.sWord, "AXIS", "zoom or focus");
  Arguments_AddWhole(tFault, "--channel", t.qwChannel, 0, iLensChannels - 1, "default 0");
}

TAxisName AxisName(const TValues& t) {
  return {t.sWord, static_cast<i32>(t.qwChannel)};
}

void AddMotorFaults(CLI::App& tFault, TValues& t) {
  CLI::App& tDetach = Arguments_AddCommand(tFault, "detach", "an ICS lens stops answering, and its axes stop");
  AddSwitch(tDetach, t.sRest, SWITCH_ON_BY_DEFAULT);
  tDetach.callback([&t] { Fault_Detach(Camera_Open(t.sRoot), ParseSwitch(t.sRest)); });

  CLI::App& tStall =
      Arguments_AddCommand(tFault, "stall", "a rotor does not turn, but its walks still take their time");
  AddAxisName(tStall, t);
  AddSwitch(tStall, t.sRest, SWITCH_ON_BY_DEFAULT);
  tStall.callback([&t] { Fault_Stall(Camera_Open(t.sRoot), AxisName(t), ParseSwitch(t.sRest)); });

  CLI::App& tSlip = Arguments_AddCommand(tFault, "slip", "a motor loses steps");
  AddAxisName(tSlip, t);
  AddWord(tSlip, t.sRest, "STEPS", "that many of its next driver steps; or one-in=N: one in N from now on, 0 ends it");
  tSlip.callback([&t] { Fault_Slip(Camera_Open(t.sRoot), AxisName(t), t.sRest); });
}

void AddOtherFaults(CLI::App& tFault, TValues& t) {
  CLI::App& tCut = Arguments_AddCommand(tFault, "power-cut", "kill the daemon and stop the motors where they are");
  tCut.add_option(
      "--at", t.sRest,
      "not now, but after the first line of the daemon in the transcript that matches this extended regular "
      "expression");
  tCut.callback([&t, &tCut] {
    const TOpenCamera tCamera = Camera_Open(t.sRoot);
    tCut.count("--at") > 0 ? Fault_CutPowerAt(tCamera, t.sRest) : Fault_CutPower(tCamera);
  });

  for (const TFaultSwitch& tSwitch : g_atFaultSwitches) {
    CLI::App& tCommand = Arguments_AddCommand(tFault, tSwitch.pszName, tSwitch.pszHelp);
    AddSwitch(tCommand, t.sWord, SWITCH_REQUIRED);
    tCommand.callback([&t, &tSwitch] { Fault_Switch(Camera_Open(t.sRoot), tSwitch, ParseSwitch(t.sWord)); });
  }

  CLI::App& tSensor = Arguments_AddCommand(tFault, "sensor", "the temperature sensors fail");
  AddWord(tSensor, t.sWord, "HOW",
          "none: no bus; silent: no answer; short: a byte too few; bad: one transfer fails; off");
  tSensor.callback([&t] { Fault_Sensor(Camera_Open(t.sRoot), t.sWord); });

  CLI::App& tIRCut = Arguments_AddCommand(tFault, "ircut-file", "spoil the camera's IR-cut settings, or mend them");
  AddWord(tIRCut, t.sWord, "HOW", "missing, torn or good");
  tIRCut.callback([&t] { Fault_SpoilIRCutFile(Camera_Open(t.sRoot), t.sWord); });

  Arguments_AddCommand(tFault, "clear", "end all faults").callback([&t] { Fault_Clear(Camera_Open(t.sRoot)); });
}

void AddFault(CLI::App& tApp, TValues& t) {
  CLI::App& tFault = AddCameraCommand(tApp, t, "fault", "begin or end a fault; with ROOT alone: list the active ones");
  tFault.require_subcommand(0, 1);
  AddMotorFaults(tFault, t);
  AddOtherFaults(tFault, t);
  tFault.callback([&t, &tFault] {
    if (!tFault.get_subcommands().empty()) return;
    Fault_PrintList(Camera_Open(t.sRoot));
  });
}

// "fault slip --help" asks for the help of slip, although ROOT would come first.
std::vector<std::string> WithRootForHelp(std::vector<std::string> asWords) {
  const bool bHelp = asWords.size() == 3 && (asWords[2] == "--help" || asWords[2] == "-h");
  if (bHelp && asWords[0] == "fault") asWords.insert(asWords.begin() + 1, "ROOT");
  return asWords;
}

}  // namespace

void Lenses_Print() {
  for (i32 i = 0; const TLensModel* ptModel = Lenses_At(i); ++i) {
    std::printf("%-10s%s\n", ptModel->szName, ptModel->szDescription);
  }
}

i32 Commands_Do(const std::vector<std::string>& asWords) {
  CLI::App tApp("The simulated camera below the unmodified lens daemon. Exit status: 0 done, 1 failed, 2 wrong usage.",
                "simcamera");
  Arguments_Prepare(tApp);
  tApp.require_subcommand(1);
  TValues tValues;
  AddRun(tApp, tValues);
  AddClient(tApp, tValues);
  AddViews(tApp, tValues);
  AddScene(tApp, tValues);
  AddPace(tApp, tValues);
  AddFault(tApp, tValues);
  Arguments_Parse(tApp, WithRootForHelp(asWords));
  return tValues.iExit;
}
