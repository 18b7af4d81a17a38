// Auto focus, scan, zoom tracking, buttons, saved positions and recovery: whole lives, judged by the true lens.
#include <fcntl.h>

#include <csignal>

#include "autofocus/zoom_tracking.h"
#include "lens/lens_model.h"
#include "motor/command_box.h"
#include "motor/pi_search.h"
#include "motor/positioning.h"
#include "whole_lives.h"

namespace {

// A scan may wait for the iris for seconds.  A stop that comes meanwhile counts for the zoom too.
TEST(Focus, StoppedScanLeavesTheZoomAlone) {
  const TCamera tCamera("zoom");
  ChangeWorld(tCamera, [](TWorld& tWorld) { tWorld.bImageSideSilent = 1; });
  const TLifeResult tResult =
      Live(tCamera, {Ask(100, "function=scan&iris=1"), Ask(1000, "function=stop"), Ask(60'000, szStatus)}, 61'000);
  ExpectRest(tCamera, tResult);
  EXPECT_EQ(Count(tResult.sTranscript, "zoommotor MOTOR_WALK"), 0U) << Tale(tResult);
}

// A zoom that comes right after a scan is the newer command, however far the start of the scan has got.
TEST(Focus, ZoomAfterAScanIsKept) {
  for (u64 qw = 0; qw < Lives(200); qw++) {
    const u64 qwSeed = FirstSeed() + qw;
    SCOPED_TRACE("seed " + std::to_string(qwSeed));
    const TCamera tCamera(qw % 2 == 0 ? "zoom" : "thermal");
    const TLifeResult tResult = Live(
        tCamera,
        {Ask(100, "function=scan"), Ask(100, "function=zoom&direction=direct&position=333"), Ask(60'000, szStatus)},
        61'000, qwSeed);
    ExpectRest(tCamera, tResult);
    EXPECT_EQ(tCamera.Truth(LENS_ZOOM), 333) << Tale(tResult);
    if (HasFailure()) break;
  }
}

TEST(Focus, SigtermEndsEverythingInTime) {
  for (const char* szQuery : {"function=auto&iris=1", "function=scan", "function=positioning", "function=irisopen"}) {
    for (const bool bSilent : {false, true}) {
      const TCamera tCamera("zoom");
      ChangeWorld(tCamera, [=](TWorld& tWorld) { tWorld.bImageSideSilent = bSilent ? 1 : 0; });
      const TLifeResult tResult = Live(tCamera, {Ask(100, szQuery)}, 2000);
      EXPECT_EQ(tResult.eEnd, LIFE_EXITED) << szQuery << Tale(tResult);
      EXPECT_LT(tResult.qwTime_us, 2'000'000 + 12'200 * 500 + 5'000'000U) << szQuery << bSilent << Tale(tResult);
    }
  }
}

// After a search for the sensor no walk is under way, so a scan that is stopped then ends without waiting for one.
TEST(Focus, ScanStoppedAfterItsSensorIsOver) {
  const TCamera tCamera("quad");
  const auto LiveWith = [&](const std::vector<TLifeEvent>& atEvents, u64 qwEnd_ms) {
    EXPECT_EQ(Life_ResetRoot(tCamera.sRoot), 0);
    SetConfig(tCamera, "focus/onesteptime", "40000");  // a walk to the stop would take 26 s
    std::vector<TLifeEvent> atAll = {Ask(100'000, "function=scan")};
    atAll.insert(atAll.end(), atEvents.begin(), atEvents.end());
    return Live(tCamera, atAll, qwEnd_ms);
  };
  const u64 qwAfter_ms = TimeOf_us(LiveWith({}, 130'000), "PerformFocusScan search PI done") / 1000 + 500;
  const TLifeResult tStopped = LiveWith({Ask(qwAfter_ms, "function=stop"), Ask(qwAfter_ms + 500, szStatus)}, 200'000);
  EXPECT_EQ(Judge_Idle(tStopped.asReplies.back(), LENS_FOCUS), "") << Tale(tStopped);
  const TLifeResult tEnded = LiveWith({Signal(qwAfter_ms, SIGTERM)}, 0);
  EXPECT_LT(tEnded.qwTime_us, (qwAfter_ms + 6'000) * 1000) << "the zoom's own search ends" << Tale(tEnded);
}

// An odd search range whose centre lies half of it below the end.  This lens has its stop at that end.
TEST(Focus, OddRangeEndsAtTheEnd) {
  const TCamera tCamera("zoom");
  const TAxisSheet& tSheet = Lenses_Find("zoom")->tFocus;
  SetConfig(tCamera, "search/range/firstlevel", "25");
  ChangeWorld(tCamera, [&](TWorld& tWorld) {
    tWorld.tLens.atModel[LENS_FOCUS].iTravel = static_cast<i32>(tSheet.dwEnd * tSheet.dwOneStep);
  });
  std::string sTable;
  for (u32 dw = 0; dw < Lenses_Find("zoom")->tZoom.dwTotalStep; dw++) sTable += std::to_string(tSheet.dwEnd - 12) + " ";
  tCamera.Write(szPanFocusPath, sTable);
  const TLifeResult tResult = Live(
      tCamera,
      {Ask(5'000, "function=zoom&direction=direct&position=300"), Ask(20'000, "function=auto"), Ask(100'000, szStatus)},
      101'000);
  ExpectRest(tCamera, tResult);
}

// All readings are equal: each level walks to its very end, and the first reading is the best.
TEST(Focus, FirstOfEqualReadingsAndTheWholeRange) {
  const TCamera tCamera("zoom");
  ChangeWorld(tCamera, [](TWorld& tWorld) { tWorld.bImageSideZero = 1; });
  const TLifeResult tResult = Live(tCamera, {Ask(20'000, "function=auto"), Ask(200'000, szStatus)}, 201'000);
  ExpectRest(tCamera, tResult);
  EXPECT_EQ(Count(Printed(tResult), "Best focus: 0, Motor position: 0.\n"), 3U) << Tale(tResult);
  for (const char* szLast : {"Step: 600, Focus", "Step: 120, Focus", "Step: 24, Focus"}) {
    EXPECT_EQ(Count(Printed(tResult), szLast), 1U) << szLast << Tale(tResult);
  }
}

// One switch powers the sensors of both axes.  It stays on if one axis ends in the instant in which the other begins.
TEST(Focus, SensorsStayOnForTheOtherAxis) {
  const TCamera tCamera("quad");
  for (u64 qw = 0; qw < Lives(100); qw++) {
    const TLifeResult tResult = Life_Run({.sRoot = tCamera.sRoot, .qwSeed = FirstSeed() + qw, .fnBody = [](TWorld* pt) {
                                            static const auto fnEnd = [](void*) -> void* {
                                              const i32 fd = open(g_tZoomAxis.szDevice, O_WRONLY);
                                              PISearch_End(g_tZoomAxis, fd);
                                              return nullptr;
                                            };
                                            g_tVernierLensdConfigInfo.bFocusPIDone = 1;
                                            pthread_t tEnd;
                                            pthread_create(&tEnd, nullptr, fnEnd, nullptr);
                                            PISearch_Begin(g_tFocusAxis, open(g_tFocusAxis.szDevice, O_WRONLY));
                                            pthread_join(tEnd, nullptr);
                                            return pt->tLens.bPIPower != 0 ? 0 : 1;
                                          }});
    ASSERT_TRUE(tResult.eEnd == LIFE_EXITED && tResult.iStatus == 0) << "seed " << FirstSeed() + qw << Tale(tResult);
  }
}

TEST(Buttons, HeldTimeChoosesTheAction) {
  const struct {
    const char* szModel;
    u64 qwHeld_ms;
    const char* szAction;  // null: none
  } atCases[] = {
      {"zoom", 1, "0 seconds. Perform auto focus..."},
      {"zoom", 2000, "0 seconds. Perform auto focus..."},
      {"zoom", 2001, "2 seconds. Perform focus scan..."},
      {"focus", 2001, "2 seconds. Perform resetfocus..."},
      {"zoom", 0, nullptr},
      {"zoomonly", 2001, nullptr},
  };
  for (const auto& tCase : atCases) {
    SCOPED_TRACE(std::string(tCase.szModel) + " " + std::to_string(tCase.qwHeld_ms));
    const TCamera tCamera(tCase.szModel);
    const TLifeResult tResult =
        Live(tCamera,
             {Frame(20'000, tCamera, Button("af", "pressed")),
              Frame(20'000 + tCase.qwHeld_ms, tCamera, Button("af", "released")), Ask(150'000, szStatus)},
             151'000);
    ExpectRest(tCamera, tResult);
    const std::string sLine = "Press AF button over ";
    EXPECT_EQ(Count(Printed(tResult), sLine), tCase.szAction != nullptr ? 1U : 0U) << Tale(tResult);
    if (tCase.szAction != nullptr) {
      EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : " + sLine + tCase.szAction)) << Tale(tResult);
    }
  }
}

TEST(State, StatusFileChoosesWhatIsDue) {
  const struct {
    const char* szText;   // null: no file
    const char* szEvent;  // payload that the daemon sends itself, "" none
    const char* szAfter;
  } atCases[] = {{nullptr, "falling", "normal\n"},   {"restore\n", "falling", "normal\n"},
                 {"backup\n", "rising", "normal\n"}, {"backup", "", "backup"},
                 {"normal\n", "", "normal\n"},       {"", "", ""}};
  for (const auto& tCase : atCases) {
    SCOPED_TRACE(tCase.szText == nullptr ? "none" : tCase.szText);
    const TCamera tCamera("zoom");
    tCamera.Write(szBackupPath, "nothing\nzoom_motor=321\nfocus_motor=400\n");
    unlink(tCamera.Path(szStatusPath).c_str());
    if (tCase.szText != nullptr) tCamera.Write(szStatusPath, tCase.szText);
    const TLifeResult tResult = Live(tCamera, {Ask(100'000, szStatus)}, 101'000);
    ExpectRest(tCamera, tResult);
    EXPECT_EQ(tCamera.Read(szStatusPath), tCase.szAfter);
    const std::string sReceived = "[vernierlensd] : Receive FIFO command: <message><autofocus>";
    const std::string sEvent = tCase.szEvent;
    EXPECT_EQ(Count(Printed(tResult), sReceived), sEvent.empty() ? 0U : 1U) << Tale(tResult);
    EXPECT_GE(Count(Printed(tResult), sReceived + sEvent), sEvent.empty() ? 0U : 1U) << Tale(tResult);
    EXPECT_EQ(tCamera.Truth(LENS_ZOOM) == 321, sEvent == "rising");
  }
}

// An earlier life has left its logs.  The lens is repaired even if a client's command comes first and replaces the
// recovery, or itself needs a true position.
TEST(State, StaleLogIsRepairedWhateverAClientDoesFirst) {
  const char* const aszQueries[] = {szStatus,
                                    "function=stop",
                                    "function=auto",
                                    "function=irisopen",
                                    "function=irisenable",
                                    "function=setfocusdefault&defaultposition=100",
                                    "function=zoom&direction=direct&position=300",
                                    "function=focus&direction=forward&steps=3"};
  for (const char* szModel : {"zoom", "zoomonly", "focus", "thermal", "ics"}) {
    const TCamera tCamera(szModel);
    for (u64 qw = 0; qw < std::size(aszQueries) * Lives(10); qw++) {
      ASSERT_EQ(Life_ResetRoot(tCamera.sRoot), 0);
      const char* szQuery = aszQueries[qw % std::size(aszQueries)];
      const u64 qwSeed = FirstSeed() + qw;
      SCOPED_TRACE(std::string(szModel) + " " + szQuery + " seed " + std::to_string(qwSeed));
      for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) tCamera.Place(eAxis, 17);
      if (std::string_view(szModel) != "focus") tCamera.Write(szZoomLogPath, "");
      if (std::string_view(szModel) != "zoomonly") tCamera.Write(szFocusLogPath, "");
      const TLifeResult tResult =
          Live(tCamera, {Ask(qw / std::size(aszQueries) % 2, szQuery), Ask(120'000, szStatus)}, 121'000, qwSeed);
      EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Power loss unexpectedly! Need positioning."));
      if (std::string_view(szQuery) == "function=stop" && std::string_view(szModel) != "zoomonly") {
        EXPECT_TRUE(Exists(tCamera, szFocusLogPath)) << "no search after a stop";
        for (const char* szLog : {szZoomLogPath, szFocusLogPath}) unlink(tCamera.Path(szLog).c_str());
      }
      ExpectRest(tCamera, tResult);
      if (HasFailure()) break;
    }
  }
}

// No walk begins after SIGTERM: not that of a restore that waits when the signal comes, nor the next channel's search.
TEST(State, NoWalkBeginsAfterSigterm) {
  for (u64 qw = 0; qw < Lives(60); qw++) {
    const u64 qwSeed = FirstSeed() + qw;
    SCOPED_TRACE("seed " + std::to_string(qwSeed));
    const u64 qwTerm_ms = 5'005 + qwSeed * 37 % 300;
    const TCamera tZoom("zoom");
    const std::string sRestore = EventFrame("<message><autofocus>falling</autofocus></message>");
    const TLifeResult tRestore = Live(
        tZoom, {Ask(2'000, "function=auto"), Frame(5'000, tZoom, sRestore), Signal(qwTerm_ms, SIGTERM)}, 0, qwSeed);
    EXPECT_EQ(tRestore.eEnd, LIFE_EXITED) << Tale(tRestore);
    EXPECT_EQ(Count(SinceTerm(tRestore), "MOTOR_WALK_STEPS 12200"), 0U) << Tale(tRestore);
  }
  const TCamera tQuad("quad");
  tQuad.Write(szZoomLogPath, "");
  tQuad.Write(szFocusLogPath, "");
  const TLifeResult tSearch = Live(tQuad, {Signal(32'000, SIGTERM)}, 0);
  EXPECT_EQ(Count(SinceTerm(tSearch), " searching PI."), 0U) << Tale(tSearch);
}

// After the recovery of a lens with several channels each channel has its own values again, also for the image side.  A
// search then finds focus on each.
TEST(State, RecoveryServesEveryChannel) {
  const TCamera tCamera("quad");
  tCamera.Write(szPositionsPath, "zoom_motor=390\nfocus_motor=380\n");
  tCamera.Write(szZoomLogPath, "");
  tCamera.Write(szFocusLogPath, "");
  const TLifeResult tResult =
      Live(tCamera, {Ask(300'000, "channel=2&function=auto"), Ask(400'000, "channel=2&function=getstatus")}, 401'000);
  ExpectRest(tCamera, tResult, 2);
  EXPECT_LT(DepthsOff(tCamera, 2), 1) << Tale(tResult);
}

// Four searches of one axis may take longer than the other axis would wait for a single search.
TEST(State, RecoveryOfSlowMotorsWaitsForEachSearch) {
  const TCamera tCamera("quad");
  tCamera.Write(szZoomLogPath, "");
  tCamera.Write(szFocusLogPath, "");
  ReplaceInConfig(tCamera, "<onesteptime>2000", "<onesteptime>24000");
  ReplaceInConfig(tCamera, "<onestepsearchtime>[0-9]+", "$&0");
  ChangeWorld(tCamera, [](TWorld& tWorld) {
    for (TAxisModel& tAxis : tWorld.tLens.atModel) tAxis.qwStepTime_ns *= 12;
  });
  const TLifeResult tResult = Live(tCamera, {Ask(1'000'000, szStatus)}, 1'001'000);
  ExpectRest(tCamera, tResult);
  EXPECT_EQ(Count(Printed(tResult), "waiting too long"), 0U) << Tale(tResult);
}

// When a save fails, the daemon says so and goes on.  It keeps the old file, and the log for the next start.
TEST(State, FailedSaveKeepsFileAndLog) {
  for (const bool bFull : {true, false}) {
    const TCamera tCamera("zoom");
    const std::string sBefore = tCamera.Read(szPositionsPath) + "night_mode=0\n";  // as the start completes it
    const auto Break = [=](u32 bOn) {
      return [=](TWorld* ptWorld) { (bFull ? ptWorld->bFlashFull : ptWorld->bFlashReadOnly) = bOn; };
    };
    const TLifeResult tBad = Live(tCamera,
                                  {Call(3000, Break(1)), Ask(4000, "function=focus&direction=forward&steps=9"),
                                   Ask(8000, szStatus), Call(8100, Break(0))},
                                  8500);
    EXPECT_TRUE(HasPrinted(tBad, "[vernierlensd] : VernierLensd_SaveConfigFile failed.")) << Tale(tBad);
    EXPECT_EQ(StatusValue(tBad.asReplies[1], "focus_enable"), 0);
    EXPECT_EQ(tCamera.Read(szPositionsPath), sBefore);
    const TLifeResult tGood = Live(tCamera, {Ask(120'000, szStatus)}, 121'000);
    if (bFull) ExpectRest(tCamera, tGood);
  }
}

TEST(State, SavedFilesHaveTheirForm) {
  const struct {
    const char* szModel;
    const char* szQuery;
    const char* szPath;
    const char* szText;
  } atCases[] = {
      {"zoomonly", "function=zoom&direction=direct&position=111", szPositionsPath, "zoom_motor=111\n"},
      {"focus", "function=focus&direction=direct&position=111", szPositionsPath, "focus_motor=111\nnight_mode=0\n"},
      {"zoom", "function=focus&direction=direct&position=111", szPositionsPath,
       "zoom_motor=200\nfocus_motor=111\nnight_mode=0\n"},
      {"focus", "function=setfocusdefault&defaultposition=77", szFocusDefaultPath, "77\n"},
  };
  for (const auto& tCase : atCases) {
    const TCamera tCamera(tCase.szModel);
    const TLifeResult tResult = Live(tCamera, {Ask(20'000, tCase.szQuery), Ask(40'000, szStatus)}, 41'000);
    SCOPED_TRACE(tCase.szQuery);
    ExpectRest(tCamera, tResult);
    EXPECT_EQ(tCamera.Read(tCase.szPath), tCase.szText);
  }
}

TEST(Tracking, SearchStartRisesEvenWhereItsTableFalls) {
  static u32 adwTable[16] = {100, 130, 90};
  adwTable[14] = 700;
  adwTable[15] = 721;
  const struct {
    i32 iInterval;
    u32 dwZoom, dwStart;
  } atCases[] = {{7, 3, 112},    {7, 0, 100},    {7, 7, 130},     {7, 10, 147},
                 {10, 149, 718}, {10, 150, 721}, {10, 9999, 721}, {0, 1, 130}};
  static TVernierLensdInfo tInfo;
  tInfo.bSupportFocus = 1;
  g_pdwtabFocusingStartTable = adwTable;
  for (const auto& tCase : atCases) {
    g_tVernierLensdConfigInfo.iZoomPositionInterval = tCase.iInterval;
    VernierLensd_UpdateFocusingStart(&tInfo, tCase.dwZoom);
    EXPECT_EQ(tInfo.tFocusCommand.dwStart, tCase.dwStart) << tCase.iInterval << " " << tCase.dwZoom;
  }
  // A search that comes when a walk to the reference is taken but has not begun starts at the reference's bound too.
  tInfo.bSupportZoom = 1;
  Command_Write(&tInfo, g_tZoomAxis, {.iChannel = 1, .dwNumber = 1},
                [](TMotorCommand& tBlock) { Positioning_Write(g_tZoomAxis, &tBlock, FUNCTION_MOTORRESET); });
  Command_Take(&tInfo, g_tZoomAxis, ZoomPositioning_Taken);
  EXPECT_EQ(tInfo.tFocusCommand.dwStart, adwTable[0]);
  EXPECT_EQ(tInfo.adwSearchStart[1], adwTable[0]);
  g_pdwtabFocusingStartTable = nullptr;
}

// The first entry is that of zoom position 1.  A token that is too long still fills its own entry.
TEST(Tracking, TokenFillsItsEntryHoweverLong) {
  const TCamera tCamera("zoom");
  tCamera.Write(szPanFocusPath, std::string(140, '0') + " 310 330 350");
  ExpectRest(tCamera,
             Live(tCamera, {Ask(5'000, "function=zoom&direction=direct&position=3"), Ask(20'000, szStatus)}, 21'000));
  EXPECT_EQ(tCamera.Truth(LENS_FOCUS), 330);
}

// The focus follows every zoom.  If the walk cannot be interrupted, a stop right after a zoom leaves the focus where
// the whole zoom would have left it.  And of two zooms none is lost.
TEST(Tracking, FocusFollowsAZoomThatCannotBeStopped) {
  constexpr u64 qwAt_ms = 9'000;
  const char* szStep = "function=zoom&direction=forward&steps=10";
  const char* szStop = "function=stop";
  for (const char* szModel : {"thermal", "ics"}) {
    const TCamera tCamera(szModel);
    const double dStart = tCamera.Truth(LENS_ZOOM), dTarget = dStart + 200;
    const std::string sFar = "function=zoom&direction=direct&position=" + std::to_string(static_cast<i32>(dTarget));
    Live(tCamera, {Ask(qwAt_ms, sFar)}, 20'000);
    const double dSharp = tCamera.Truth(LENS_FOCUS);
    ASSERT_EQ(tCamera.Truth(LENS_ZOOM), dTarget);
    const std::vector<TLifeEvent> aatLives[] = {
        {Ask(qwAt_ms, sFar), Ask(qwAt_ms, szStop)},
        {Ask(qwAt_ms, sFar), Ask(qwAt_ms + 150, szStop)},
        {Ask(qwAt_ms, sFar), Ask(qwAt_ms, szStop), Ask(qwAt_ms + 50, "function=focus&direction=direct&position=950")},
        {Ask(qwAt_ms, szStep), Ask(qwAt_ms, szStep)}};
    for (u64 qw = 0; qw < Lives(120); qw++) {
      SCOPED_TRACE(std::string(szModel) + " seed " + std::to_string(FirstSeed() + qw));
      ASSERT_EQ(Life_ResetRoot(tCamera.sRoot), 0);
      const u64 qwLife = qw % std::size(aatLives);
      std::vector<TLifeEvent> atEvents = aatLives[qwLife];
      atEvents.push_back(Ask(20'000, szStatus));
      const TLifeResult tResult = Live(tCamera, atEvents, 21'000, FirstSeed() + qw);
      ExpectRest(tCamera, tResult);
      if (qwLife < 2 && tCamera.Truth(LENS_ZOOM) == dTarget) {
        EXPECT_EQ(tCamera.Truth(LENS_FOCUS), dSharp) << Tale(tResult);
      } else if (qwLife == 2) {
        EXPECT_EQ(tCamera.Truth(LENS_FOCUS), 950) << "what a client wants after the stop" << Tale(tResult);
      } else if (qwLife == 3) {
        // The second zoom may come before the first is taken, and then replaces it.
        const bool bBoth = Count(tResult.sTranscript, std::string("create ") + szZoomLogPath) > 1;
        EXPECT_EQ(tCamera.Truth(LENS_ZOOM), dStart + (bBoth ? 20 : 10)) << Tale(tResult);
      }
      if (HasFailure()) break;
    }
  }
}

}  // namespace
