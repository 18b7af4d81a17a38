// Auto focus, scan, zoom tracking, buttons, saved positions and recovery: whole lives, judged by the true lens.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <filesystem>

#include "autofocus/zoom_tracking.h"
#include "camera/world_image.h"
#include "config/saved_state.h"
#include "support.h"

namespace {

constexpr const char* szPositions = "/etc/conf.d/vernierlensd/vernierlensd.conf";
constexpr const char* szStatusFile = "/mnt/flash/.VernierlensStatus";
constexpr const char* szZoomLog = "/etc/conf.d/vernierlensd/zoomworking.log";
constexpr const char* szFocusLog = "/etc/conf.d/vernierlensd/focusworking.log";
constexpr const char* szStatus = "function=getstatus";

bool Exists(const TCamera& tCamera, const char* szPath) {
  return access(tCamera.Path(szPath).c_str(), F_OK) == 0;
}

// Ended in order, idle, believed equals true, and neither working log is left.
void ExpectRest(const TCamera& tCamera, const TLifeResult& tResult) {
  EXPECT_EQ(tResult.eEnd, LIFE_EXITED) << Tale(tResult);
  EXPECT_EQ(tResult.iStatus, 0) << Tale(tResult);
  ASSERT_FALSE(tResult.asReplies.empty());
  const std::string& sStatus = tResult.asReplies.back();
  const struct {
    const char* szKey;
    ELensAxis eAxis;
  } atAxes[] = {{"zoom", LENS_ZOOM}, {"focus", LENS_FOCUS}};
  for (const auto& tAxis : atAxes) {
    const i32 iBelieved = StatusValue(sStatus, std::string(tAxis.szKey) + "_motor");
    if (iBelieved < 0) continue;
    EXPECT_EQ(StatusValue(sStatus, std::string(tAxis.szKey) + "_enable"), 0) << tAxis.szKey << Tale(tResult);
    EXPECT_EQ(iBelieved, tCamera.Truth(tAxis.eAxis)) << tAxis.szKey << Tale(tResult);
  }
  EXPECT_FALSE(Exists(tCamera, szZoomLog)) << Tale(tResult);
  EXPECT_FALSE(Exists(tCamera, szFocusLog)) << Tale(tResult);
}

// How far the glass stands from sharp, in depths of focus.
double DepthsOff(const TCamera& tCamera) {
  TWorld* ptWorld = World_Map(tCamera.sRoot.c_str());
  const double dOff = Lens_GlassVirtual(&ptWorld->tLens, 0, LENS_FOCUS) - World_SharpFocus(ptWorld, 0);
  const double dDepths = std::fabs(dOff) / World_DepthOfFocus(ptWorld, 0);
  World_Unmap(ptWorld);
  return dDepths;
}

TEST(Focus, AutoFocusAndScanFindTheSharpPlace) {
  const struct {
    const char* szModel;
    const char* szFunction;
    double dDistance;
  } atCases[] = {{"zoom", "function=auto", 3},
                 {"zoom", "function=scan&iris", 3},
                 {"zoom", "function=auto", 40},
                 {"focus", "function=auto&iris=1", 2},
                 {"focus", "function=scan", 9}};
  for (const auto& tCase : atCases) {
    const TCamera tCamera(tCase.szModel);
    TWorld* ptWorld = World_Map(tCamera.sRoot.c_str());
    ptWorld->dDistance_m = tCase.dDistance;
    World_Unmap(ptWorld);
    const TLifeResult tResult = Live(tCamera, {Ask(20'000, tCase.szFunction), Ask(200'000, szStatus)}, 201'000);
    SCOPED_TRACE(std::string(tCase.szModel) + " " + tCase.szFunction);
    ExpectRest(tCamera, tResult);
    EXPECT_LT(DepthsOff(tCamera), 1) << Tale(tResult);
    EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Start second-level searching..."));
  }
}

// What a stop, a zoom or the end does to a search: it ends within a step, the counter stays true, and the zoom's own
// focus move wins.
TEST(Focus, SearchGivesWay) {
  const struct {
    const char* szName;
    std::vector<TLifeEvent> atEvents;
  } atCases[] = {
      {"stop", {Ask(100, "function=auto"), Ask(4000, "function=stop"), Ask(9000, szStatus)}},
      {"zoom",
       {Ask(100, "function=auto"), Ask(4000, "function=zoom&direction=direct&position=300"), Ask(12'000, szStatus)}},
      {"scan in its reference walk", {Ask(100, "function=scan"), Ask(1500, "function=stop"), Ask(20'000, szStatus)}},
      {"reference walk, then a move",
       {Ask(100, "function=motorreset"), Ask(900, "function=focus&direction=direct&position=333"),
        Ask(40'000, szStatus)}},
      {"auto stops a zoom",
       {Ask(100, "function=zoom&direction=direct&position=700"), Ask(1500, "function=auto"), Ask(90'000, szStatus)}},
  };
  for (const auto& tCase : atCases) {
    const TCamera tCamera("zoom");
    const TLifeResult tResult = Live(tCamera, tCase.atEvents, tCase.atEvents.back().qwAt_us / 1000 + 500);
    SCOPED_TRACE(tCase.szName);
    ExpectRest(tCamera, tResult);
  }
}

TEST(Focus, SigtermEndsEverythingInTime) {
  const char* const aszQueries[] = {"function=auto&iris=1", "function=scan", "function=positioning",
                                    "function=irisopen"};
  for (const char* szQuery : aszQueries) {
    for (const bool bSilent : {false, true}) {
      const TCamera tCamera("zoom");
      TWorld* ptWorld = World_Map(tCamera.sRoot.c_str());
      ptWorld->bImageSideSilent = bSilent ? 1 : 0;
      World_Unmap(ptWorld);
      const TLifeResult tResult = Live(tCamera, {Ask(100, szQuery)}, 2000);
      EXPECT_EQ(tResult.eEnd, LIFE_EXITED) << szQuery << Tale(tResult);
      EXPECT_LT(tResult.qwTime_us, 2'000'000 + 12'200 * 500 + 5'000'000U) << szQuery << bSilent << Tale(tResult);
    }
  }
}

struct TButtonCase {
  const char* szModel;
  u64 qwHeld_ms;
  const char* szLine;
};

TEST(Buttons, HeldTimeChoosesTheAction) {
  const TButtonCase atCases[] = {
      {"zoom", 1, "[vernierlensd] : Press AF button over 0 seconds. Perform auto focus..."},
      {"zoom", 2000, "[vernierlensd] : Press AF button over 0 seconds. Perform auto focus..."},
      {"zoom", 2001, "[vernierlensd] : Press AF button over 2 seconds. Perform focus scan..."},
      {"focus", 2001, "[vernierlensd] : Press AF button over 2 seconds. Perform resetfocus..."},
      {"zoom", 0, nullptr},
      {"zoomonly", 2001, nullptr},
  };
  for (const TButtonCase& tCase : atCases) {
    const TCamera tCamera(tCase.szModel);
    const TLifeResult tResult =
        Live(tCamera,
             {Frame(20'000, tCamera, EventFrame("<message><afbutton>pressed</afbutton></message>")),
              Frame(20'000 + tCase.qwHeld_ms, tCamera, EventFrame("<message><afbutton>released</afbutton></message>")),
              Ask(150'000, szStatus)},
             151'000);
    SCOPED_TRACE(std::string(tCase.szModel) + " " + std::to_string(tCase.qwHeld_ms));
    ExpectRest(tCamera, tResult);
    EXPECT_EQ(Printed(tResult).find("Press AF button") != std::string::npos, tCase.szLine != nullptr);
    if (tCase.szLine != nullptr) {
      EXPECT_TRUE(HasPrinted(tResult, tCase.szLine)) << Tale(tResult);
    }
  }
}

struct TStatusCase {
  const char* szText;   // null: no file
  const char* szEvent;  // payload that the daemon sends itself, null none
  const char* szAfter;
};

TEST(State, StatusFileChoosesWhatIsDue) {
  const TStatusCase atCases[] = {{nullptr, "falling", "normal\n"},   {"restore\n", "falling", "normal\n"},
                                 {"backup\n", "rising", "normal\n"}, {"backup", nullptr, "backup"},
                                 {"normal\n", nullptr, "normal\n"},  {"", nullptr, ""}};
  for (const TStatusCase& tCase : atCases) {
    const TCamera tCamera("zoom");
    tCamera.Write("/etc/conf.d/vernierlensd/vernierlensd_backup.conf", "nothing\nzoom_motor=321\nfocus_motor=400\n");
    if (tCase.szText != nullptr) tCamera.Write(szStatusFile, tCase.szText);
    if (tCase.szText == nullptr) unlink(tCamera.Path(szStatusFile).c_str());
    const TLifeResult tResult = Live(tCamera, {Ask(100'000, szStatus)}, 101'000);
    SCOPED_TRACE(tCase.szText == nullptr ? "none" : tCase.szText);
    ExpectRest(tCamera, tResult);
    EXPECT_EQ(tCamera.Read(szStatusFile), tCase.szAfter);
    const std::string sReceived = "[vernierlensd] : Receive FIFO command: <message><autofocus>";
    EXPECT_EQ(Printed(tResult).find(sReceived + (tCase.szEvent != nullptr ? tCase.szEvent : "")) != std::string::npos,
              tCase.szEvent != nullptr);
    if (tCase.szText != nullptr && std::string_view(tCase.szText) == "backup\n") {
      EXPECT_EQ(tCamera.Truth(LENS_ZOOM), 321);
    }
  }
}

TEST(State, RestoreOfFourChannelsReferencesEach) {
  const TCamera tCamera("quad");
  tCamera.Write(szStatusFile, "restore\n");
  const TLifeResult tResult =
      Live(tCamera, {Ask(400'000, "channel=3&function=getstatus"), Ask(400'001, szStatus)}, 401'000);
  ExpectRest(tCamera, tResult);
  for (i32 iChannel = 0; iChannel < 4; iChannel++) EXPECT_EQ(tCamera.Truth(LENS_ZOOM, iChannel), 0) << iChannel;
  EXPECT_EQ(StatusValue(tResult.asReplies[0], "focus_motor"), tCamera.Truth(LENS_FOCUS, 3));
}

// Logs that an earlier life has left: the lens is repaired although a client comes first, whose command takes the
// recovery's place in the block or itself needs a true counter.
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
      if (std::string_view(szModel) != "focus") tCamera.Write(szZoomLog, "");
      if (std::string_view(szModel) != "zoomonly") tCamera.Write(szFocusLog, "");
      const TLifeResult tResult =
          Live(tCamera, {Ask(qw / std::size(aszQueries) % 2, szQuery), Ask(120'000, szStatus)}, 121'000, qwSeed);
      EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Power loss unexpectedly! Need positioning."));
      ExpectRest(tCamera, tResult);
      if (HasFailure()) break;
    }
  }
}

// Nothing is begun behind SIGTERM: not by a restore whose wait the signal falls into, not behind the search of another
// channel.
TEST(State, NoWalkIsBegunBehindTheEnd) {
  for (u64 qw = 0; qw < Lives(60); qw++) {
    const u64 qwSeed = FirstSeed() + qw;
    SCOPED_TRACE("seed " + std::to_string(qwSeed));
    const u64 qwTerm_ms = 5'005 + qwSeed * 37 % 300;
    const TCamera tZoom("zoom");
    const std::string sRestore = EventFrame("<message><autofocus>falling</autofocus></message>");
    const TLifeResult tRestore = Live(
        tZoom, {Ask(2'000, "function=auto"), Frame(5'000, tZoom, sRestore), Signal(qwTerm_ms, SIGTERM)}, 0, qwSeed);
    EXPECT_EQ(tRestore.eEnd, LIFE_EXITED) << Tale(tRestore);
    const std::string sBehind = tRestore.sTranscript.substr(tRestore.sTranscript.find("Receive TERM"));
    EXPECT_EQ(sBehind.find("MOTOR_WALK_STEPS 12200"), sBehind.npos) << Tale(tRestore);
  }
  const TCamera tQuad("quad");
  tQuad.Write(szZoomLog, "");
  tQuad.Write(szFocusLog, "");
  const TLifeResult tSearch = Live(tQuad, {Signal(32'000, SIGTERM)}, 0);
  const std::string sBehind = tSearch.sTranscript.substr(tSearch.sTranscript.find("Receive TERM"));
  EXPECT_EQ(sBehind.find(" searching PI."), sBehind.npos) << Tale(tSearch);
}

// Behind the recovery of a lens with several channels each one's words are its own again, for the image side too, and a
// search finds focus on each.
TEST(State, RecoveryServesEveryChannel) {
  const TCamera tCamera("quad");
  tCamera.Write(szPositions, "zoom_motor=390\nfocus_motor=380\n");
  tCamera.Write(szZoomLog, "");
  tCamera.Write(szFocusLog, "");
  const TLifeResult tResult =
      Live(tCamera, {Ask(300'000, "channel=2&function=auto"), Ask(400'000, "channel=2&function=getstatus")}, 401'000);
  EXPECT_EQ(StatusValue(tResult.asReplies.back(), "focus_motor"), tCamera.Truth(LENS_FOCUS, 2)) << Tale(tResult);
  TWorld* ptWorld = World_Map(tCamera.sRoot.c_str());
  const double dOff = Lens_GlassVirtual(&ptWorld->tLens, 2, LENS_FOCUS) - World_SharpFocus(ptWorld, 2);
  EXPECT_LT(std::fabs(dOff), World_DepthOfFocus(ptWorld, 2)) << Tale(tResult);
  World_Unmap(ptWorld);
}

// The flash fails: the daemon goes on, says so, keeps the old file, and leaves the log for the next start to act on.
TEST(State, FailedSaveKeepsFileAndLog) {
  for (const bool bFull : {true, false}) {
    const TCamera tCamera("zoom");
    const std::string sBefore = tCamera.Read(szPositions) + "night_mode=0\n";  // as the start completes it
    const auto Break = [=](u32 bOn) {
      return [=](TWorld* ptWorld) { (bFull ? ptWorld->bFlashFull : ptWorld->bFlashReadOnly) = bOn; };
    };
    const TLifeResult tBad = Live(tCamera,
                                  {Call(3000, Break(1)), Ask(4000, "function=focus&direction=forward&steps=9"),
                                   Ask(8000, szStatus), Call(8100, Break(0))},
                                  8500);
    EXPECT_TRUE(HasPrinted(tBad, "[vernierlensd] : VernierLensd_SaveConfigFile failed.")) << Tale(tBad);
    EXPECT_EQ(StatusValue(tBad.asReplies[1], "focus_enable"), 0);
    EXPECT_EQ(tCamera.Read(szPositions), sBefore);
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
      {"zoomonly", "function=zoom&direction=direct&position=111", szPositions, "zoom_motor=111\n"},
      {"focus", "function=focus&direction=direct&position=111", szPositions, "focus_motor=111\nnight_mode=0\n"},
      {"zoom", "function=focus&direction=direct&position=111", szPositions,
       "zoom_motor=200\nfocus_motor=111\nnight_mode=0\n"},
      {"focus", "function=setfocusdefault&defaultposition=77", "/etc/conf.d/vernierlensd/focus_default", "77\n"},
  };
  for (const auto& tCase : atCases) {
    const TCamera tCamera(tCase.szModel);
    const TLifeResult tResult = Live(tCamera, {Ask(20'000, tCase.szQuery), Ask(40'000, szStatus)}, 41'000);
    SCOPED_TRACE(tCase.szQuery);
    ExpectRest(tCamera, tResult);
    EXPECT_EQ(tCamera.Read(tCase.szPath), tCase.szText);
  }
}

TEST(Tracking, StartBoundAddsTheMagnitude) {
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
  g_pdwtabFocusingStartTable = nullptr;
}

// No zoom move is made alone: where a walk cannot be interrupted, a stop close behind a zoom leaves the focus where the
// whole zoom would have left it.  And of two zooms none is lost.
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
        EXPECT_EQ(tCamera.Truth(LENS_FOCUS), 950) << "what a client wishes behind the stop" << Tale(tResult);
      } else if (qwLife == 3) {
        // The second may come before the first is taken, and then takes its place.
        const bool bBoth = tResult.sTranscript.find("create " + std::string(szZoomLog)) !=
                           tResult.sTranscript.rfind("create " + std::string(szZoomLog));
        EXPECT_EQ(tCamera.Truth(LENS_ZOOM), dStart + (bBoth ? 20 : 10)) << Tale(tResult);
      }
      if (HasFailure()) break;
    }
  }
}

}  // namespace
