// Whole lives of the daemon on the virtual clock, judged by replies, printed lines and the true lens.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include "support.h"

namespace {

constexpr const char* szPlainOK =
    "HTTP/1.1 200 OK\r\nContent-type: text/plain\r\nCache-control: no-cache\r\nPragma: no-cache\r\n"
    "Content-length: 2\r\n\r\nOK";
constexpr u64 qwQuadReady_ms = 60'000;  // behind the search of its four channels for their PI sensors
constexpr const char* szRefusal = "HTTP/1.1 400 Bad Request\r\n\r\n";

std::string Framed(const std::string& sBody) {
  return "HTTP/1.1 200 OK\r\nContent-type: text/plain\r\nCache-control: no-cache\r\nPragma: "
         "no-cache\r\nContent-length: " +
         std::to_string(sBody.size()) + "\r\n\r\n" + sBody;
}

// A life that ended in order: exit status 0, nothing from a sanitizer, the release complete.
void ExpectOrderly(const TLifeResult& tResult) {
  EXPECT_EQ(tResult.eEnd, LIFE_EXITED) << Tale(tResult);
  EXPECT_EQ(tResult.iStatus, 0) << Tale(tResult);
  // A motor thread may still have a line to say while the release waits for it.
  EXPECT_NE(Printed(tResult).find("[vernierlensd] : Release resources..."), std::string::npos) << Tale(tResult);
  EXPECT_TRUE(Printed(tResult).ends_with("OK\n")) << Tale(tResult);
}

TEST(Life, RepliesAreExact) {
  const struct {
    const char* szModel;
    const char* szQuery;
    std::string sReply;
  } atCases[] = {
      {"zoom", "function=getstatus",
       Framed("vernier_lens_zoom_motor_max='800'\r\nvernier_lens_focus_motor_max='1500'\r\n"
              "vernier_lens_zoom_motor_start='0'\r\nvernier_lens_zoom_motor_end='800'\r\n"
              "vernier_lens_focus_motor_start='361'\r\nvernier_lens_focus_motor_end='1480'\r\n"
              "vernier_lens_zoom_motor='200'\r\nvernier_lens_focus_motor='485'\r\n"
              "vernier_lens_zoom_enable='0'\r\nvernier_lens_focus_enable='0'\r\nvernier_lens_iris_open='0'\r\n")},
      {"focus", "function=getstatus",
       Framed("vernier_lens_focus_motor_max='1000'\r\nvernier_lens_focus_motor_start='0'\r\n"
              "vernier_lens_focus_motor_end='1000'\r\nvernier_lens_focus_motor='520'\r\n"
              "vernier_lens_focus_enable='0'\r\nvernier_lens_iris_open='0'\r\n")},
      {"zoomonly", "function=getstatus",
       Framed("vernier_lens_zoom_motor_max='320'\r\nvernier_lens_zoom_motor_start='0'\r\n"
              "vernier_lens_zoom_motor_end='320'\r\nvernier_lens_zoom_motor='40'\r\n"
              "vernier_lens_zoom_enable='0'\r\nvernier_lens_iris_open='0'\r\n")},
      {"fixed", "function=getstatus", Framed("")},
      {"zoom", "function=getparam&position=-1",
       Framed("vernier_lens_focus_value='0'\r\nvernier_lens_focus_enable='0'\r\n")},
      {"fixed", "function=getparam&position=5",
       Framed("vernier_lens_focus_value='0'\r\nvernier_lens_focus_enable='0'\r\n")},
      {"focus", "function=getfocusdefault", Framed("vernier_lens_focus_default='520'\r\n")},
      {"zoom", "function=getfocusdefault", szRefusal},
      {"zoomonly", "function=focus&direction=direct&position=5", szPlainOK},
      {"fixed", "function=zoom&steps=3", szPlainOK},
      {"quad", "channel=4&function=stop", szRefusal},
      {"zoom", "", szRefusal},
  };
  for (const auto& tCase : atCases) {
    const TCamera tCamera(tCase.szModel);
    const TLifeResult tResult = Live(tCamera, {Ask(500, tCase.szQuery)}, 1000);
    SCOPED_TRACE(std::string(tCase.szModel) + " " + tCase.szQuery);
    ASSERT_EQ(tResult.asReplies.size(), 1U);
    EXPECT_EQ(tResult.asReplies[0], tCase.sReply);
    ExpectOrderly(tResult);
  }
}

struct TScript {
  const char* szName;
  const char* szModel;
  std::vector<TLifeEvent> atEvents;  // the last event is the status that tells the belief
  double dZoom, dFocus;              // where the true motor ends, virtual steps; -1 no such axis
  i32 iChannel = 0;
};

// Believed equals true, both axes are idle, and the lens is where the row says, or anywhere with -2.
void ExpectEnd(const TCamera& tCamera, const TLifeResult& tResult, const TScript& tScript) {
  ExpectOrderly(tResult);
  const std::string& sStatus = tResult.asReplies.back();
  const struct {
    const char* szKey;
    ELensAxis eAxis;
    double dExpected;
  } atAxes[] = {{"zoom", LENS_ZOOM, tScript.dZoom}, {"focus", LENS_FOCUS, tScript.dFocus}};
  for (const auto& tAxis : atAxes) {
    if (tAxis.dExpected == -1) continue;
    const double dTruth = tCamera.Truth(tAxis.eAxis, tScript.iChannel);
    EXPECT_EQ(StatusValue(sStatus, std::string(tAxis.szKey) + "_enable"), 0) << tAxis.szKey << Tale(tResult);
    EXPECT_EQ(StatusValue(sStatus, std::string(tAxis.szKey) + "_motor"), dTruth) << tAxis.szKey << Tale(tResult);
    if (tAxis.dExpected >= 0) {
      EXPECT_EQ(dTruth, tAxis.dExpected) << tAxis.szKey << Tale(tResult);
    }
  }
}

const char* const szStatus = "function=getstatus";

std::vector<TScript> Scripts() {
  return {
      {"relative zoom", "zoom", {Ask(100, "function=zoom&direction=forward&steps=25"), Ask(3000, szStatus)}, 225, -2},
      {"direct, backward",
       "zoom",
       {Ask(100, "function=zoom&direction=direct&position=150"), Ask(3000, szStatus)},
       150,
       -2},
      {"backward past 0 ends at the start",
       "zoom",
       {Ask(100, "function=focus&direction=direct&position=10"),
        Ask(6000, "function=focus&direction=backward&steps=30"), Ask(9000, szStatus)},
       200,
       20},
      {"both axes at once",
       "zoom",
       {Ask(100, "function=zoom&direction=direct&position=300"),
        Ask(110, "function=focus&direction=direct&position=600"), Ask(4000, szStatus)},
       300,
       600},
      {"stop while nothing moves", "zoom", {Ask(100, "function=stop"), Ask(500, szStatus)}, 200, 485},
      {"stop in a long move",
       "zoom",
       {Ask(100, "function=zoom&direction=direct&position=700"), Ask(1500, "function=stop"), Ask(2500, szStatus)},
       -2,
       -2},
      {"two commands within one step: the later runs, once",
       "zoom",
       {Ask(100, "function=focus&direction=direct&position=900"), Ask(600, "function=focus&direction=forward&steps=7"),
        Ask(601, "function=focus&direction=direct&position=500"), Ask(4000, szStatus)},
       200,
       500},
      {"a command during a blocking walk runs afterwards",
       "zoomonly",
       {Ask(100, "function=zoom&direction=direct&position=200"), Ask(420, "function=zoom&direction=direct&position=60"),
        Ask(4000, szStatus)},
       60,
       -1},
      {"a refused query in the middle costs nothing",
       "zoom",
       {Ask(100, "function=zoom&direction=forward&steps=25"), Ask(450, "channel=9&function=stop"), Ask(3000, szStatus)},
       225,
       -2},
      {"the move stays on its channel",
       "quad",
       {Ask(qwQuadReady_ms, "channel=2&function=zoom&direction=direct&position=200"), Ask(qwQuadReady_ms + 1, szStatus),
        Ask(qwQuadReady_ms + 500, szStatus), Ask(qwQuadReady_ms + 6000, "channel=2&function=getstatus")},
       200,
       -2,
       2},
      {"SIGPIPE costs a line only",
       "zoom",
       {Signal(150, SIGPIPE), Ask(200, "function=zoom&direction=forward&steps=5"), Ask(2000, szStatus)},
       205,
       -2},
  };
}

TEST(Life, EndsWhereTheCommandsSay) {
  for (const TScript& tScript : Scripts()) {
    const TCamera tCamera(tScript.szModel);
    const TLifeResult tResult = Live(tCamera, tScript.atEvents, tScript.atEvents.back().qwAt_us / 1000 + 500);
    SCOPED_TRACE(tScript.szName);
    ExpectEnd(tCamera, tResult, tScript);
  }
}

// A query of another channel, right behind a command, turns neither the command nor the counter to that channel.
TEST(Life, CommandStaysOnItsChannel) {
  for (u64 qw = 0; qw < Lives(40); qw++) {
    const TCamera tCamera("quad");
    const TLifeResult tResult = Live(
        tCamera,
        {Ask(qwQuadReady_ms, "channel=2&function=zoom&direction=direct&position=130"), Ask(qwQuadReady_ms, szStatus),
         Ask(qwQuadReady_ms + 50, szStatus), Ask(qwQuadReady_ms + 3000, "channel=2&function=getstatus")},
        qwQuadReady_ms + 3500, FirstSeed() + qw);
    for (const i32 iChannel : {0, 1, 3})
      ASSERT_EQ(tCamera.Truth(LENS_ZOOM, iChannel), 100) << iChannel << Tale(tResult);
    ASSERT_EQ(tCamera.Truth(LENS_ZOOM, 2), 130) << Tale(tResult);
    ASSERT_EQ(StatusValue(tResult.asReplies[3], "zoom_motor"), 130) << Tale(tResult);
  }
}

// A button of another channel pressed during a hold's last move brings its own channel and direction.
TEST(Life, NewHoldTakesItsOwnChannel) {
  const TCamera tCamera("quad");
  const auto Button = [](const char* szChannel, const char* szEvent) {
    return EventFrame(std::string("<message><channel>") + szChannel + "</channel>" + szEvent + "</message>");
  };
  const auto At = [&](u64 qwAfter_ms, const std::string& sFrame) {
    return Frame(qwQuadReady_ms + qwAfter_ms, tCamera, sFrame);
  };
  const TLifeResult tResult = Live(tCamera,
                                   {At(100, Button("0", "<zoominbutton>pressed</zoominbutton>")),
                                    At(500, Button("0", "<zoominbutton>released</zoominbutton>")),
                                    At(520, Button("1", "<zoomoutbutton>pressed</zoomoutbutton>")),
                                    At(1200, Button("1", "<zoomoutbutton>released</zoomoutbutton>"))},
                                   qwQuadReady_ms + 4000);
  EXPECT_EQ(tCamera.Truth(LENS_ZOOM, 0), 102) << Tale(tResult);
  EXPECT_EQ(tCamera.Truth(LENS_ZOOM, 1), 98) << Tale(tResult);
}

// No command that got its OK may be lost, whenever it comes: before, within and at the very end of a blocking walk.
TEST(Life, NoCommandIsLostAtTheEndOfAWalk) {
  for (u64 qw = 0; qw < Lives(200); qw++) {
    const TCamera tCamera("zoomonly");
    std::vector<TLifeEvent> atEvents = {Ask(100, "function=zoom&direction=direct&position=50"),
                                        Ask(0, "function=zoom&direction=direct&position=60"), Ask(3000, szStatus)};
    atEvents[1].qwAt_us = 100'000 + 300'000 + 28'200 - 1'000 + qw * 10;  // round the end of a walk of 60 driver steps
    const TLifeResult tResult = Live(tCamera, atEvents, 3500, FirstSeed() + qw);
    SCOPED_TRACE(qw);
    ExpectEnd(tCamera, tResult, {.szName = "", .szModel = "", .atEvents = {}, .dZoom = 60, .dFocus = -1});
    if (HasFailure()) return;
  }
}

// SIGTERM at any moment of a move: the walk is finished, and the daemon is gone 5 seconds of camera time later.
TEST(Life, SigtermFinishesTheMove) {
  for (const u64 qwEnd_ms : {90U, 101U, 250U, 405U, 700U, 1234U}) {
    const TCamera tCamera("zoom");
    const TLifeResult tResult =
        Live(tCamera, {Ask(100, "function=zoom&direction=direct&position=400")}, qwEnd_ms, FirstSeed());
    SCOPED_TRACE(qwEnd_ms);
    ExpectOrderly(tResult);
    EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Receive TERM/INT signal!"));
    EXPECT_EQ(tCamera.Truth(LENS_ZOOM), qwEnd_ms < 100 ? 200 : 400) << Tale(tResult);
    EXPECT_LT(tResult.qwTime_us, 100'000 + 300'000 + 1'000'000 + 5'000'000U);
  }
}

TEST(Life, ZoomButtonRepeatsInGrowingSteps) {
  const TCamera tCamera("zoom");
  const std::string sPressed = EventFrame("<message><zoominbutton>pressed</zoominbutton></message>");
  const std::string sReleased = EventFrame("<message><zoomoutbutton>released</zoomoutbutton></message>");
  const TLifeResult tResult = Live(tCamera,
                                   {Frame(100, tCamera, sPressed), Frame(150, tCamera, "\x02\x01"),
                                    Frame(2200, tCamera, sReleased), Ask(5000, szStatus)},
                                   5500);
  // 305 ms a move of one step: four of them within the first second, then 30 steps (an eighth of the range, capped) a
  // move.
  const std::string sRequests = Requests(tResult, "zoommotor");
  EXPECT_TRUE(
      sRequests.starts_with("SELECT 0, FORWARD, WALK 8, SELECT 0, FORWARD, WALK 8, SELECT 0, FORWARD, WALK 8, "
                            "SELECT 0, FORWARD, WALK 8, SELECT 0, FORWARD, WALK 240"))
      << sRequests;
  EXPECT_EQ(sRequests.find("BACKWARD"), std::string::npos);
  EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Zoom out stop!"));
  ExpectEnd(tCamera, tResult, {.szName = "", .szModel = "", .atEvents = {}, .dZoom = -2, .dFocus = -2});
}

// A second press during a hold, of either button, renews the time only: the direction stays, and the steps start small
// again.
TEST(Life, SecondPressRenewsTheHold) {
  const TCamera tCamera("zoom");
  const std::string sIn = EventFrame("<message><zoominbutton>pressed</zoominbutton></message>");
  const std::string sOut = EventFrame("<message><zoomoutbutton>pressed</zoomoutbutton></message>");
  const std::string sReleased = EventFrame("<message><zoominbutton>released</zoominbutton></message>");
  const TLifeResult tResult =
      Live(tCamera,
           {Frame(100, tCamera, sIn), Frame(1000, tCamera, sOut), Frame(1900, tCamera, sReleased), Ask(9000, szStatus)},
           9500);
  EXPECT_EQ(Requests(tResult, "zoommotor").find("240"), std::string::npos) << Tale(tResult);
  EXPECT_EQ(Requests(tResult, "zoommotor").find("BACKWARD"), std::string::npos) << Tale(tResult);
  ExpectEnd(tCamera, tResult, {.szName = "", .szModel = "", .atEvents = {}, .dZoom = -2, .dFocus = -2});
  EXPECT_EQ(tCamera.Truth(LENS_ZOOM), 206);
}

TEST(Life, FramesThatAreNoneCostALine) {
  const struct {
    std::string sBytes;
    const char* szLine;
    bool bMadeAnew;
  } atCases[] = {
      {std::string("\x02\x01\x00\x02<>", 6), "[vernierlensd] : VernierLensd_CheckMessage failed.", true},
      {std::string("\x01\x00", 2), "[vernierlensd] : Failed to read FIFO.", true},
      {std::string("\x01\x01\x00\x20", 4), "[vernierlensd] : Failed to read FIFO.", true},
      {std::string("\x01\x01\x04\x00", 4) + std::string(1024, '<'), "[vernierlensd] : Failed to read FIFO.", true},
      {std::string("\x01\x02\x00\x00", 4), "[vernierlensd] : Courier_GetTypeLength failed.", false},
      {EventFrame("no xml"), "[vernierlensd] : Courier_Parse_Event failed.", false},
      {EventFrame("<message><channel>7</channel><zoominbutton>released</zoominbutton></message>"),
       "[vernierlensd] : Zoom in stop!", false},
  };
  for (const auto& tCase : atCases) {
    const TCamera tCamera("zoom");
    const std::string sNext = EventFrame("<message><zoomoutbutton>released</zoomoutbutton></message>");
    const TLifeResult tResult =
        Live(tCamera, {Frame(100, tCamera, tCase.sBytes), Frame(2000, tCamera, sNext), Ask(3000, szStatus)}, 3500);
    SCOPED_TRACE(Tale(tResult));
    ExpectOrderly(tResult);
    EXPECT_TRUE(HasPrinted(tResult, tCase.szLine));
    EXPECT_EQ(HasPrinted(tResult, "[vernierlensd] : Reinitialize FIFO..."), tCase.bMadeAnew);
    EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Zoom out stop!")) << "the next frame is read in step";
  }
}

// As many frames as the FIFO holds, and the FIFO removed under the daemon: each frame is handled, clients are answered.
TEST(Life, FloodedAndRemovedFIFOHoldsNobodyUp) {
  const TCamera tCamera("zoom");
  std::string sFlood;
  for (i32 i = 0; i < 900; i++) sFlood += EventFrame("<message><zoominbutton>released</zoominbutton></message>");
  const TLifeResult tResult =
      Live(tCamera,
           {Frame(100, tCamera, sFlood), Ask(100, "function=zoom&direction=forward&steps=4"),
            Call(2000, [&](TWorld*) { unlink(tCamera.Path("/tmp/VernierLensFIFO").c_str()); }), Ask(4000, szStatus)},
           4500);
  const std::string sPrinted = Printed(tResult);
  std::size_t dwHandled = 0;
  for (std::size_t dwAt = 0; (dwAt = sPrinted.find("Zoom in stop!", dwAt)) != std::string::npos; dwAt++) dwHandled++;
  EXPECT_EQ(dwHandled, 900U);
  ExpectEnd(tCamera, tResult, {.szName = "", .szModel = "", .atEvents = {}, .dZoom = 204, .dFocus = -2});
}

}  // namespace
