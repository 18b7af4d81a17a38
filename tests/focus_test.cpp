// Auto focus, scan, zoom tracking, buttons, saved positions and recovery: whole lives, judged by the true lens.
#include <fcntl.h>

#include <csignal>

#include "autofocus/zoom_tracking.h"
#include "lens/lens_model.h"
#include "motor/command_box.h"
#include "motor/pi_search.h"
#include "motor/positioning.h"
#include "short_lives.h"

namespace {

// A scan may wait for the iris for seconds.  A stop that comes meanwhile counts for the zoom too.
TEST(Focus, StoppedScanLeavesTheZoomAlone) {
  const TCamera tCamera("zoom");
  ChangeWorld(tCamera, [](TWorld& tWorld) { tWorld.bImageSideSilent = 1; });
  const TLifeResult tResult = LiveToRest(tCamera, Asks("100 scan&iris=1, 1000 stop"), 60'000);
  EXPECT_EQ(Count(tResult.sTranscript, "zoommotor MOTOR_WALK"), 0U) << Tale(tResult);
}

// A zoom that comes right after a scan is the newer command, however far the start of the scan has got.
TEST(Focus, ZoomAfterAScanIsKept) {
  ForSeeds(200, [](u64 qwSeed) {
    const TCamera tCamera(qwSeed % 2 == 0 ? "zoom" : "thermal");
    const TLifeResult tResult = LiveToRest(tCamera, Asks("100 scan, 100 zoom=333"), 60'000, qwSeed);
    EXPECT_EQ(tCamera.Truth(LENS_ZOOM), 333) << Tale(tResult);
  });
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
  const auto LiveWith = [&](std::vector<TLifeEvent> atEvents, u64 qwEnd_ms) {
    EXPECT_EQ(Life_ResetRoot(tCamera.sRoot), 0);
    SetConfig(tCamera, "focus/onesteptime", "40000");  // a walk to the stop would take 26 s
    atEvents.insert(atEvents.begin(), Ask(100'000, "function=scan"));
    return Live(tCamera, atEvents, qwEnd_ms);
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
  LiveToRest(tCamera, Asks("5000 zoom=300, 20000 auto"), 100'000);
}

// All readings are equal: each level walks to its very end, and the first reading is the best.
TEST(Focus, FirstOfEqualReadingsAndTheWholeRange) {
  const TCamera tCamera("zoom");
  ChangeWorld(tCamera, [](TWorld& tWorld) { tWorld.bImageSideZero = 1; });
  const TLifeResult tResult = LiveToRest(tCamera, Asks("20000 auto"), 200'000);
  EXPECT_EQ(Count(Printed(tResult), "Best focus: 0, Motor position: 0.\n"), 3U) << Tale(tResult);
  for (const char* szLast : {"Step: 600, Focus", "Step: 120, Focus", "Step: 24, Focus"}) {
    EXPECT_EQ(Count(Printed(tResult), szLast), 1U) << szLast << Tale(tResult);
  }
}

// One switch powers the sensors of both axes.  It stays on if one axis ends in the instant in which the other begins.
TEST(Focus, SensorsStayOnForTheOtherAxis) {
  const TCamera tCamera("quad");
  const auto fnBody = [](TWorld* pt) {
    static const auto fnEnd = [](void*) -> void* {
      PISearch_End(g_tZoomAxis, open(g_tZoomAxis.szDevice, O_WRONLY));
      return nullptr;
    };
    g_tVernierLensdConfigInfo.bFocusPIDone = 1;
    pthread_t tEnd;
    pthread_create(&tEnd, nullptr, fnEnd, nullptr);
    PISearch_Begin(g_tFocusAxis, open(g_tFocusAxis.szDevice, O_WRONLY));
    pthread_join(tEnd, nullptr);
    return pt->tLens.bPIPower != 0 ? 0 : 1;
  };
  ForSeeds(100, [&](u64 qwSeed) {
    const TLifeResult tResult = Life_Run({.sRoot = tCamera.sRoot, .qwSeed = qwSeed, .fnBody = fnBody});
    EXPECT_TRUE(tResult.eEnd == LIFE_EXITED && tResult.iStatus == 0) << Tale(tResult);
  });
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
    const TLifeResult tResult = LiveToRest(tCamera,
                                           {Frame(20'000, tCamera, Button("af", "pressed")),
                                            Frame(20'000 + tCase.qwHeld_ms, tCamera, Button("af", "released"))},
                                           150'000);
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
    const TLifeResult tResult = LiveToRest(tCamera, {}, 100'000);
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
  const std::string asQueries[] = {"getstatus", "stop",       "auto",
                                   "irisopen",  "irisenable", "setfocusdefault&defaultposition=100",
                                   "zoom=300",  "focus+3"};
  for (const char* szModel : {"zoom", "zoomonly", "focus", "thermal", "ics"}) {
    const TCamera tCamera(szModel);
    for (u64 qw = 0; qw < std::size(asQueries) * Lives(10) && !HasFailure(); qw++) {
      ASSERT_EQ(Life_ResetRoot(tCamera.sRoot), 0);
      const std::string& sQuery = asQueries[qw % std::size(asQueries)];
      const u64 qwSeed = FirstSeed() + qw;
      SCOPED_TRACE(std::string(szModel) + " " + sQuery + " seed " + std::to_string(qwSeed));
      for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) tCamera.Place(eAxis, 17);
      if (std::string_view(szModel) != "focus") tCamera.Write(szZoomLogPath, "");
      if (std::string_view(szModel) != "zoomonly") tCamera.Write(szFocusLogPath, "");
      const std::string sAt_ms = qw / std::size(asQueries) % 2 == 0 ? "0 " : "1 ";
      const TLifeResult tResult = Live(tCamera, Asks(sAt_ms + sQuery + ", 120000 getstatus"), 121'000, qwSeed);
      EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Power loss unexpectedly! Need positioning."));
      if (sQuery == "stop" && std::string_view(szModel) != "zoomonly") {
        EXPECT_TRUE(Exists(tCamera, szFocusLogPath)) << "no search after a stop";
        for (const char* szLog : {szZoomLogPath, szFocusLogPath}) unlink(tCamera.Path(szLog).c_str());
      }
      ExpectRest(tCamera, tResult);
    }
  }
}

// No walk begins after SIGTERM: not that of a restore that waits when the signal comes, nor the next channel's search.
TEST(State, NoWalkBeginsAfterSigterm) {
  ForSeeds(60, [](u64 qwSeed) {
    const TCamera tZoom("zoom");
    const TLifeEvent tRestore = Frame(5'000, tZoom, EventFrame("<message><autofocus>falling</autofocus></message>"));
    const u64 qwTerm_ms = 5'005 + qwSeed * 37 % 300;
    const TLifeResult tResult = Live(tZoom, Asks("2000 auto", {tRestore}), qwTerm_ms, qwSeed);
    EXPECT_EQ(tResult.eEnd, LIFE_EXITED) << Tale(tResult);
    EXPECT_EQ(Count(SinceTerm(tResult), "MOTOR_WALK_STEPS 12200"), 0U) << Tale(tResult);
  });
  const TCamera tQuad("quad");
  tQuad.Write(szZoomLogPath, "");
  tQuad.Write(szFocusLogPath, "");
  const TLifeResult tSearch = Live(tQuad, {}, 32'000);
  EXPECT_EQ(Count(SinceTerm(tSearch), " searching PI."), 0U) << Tale(tSearch);
}

// After the recovery of a lens with several channels each channel has its own values again, also for the image side.  A
// search then finds focus on each.
TEST(State, RecoveryServesEveryChannel) {
  const TCamera tCamera("quad");
  tCamera.Write(szPositionsPath, "zoom_motor=390\nfocus_motor=380\n");
  tCamera.Write(szZoomLogPath, "");
  tCamera.Write(szFocusLogPath, "");
  const TLifeResult tResult = Live(tCamera, Asks("300000 channel=2&auto, 400000 channel=2&getstatus"), 401'000);
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
  const TLifeResult tResult = LiveToRest(tCamera, {}, 1'000'000);
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
    const auto atEvents = Asks("4000 focus+9, 8000 getstatus", {Call(3000, Break(1)), Call(8100, Break(0))});
    const TLifeResult tBad = Live(tCamera, atEvents, 8500);
    EXPECT_TRUE(HasPrinted(tBad, "[vernierlensd] : VernierLensd_SaveConfigFile failed.")) << Tale(tBad);
    EXPECT_EQ(StatusValue(tBad.asReplies[1], "focus_enable"), 0);
    EXPECT_EQ(tCamera.Read(szPositionsPath), sBefore);
    const TLifeResult tGood = Live(tCamera, {Ask(120'000, szStatus)}, 121'000);
    if (bFull) ExpectRest(tCamera, tGood);
  }
}

TEST(State, SavedFilesHaveTheirForm) {
  const struct {
    const char *szModel, *szAsks, *szPath, *szText;
  } atCases[] = {
      {"zoomonly", "20000 zoom=111", szPositionsPath, "zoom_motor=111\n"},
      {"focus", "20000 focus=111", szPositionsPath, "focus_motor=111\nnight_mode=0\n"},
      {"zoom", "20000 focus=111", szPositionsPath, "zoom_motor=200\nfocus_motor=111\nnight_mode=0\n"},
      {"focus", "20000 setfocusdefault&defaultposition=77", szFocusDefaultPath, "77\n"},
  };
  for (const auto& tCase : atCases) {
    SCOPED_TRACE(tCase.szAsks);
    const TCamera tCamera(tCase.szModel);
    LiveToRest(tCamera, Asks(tCase.szAsks), 40'000);
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
  LiveToRest(tCamera, Asks("5000 zoom=3"), 20'000);
  EXPECT_EQ(tCamera.Truth(LENS_FOCUS), 330);
}

// The focus follows every zoom.  If the walk cannot be interrupted, a stop right after a zoom leaves the focus where
// the whole zoom would have left it.  And of two zooms none is lost.
TEST(Tracking, FocusFollowsAZoomThatCannotBeStopped) {
  for (const char* szModel : {"thermal", "ics"}) {
    const TCamera tCamera(szModel);
    const double dStart = tCamera.Truth(LENS_ZOOM), dTarget = dStart + 200;
    const std::string sFar = "9000 zoom=" + std::to_string(static_cast<i32>(dTarget));
    Live(tCamera, Asks(sFar), 20'000);
    const double dSharp = tCamera.Truth(LENS_FOCUS);
    ASSERT_EQ(tCamera.Truth(LENS_ZOOM), dTarget);
    const std::string asLives[] = {sFar + ", 9000 stop", sFar + ", 9150 stop", sFar + ", 9000 stop, 9050 focus=950",
                                   "9000 zoom+10, 9000 zoom+10"};
    ForSeeds(120, [&](u64 qwSeed) {
      SCOPED_TRACE(szModel);
      ASSERT_EQ(Life_ResetRoot(tCamera.sRoot), 0);
      const u64 qwLife = qwSeed % std::size(asLives);
      const TLifeResult tResult = LiveToRest(tCamera, Asks(asLives[qwLife]), 20'000, qwSeed);
      if (qwLife < 2 && tCamera.Truth(LENS_ZOOM) == dTarget) {
        EXPECT_EQ(tCamera.Truth(LENS_FOCUS), dSharp) << Tale(tResult);
      } else if (qwLife == 2) {
        EXPECT_EQ(tCamera.Truth(LENS_FOCUS), 950) << "what a client wants after the stop" << Tale(tResult);
      } else if (qwLife == 3) {
        // The second zoom may come before the first is taken, and then replaces it.
        const bool bBoth = Count(tResult.sTranscript, std::string("create ") + szZoomLogPath) > 1;
        EXPECT_EQ(tCamera.Truth(LENS_ZOOM), dStart + (bBoth ? 20 : 10)) << Tale(tResult);
      }
    });
  }
}

}  // namespace
