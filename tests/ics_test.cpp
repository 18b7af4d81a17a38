// The ICS lens: whole lives against its simulated driver, judged by where its axes really are and by the transcript.
#include <gtest/gtest.h>

#include <cmath>
#include <regex>

#include "camera/world_image.h"
#include "support.h"

namespace {

constexpr const char* szPositions = "/etc/conf.d/vernierlensd/ics.conf";
constexpr const char* szStatus = "function=getstatus";
constexpr u64 qwReady_ms = 8'000;

TLifeEvent Change(u64 qwAt_ms, std::function<void(TWorld*)> fnCall) {
  return Call(qwAt_ms, std::move(fnCall));
}

// The driver's requests and the sleeps between them, in short: "GET_ZOOM_SPEED, SLEEP 1200, ...", those of one thread.
std::string Story(const TLifeResult& tResult, const std::string& sThread) {
  std::string sStory;
  std::istringstream tLines(tResult.sTranscript);
  u64 qwSlept_ms = 0;
  for (std::string sLine; std::getline(tLines, sLine);) {
    std::smatch tMatch;
    if (std::regex_search(sLine, tMatch, std::regex("^ *[0-9.]+ " + sThread + " +sleep ([0-9.]+)"))) {
      qwSlept_ms += static_cast<u64>(std::llround(std::stod(tMatch[1]) / 1000));
      continue;
    }
    if (!std::regex_search(sLine, tMatch, std::regex("^ *[0-9.]+ " + sThread + " +icsdriver ICS_([A-Z_]+)"))) continue;
    if (qwSlept_ms > 0) sStory += "SLEEP " + std::to_string(qwSlept_ms) + ", ";
    qwSlept_ms = 0;
    sStory += tMatch[1].str() + ", ";
  }
  return sStory;
}

// In order, idle, and each axis is where the daemon says.
void ExpectRest(const TCamera& tCamera, const TLifeResult& tResult) {
  EXPECT_EQ(tResult.eEnd, LIFE_EXITED) << Tale(tResult);
  EXPECT_EQ(tResult.iStatus, 0) << Tale(tResult);
  ASSERT_FALSE(tResult.asReplies.empty());
  for (const TAxis* ptAxis : {&g_tZoomAxis, &g_tFocusAxis}) {
    const std::string sKey = ptAxis == &g_tZoomAxis ? "zoom" : "focus";
    EXPECT_EQ(StatusValue(tResult.asReplies.back(), sKey + "_motor"), tCamera.Truth(LensAxisOf(*ptAxis)))
        << sKey << Tale(tResult);
    EXPECT_EQ(StatusValue(tResult.asReplies.back(), sKey + "_enable"), 0) << sKey << Tale(tResult);
  }
}

TEST(ICS, SetUpAndRestoreInTheirOrder) {
  const TCamera tCamera("ics");
  const TLifeResult tResult = Live(tCamera, {Ask(qwReady_ms, szStatus)}, qwReady_ms + 500);
  ExpectRest(tCamera, tResult);
  EXPECT_EQ(tCamera.Truth(LENS_ZOOM), 600);
  EXPECT_EQ(tCamera.Truth(LENS_FOCUS), 1215);
  EXPECT_TRUE(
      Story(tResult, "main")
          .starts_with(
              "GET_ZOOM_SPEED, SET_ZOOM_SPEED, GET_FOCUS_SPEED, SET_FOCUS_SPEED, GET_ZOOM_HOME, SET_ZOOM_POSITION, "
              "GET_FOCUS_HOME, SET_FOCUS_POSITION, GET_ZOOM_MIN, GET_ZOOM_MAX, GET_ZOOM_PI_POSITION, GET_FOCUS_MIN, "
              "GET_FOCUS_MAX, GET_FOCUS_PI_POSITION, INIT_STEP_A, INIT_STEP_B, SET_ZOOM_POSITION, SLEEP 1200, "
              "SET_FOCUS_POSITION, SLEEP 1500, GET_MIN_AD, GET_MAX_AD, "))
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

// What each axis's thread asks of the driver for a command, and how long it waits: the focus from 1215 and its sensor's
// 400 at 2500 steps a second, the zoom from 600 and its sensor's 300 at 2000.
TEST(ICS, CommandsInTheirOrder) {
  const std::string sToPI = "GET_FOCUS_PI_POSITION, SET_FOCUS_POSITION, SLEEP 326, GET_FOCUS_POSITION, ";
  const std::string sZoomToPI = "GET_ZOOM_PI_POSITION, SET_ZOOM_POSITION, SLEEP 150, GET_ZOOM_POSITION, ";
  const std::string sStep = "SET_FOCUS_POSITION, GET_FOCUS_POSITION, SLEEP 150, GET_FOCUS_POSITION, SLEEP 120, ";
  const std::string sSweep =
      "SLEEP 500, SET_FOCUS_POSITION, SLEEP 120, GET_FOCUS_POSITION, SLEEP 1000, " + sStep + sStep;
  const struct {
    const char* szQuery;
    std::string sFocus, sZoom;
  } atCases[] = {
      {"function=positioning", sToPI + sSweep, sZoomToPI + "SET_ZOOM_POSITION, SLEEP 100, GET_ZOOM_POSITION, "},
      {"function=motorreset", sToPI, sZoomToPI + "SET_ZOOM_POSITION, SLEEP 100, GET_ZOOM_POSITION, "},
      {"function=scan", sToPI + sSweep, sZoomToPI + "SET_ZOOM_POSITION, SLEEP 150, GET_ZOOM_POSITION, "},
      {"function=focus&direction=direct&position=2000", "SET_FOCUS_POSITION, SLEEP 314, GET_FOCUS_POSITION, ", ""},
      {"function=focus&direction=forward&steps=99", "SET_FOCUS_POSITION, SLEEP 12, GET_FOCUS_POSITION, ", ""},
      {"function=zoom&direction=direct&position=900", "SET_FOCUS_POSITION, SLEEP 137, GET_FOCUS_POSITION, ",
       "SLEEP 300, SET_ZOOM_POSITION, SLEEP 150, GET_ZOOM_POSITION, "},
      {"function=stop", "", ""},
  };
  for (const auto& tCase : atCases) {
    const TCamera tCamera("ics");
    const TLifeResult tResult = Live(tCamera, {Ask(qwReady_ms, tCase.szQuery)}, 100'000);
    const std::string sBegin = "GET_AD_VALUE, SLEEP 1, CHECK_DETACHED, ";  // of the thread
    EXPECT_TRUE(Story(tResult, "t1").starts_with(sBegin + (tCase.sFocus.empty() ? "CHECK_DETACHED, " : tCase.sFocus)))
        << tCase.szQuery << "\n"
        << Story(tResult, "t1").substr(0, 600);
    EXPECT_EQ(Story(tResult, "t2"), tCase.sZoom) << tCase.szQuery;
  }
}

// Every request but the one that is made without it.
TEST(ICS, RequestsAreMadeUnderTheMutex) {
  const TCamera tCamera("ics");
  const TLifeResult tResult = Live(tCamera,
                                   {Ask(qwReady_ms, "function=zoom&direction=direct&position=900"),
                                    Ask(20'000, "function=scan"), Ask(80'000, "function=positioning")},
                                   140'000);
  std::istringstream tLines(tResult.sTranscript);
  u32 dwLocked = 0;
  for (std::string sLine; std::getline(tLines, sLine);) {
    if (sLine.find("icsdriver ICS_") == sLine.npos) continue;
    const bool bCheck = sLine.find("ICS_CHECK_DETACHED") != sLine.npos;
    EXPECT_EQ(sLine.ends_with(" locked"), !bCheck) << sLine;
    dwLocked += bCheck ? 0 : 1;
  }
  EXPECT_GT(dwLocked, 100U);
}

TEST(ICS, MovesGoWhereTheyShould) {
  const struct {
    const char* szQuery;
    i32 iZoom, iFocus;  // below 0: wherever it is sharp
  } atCases[] = {
      {"function=focus&direction=direct&position=2000", 600, 2000},
      {"function=focus&direction=direct&position=90000", 600, 3000},
      {"function=focus&direction=direct&position=-1", 600, 100},
      {"function=focus&direction=forward&steps=20", 600, 1235},
      {"function=zoom&direction=direct&position=5", 100, 748},  // along curve 0
      {"function=zoom&direction=direct&position=2100", 2100, 2388},
      {"function=motorreset", 100, 400},
      {"function=resetfocus", 600, 1215},
      {"function=auto", 600, -1},
      {"function=scan", 600, -1},
  };
  for (const auto& tCase : atCases) {
    SCOPED_TRACE(tCase.szQuery);
    const TCamera tCamera("ics");
    const TLifeResult tResult = Live(tCamera, {Ask(qwReady_ms, tCase.szQuery), Ask(120'000, szStatus)}, 121'000);
    ExpectRest(tCamera, tResult);
    EXPECT_EQ(tCamera.Truth(LENS_ZOOM), tCase.iZoom) << Tale(tResult);
    EXPECT_TRUE(tCase.iFocus < 0 || tCamera.Truth(LENS_FOCUS) == tCase.iFocus)
        << tCamera.Truth(LENS_FOCUS) << Tale(tResult);
    TWorld* ptWorld = World_Map(tCamera.sRoot.c_str());
    const double dOff = tCamera.Truth(LENS_FOCUS) - World_SharpFocus(ptWorld, 0);
    EXPECT_TRUE(tCase.iFocus >= 0 || std::fabs(dOff) < World_DepthOfFocus(ptWorld, 0)) << dOff << Tale(tResult);
    World_Unmap(ptWorld);
  }
}

// A client's focus chooses the curve; the zoom then stays sharp along it, and temperature and night are followed.
TEST(ICS, FocusIsKept) {
  const TCamera tCamera("ics");
  std::vector<TLifeEvent> atEvents = {Ask(qwReady_ms, "function=auto")};
  const auto Look = [&](u64 qwAt_ms, const char* szWhat) {
    atEvents.push_back(Change(qwAt_ms, [szWhat](TWorld* ptWorld) {
      Lens_Settle(&ptWorld->tLens, World_Now_us(ptWorld));
      const double dOff = Lens_GlassVirtual(&ptWorld->tLens, 0, LENS_FOCUS) - World_SharpFocus(ptWorld, 0);
      std::printf("%s off by %.1f\n", szWhat, dOff);
    }));
  };
  u64 qwAt_ms = 60'000;
  for (const u32 dwZoom : {100U, 700U, 1500U, 2100U, 1100U}) {
    atEvents.push_back(Ask(qwAt_ms, "function=zoom&direction=direct&position=" + std::to_string(dwZoom)));
    Look(qwAt_ms + 15'000, "zoom");
    qwAt_ms += 20'000;
  }
  for (const double dTemperature_C : {28.0, 34.0, 45.0, 12.0, -10.0}) {
    atEvents.push_back(Change(qwAt_ms, [=](TWorld* ptWorld) { ptWorld->dTemperature_C = dTemperature_C; }));
    Look(qwAt_ms + 130'000, "temperature");
    qwAt_ms += 140'000;
  }
  for (const u32 bNight : {1U, 0U}) {
    atEvents.push_back(Change(qwAt_ms, [=](TWorld* ptWorld) { ptWorld->bNight = bNight; }));
    Look(qwAt_ms + 15'000, "night");
    qwAt_ms += 20'000;
  }
  atEvents.push_back(Ask(qwAt_ms, szStatus));
  const TLifeResult tResult = Live(tCamera, std::move(atEvents), qwAt_ms + 500);
  ExpectRest(tCamera, tResult);
  EXPECT_TRUE(HasPrinted(tResult, "Tracking Curve update  [2]")) << "5 m" << Tale(tResult);
  const std::string sPrinted = Printed(tResult);
  const std::regex tLine("(zoom|temperature|night) off by (-?[0-9.]+)\n");
  u32 dwLooks = 0;
  for (std::sregex_iterator it(sPrinted.begin(), sPrinted.end(), tLine), tEnd; it != tEnd; ++it, dwLooks++) {
    // Positions are whole, the band tolerates 2 degrees of up to 2.5 positions each, and a start that AF found.
    EXPECT_LT(std::fabs(std::stod(it->str(2))), it->str(1) == "zoom" ? 5 : 10) << it->str(0) << Tale(tResult);
  }
  EXPECT_EQ(dwLooks, 12U) << Tale(tResult);
}

// A life in which every kind of request is made.
struct TRequestLife {
  const char* szName;
  const char* szStatusFile;
  std::vector<TLifeEvent> atEvents;
  u64 qwEnd_ms;
};

std::vector<TRequestLife> RequestLives() {
  const auto Warm = [](u64 qwAt_ms, double dTemperature_C) {
    return Change(qwAt_ms, [=](TWorld* ptWorld) { ptWorld->dTemperature_C = dTemperature_C; });
  };
  return {{"Start", "normal\n", {Ask(qwReady_ms, szStatus)}, qwReady_ms + 500},
          {"Restore", "restore\n", {Ask(58'000, szStatus)}, 60'000},
          {"Moves",
           "normal\n",
           {Ask(qwReady_ms, "function=zoom&direction=direct&position=1800"), Ask(9'000, "function=stop"),
            Ask(14'000, "function=focus&direction=forward&steps=30"), Change(20'000, [](TWorld* t) { t->bNight = 1; }),
            Warm(30'000, 45), Ask(200'000, "function=resetfocus"), Ask(210'000, szStatus)},
           211'000},
          {"Searches",
           "normal\n",
           {Ask(qwReady_ms, "function=auto"), Ask(60'000, "function=scan"), Ask(140'000, "function=positioning"),
            Ask(200'000, szStatus)},
           201'000}};
}

class Detached : public testing::TestWithParam<std::size_t> {};

// Whichever request is the first that the lens does not answer: the daemon answers and ends in order, goes on no faster
// than before, and saves no position that the lens cannot have.
TEST_P(Detached, AtEveryRequest) {
  const TRequestLife tLife = RequestLives()[GetParam()];
  const TCamera tCamera("ics");
  u64 qwRequests = 0, qwEvents = 0;
  std::string sWhole;
  for (u64 qwAt = 0; qwAt <= qwRequests; qwAt += qwAt == 0 ? 1 : 10 / Lives(10)) {
    ASSERT_EQ(Life_ResetRoot(tCamera.sRoot), 0);
    tCamera.Write("/mnt/flash/.VernierlensStatus", tLife.szStatusFile);
    TWorld* ptWorld = World_Map(tCamera.sRoot.c_str());
    ptWorld->tLens.qwDetachAtRequest = qwAt;
    const TLifeResult tResult = Live(tCamera, tLife.atEvents, tLife.qwEnd_ms, FirstSeed() + qwAt);
    if (qwAt == 0) qwRequests = ptWorld->tLens.qwRequests;
    if (qwAt == 0) qwEvents = tResult.qwEvents;
    World_Unmap(ptWorld);
    SCOPED_TRACE("request " + std::to_string(qwAt) + " of " + std::to_string(qwRequests) + Tale(tResult));
    ASSERT_EQ(tResult.eEnd, LIFE_EXITED);
    ASSERT_EQ(tResult.iStatus, 0);
    ASSERT_LT(tResult.qwTime_us, (tLife.qwEnd_ms + 5'000) * 1000);
    ASSERT_LT(tResult.qwEvents, 2 * qwEvents);
    for (const std::string& sReply : tResult.asReplies) ASSERT_NE(sReply, "");
    const std::string sSaved = tCamera.Read(szPositions);
    std::smatch tMatch;
    ASSERT_TRUE(std::regex_search(sSaved, tMatch, std::regex("^zoom_motor=([0-9]+)\nfocus_motor=([0-9]+)\n")))
        << sSaved;
    ASSERT_LE(std::stoul(tMatch[1]), 2100U);
    ASSERT_LE(std::stoul(tMatch[2]), 3050U);
    ASSERT_TRUE(std::stoul(tMatch[1]) >= 100 && std::stoul(tMatch[2]) >= 100) << sSaved;
    if (qwAt == 0) sWhole = sSaved;
    const bool bMoved = tLife.atEvents.size() > 1 || tLife.szStatusFile[0] == 'r';
    ASSERT_TRUE(bMoved || sSaved == sWhole) << sSaved;
  }
  EXPECT_GT(qwRequests, 20U);
}

INSTANTIATE_TEST_SUITE_P(ICS, Detached, testing::Range<std::size_t>(0, RequestLives().size()),
                         [](const auto& tInfo) { return RequestLives()[tInfo.param].szName; });

// Broken files: a line, and the promised way on.
TEST(ICS, BrokenFiles) {
  const struct {
    const char* szPath;
    const char* szText;  // null: the file is missing
    const char* szLine;
    bool bRuns;
  } atCases[] = {
      {"/etc/conf.d/config_ics.xml", "<root><ics>", "[vernierlensd] : Failed to open device", false},
      {szPositions, nullptr, "[vernierlensd] : fopen failed!", false},
      {szPositions, "", "[ics init]pThis->dwZoomMotorPosition[iDev] = 100", true},
      {szPositions, "zoom_motor=-5\nfocus_motor=4294967291\n", "[ics init]pThis->dwFocusMotorPosition[iDev]  = 3050",
       true},
      {"/etc/conf.d/vernierlensd/tracking_curve_y0", "0 1 2 3f80", "Current Tracking Curve [0]", true},
      {"/etc/conf.d/vernierlensd/temp_curve_y1", "nothing", "One Mins fly", true},
      {"/etc/conf.d/vernierlensd/ad_curve_y0", nullptr, "[vernierlensd] : fopen failed!", true},
      {"/etc/conf.d/vernierlensd/ir_curve_y1", nullptr, "[vernierlensd] : fopen failed!", true},
  };
  for (const auto& tCase : atCases) {
    SCOPED_TRACE(std::string(tCase.szPath) + ": " + (tCase.szText == nullptr ? "missing" : tCase.szText));
    const TCamera tCamera("ics");
    if (tCase.szText != nullptr) {
      tCamera.Write(tCase.szPath, tCase.szText);
    } else {
      std::remove(tCamera.Path(tCase.szPath).c_str());
    }
    const TLifeResult tResult =
        Live(tCamera,
             {Change(10'000, [](TWorld* ptWorld) { ptWorld->dTemperature_C = 60; }),
              Change(20'000, [](TWorld* ptWorld) { ptWorld->bNight = 1; }),
              Ask(80'000, "function=zoom&direction=direct&position=700"), Ask(140'000, szStatus)},
             141'000);
    EXPECT_TRUE(HasPrinted(tResult, tCase.szLine)) << Tale(tResult);
    if (tCase.bRuns) ExpectRest(tCamera, tResult);
    EXPECT_EQ(tResult.eEnd, LIFE_EXITED) << Tale(tResult);
  }
}

}  // namespace
