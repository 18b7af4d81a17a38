// The ICS lens: whole lives against its simulated driver, judged by where its axes really are and by the transcript.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <deque>
#include <map>

#include "short_lives.h"

namespace {

constexpr u64 qwReady_ms = 8'000;

// One thread's requests to the driver and its sleeps, in short: "GET_ZOOM_SPEED, SET_ZOOM_SPEED 2000, SLEEP 1200, ...".
// Begins at the first sFrom in the transcript.
std::string Story(const TLifeResult& tResult, const std::string& sThread, std::string_view sFrom = "") {
  std::string sStory;
  const std::string& sAll = tResult.sTranscript;
  const std::string sLines = "\n" + sAll.substr(std::min(sAll.find(sFrom), sAll.size()));
  u64 qwSlept_ms = 0;
  for (const auto& asMatch :
       Matches(sLines, "\n *[0-9.]+ " + sThread + " +(?:sleep ([0-9.]+)|icsdriver ICS_([A-Z_]+(?: -?[0-9]+)?))")) {
    if (!asMatch[1].empty()) {
      qwSlept_ms += static_cast<u64>(std::llround(std::stod(asMatch[1]) / 1000));
      continue;
    }
    if (qwSlept_ms > 0) sStory += "SLEEP " + std::to_string(qwSlept_ms) + ", ";
    qwSlept_ms = 0;
    sStory += asMatch[2] + ", ";
  }
  return sStory;
}

TEST(ICS, SetUpAndRestoreInTheirOrder) {
  const TCamera tCamera("ics");
  const TLifeResult tResult = LiveToRest(tCamera, {}, qwReady_ms);
  EXPECT_EQ(tCamera.Truth(LENS_ZOOM), 600);
  EXPECT_EQ(tCamera.Truth(LENS_FOCUS), 1215);
  EXPECT_TRUE(
      Story(tResult, "main")
          .starts_with(
              "GET_ZOOM_SPEED, SET_ZOOM_SPEED 2000, GET_FOCUS_SPEED, SET_FOCUS_SPEED 2500, GET_ZOOM_HOME, "
              "SET_ZOOM_POSITION 100, GET_FOCUS_HOME, SET_FOCUS_POSITION 1500, GET_ZOOM_MIN, GET_ZOOM_MAX, "
              "GET_ZOOM_PI_POSITION, GET_FOCUS_MIN, "
              "GET_FOCUS_MAX, GET_FOCUS_PI_POSITION, INIT_STEP_A, INIT_STEP_B, SET_ZOOM_POSITION 600, SLEEP 1200, "
              "SET_FOCUS_POSITION 1215, SLEEP 1500, GET_MIN_AD, GET_MAX_AD, "))
      << Story(tResult, "main");
  for (const char* szLine :
       {"/root/vernierlensd/focus/virtual/start = 100", "/root/vernierlensd/focus/virtual/end = 3000",
        "/root/vernierlensd/search/range/firstlevel = 1450", "/root/vernierlensd/search/range/secondlevel = 362",
        "/root/vernierlensd/search/range/thirdlevel = 22", "/root/vernierlensd/zoom/onesteptime = 500",
        "/root/vernierlensd/focus/onesteptime = 400", "iZoomPositionInterval = 125", "load Track value",
        "choose /etc/conf.d/vernierlensd/ir_curve_y1", "[init]iOldAD=475 AD2TempValue=25"}) {
    EXPECT_TRUE(HasPrinted(tResult, szLine)) << szLine << Tale(tResult);
  }
}

// What each axis's thread asks of the driver for a command, and how long it waits.  The focus starts at 1215, has its
// sensor at 400 and makes 2500 steps a second; the zoom starts at 600, has its sensor at 300 and makes 2000.  Every
// request but ICS_CHECK_DETACHED is made under the mutex.
TEST(ICS, CommandsInTheirOrder) {
  const auto Go = [](const char* szAxis, i32 iTo, i32 iWait_ms) {
    const std::string sAxis = szAxis;
    return "SET_" + sAxis + "_POSITION " + std::to_string(iTo) + ", SLEEP " + std::to_string(iWait_ms) + ", GET_" +
           sAxis + "_POSITION, ";
  };
  const auto Steps = [](i32 iFrom, i32 iStep) {  // a sweep's first two; at the second GET the lens is there
    std::string sSteps = "SLEEP 1000, ";
    for (const i32 iTo : {iFrom + iStep, iFrom + 2 * iStep}) {
      sSteps += "SET_FOCUS_POSITION " + std::to_string(iTo) + ", GET_FOCUS_POSITION, SLEEP 150, GET_FOCUS_POSITION, " +
                "SLEEP 120, ";
    }
    return sSteps;
  };
  const std::string sToPI = "GET_FOCUS_PI_POSITION, " + Go("FOCUS", 400, 326);
  const std::string sZoomToPI = "GET_ZOOM_PI_POSITION, " + Go("ZOOM", 300, 150);
  const struct {
    std::string sQuery, sFocus, sZoom;
  } atCases[] = {
      {"positioning", sToPI + Go("FOCUS", 100, 120) + Steps(100, 50), sZoomToPI + Go("ZOOM", 100, 100)},
      {"motorreset", sToPI, sZoomToPI + Go("ZOOM", 100, 100)},
      {"scan", sToPI + Go("FOCUS", 100, 120) + Steps(100, 20), sZoomToPI + Go("ZOOM", 600, 150)},
      {"auto", Go("FOCUS", 553, 265) + Steps(553, 50), ""},
      {"focus=2000", Go("FOCUS", 2000, 314), ""},
      {"focus=90000", Go("FOCUS", 3000, 714), ""},
      {"focus=-1", Go("FOCUS", 100, 446), ""},
      {"zoom=5", Go("FOCUS", 748, 187), "SLEEP 300, " + Go("ZOOM", 100, 250)},
      {"focus+99", Go("FOCUS", 1245, 12), ""},
      {"focus-20", Go("FOCUS", 1195, 8), ""},
      {"zoom=900", Go("FOCUS", 1557, 137), "SLEEP 300, " + Go("ZOOM", 900, 150)},
      {"zoom-30", Go("FOCUS", 1248, 13), "SLEEP 300, " + Go("ZOOM", 570, 15)},
      {"stop", "", ""},
      {"resetfocus", "", ""},
  };
  for (const auto& tCase : atCases) {
    const TCamera tCamera("ics");
    const TLifeResult tResult = Live(tCamera, Asks("8000 " + tCase.sQuery), 14'000);
    const std::string sTale = tCase.sQuery + Tale(tResult);
    // The focus thread is the one that checks for a detached lens.
    const auto asLooks = Matches(tResult.sTranscript, "(t[12]) +icsdriver ICS_CHECK_DETACHED");
    ASSERT_FALSE(asLooks.empty());
    const std::string& sFocusThread = asLooks[0][1];
    // Which thread is first decides whether the focus waits for the zoom, half a second at a time.
    const char* szOften = "CHECK_DETACHED 1, |GET_AD_VALUE, |SLEEP 500, ";
    std::string sFocus = Replaced(Story(tResult, sFocusThread, "request 0"), szOften, "");
    const bool bSweeps = tCase.sFocus.find("SLEEP 1000") != tCase.sFocus.npos;
    if (bSweeps) sFocus.resize(std::min(sFocus.size(), tCase.sFocus.size()));
    EXPECT_EQ(sFocus, tCase.sFocus) << sTale;
    EXPECT_EQ(Story(tResult, sFocusThread == "t1" ? "t2" : "t1", "request 0"), tCase.sZoom) << sTale;
    const std::size_t dwZoomed = tResult.sTranscript.rfind("ICS_GET_ZOOM_POSITION");
    const auto Seen = [&](const char* szText) { return Count(tResult.sTranscript, szText); };
    EXPECT_EQ(Seen("icsdriver ICS_"), Seen(" locked\n") + Seen("icsdriver ICS_CHECK_DETACHED")) << sTale;
    EXPECT_TRUE(!bSweeps || dwZoomed == std::string::npos || dwZoomed < tResult.sTranscript.find(" : Start ")) << sTale;
  }
}

// A client's search chooses the tracking curve.  The lens then stays sharp along zoom, temperature and night.
TEST(ICS, FocusIsKept) {
  const TCamera tCamera("ics");
  std::vector<TLifeEvent> atEvents = Asks("8000 auto, 40000 scan");
  const auto Look = [&](u64 qwAt_ms, const char* szWhat) {
    atEvents.push_back(Call(qwAt_ms, [szWhat](TWorld* ptWorld) {
      Lens_Settle(&ptWorld->tLens, World_Now_us(ptWorld));
      const double dOff = Lens_GlassVirtual(&ptWorld->tLens, 0, LENS_FOCUS) - World_SharpFocus(ptWorld, 0);
      std::printf("%s off by %.1f\n", szWhat, dOff);
    }));
  };
  u64 qwAt_ms = 120'000;
  for (const u32 dwZoom : {100U, 700U, 1500U, 1100U, 2100U}) {
    atEvents.push_back(Ask(qwAt_ms, "function=zoom&direction=direct&position=" + std::to_string(dwZoom)));
    Look(qwAt_ms + 15'000, "zoom");
    qwAt_ms += 20'000;
  }
  for (const double dTemperature_C : {28.0, 34.0, 45.0, 12.0, -10.0}) {
    atEvents.push_back(SetTemperature(qwAt_ms, dTemperature_C));
    Look(qwAt_ms + 130'000, "temperature");
    qwAt_ms += 140'000;
  }
  for (const bool bNight : {true, false}) {
    atEvents.push_back(SetNight(qwAt_ms, bNight));
    Look(qwAt_ms + 15'000, "night");
    qwAt_ms += 20'000;
  }
  const TLifeResult tResult = LiveToRest(tCamera, std::move(atEvents), qwAt_ms);
  EXPECT_TRUE(HasPrinted(tResult, "Tracking Curve update  [2]")) << "5 m" << Tale(tResult);
  const auto asLooks = Matches(Printed(tResult), "(zoom|temperature|night) off by (-?[0-9.]+)\n");
  for (const auto& asLook : asLooks) {
    // Allows for whole positions, for 2 degrees of up to 2.5 positions each, and for the error of the first search.
    EXPECT_LT(std::fabs(std::stod(asLook[2])), asLook[1] == "zoom" ? 5 : 10) << asLook[0] << Tale(tResult);
  }
  EXPECT_EQ(asLooks.size(), 12U) << Tale(tResult);
}

// A life of RequestLives, which together make every kind of request to the driver.
struct TRequestLife {
  const char* szName;
  const char* szStatusFile;
  std::vector<TLifeEvent> atEvents;
  u64 qwEnd_ms;
  // Searches and finds references.  There the believed position follows a SET that the lens does not obey.  Such a life
  // has a short lens, or most of its requests would be those of one sweep.
  bool bSearches = false;
};

std::vector<TRequestLife> RequestLives() {
  const std::string sMoves = "8000 zoom=1800, 9000 stop, 14000 focus+30, 125000 zoom-5, 130000 getstatus";
  const std::string sSearches = "8000 auto, 50000 scan, 100000 motorreset, 140000 getstatus";
  std::vector<TLifeEvent> atMoves = Asks(sMoves);
  atMoves.insert(atMoves.begin(), {SetNight(20'000), SetTemperature(30'000, 45)});
  return {{"Start", "normal\n", {Ask(qwReady_ms, szStatus)}, qwReady_ms + 500},
          {"Restore", "restore\n", {Ask(58'000, szStatus)}, 60'000, true},
          {"Moves", "normal\n", atMoves, 131'000},
          {"Searches", "normal\n", Asks(sSearches), 141'000, true},
          {"Ended", "normal\n", Asks("8000 scan"), 12'000, true}};
}

// What a life's transcript says about the driver and the clients.
struct TFacts {
  std::vector<i32> aiGone[LENS_AXES] = {{600, 600}, {1215, 1215}};  // the saved place, then each SET that worked
  std::vector<i32> aiAsked[LENS_AXES] = {{600}, {1215}};            // also each SET that failed
  double dSlowestReply_s = 0;
  std::size_t dwMostAtOnce = 0;  // driver requests in a tenth of a second
};

TFacts Facts(const TLifeResult& tResult) {
  TFacts tFacts;
  std::map<i32, double> mapAsked_s;
  std::deque<double> adRecent_s;
  std::istringstream tLines(tResult.sTranscript);
  for (std::string sLine; std::getline(tLines, sLine);) {
    double dNow_s = 0;
    char szKind[12] = "", szAxis[12] = "";
    i32 iNumber = 0, iResult = -1;
    if (std::sscanf(sLine.c_str(), "%lf %*s %11s %d", &dNow_s, szKind, &iNumber) < 2) continue;
    const std::string_view sKind = szKind;
    if (sKind == "request") mapAsked_s[iNumber] = dNow_s;
    if (sKind == "reply") tFacts.dSlowestReply_s = std::max(tFacts.dSlowestReply_s, dNow_s - mapAsked_s.at(iNumber));
    if (sKind != "icsdriver") continue;
    for (adRecent_s.push_back(dNow_s); adRecent_s.front() < dNow_s - 0.1;) adRecent_s.pop_front();
    tFacts.dwMostAtOnce = std::max(tFacts.dwMostAtOnce, adRecent_s.size());
    const char* szSet = "%*f %*s %*s ICS_SET_%11[A-Z]_POSITION %d = %d";
    if (std::sscanf(sLine.c_str(), szSet, szAxis, &iNumber, &iResult) != 3) continue;
    const u32 dwAxis = szAxis[0] == 'Z' ? LENS_ZOOM : LENS_FOCUS;
    if (iNumber >= 0) tFacts.aiAsked[dwAxis].push_back(iNumber);  // below 0: the result of a failed GET
    if (iResult == 0) tFacts.aiGone[dwAxis].push_back(iNumber);
  }
  return tFacts;
}

std::array<i32, LENS_AXES> ReadSaved(const TCamera& tCamera) {
  std::array<i32, LENS_AXES> aiSaved = {-1, -1};
  const std::string sSaved = tCamera.Read(szICSPositionsPath);
  EXPECT_EQ(std::sscanf(sSaved.c_str(), "zoom_motor=%d\nfocus_motor=%d\n", &aiSaved[0], &aiSaved[1]), 2) << sSaved;
  return aiSaved;
}

class Detached : public testing::TestWithParam<std::size_t> {};

// Whichever request is the first that the lens does not answer, clients are answered at once, and the daemon does not
// spin and ends in order.  It saves the position before the detachment, or the one that was asked for at that moment.
TEST_P(Detached, AtEveryRequest) {
  const TRequestLife tLife = RequestLives()[GetParam()];
  const TCamera tCamera("ics");
  u64 qwRequests = 0, qwEvents = 0;
  for (u64 qwAt = 0; qwAt <= qwRequests && !HasFailure(); qwAt += qwAt == 0 ? 1 : 10 / Lives(10)) {
    ASSERT_EQ(Life_ResetRoot(tCamera.sRoot), 0);
    tCamera.Write("/mnt/flash/.VernierlensStatus", tLife.szStatusFile);
    TWorld* ptWorld = World_Map(tCamera.sRoot.c_str());
    if (tLife.bSearches) ptWorld->tLens.atICS[LENS_FOCUS].iMin = 350, ptWorld->tLens.atICS[LENS_FOCUS].iMax = 1350;
    ptWorld->tLens.qwDetachAtRequest = qwAt;
    const TLifeResult tResult = Live(tCamera, tLife.atEvents, tLife.qwEnd_ms, FirstSeed() + qwAt);
    if (qwAt == 0) qwRequests = ptWorld->tLens.qwRequests;
    if (qwAt == 0) qwEvents = tResult.qwEvents;
    World_Unmap(ptWorld);
    SCOPED_TRACE("request " + std::to_string(qwAt) + " of " + std::to_string(qwRequests) + Tale(tResult));
    ASSERT_EQ(tResult.eEnd, LIFE_EXITED);
    EXPECT_EQ(tResult.iStatus, 0);
    EXPECT_LT(tResult.qwTime_us, (tLife.qwEnd_ms + 5'000) * 1000);
    EXPECT_LT(tResult.qwEvents, 2 * qwEvents);
    for (const std::string& sReply : tResult.asReplies) EXPECT_NE(sReply, "");
    const TFacts tFacts = Facts(tResult);
    EXPECT_LT(tFacts.dSlowestReply_s, 1);
    EXPECT_LT(tFacts.dwMostAtOnce, 30U);  // the whole set-up of a lens that does not answer
    const auto aiSaved = ReadSaved(tCamera);
    const bool bTold = tLife.atEvents.back().sQuery == szStatus;  // clients are told what is saved
    EXPECT_EQ(bTold ? Judge_Idle(tResult.asReplies.back(), LENS_ZOOM) : "", "");
    for (const ELensAxis eAxis : g_aeAxes) {
      EXPECT_EQ(bTold ? Judge_Belief(tResult.asReplies.back(), eAxis, aiSaved[eAxis]) : "", "");
      const std::vector<i32>& aiGone = tFacts.aiGone[eAxis];
      std::vector<i32> aiGood = {aiGone.front(), aiGone.back(), aiGone[aiGone.size() - 2]};
      if (tLife.bSearches) aiGood = tFacts.aiAsked[eAxis];
      EXPECT_NE(std::find(aiGood.begin(), aiGood.end(), aiSaved[eAxis]), aiGood.end()) << aiSaved[eAxis];
    }
  }
  EXPECT_GT(qwRequests, 20U);
}

INSTANTIATE_TEST_SUITE_P(ICS, Detached, testing::Range<std::size_t>(0, RequestLives().size()),
                         [](const auto& tInfo) { return RequestLives()[tInfo.param].szName; });

// The driver moves the lens but fails every GET, from its set-up on or later.
TEST(ICS, FailedGetIsNeverSaved) {
  for (const u64 qwFrom_ms : {u64{0}, qwReady_ms}) {
    for (const std::string sQuery : {"zoom=900", "zoom-30", "focus+30", "auto", "scan", "positioning", "motorreset"}) {
      const TCamera tCamera("ics");
      const TLifeEvent tFail = Call(qwFrom_ms, [](TWorld* ptWorld) { ptWorld->tLens.bICSGetsFail = 1; });
      const TLifeResult tResult = Live(tCamera, Asks("8001 " + sQuery + ", 100000 getstatus", {tFail}), 101'000);
      SCOPED_TRACE(sQuery + " " + std::to_string(qwFrom_ms) + Tale(tResult));
      ASSERT_EQ(tResult.eEnd, LIFE_EXITED);
      EXPECT_EQ(Judge_Idle(tResult.asReplies.back(), LENS_ZOOM), "");
      const char* szLine = "zoom/motor/positioningstep = -1 is no answer of a lens's driver, 0 is used.";
      EXPECT_EQ(HasPrinted(tResult, std::string("[vernierlensd] : ") + szLine), qwFrom_ms == 0);
      for (const ELensAxis eAxis : g_aeAxes) {
        EXPECT_EQ(Judge_Belief(tResult.asReplies.back(), eAxis, tCamera.Truth(eAxis)), "");
        EXPECT_EQ(ReadSaved(tCamera)[eAxis], tCamera.Truth(eAxis));
      }
    }
  }
}

// Positions below 0 are saved as "%u" prints them, and the lens goes there at the next start.
TEST(ICS, PositionsBelow0ComeBack) {
  const TCamera tCamera("ics");
  ChangeWorld(tCamera,
              [](TWorld& tWorld) { tWorld.tLens.atICS[LENS_ZOOM].iMin = tWorld.tLens.atICS[LENS_FOCUS].iMin = -100; });
  tCamera.Write(szICSPositionsPath, "zoom_motor=4294967256\nfocus_motor=4294967276\nnight_mode=0\n");
  const TLifeResult tResult = Live(tCamera, {}, qwReady_ms);
  EXPECT_EQ(tCamera.Truth(LENS_ZOOM), -40) << Tale(tResult);
  EXPECT_EQ(tCamera.Truth(LENS_FOCUS), -20) << Tale(tResult);
}

// A zoom position reads the table's entry one below it.  In this table each offset equals its zoom position.
TEST(ICS, NightOffsetReadsTheEntryBelow) {
  const TCamera tCamera("ics");
  tCamera.Write("/etc/conf.d/vernierlensd/ir_curve_y1", "0 1 0 0 3f800000 0 0 0 0 0 0 0 0 0");
  const TLifeResult tResult = LiveToRest(tCamera, {SetNight(qwReady_ms)}, 12'000);
  EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Focus Offset: 599")) << Tale(tResult);
  EXPECT_EQ(tCamera.Truth(LENS_FOCUS), 1215 + 599);
}

// A broken file costs a printed line; then the daemon runs or ends, as promised.
TEST(ICS, BrokenFiles) {
  const struct {
    const char* szPath;
    const char* szText;  // null: the file is missing
    const char* szLine;
    bool bRuns;
  } atCases[] = {
      {szICSConfigPath, "<root><ics>", "[vernierlensd] : Failed to open device", false},
      {szICSPositionsPath, nullptr, "[vernierlensd] : fopen failed!", false},
      {szICSPositionsPath, "", "[ics init]pThis->dwZoomMotorPosition[iDev] = 100", true},
      {szICSPositionsPath, "zoom_motor=-5\nfocus_motor=4294967291\n",
       "[ics init]pThis->dwFocusMotorPosition[iDev]  = 50", true},
      {"/etc/conf.d/vernierlensd/tracking_curve_y0", "0 1 2 3f80", "Current Tracking Curve [0]", true},
      {"/etc/conf.d/vernierlensd/temp_curve_y1", "nothing", "One Mins fly", true},
      {"/etc/conf.d/vernierlensd/ad_curve_y0", nullptr, "[vernierlensd] : fopen failed!", true},
      {"/etc/conf.d/vernierlensd/ir_curve_y1", nullptr, "[vernierlensd] : fopen failed!", true},
  };
  for (const auto& tCase : atCases) {
    SCOPED_TRACE(std::string(tCase.szPath) + ": " + (tCase.szText == nullptr ? "missing" : tCase.szText));
    const TCamera tCamera("ics");
    std::remove(tCamera.Path(tCase.szPath).c_str());
    if (tCase.szText != nullptr) tCamera.Write(tCase.szPath, tCase.szText);
    const auto atEvents = Asks("80000 zoom=700, 140000 getstatus", {SetTemperature(10'000, 60), SetNight(20'000)});
    const TLifeResult tResult = Live(tCamera, atEvents, 141'000);
    EXPECT_TRUE(HasPrinted(tResult, tCase.szLine)) << Tale(tResult);
    if (tCase.bRuns) ExpectRest(tCamera, tResult);
    EXPECT_EQ(tResult.eEnd, LIFE_EXITED) << Tale(tResult);
  }
}

// First a move would take a quarter of an hour by range and speed; then the start would take 50 minutes an axis.
TEST(ICS, NoMoveIsWaitedForWithoutEnd) {
  const TCamera tCamera("ics");
  ChangeWorld(tCamera, [](TWorld& tWorld) {
    tWorld.tLens.atICS[LENS_FOCUS].iMax = 900'000;
    tWorld.tLens.atICS[LENS_FOCUS].iSpeed = 1000;
  });
  const TLifeResult tMoved = Live(tCamera, Asks("20000 focus=890000, 30000 zoom=900, 400000 getstatus"), 401'000);
  EXPECT_EQ(tCamera.Truth(LENS_ZOOM), 900) << Tale(tMoved);
  EXPECT_LT(TimeOf_us(tMoved, "[FOCUS]current"), 20'000'000 + 121'000'000U) << Tale(tMoved);
  ASSERT_EQ(Life_ResetRoot(tCamera.sRoot), 0);
  ChangeWorld(tCamera, [](TWorld& tWorld) {
    for (const ELensAxis eAxis : g_aeAxes) tWorld.tLens.atICS[eAxis].iSpeed = 1;
  });
  const TLifeResult tStarted = Live(tCamera, {Ask(1000, szStatus)}, 400'000);
  EXPECT_EQ(Judge_Order(tMoved) + Judge_Order(tStarted), "");
  EXPECT_LT(TimeOf_us(tStarted, "reply 0"), 260'000'000U) << Tale(tStarted);
}

// 2 degrees of change are tolerated, 3 are not.  If a client's move is first by an instant, the change is found again.
TEST(ICS, TemperatureBand) {
  const char* szDiff = "Focus Temp Diff: ";
  const TCamera tCamera("ics");
  for (const double dStep_C : {2.0, 3.0, -2.0, -3.0}) {
    ASSERT_EQ(Life_ResetRoot(tCamera.sRoot), 0);
    const TLifeResult tResult = Live(tCamera, {SetTemperature(20'000, 25 + dStep_C)}, 170'000);
    EXPECT_EQ(Count(Printed(tResult), szDiff), std::fabs(dStep_C) > 2 ? 1U : 0U) << dStep_C << Tale(tResult);
  }
  const auto LiveWith = [&](std::vector<TLifeEvent> atEvents, u64 qwSeed) {
    EXPECT_EQ(Life_ResetRoot(tCamera.sRoot), 0);
    atEvents.push_back(SetTemperature(20'000, 45));
    return Live(tCamera, std::move(atEvents), 170'000, qwSeed);
  };
  u32 dwFirst = 0;
  for (u64 qw = 0; qw < 40 || dwFirst == 0; qw++) {
    ASSERT_LT(qw, 400U) << "no client came first";
    const u64 qwSeed = FirstSeed() + qw;
    const TLifeResult tAlone = LiveWith({}, qwSeed);
    const i32 iShift = static_cast<i32>(tCamera.Truth(LENS_FOCUS)) - 1215;
    const u64 qwMove_us = TimeOf_us(tAlone, szDiff) - 1 + qw % 3;
    const TLifeResult tResult = LiveWith({At(qwMove_us, Asks("0 focus=1500")[0])}, qwSeed);
    const bool bFirst = Count(Printed(tResult), szDiff) > 1;
    dwFirst += bFirst ? 1 : 0;
    ASSERT_TRUE(!bFirst || tCamera.Truth(LENS_FOCUS) == 1500 + iShift) << qwSeed << Tale(tResult);
  }
}

}  // namespace
