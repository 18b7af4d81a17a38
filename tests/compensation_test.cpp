// Day/night and temperature corrections: whole lives, judged by the true lens, the state file and the transcript.
#include <csignal>

#include "config/saved_state.h"
#include "lens/lens_model.h"
#include "lens/shift_tables.h"
#include "short_lives.h"

namespace {

constexpr const char* szSwitch = "day night switch";

// Puts the lens at a zoom and a focus position, and saves these for the daemon.
void StandAt(const TCamera& tCamera, u32 dwZoom, u32 dwFocus, const char* szMode = "night_mode=0\n") {
  tCamera.Place(LENS_ZOOM, dwZoom);
  tCamera.Place(LENS_FOCUS, dwFocus);
  tCamera.Write(szPositionsPath,
                "zoom_motor=" + std::to_string(dwZoom) + "\nfocus_motor=" + std::to_string(dwFocus) + "\n" + szMode);
}

bool SavesNight(const TCamera& tCamera) {
  return tCamera.Read(szPositionsPath).find("night_mode=1\n") != std::string::npos;
}

// Lives to rest and expects the focus at dFocus.
TLifeResult LiveToFocus(const TCamera& tCamera, const std::vector<TLifeEvent>& atEvents, u64 qwRest_ms, double dFocus,
                        u64 qwSeed = FirstSeed()) {
  TLifeResult tResult = LiveToRest(tCamera, atEvents, qwRest_ms, qwSeed);
  EXPECT_EQ(tCamera.Truth(LENS_FOCUS), dFocus) << Tale(tResult);
  return tResult;
}

std::string Element(const std::string& sName, const std::string& sText) {
  return "<" + sName + ">" + sText + "</" + sName + ">";
}

TEST(DayNight, OffsetsOfTheProfile) {
  const struct {
    const char *szRanges, *szFirsts, *szOffsets;
    u32 dwZoom;
    i32 iOffset;
    const char* szRefused = nullptr;
  } atCases[] = {
      {"3", "10,10,20", "1,2,3", 10, 0},
      {"3", "10,10,20", "1,2,3", 11, 2},
      {"3", "10,10,20", "1,2,3", 20, 2},
      {"3", "10,10,20", "1,2,3", 800, 3},
      {"2", "0,1", "-7,9", 0, -7},
      {"2", "-5,400", "4,6", 1, 4},
      {"2", "5,900", "4,6", 800, 4},
      {"2", ",400", "4,", 401, 0},
      {"1", "0", "-1000", 300, -480},  // the focus range begins at 20
      {"-1", "1", "1", 300, 0},
      {"4294967295", "1", "1", 300, 0},
      {"2", "1", "5,6", 300, 0, "ZOOM_STEP"},
      {"2", "1,2", "5", 300, 0, "FOCUS_OFFSET"},
      {"2000000000", "1,2", "1,2", 300, 0, "ZOOM_STEP"},
      {"many", "1", "1", 300, 0, "STEP_NUM"},
      {"1", "1", "five", 300, 0, "FOCUS_OFFSET"},
  };
  for (const auto& tCase : atCases) {
    SCOPED_TRACE(std::string(tCase.szRanges) + " " + tCase.szFirsts + " " + tCase.szOffsets);
    const TCamera tCamera("zoom");
    StandAt(tCamera, tCase.dwZoom, 500);
    tCamera.Write(
        szLensProfilePath,
        Element("root", Element("Focus", Element("IRCORRECTION", Element("STEP_NUM", tCase.szRanges) +
                                                                     Element("ZOOM_STEP", tCase.szFirsts) +
                                                                     Element("FOCUS_OFFSET", tCase.szOffsets)))));
    const TLifeResult tNight = LiveToFocus(tCamera, {SetNight(4'000)}, 20'000, 500 + tCase.iOffset);
    const bool bOn = tCase.szRefused == nullptr;
    EXPECT_EQ(Count(Printed(tNight), szSwitch), bOn ? 1U : 0U) << Tale(tNight);
    EXPECT_EQ(SavesNight(tCamera), bOn);
    if (!bOn) {
      const std::string sKey = tCase.szRefused;
      EXPECT_TRUE(HasPrinted(tNight, "[vernierlensd] : Parse Focus_IRCORRECTION_" + sKey + " error.")) << Tale(tNight);
      continue;
    }
    const TLifeResult tAgain = Live(tCamera, {Ask(8'000, szStatus)}, 9'000);
    EXPECT_EQ(Count(Printed(tAgain), szSwitch), 0U) << "a second start added the offset again" << Tale(tAgain);
  }
}

// Without a whole profile the correction stays off, and the daemon works on.
TEST(DayNight, BrokenProfileSwitchesItOff) {
  for (const char* szText : {"", "<root><Focus>", "<root><Focus><IRCORRECTION></IRCORRECTION></Focus></root>"}) {
    SCOPED_TRACE(szText);
    const TCamera tCamera("focus");
    tCamera.Write(szLensProfilePath, szText);
    const TLifeResult tResult = LiveToRest(tCamera, {SetNight(20'000)}, 30'000);
    const std::string sPrinted = Printed(tResult);
    EXPECT_EQ(Count(sPrinted, szSwitch), 0U) << Tale(tResult);
    EXPECT_EQ(Count(sPrinted, "SXMLParser_Process failed = 0x") + Count(sPrinted, "FOCUS_SHIFT error."), 1U)
        << Tale(tResult);
    EXPECT_EQ(Count(tCamera.Read(szPositionsPath), "night_mode"), 0U) << "no mode is saved while it is off";
  }
}

TEST(DayNight, LedsDecideTheOffsetAndTheModeIsAlwaysSaved) {
  const std::string sExternalOnly = "<enableextled>1</enableextled>";
  const auto Leds = [](const char* szDisabled, const char* szExternal) {
    return Element("disableirled", szDisabled) + Element("enableextled", szExternal);
  };
  const struct {
    std::string sSettings;
    bool bFlange;
    i32 iOffset;
    const char* szLine = "Focus Offset";
  } atCases[] = {
      {Leds("0", "0"), false, 14},
      {Leds("1", "2"), false, 14},
      {Leds("1", "0"), false, 0},
      {Leds("1", "0"), true, 14},
      {sExternalOnly, false, 14, "Parse ircutcontrol_disableirled error."},
      {Element("disableirled", "4294967296"), false, 0, "Parse ircutcontrol_enableextled error."},
      {"<disable", false, 0, "SXMLParser_Process failed"},
  };
  for (const auto& tCase : atCases) {
    SCOPED_TRACE(tCase.sSettings);
    const TCamera tCamera("focus");
    tCamera.Write(szIRCutPath, Element("root", Element("ircutcontrol", tCase.sSettings)));
    const std::string sFlange = "<FlangeBackCompensation>";
    ReplaceInConfig(tCamera, sFlange + "0", sFlange + (tCase.bFlange ? "1" : "0"));
    tCamera.Write(szPositionsPath, "focus_motor=520\nnight_mode=0\n");
    const std::vector<TLifeEvent> atSwitches = {SetNight(20'000), SetNight(30'000, false), SetNight(40'000)};
    const TLifeResult tResult = LiveToFocus(tCamera, atSwitches, 50'000, 520 + tCase.iOffset);
    EXPECT_EQ(Count(Printed(tResult), szSwitch), 3U) << "once for each switch" << Tale(tResult);
    EXPECT_GE(Count(Printed(tResult), tCase.szLine), 1U) << Tale(tResult);
    EXPECT_TRUE(SavesNight(tCamera));
  }
}

// Each move runs to its end.  Whichever comes first, offset and steps are both made, the offset once.
TEST(DayNight, SwitchAmongCommandsIsAppliedOnce) {
  ForSeeds(60, [](u64 qwSeed) {
    const TCamera tCamera("focus");
    tCamera.Write(szPositionsPath, "focus_motor=520\nnight_mode=0\n");
    const auto atEvents = Asks("20000 focus+20, 22000 focus-9", {SetNight(18'000 + qwSeed * 137 % 6'000)});
    const TLifeResult tResult = LiveToFocus(tCamera, atEvents, 40'000, 520 + 20 - 9 + 14, qwSeed);
    EXPECT_EQ(Count(Printed(tResult), szSwitch), 1U) << Tale(tResult);
  });
}

// A client's command comes in the very instant of the check.  Whichever is first, neither is lost, each has its move.
TEST(DayNight, CommandInTheInstantOfTheCheckIsKept) {
  const TCamera tCamera("focus");
  const auto LiveWith = [&](std::vector<TLifeEvent> atEvents, u64 qwSeed) {
    EXPECT_EQ(Life_ResetRoot(tCamera.sRoot), 0);
    tCamera.Write(szPositionsPath, "focus_motor=520\nnight_mode=0\n");
    atEvents.push_back(SetNight(18'000));
    return LiveToRest(tCamera, std::move(atEvents), 30'000, qwSeed);
  };
  ForSeeds(100, [&](u64 qwSeed) {
    const u64 qwSwitch_us = TimeOf_us(LiveWith({}, qwSeed), szSwitch);
    const TLifeResult tResult = LiveWith({At(qwSwitch_us - 1 + qwSeed % 3, Asks("0 focus=650")[0])}, qwSeed);
    const double dFocus = tCamera.Truth(LENS_FOCUS);
    EXPECT_TRUE(dFocus == 650 || dFocus == 650 + 14) << dFocus << Tale(tResult);
    EXPECT_EQ(Count(tResult.sTranscript, std::string("create ") + szFocusLogPath), 3U)
        << "a move of the start, the client's and the switch's" << Tale(tResult);
  });
}

// A power cut during a switch leaves the log and the old mode.  The recovery's search finds focus in the new light:
// no offset is added afterwards.
TEST(DayNight, ModeFollowsTheRecoverysSearch) {
  const TCamera tCamera("focus");
  tCamera.Write(szPositionsPath, "focus_motor=520\nnight_mode=0\n");
  tCamera.Write(szFocusLogPath, "");
  ChangeWorld(tCamera, [](TWorld& tWorld) { tWorld.bNight = 1; });
  const TLifeResult tResult = LiveToRest(tCamera, {}, 120'000);
  EXPECT_LT(DepthsOff(tCamera), 1) << Tale(tResult);
  EXPECT_EQ(Count(Printed(tResult), szSwitch), 0U) << Tale(tResult);
  EXPECT_TRUE(SavesNight(tCamera));
}

// The saved mode belongs to the saved focus, so a save of the zoom keeps that mode.
TEST(DayNight, ZoomsSaveKeepsTheMode) {
  const TCamera tCamera("zoom");
  StandAt(tCamera, 200, 500, "night_mode=1\n");
  ChangeWorld(tCamera, [](TWorld& tWorld) { tWorld.bNight = 1; });
  Live(tCamera, {Ask(2'000, "function=zoom&direction=forward&steps=5")}, 6'000);
  EXPECT_TRUE(SavesNight(tCamera)) << tCamera.Read(szPositionsPath);
  static TVernierLensdInfo tInfo;
  tInfo.bSupportZoom = tInfo.bSupportFocus = tInfo.bDayNightCorrection = 1;
  sem_init(&tInfo.semConfigFile, 0, 1);
  for (const ESaveMode eMode : {SAVE_WITH_SAVED_MODE, SAVE_WITH_MODE}) {
    const auto Save = [eMode](TWorld*) {
      tInfo.aiNightMode[0] = 7;
      return SavedState_Save(&tInfo, 0, eMode);
    };
    Life_Run({.sRoot = tCamera.sRoot, .fnBody = Save});
    EXPECT_EQ(Count(tCamera.Read(szPositionsPath), "night_mode=7\n"), eMode == SAVE_WITH_MODE ? 1U : 0U);
  }
  EXPECT_EQ(g_tZoomAxis.eSaveMode, SAVE_WITH_SAVED_MODE);
}

// The switch comes during a search.  The mode is saved together with a true position, and the offset is added once.
TEST(DayNight, SwitchInASearchKeepsModeAndPositionTogether) {
  ForSeeds(20, [](u64 qwSeed) {
    const TCamera tCamera("zoom");
    const u64 qwSwitch_ms = 3'500 + qwSeed * 1'337 % 30'000;
    const TLifeResult tResult = LiveToRest(tCamera, Asks("4000 auto", {SetNight(qwSwitch_ms)}), 60'000, qwSeed);
    EXPECT_TRUE(SavesNight(tCamera));
    const TLifeResult tAgain = Live(tCamera, {}, 9'000, qwSeed);
    EXPECT_EQ(Count(Printed(tResult) + Printed(tAgain), szSwitch), 1U) << Tale(tResult);
  });
}

// Each channel is corrected by a move of its own.  After SIGTERM no further channel is moved.
TEST(DayNight, EachChannelMovesUntilSigterm) {
  const TCamera tCamera("quad");
  std::vector<double> adBefore;
  for (i32 i = 0; i < 4; i++) adBefore.push_back(tCamera.Truth(LENS_FOCUS, i));
  const TLifeResult tWhole = Live(tCamera, {SetNight(120'000), Ask(140'000, szStatus)}, 141'000);
  EXPECT_EQ(Count(Printed(tWhole), szSwitch), 4U) << Tale(tWhole);
  const i32 iOffset = NightTable_Offset(*Lenses_Find("quad"), 3);  // zoom 100 reads index 99, of the fourth range
  for (i32 i = 0; i < 4; i++)
    EXPECT_EQ(tCamera.Truth(LENS_FOCUS, i) - adBefore[static_cast<std::size_t>(i)], iOffset) << i;
  const TLifeEvent tTerm = At(TimeOf_us(tWhole, "Focus Offset") + 5'000, Signal(0, SIGTERM));
  ASSERT_EQ(Life_ResetRoot(tCamera.sRoot), 0);
  const TLifeResult tEnded = Live(tCamera, {SetNight(120'000), tTerm}, 0);
  EXPECT_EQ(Judge_Order(tEnded), "") << Tale(tEnded);
  EXPECT_EQ(Count(SinceTerm(tEnded), "SELECT_DEVICE"), 0U) << Tale(tEnded);
}

std::string ThermalTable(const std::string& sTemps, const std::string& sTempCount, const std::string& sZooms,
                         const std::string& sZoomCount, const std::string& sRows) {
  return Element("temperature", Element("total_step", sTempCount) + Element("offset", sTemps)) +
         Element("zoomposition", Element("total_step", sZoomCount) + Element("offset", sZooms) + sRows);
}

const std::string g_sTable = ThermalTable("-10,0,10,20", "4", "100,300", "2",
                                          "<zoom100>700,710,730,760</zoom100><zoom300>700,720,760,820</zoom300>");

// Replaces the camera's thermal table.
void WriteThermalTable(const TCamera& tCamera, const std::string& sTable = g_sTable) {
  ReplaceInConfig(tCamera, "<shift_table>[^]*</shift_table>", Element("shift_table", Element("thermal", sTable)));
}

TEST(Thermal, RowsAndColumns) {
  const struct {
    u32 dwZoom;
    double dFrom, dTo;
    i32 iShift;
    u32 dwMoves = 1;
  } atCases[] = {{100, 20, 21, 0, 0}, {100, 20, 22, 0},     {100, 15, 5, -20},  {299, -5, 15, 30},  {300, -5, 15, 60},
                 {99, -5, 15, 30},    {640, -5, 15, 60},    {100, -20, -12, 0}, {100, -12, 10, 30}, {300, 10, 9, 0, 0},
                 {300, 10, 8.5, -40}, {300, 20, -60, -120}, {300, 25, 60, 0}};
  for (const auto& tCase : atCases) {
    SCOPED_TRACE(std::to_string(tCase.dwZoom) + ": " + std::to_string(tCase.dFrom) + " to " +
                 std::to_string(tCase.dTo));
    const TCamera tCamera("thermal");
    StandAt(tCamera, tCase.dwZoom, 700);
    WriteThermalTable(tCamera);
    ChangeWorld(tCamera, [&](TWorld& tWorld) { tWorld.dTemperature_C = tCase.dFrom; });
    const TLifeResult tResult = LiveToFocus(tCamera, {SetTemperature(10'000, tCase.dTo)}, 150'000, 700 + tCase.iShift);
    EXPECT_EQ(Count(Printed(tResult), "ThermalFocusShift_Check move to"), tCase.dwMoves) << Tale(tResult);
  }
}

TEST(Thermal, BrokenTableMovesNothing) {
  const std::string sRow = "<zoom100>1,2</zoom100>";
  const struct {
    std::string sTable;
    const char* szKey;
  } atCases[] = {
      {ThermalTable("-10,0", "0", "100", "1", sRow), "temperature_total_step"},
      {ThermalTable("-10,0", "-1", "100", "1", sRow), "temperature_total_step"},
      {ThermalTable("-10,0", "2000000000", "100", "1", sRow), "temperature_offset"},
      {ThermalTable("0,-10", "2", "100", "1", sRow), "temperature_offset"},
      {ThermalTable("cold,hot", "2", "100", "1", sRow), "temperature_offset"},
      {ThermalTable("-10,0", "2", "100", "0", sRow), "zoomposition_total_step"},
      {ThermalTable("-10,0", "2", "100", "2", sRow), "zoomposition_offset"},
      {ThermalTable("-10,0", "2", "100,50", "2", sRow + "<zoom50>1,2</zoom50>"), "zoomposition_offset"},
      {ThermalTable("-10,0", "2", "100", "1", "<zoom101>1,2</zoom101>"), "zoomposition_zoomposition_zoom100"},
      {ThermalTable("-10,0", "2", "100", "1", "<zoom100>1</zoom100>"), "zoomposition_zoomposition_zoom100"},
      {"", "temperature_total_step"},
  };
  for (const auto& tCase : atCases) {
    SCOPED_TRACE(tCase.sTable);
    const TCamera tCamera("thermal");
    WriteThermalTable(tCamera, tCase.sTable);
    const double dBefore = tCamera.Truth(LENS_FOCUS);
    const TLifeResult tResult = LiveToFocus(tCamera, {SetTemperature(10'000, -20)}, 150'000, dBefore);
    const std::string sKey = tCase.szKey;
    EXPECT_EQ(Count(Printed(tResult), "[vernierlensd] : Parse shift_table_thermal_" + sKey + " error."), 1U)
        << Tale(tResult);
    EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : VernierLensd_LoadThermalFocusShiftTable failed."));
  }
}

// The minute in which the daemon starts decides at which minutes of the hour a check runs.
TEST(Thermal, MinutesOfTheChecks) {
  const struct {
    u64 qwStart_min;
    const char* szChecks;
  } atCases[] = {{0, "2<0 4<2 6<4 "},          {1, "2<0 4<2 6<4 "},        {2, "2<0 4<2 6<4 8<6 "},
                 {57, "57<0 59<57 0<59 2<0 "}, {58, "58<0 0<58 2<0 4<2 "}, {59, "59<0 0<59 2<0 4<2 "}};
  for (const auto& tCase : atCases) {
    const TCamera tCamera("thermal");
    ChangeWorld(tCamera, [&](TWorld& tWorld) { tWorld.qwWallAtZero_us += tCase.qwStart_min * 60'000'000; });
    const TLifeResult tResult = Live(tCamera, {}, 6 * 60'000 + 30'000);
    std::string sChecks;
    for (const auto& asMatch : Matches(Printed(tResult), "tm_min = ([0-9]+), iInitTime = ([0-9]+)\n")) {
      sChecks += asMatch[1] + "<" + asMatch[2] + " ";
    }
    EXPECT_EQ(sChecks, tCase.szChecks) << tCase.qwStart_min;
  }
}

// A client's focus is right for the temperature at that moment, which becomes the reference.  The correction's own
// moves do not change the reference.
TEST(Thermal, ClientsFocusIsTheNewReference) {
  const TCamera tCamera("thermal");
  StandAt(tCamera, 300, 700);
  WriteThermalTable(tCamera);
  const auto atEvents =
      Asks("20000 focus=800, 150000 getstatus", {SetTemperature(10'000, 5), SetTemperature(160'000, 15)});
  const TLifeResult tResult = LiveToFocus(tCamera, atEvents, 290'000, 840);
  ASSERT_EQ(tResult.asReplies.size(), 3U);
  EXPECT_EQ(StatusValue(tResult.asReplies[1], "focus_motor"), 800) << Tale(tResult);
  // If a second command is waiting, only its end sets the reference.  By then it has become colder.
  LiveToFocus(tCamera, Asks("20000 focus=300, 20200 focus=700", {SetTemperature(21'300, 5)}), 200'000, 700);
}

// After its move the check waits until the motor must have ended.  A command waits for that, SIGTERM does not.
TEST(Thermal, MoveIsWaitedOut) {
  const TCamera tCamera("thermal");
  const auto LiveWith = [&](std::vector<TLifeEvent> atEvents, u64 qwEnd_ms) {
    EXPECT_EQ(Life_ResetRoot(tCamera.sRoot), 0);
    StandAt(tCamera, 100, 200);
    WriteThermalTable(tCamera, ThermalTable("-10,10", "2", "100", "1", "<zoom100>200,1200</zoom100>"));
    ChangeWorld(tCamera, [](TWorld& tWorld) { tWorld.dTemperature_C = 0; });
    atEvents.push_back(SetTemperature(10'000, 20));
    return Live(tCamera, std::move(atEvents), qwEnd_ms);
  };
  const u64 qwWait_us = 1000 * u64{Lenses_Find("thermal")->tFocus.dwOneStepTime_us};
  const u64 qwMove_us = TimeOf_us(LiveWith({}, 200'000), "Check move to 1200");
  const u64 qwAfter_ms = (qwMove_us + qwWait_us) / 1000 + 400;  // the walk is over, the wait is not
  const TLifeResult tAsked = LiveWith({Ask(qwAfter_ms, "function=auto")}, 300'000);
  EXPECT_GE(TimeOf_us(tAsked, "Start first-level"), qwMove_us + qwWait_us * 3 / 2) << Tale(tAsked);
  const TLifeResult tEnded = LiveWith({Signal(qwAfter_ms, SIGTERM)}, 0);
  EXPECT_LT(TimeOf_us(tEnded, "Release resources"), qwAfter_ms * 1000 + 1'000'000) << Tale(tEnded);
}

TLifeEvent SetSensor(u64 qwAt_ms, ESensorFault eFault) {
  return Call(qwAt_ms, [=](TWorld* ptWorld) { ptWorld->tI2C.eFault = eFault; });
}

// Puts the thermal lens at 5 degrees, with such a sensor.
void SetUpThermal(const TCamera& tCamera, u32 dwFocus, ESensorFault eFault) {
  StandAt(tCamera, 300, dwFocus);
  WriteThermalTable(tCamera);
  ChangeWorld(tCamera, [&](TWorld& tWorld) {
    tWorld.dTemperature_C = 5;
    tWorld.tI2C.eFault = eFault;
  });
}

// Without its sensor at start-up the lens works without correction.  A later failure costs only the checks during it.
TEST(Thermal, SensorFaults) {
  const struct {
    ESensorFault eAtStart, eLater;
    double dFocus;
  } atCases[] = {{SENSOR_ABSENT, SENSOR_GOOD, 700},
                 {SENSOR_SILENT, SENSOR_GOOD, 700},
                 {SENSOR_GOOD, SENSOR_SILENT, 740},
                 {SENSOR_GOOD, SENSOR_SHORT, 740}};
  for (const auto& tCase : atCases) {
    const TCamera tCamera("thermal");
    SetUpThermal(tCamera, 700, tCase.eAtStart);
    const auto atEvents = Asks("200000 getstatus", {SetSensor(60'000, tCase.eLater), SetTemperature(61'000, 15),
                                                    SetSensor(210'000, SENSOR_GOOD)});
    const TLifeResult tResult = LiveToFocus(tCamera, atEvents, 400'000, tCase.dFocus);
    const bool bOn = tCase.eAtStart == SENSOR_GOOD;
    for (const char* szCall : {"VernierLensd_InitTemperatureSensor", "ThermalFocusShift_TemperatureUpdae"}) {
      EXPECT_EQ(HasPrinted(tResult, "[vernierlensd] : " + std::string(szCall) + " failed."), !bOn) << Tale(tResult);
    }
    EXPECT_EQ(StatusValue(tResult.asReplies.front(), "focus_motor"), 700) << "moved by a reading that failed";
    EXPECT_EQ(Count(Printed(tResult), "2 Mins fly"), bOn ? 3U : 0U) << "a failed check restarts the period";
  }
}

// If the reading for a reference fails, the next good reading is the reference, and the sharp lens is not moved.
TEST(Thermal, FailedReferenceIsTakenAgain) {
  const struct {
    const char* szName;
    ESensorFault eAtStart;
    std::vector<TLifeEvent> atEvents;
  } atCases[] = {{"at the start", SENSOR_BAD_ONCE, {}},
                 {"after a client's move", SENSOR_GOOD,
                  Asks("30000 focus=640", {SetSensor(20'000, SENSOR_SILENT), SetSensor(40'000, SENSOR_GOOD)})}};
  for (const auto& tCase : atCases) {
    SCOPED_TRACE(tCase.szName);
    const TCamera tCamera("thermal");
    SetUpThermal(tCamera, 640, tCase.eAtStart);
    auto atEvents = Asks("200000 getstatus", {SetTemperature(10'000, 25), SetTemperature(210'000, 15)});
    atEvents.insert(atEvents.begin(), tCase.atEvents.begin(), tCase.atEvents.end());
    // From the column of 20 degrees to that of 10.
    const TLifeResult tResult = LiveToFocus(tCamera, atEvents, 400'000, 640 - 60);
    EXPECT_EQ(StatusValue(tResult.asReplies[tResult.asReplies.size() - 2], "focus_motor"), 640) << Tale(tResult);
  }
}

}  // namespace
