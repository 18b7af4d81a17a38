// Day/night and temperature corrections: whole lives, judged by the true lens, the state file and the transcript.
#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <regex>

#include "camera/world_image.h"
#include "config/saved_state.h"
#include "lens/shift_tables.h"
#include "lenses/lens_model.h"
#include "support.h"

namespace {

constexpr const char* szProfile = "/etc/conf.d/image_cfgs/c0/imgsys/mdp_lens_profile.xml";
constexpr const char* szIRCut = "/etc/conf.d/config_ircutctrl.xml";
constexpr const char* szConfig = "/etc/conf.d/vernierlensd/config_vernierlensd.xml";
constexpr const char* szPositions = "/etc/conf.d/vernierlensd/vernierlensd.conf";
constexpr const char* szStatus = "function=getstatus";
constexpr u64 qwSwitchAt_ms = 4'000;

TLifeEvent SetNight(u64 qwAt_ms, bool bNight) {
  return Call(qwAt_ms, [bNight](TWorld* ptWorld) { ptWorld->bNight = bNight ? 1 : 0; });
}

TLifeEvent SetTemperature(u64 qwAt_ms, double dTemperature_C) {
  return Call(qwAt_ms, [dTemperature_C](TWorld* ptWorld) { ptWorld->dTemperature_C = dTemperature_C; });
}

template <typename TChange>
void ChangeWorld(const TCamera& tCamera, TChange fnChange) {
  TWorld* ptWorld = World_Map(tCamera.sRoot.c_str());
  fnChange(*ptWorld);
  World_Unmap(ptWorld);
}

// The lens stands at a zoom and a focus, and the daemon knows it.
void StandAt(const TCamera& tCamera, u32 dwZoom, u32 dwFocus, const char* szMode = "night_mode=0\n") {
  tCamera.Place(LENS_ZOOM, dwZoom);
  tCamera.Place(LENS_FOCUS, dwFocus);
  tCamera.Write(szPositions,
                "zoom_motor=" + std::to_string(dwZoom) + "\nfocus_motor=" + std::to_string(dwFocus) + "\n" + szMode);
}

u32 Count(const TLifeResult& tResult, std::string_view sText) {
  const std::string sPrinted = Printed(tResult);
  u32 dwCount = 0;
  for (std::size_t dwAt = sPrinted.find(sText); dwAt != sPrinted.npos; dwAt = sPrinted.find(sText, dwAt + 1)) dwCount++;
  return dwCount;
}

// In order, believed equals true, and where the focus should be.
void ExpectFocus(const TCamera& tCamera, const TLifeResult& tResult, double dFocus) {
  EXPECT_EQ(tResult.eEnd, LIFE_EXITED) << Tale(tResult);
  EXPECT_EQ(tResult.iStatus, 0) << Tale(tResult);
  ASSERT_FALSE(tResult.asReplies.empty());
  EXPECT_EQ(StatusValue(tResult.asReplies.back(), "focus_motor"), tCamera.Truth(LENS_FOCUS)) << Tale(tResult);
  EXPECT_EQ(StatusValue(tResult.asReplies.back(), "focus_enable"), 0) << Tale(tResult);
  EXPECT_EQ(tCamera.Truth(LENS_FOCUS), dFocus) << Tale(tResult);
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
      {"2", "0,1", "-7,9", 1, -7},
      {"2", "-5,400", "4,6", 1, 4},
      {"2", "5,900", "4,6", 800, 4},
      {"2", ",400", "4,", 401, 0},
      {"1", "0", "-1000", 300, -480},  // the focus range begins at 20
      {"0", "", "", 300, 0},
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
        szProfile,
        Element("root", Element("Focus", Element("IRCORRECTION", Element("STEP_NUM", tCase.szRanges) +
                                                                     Element("ZOOM_STEP", tCase.szFirsts) +
                                                                     Element("FOCUS_OFFSET", tCase.szOffsets)))));
    const TLifeResult tNight = Live(tCamera, {SetNight(qwSwitchAt_ms, true), Ask(20'000, szStatus)}, 21'000);
    ExpectFocus(tCamera, tNight, 500 + tCase.iOffset);
    const bool bOn = tCase.szRefused == nullptr;
    EXPECT_EQ(Count(tNight, "day night switch"), bOn ? 1U : 0U) << Tale(tNight);
    if (!bOn) {
      const std::string sKey = tCase.szRefused;
      EXPECT_TRUE(HasPrinted(tNight, "[vernierlensd] : Parse Focus_IRCORRECTION_" + sKey + " error.")) << Tale(tNight);
      continue;
    }
    EXPECT_NE(tCamera.Read(szPositions).find("night_mode=1\n"), std::string::npos);
    const TLifeResult tAgain = Live(tCamera, {Ask(8'000, szStatus)}, 9'000);
    EXPECT_EQ(Count(tAgain, "day night switch"), 0U) << "a second start added the offset again" << Tale(tAgain);
  }
}

// No profile, or one that is broken: the correction stays off, and the daemon works on.
TEST(DayNight, BrokenProfileSwitchesItOff) {
  for (const char* szText :
       {"", "<root><Focus>", "no document", "<root><Focus><IRCORRECTION></IRCORRECTION></Focus></root>"}) {
    SCOPED_TRACE(szText);
    const TCamera tCamera("focus");
    tCamera.Write(szProfile, szText);
    const TLifeResult tResult = Live(tCamera, {SetNight(20'000, true), Ask(30'000, szStatus)}, 31'000);
    ExpectFocus(tCamera, tResult, tCamera.Truth(LENS_FOCUS));
    EXPECT_EQ(Count(tResult, "day night switch"), 0U);
    EXPECT_EQ(Count(tResult, "SXMLParser_Process failed = 0x") + Count(tResult, "FOCUS_SHIFT error."), 1U)
        << Tale(tResult);
    EXPECT_EQ(tCamera.Read(szPositions).find("night_mode"), std::string::npos);
  }
}

TEST(DayNight, LedsDecideAndTheModeIsKeptAllTheSame) {
  constexpr const char* szDisabledError = "Parse ircutcontrol_disableirled error.";
  const struct {
    const char* szSettings;
    const char* szFlange;
    i32 iOffset;
    const char* szLine = "Focus Offset";
  } atCases[] = {
      {"<root><ircutcontrol><disableirled>0</disableirled><enableextled>0</enableextled></ircutcontrol></root>", "0",
       14},
      {"<root><ircutcontrol><disableirled>1</disableirled><enableextled>2</enableextled></ircutcontrol></root>", "0",
       14},
      {"<root><ircutcontrol><disableirled>1</disableirled><enableextled>0</enableextled></ircutcontrol></root>", "0",
       0},
      {"<root><ircutcontrol><disableirled>1</disableirled><enableextled>0</enableextled></ircutcontrol></root>", "1",
       14},
      {"<root><ircutcontrol><enableextled>1</enableextled></ircutcontrol></root>", "0", 14, szDisabledError},
      {"<root><ircutcontrol><disableirled>4294967296</disableirled></ircutcontrol></root>", "0", 0,
       "Parse ircutcontrol_enableextled error."},
      {"<root><ircutcontrol><disable", "0", 0, "SXMLParser_Process failed"},
      {"", "0", 0, "Parse ircutcontrol_enableextled error."},
  };
  for (const auto& tCase : atCases) {
    SCOPED_TRACE(tCase.szSettings);
    const TCamera tCamera("focus");
    tCamera.Write(szIRCut, tCase.szSettings);
    const std::string sConfig = tCamera.Read(szConfig);
    const std::string sFlange = "<FlangeBackCompensation>";
    tCamera.Write(szConfig, std::regex_replace(sConfig, std::regex(sFlange + "0"), sFlange + tCase.szFlange));
    tCamera.Write(szPositions, "focus_motor=520\nnight_mode=0\n");
    const TLifeResult tResult = Live(tCamera,
                                     {SetNight(20'000, true), Ask(29'000, szStatus), SetNight(30'000, false),
                                      SetNight(40'000, true), Ask(50'000, szStatus)},
                                     51'000);
    ExpectFocus(tCamera, tResult, 520 + tCase.iOffset);
    EXPECT_EQ(Count(tResult, "day night switch"), 3U) << "once for each switch" << Tale(tResult);
    EXPECT_GE(Count(tResult, tCase.szLine), 1U) << Tale(tResult);
    EXPECT_NE(tCamera.Read(szPositions).find("night_mode=1\n"), std::string::npos);
  }
}

// A blocking lens runs every command to its end: whatever comes first, offset and step both arrive, once.
TEST(DayNight, SwitchAmongCommandsIsAppliedOnce) {
  for (u64 qw = 0; qw < Lives(60); qw++) {
    const u64 qwSeed = FirstSeed() + qw;
    SCOPED_TRACE("seed " + std::to_string(qwSeed));
    const TCamera tCamera("focus");
    tCamera.Write(szPositions, "focus_motor=520\nnight_mode=0\n");
    const TLifeResult tResult =
        Live(tCamera,
             {SetNight(18'000 + qwSeed * 137 % 6'000, true), Ask(20'000, "function=focus&direction=forward&steps=20"),
              Ask(22'000, "function=focus&direction=backward&steps=9"), Ask(40'000, szStatus)},
             41'000, qwSeed);
    ExpectFocus(tCamera, tResult, 520 + 20 - 9 + 14);
    EXPECT_EQ(Count(tResult, "day night switch"), 1U) << Tale(tResult);
  }
}

// A client's command in the very instant of the check: whoever comes first, neither is lost.
TEST(DayNight, CommandInTheInstantOfTheCheckIsKept) {
  const auto LiveWith = [](std::vector<TLifeEvent> atEvents, u64 qwSeed) {
    const TCamera tCamera("focus");
    tCamera.Write(szPositions, "focus_motor=520\nnight_mode=0\n");
    atEvents.push_back(SetNight(18'000, true));
    atEvents.push_back(Ask(30'000, szStatus));
    const TLifeResult tResult = Live(tCamera, std::move(atEvents), 31'000, qwSeed);
    return std::pair(tResult, tCamera.Truth(LENS_FOCUS));
  };
  for (u64 qw = 0; qw < Lives(100); qw++) {
    const u64 qwSeed = FirstSeed() + qw;
    SCOPED_TRACE("seed " + std::to_string(qwSeed));
    const std::string sFirst = LiveWith({}, qwSeed).first.sTranscript;
    const std::size_t dwLine = sFirst.rfind('\n', sFirst.find("day night switch")) + 1;
    const double dSwitch_s = std::strtod(sFirst.c_str() + dwLine, nullptr);
    TLifeEvent tMove = Ask(0, "function=focus&direction=direct&position=650");
    tMove.qwAt_us = static_cast<u64>(std::llround(dSwitch_s * 1e6)) - 1 + qw % 3;
    const auto [tResult, dFocus] = LiveWith({tMove}, qwSeed);
    EXPECT_TRUE(dFocus == 650 || dFocus == 650 + 14) << dFocus << Tale(tResult);
    EXPECT_EQ(StatusValue(tResult.asReplies.back(), "focus_motor"), dFocus) << Tale(tResult);
  }
}

// The mode that is saved belongs to the focus that is saved: a save of the zoom keeps it.
TEST(DayNight, ZoomsSaveKeepsTheMode) {
  const TCamera tCamera("zoom");
  StandAt(tCamera, 200, 500, "night_mode=1\n");
  ChangeWorld(tCamera, [](TWorld& tWorld) { tWorld.bNight = 1; });
  Live(tCamera, {Ask(2'000, "function=zoom&direction=forward&steps=5")}, 6'000);
  EXPECT_NE(tCamera.Read(szPositions).find("night_mode=1\n"), std::string::npos) << tCamera.Read(szPositions);
  static TVernierLensdInfo tInfo;
  tInfo.bSupportZoom = tInfo.bSupportFocus = tInfo.bDayNightCorrection = 1;
  sem_init(&tInfo.semConfigFile, 0, 1);
  for (const ESaveMode eMode : {SAVE_WITH_SAVED_MODE, SAVE_WITH_MODE}) {
    const auto Save = [eMode](TWorld*) {
      tInfo.aiNightMode[0] = 7;
      return SavedState_Save(&tInfo, 0, eMode);
    };
    Life_Run({.sRoot = tCamera.sRoot, .fnBody = Save});
    EXPECT_EQ(tCamera.Read(szPositions).find("night_mode=7\n") != std::string::npos, eMode == SAVE_WITH_MODE);
  }
  EXPECT_EQ(g_tZoomAxis.eSaveMode, SAVE_WITH_SAVED_MODE);
}

// Behind SIGTERM no further channel is moved, and its switch comes at the next start.
TEST(DayNight, EndBetweenTwoChannels) {
  const TCamera tCamera("quad");
  const TLifeResult tFirst = Live(tCamera, {SetNight(120'000, true)}, 140'000);
  const std::size_t dwLine = tFirst.sTranscript.rfind('\n', tFirst.sTranscript.find("Focus Offset")) + 1;
  TLifeEvent tTerm = Signal(0, SIGTERM);
  tTerm.qwAt_us = static_cast<u64>(std::strtod(tFirst.sTranscript.c_str() + dwLine, nullptr) * 1e6) + 5'000;
  Life_ResetRoot(tCamera.sRoot);
  const TLifeResult tResult = Live(tCamera, {SetNight(120'000, true), tTerm}, 0);
  EXPECT_EQ(tResult.eEnd, LIFE_EXITED) << Tale(tResult);
  std::size_t dwWalks = 0;
  const std::string sBehind = tResult.sTranscript.substr(tResult.sTranscript.find("Receive TERM"));
  for (std::size_t dw = sBehind.find("SELECT_DEVICE"); dw != sBehind.npos; dw = sBehind.find("SELECT_DEVICE", dw + 1)) {
    dwWalks++;
  }
  EXPECT_EQ(dwWalks, 0U) << Tale(tResult);
}

// In the middle of a search or of a stepped move: the mode is stored with a true position, and nothing is added twice.
TEST(DayNight, SwitchInASearchKeepsModeAndPositionTogether) {
  for (u64 qw = 0; qw < Lives(20); qw++) {
    const u64 qwSeed = FirstSeed() + qw;
    const TCamera tCamera("zoom");
    const TLifeResult tResult = Live(
        tCamera, {Ask(4'000, "function=auto"), SetNight(3'500 + qwSeed * 1'337 % 30'000, true), Ask(60'000, szStatus)},
        61'000, qwSeed);
    ExpectFocus(tCamera, tResult, tCamera.Truth(LENS_FOCUS));
    EXPECT_NE(tCamera.Read(szPositions).find("night_mode=1\n"), std::string::npos);
    const TLifeResult tAgain = Live(tCamera, {Ask(8'000, szStatus)}, 9'000, qwSeed);
    EXPECT_EQ(Count(tResult, "day night switch") + Count(tAgain, "day night switch"), 1U) << Tale(tResult);
  }
}

TEST(DayNight, EachChannelMovesByItself) {
  const TCamera tCamera("quad");
  std::vector<double> adBefore;
  for (i32 i = 0; i < 4; i++) adBefore.push_back(tCamera.Truth(LENS_FOCUS, i));
  const TLifeResult tResult = Live(tCamera, {SetNight(120'000, true), Ask(140'000, szStatus)}, 141'000);
  EXPECT_EQ(Count(tResult, "day night switch"), 4U) << Tale(tResult);
  const i32 iOffset = NightTable_Offset(*Lenses_Find("quad"), 3);  // zoom 100 reads index 99, of the fourth range
  for (i32 i = 0; i < 4; i++)
    EXPECT_EQ(tCamera.Truth(LENS_FOCUS, i) - adBefore[static_cast<std::size_t>(i)], iOffset) << i;
}

// A thermal lens with a table of its own.
void WriteThermalTable(const TCamera& tCamera, const std::string& sTable) {
  const std::string sConfig = tCamera.Read(szConfig);
  tCamera.Write(szConfig, std::regex_replace(sConfig, std::regex("<shift_table>[^]*</shift_table>"),
                                             Element("shift_table", Element("thermal", sTable))));
}

std::string ThermalTable(const std::string& sTemps, const std::string& sTempCount, const std::string& sZooms,
                         const std::string& sZoomCount, const std::string& sRows) {
  return Element("temperature", Element("total_step", sTempCount) + Element("offset", sTemps)) +
         Element("zoomposition", Element("total_step", sZoomCount) + Element("offset", sZooms) + sRows);
}

const std::string g_sRows = "<zoom100>700,710,730,760</zoom100><zoom300>700,720,760,820</zoom300>";

TEST(Thermal, RowsAndColumns) {
  const struct {
    u32 dwZoom;
    double dFrom, dTo;
    i32 iShift;
    u32 dwMoves = 1;
  } atCases[] = {{100, 20, 21, 0, 0}, {100, 20, 22, 0},    {100, 15, 5, -20},   {299, -5, 15, 30},   {300, -5, 15, 60},
                 {99, -5, 15, 30},    {640, -5, 15, 60},   {100, -20, -12, 0},  {100, -12, 10, 30},  {300, 25, 60, 0},
                 {300, 10, 9, 0, 0},  {300, 10, 8.5, -40}, {300, -10, 20, 120}, {300, 20, -60, -120}};
  for (const auto& tCase : atCases) {
    SCOPED_TRACE(std::to_string(tCase.dwZoom) + ": " + std::to_string(tCase.dFrom) + " to " +
                 std::to_string(tCase.dTo));
    const TCamera tCamera("thermal");
    StandAt(tCamera, tCase.dwZoom, 700);
    WriteThermalTable(tCamera, ThermalTable("-10,0,10,20", "4", "100,300", "2", g_sRows));
    ChangeWorld(tCamera, [&](TWorld& tWorld) { tWorld.dTemperature_C = tCase.dFrom; });
    const TLifeResult tResult = Live(tCamera, {SetTemperature(10'000, tCase.dTo), Ask(150'000, szStatus)}, 151'000);
    ExpectFocus(tCamera, tResult, 700 + tCase.iShift);
    EXPECT_EQ(Count(tResult, "ThermalFocusShift_Check move to"), tCase.dwMoves) << Tale(tResult);
  }
}

TEST(Thermal, BrokenTableMovesNothing) {
  const struct {
    std::string sTable;
    const char* szKey;
  } atCases[] = {
      {ThermalTable("-10,0", "0", "100", "1", "<zoom100>1,2</zoom100>"), "temperature_total_step"},
      {ThermalTable("-10,0", "-1", "100", "1", "<zoom100>1,2</zoom100>"), "temperature_total_step"},
      {ThermalTable("-10,0", "2000000000", "100", "1", "<zoom100>1,2</zoom100>"), "temperature_offset"},
      {ThermalTable("0,-10", "2", "100", "1", "<zoom100>1,2</zoom100>"), "temperature_offset"},
      {ThermalTable("cold,hot", "2", "100", "1", "<zoom100>1,2</zoom100>"), "temperature_offset"},
      {ThermalTable("-10,0", "2", "100", "0", "<zoom100>1,2</zoom100>"), "zoomposition_total_step"},
      {ThermalTable("-10,0", "2", "100", "2", "<zoom100>1,2</zoom100>"), "zoomposition_offset"},
      {ThermalTable("-10,0", "2", "100,50", "2", "<zoom100>1,2</zoom100><zoom50>1,2</zoom50>"), "zoomposition_offset"},
      {ThermalTable("-10,0", "2", "100", "1", "<zoom101>1,2</zoom101>"), "zoomposition_zoomposition_zoom100"},
      {ThermalTable("-10,0", "2", "100", "1", "<zoom100>1</zoom100>"), "zoomposition_zoomposition_zoom100"},
      {"", "temperature_total_step"},
  };
  for (const auto& tCase : atCases) {
    SCOPED_TRACE(tCase.sTable);
    const TCamera tCamera("thermal");
    WriteThermalTable(tCamera, tCase.sTable);
    const double dBefore = tCamera.Truth(LENS_FOCUS);
    const TLifeResult tResult = Live(tCamera, {SetTemperature(10'000, -20), Ask(150'000, szStatus)}, 151'000);
    ExpectFocus(tCamera, tResult, dBefore);
    EXPECT_EQ(Count(tResult, std::string("[vernierlensd] : Parse shift_table_thermal_") + tCase.szKey + " error."), 1U)
        << Tale(tResult);
    EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : VernierLensd_LoadThermalFocusShiftTable failed."));
  }
}

// The minutes at which a check runs, by the minute that the daemon starts in.
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
    const std::string sPrinted = Printed(tResult);
    const std::regex tLine("tm_min = ([0-9]+), iInitTime = ([0-9]+)\n");
    for (std::sregex_iterator it(sPrinted.begin(), sPrinted.end(), tLine), tEnd; it != tEnd; ++it) {
      sChecks += it->str(1) + "<" + it->str(2) + " ";
    }
    EXPECT_EQ(sChecks, tCase.szChecks) << tCase.qwStart_min;
  }
}

// A client's focus is right for the temperature of its moment; the lens's own moves leave the reference.
TEST(Thermal, ClientsFocusIsTheNewReference) {
  const TCamera tCamera("thermal");
  StandAt(tCamera, 300, 700);
  WriteThermalTable(tCamera, ThermalTable("-10,0,10,20", "4", "100,300", "2", g_sRows));
  const TLifeResult tResult =
      Live(tCamera,
           {SetTemperature(10'000, 5), Ask(20'000, "function=focus&direction=direct&position=800"),
            Ask(150'000, szStatus), SetTemperature(160'000, 15), Ask(290'000, szStatus)},
           291'000);
  ASSERT_EQ(tResult.asReplies.size(), 3U);
  EXPECT_EQ(StatusValue(tResult.asReplies[1], "focus_motor"), 800) << Tale(tResult);
  ExpectFocus(tCamera, tResult, 840);
  // One that another waits behind leaves the reference to that one's end, by when it has become colder.
  const TLifeResult tTwo = Live(
      tCamera,
      {Ask(20'000, "function=focus&direction=direct&position=300"),
       Ask(20'200, "function=focus&direction=direct&position=700"), SetTemperature(21'300, 5), Ask(200'000, szStatus)},
      201'000);
  ExpectFocus(tCamera, tTwo, 700);
}

// Behind its move the check waits until the motor can have ended; a command waits for that, SIGTERM does not.
TEST(Thermal, MoveIsWaitedOut) {
  const std::string sRow = "<zoom100>200,1200</zoom100>";
  const u64 qwWait_us = 1000 * u64{Lenses_Find("thermal")->tFocus.dwOneStepTime_us};
  for (const bool bEnds : {false, true}) {
    const TCamera tCamera("thermal");
    StandAt(tCamera, 100, 200);
    WriteThermalTable(tCamera, ThermalTable("-10,10", "2", "100", "1", sRow));
    ChangeWorld(tCamera, [](TWorld& tWorld) { tWorld.dTemperature_C = 0; });
    const TLifeResult tMove = Live(tCamera, {SetTemperature(10'000, 20)}, 200'000);
    const std::size_t dwLine = tMove.sTranscript.rfind('\n', tMove.sTranscript.find("Check move to 1200")) + 1;
    const u64 qwMove_us = static_cast<u64>(std::strtod(tMove.sTranscript.c_str() + dwLine, nullptr) * 1e6);
    ASSERT_EQ(Life_ResetRoot(tCamera.sRoot), 0);
    StandAt(tCamera, 100, 200);
    WriteThermalTable(tCamera, ThermalTable("-10,10", "2", "100", "1", sRow));
    ChangeWorld(tCamera, [](TWorld& tWorld) { tWorld.dTemperature_C = 0; });
    const u64 qwBehind_ms = (qwMove_us + qwWait_us) / 1000 + 400;  // the walk is over, the wait is not
    const TLifeResult tResult = Live(
        tCamera, {SetTemperature(10'000, 20), bEnds ? Signal(qwBehind_ms, SIGTERM) : Ask(qwBehind_ms, "function=auto")},
        bEnds ? 0 : 300'000);
    const std::size_t dwNext = tResult.sTranscript.find(bEnds ? "Release resources" : "Start first-level");
    ASSERT_NE(dwNext, std::string::npos) << Tale(tResult);
    const double dNext_s =
        std::strtod(tResult.sTranscript.c_str() + tResult.sTranscript.rfind('\n', dwNext) + 1, nullptr);
    const u64 qwNext_us = static_cast<u64>(dNext_s * 1e6);
    EXPECT_EQ(qwNext_us >= qwMove_us + qwWait_us * 3 / 2, !bEnds) << qwMove_us << " " << qwNext_us << Tale(tResult);
    if (bEnds) {
      EXPECT_LT(qwNext_us, qwBehind_ms * 1000 + 1'000'000) << Tale(tResult);
    }
  }
}

// Without its sensor at start-up the lens works uncompensated; later failures cost the checks that they last for.
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
    StandAt(tCamera, 300, 700);
    WriteThermalTable(tCamera, ThermalTable("-10,0,10,20", "4", "100,300", "2", g_sRows));
    ChangeWorld(tCamera, [&](TWorld& tWorld) {
      tWorld.dTemperature_C = 5;
      tWorld.tI2C.eFault = tCase.eAtStart;
    });
    const auto Fault = [](u64 qwAt_ms, ESensorFault eFault) {
      return Call(qwAt_ms, [eFault](TWorld* ptWorld) { ptWorld->tI2C.eFault = eFault; });
    };
    const TLifeResult tResult = Live(tCamera,
                                     {Fault(60'000, tCase.eLater), SetTemperature(61'000, 15), Ask(200'000, szStatus),
                                      Fault(210'000, SENSOR_GOOD), Ask(400'000, szStatus)},
                                     401'000);
    const bool bOn = tCase.eAtStart == SENSOR_GOOD;
    EXPECT_EQ(HasPrinted(tResult, "[vernierlensd] : VernierLensd_InitTemperatureSensor failed."), !bOn)
        << Tale(tResult);
    EXPECT_EQ(HasPrinted(tResult, "[vernierlensd] : ThermalFocusShift_TemperatureUpdae failed."), !bOn)
        << Tale(tResult);
    EXPECT_EQ(StatusValue(tResult.asReplies.front(), "focus_motor"), 700) << "moved by a reading that failed";
    EXPECT_EQ(Count(tResult, "2 Mins fly"), bOn ? 3U : 0U) << "a failed check restarts the period" << Tale(tResult);
    ExpectFocus(tCamera, tResult, tCase.dFocus);
  }
}

}  // namespace
