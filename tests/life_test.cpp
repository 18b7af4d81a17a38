// Whole lives of the daemon on the virtual clock, judged by replies, printed lines and the true lens.

#include <csignal>

#include "core/daemon/entry.h"
#include "short_lives.h"

namespace {

constexpr const char* szRefusal = "HTTP/1.1 400 Bad Request\r\n\r\n";
constexpr u64 qwQuadReady_ms = 60'000;  // its four channels have then searched for their PI sensors

std::string Framed(const std::string& sBody) {
  return "HTTP/1.1 200 OK\r\nContent-type: text/plain\r\nCache-control: no-cache\r\nPragma: no-cache\r\n"
         "Content-length: " +
         std::to_string(sBody.size()) + "\r\n\r\n" + sBody;
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
      {"zoomonly", "function=focus&direction=direct&position=5", Framed("OK")},
      {"fixed", "function=zoom&steps=3", Framed("OK")},
      {"quad", "channel=4&function=stop", szRefusal},
      {"zoom", "", szRefusal},
  };
  for (const auto& tCase : atCases) {
    const TCamera tCamera(tCase.szModel);
    const TLifeResult tResult = Live(tCamera, {Ask(500, tCase.szQuery)}, 1000);
    SCOPED_TRACE(std::string(tCase.szModel) + " " + tCase.szQuery);
    ASSERT_EQ(tResult.asReplies.size(), 1U);
    EXPECT_EQ(tResult.asReplies[0], tCase.sReply);
    EXPECT_EQ(Judge_Order(tResult), "") << Tale(tResult);
  }
}

TEST(Life, EndsWhereTheCommandsSay) {
  const struct {
    const char* szRule;
    const char* szModel;
    const char* szAsks;
    u64 qwRest_ms;
    i32 iZoom, iFocus;  // where the true motor ends, virtual steps; -1 anywhere
  } atCases[] = {
      {"relative zoom", "zoom", "100 zoom+25", 3000, 225, -1},
      {"backward past 0 ends at the start", "zoom", "100 focus=10, 6000 focus-30", 9000, 200, 20},
      {"a refused query in the middle costs nothing", "zoom", "100 zoom+25, 450 stop&channel=9", 3000, 225, -1},
      {"stop while nothing moves", "zoom", "100 stop", 500, 200, 485},
      {"two commands within one step: the later runs, once", "zoom", "100 focus=900, 600 focus+7, 601 focus=500", 4000,
       200, 500},
      {"a command during a blocking walk runs afterwards", "zoomonly", "100 zoom=200, 420 zoom=60", 4000, 60, -1},
  };
  for (const auto& tCase : atCases) {
    SCOPED_TRACE(tCase.szRule);
    const TCamera tCamera(tCase.szModel);
    const TLifeEvent tPipe = Signal(150, SIGPIPE);  // costs a line only
    const TLifeResult tResult = LiveToRest(tCamera, Asks(tCase.szAsks, {tPipe}), tCase.qwRest_ms);
    for (const auto& [eAxis, iEnd] : {std::pair{LENS_ZOOM, tCase.iZoom}, {LENS_FOCUS, tCase.iFocus}}) {
      EXPECT_TRUE(iEnd < 0 || tCamera.Truth(eAxis) == iEnd) << tCamera.Truth(eAxis) << Tale(tResult);
    }
  }
}

// A query of another channel right after a command turns neither the command nor the counter to that channel.
TEST(Life, CommandStaysOnItsChannel) {
  ForSeeds(40, [](u64 qwSeed) {
    const TCamera tCamera("quad");
    const auto atEvents = Asks("60000 channel=2&zoom=130, 60000 getstatus, 60050 getstatus, 63000 channel=2&getstatus");
    const TLifeResult tResult = Live(tCamera, atEvents, 63'500, qwSeed);
    for (const i32 iChannel : {0, 1, 3})
      EXPECT_EQ(tCamera.Truth(LENS_ZOOM, iChannel), 100) << iChannel << Tale(tResult);
    EXPECT_EQ(tCamera.Truth(LENS_ZOOM, 2), 130) << Tale(tResult);
    EXPECT_EQ(StatusValue(tResult.asReplies[3], "zoom_motor"), 130) << Tale(tResult);
  });
}

// A button of another channel that is pressed during a hold's last move brings its own channel and direction.
TEST(Life, NewHoldTakesItsOwnChannel) {
  const TCamera tCamera("quad");
  const auto At = [&](u64 qwAfter_ms, const std::string& sFrame) {
    return Frame(qwQuadReady_ms + qwAfter_ms, tCamera, sFrame);
  };
  const TLifeResult tResult =
      Live(tCamera,
           {At(100, Button("zoomin", "pressed", "0")), At(500, Button("zoomin", "released", "0")),
            At(520, Button("zoomout", "pressed", "1")), At(1200, Button("zoomout", "released", "1"))},
           qwQuadReady_ms + 4000);
  EXPECT_EQ(tCamera.Truth(LENS_ZOOM, 0), 102) << Tale(tResult);
  EXPECT_EQ(tCamera.Truth(LENS_ZOOM, 1), 98) << Tale(tResult);
}

// No command that got its OK may be lost, whenever it comes: before, within and at the very end of a blocking walk.
TEST(Life, NoCommandIsLostAtTheEndOfAWalk) {
  ForSeeds(200, [](u64 qwSeed) {
    const TCamera tCamera("zoomonly");
    // About the end of a walk of 60 driver steps.
    const u64 qwSecond_us = 100'000 + 300'000 + 28'200 - 1'000 + (qwSeed - FirstSeed()) * 10;
    const auto atEvents = Asks("100 zoom=50", {At(qwSecond_us, Asks("0 zoom=60")[0])});
    const TLifeResult tResult = LiveToRest(tCamera, atEvents, 3000, qwSeed);
    EXPECT_EQ(tCamera.Truth(LENS_ZOOM), 60) << Tale(tResult);
  });
}

// SIGTERM at any moment of a move: the walk is finished, and the daemon is gone 5 seconds of camera time later.
TEST(Life, SigtermFinishesTheMove) {
  for (const u64 qwEnd_ms : {90U, 101U, 250U, 405U, 700U, 1234U}) {
    const TCamera tCamera("zoom");
    const TLifeResult tResult = Live(tCamera, Asks("100 zoom=400"), qwEnd_ms);
    SCOPED_TRACE(qwEnd_ms);
    EXPECT_EQ(Judge_Order(tResult), "") << Tale(tResult);
    EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Receive TERM/INT signal!"));
    EXPECT_EQ(tCamera.Truth(LENS_ZOOM), qwEnd_ms < 100 ? 200 : 400) << Tale(tResult);
    EXPECT_LT(tResult.qwTime_us, 100'000 + 300'000 + 1'000'000 + 5'000'000U);
  }
}

// A move of one step takes 305 ms, so the first second has four.  Later moves have 30 steps: an eighth of the range,
// capped.  A second press of either button only restarts the time: the direction stays, and the steps are small again.
TEST(Life, HeldButtonRepeatsInGrowingSteps) {
  const std::string sStep = "SELECT 0, FORWARD, WALK 8";
  for (const bool bAgain : {false, true}) {
    const TCamera tCamera("zoom");
    const std::string sSecond = bAgain ? Button("zoomout", "pressed") : "\x02\x01";
    const std::vector<TLifeEvent> atFrames = {Frame(100, tCamera, Button("zoomin", "pressed")),
                                              Frame(bAgain ? 1000 : 150, tCamera, sSecond),
                                              Frame(bAgain ? 1900 : 2200, tCamera, Button("zoomout", "released"))};
    const TLifeResult tResult = LiveToRest(tCamera, atFrames, 9000);
    const std::string sRequests = Requests(tResult, "zoommotor");
    const std::string sFirst = sStep + ", " + sStep + ", " + sStep + ", " + sStep;
    EXPECT_TRUE(sRequests.starts_with(bAgain ? sFirst : sFirst + ", SELECT 0, FORWARD, WALK 240")) << sRequests;
    EXPECT_EQ(Count(sRequests, "BACKWARD") + (bAgain ? Count(sRequests, "240") : 0), 0U) << sRequests;
    EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Zoom out stop!"));
    EXPECT_TRUE(!bAgain || tCamera.Truth(LENS_ZOOM) == 206) << tCamera.Truth(LENS_ZOOM);
  }
}

TEST(Life, BrokenFramesCostALine) {
  std::string sLongest = "<message><zoominbutton>released</zoominbutton></message>";
  sLongest.resize(1019, ' ');
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
      {EventFrame(sLongest), "[vernierlensd] : Zoom in stop!", false},
      {Button("zoomin", "released", "7"), "[vernierlensd] : Zoom in stop!", false},
  };
  for (const auto& tCase : atCases) {
    const TCamera tCamera("zoom");
    const std::vector<TLifeEvent> atFrames = {Frame(100, tCamera, tCase.sBytes),
                                              Frame(2000, tCamera, Button("zoomout", "released"))};
    const TLifeResult tResult = Live(tCamera, atFrames, 3500);
    SCOPED_TRACE(Tale(tResult));
    EXPECT_EQ(Judge_Order(tResult), "") << Tale(tResult);
    EXPECT_TRUE(HasPrinted(tResult, tCase.szLine));
    EXPECT_EQ(HasPrinted(tResult, "[vernierlensd] : Reinitialize FIFO..."), tCase.bMadeAnew);
    EXPECT_EQ(Count(tResult.sTranscript, std::string(" ") + szFIFOPath + "\n"), tCase.bMadeAnew ? 2U : 1U)
        << "the new FIFO replaces the old one, with no moment in which the name is free";
    EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Zoom out stop!")) << "the next frame is read in step";
  }
}

// The FIFO is filled with frames, and then its name is removed.  Each frame is handled, and clients are answered.
TEST(Life, FloodedAndRemovedFIFOHoldsNobodyUp) {
  const TCamera tCamera("zoom");
  std::string sFlood;
  for (i32 i = 0; i < 900; i++) sFlood += Button("zoomin", "released");
  const auto Unlink = [&](TWorld*) { unlink(tCamera.Path(szFIFOPath).c_str()); };
  const auto atEvents = Asks("100 zoom+4", {Frame(100, tCamera, sFlood), Call(2000, Unlink)});
  EXPECT_EQ(Count(Printed(LiveToRest(tCamera, atEvents, 4000)), "Zoom in stop!"), 900U);
  EXPECT_EQ(tCamera.Truth(LENS_ZOOM), 204);
}

// After a header the daemon waits a second for the rest, which may come in pieces, and answers clients meanwhile.
TEST(Life, HalfAFrameHoldsNobodyUp) {
  const std::string sRelease = Button("zoomin", "released");
  for (const bool bRest : {false, true}) {
    const TCamera tCamera("zoom");
    const auto atEvents = Asks(
        "150 getstatus, 300 getstatus",
        {Frame(100, tCamera, sRelease.substr(0, 4)), Frame(500, tCamera, bRest ? sRelease.substr(4, 9) : ""),
         Frame(900, tCamera, bRest ? sRelease.substr(13) : ""), Frame(2000, tCamera, Button("zoomout", "released"))});
    const TLifeResult tResult = LiveToRest(tCamera, atEvents, 2500);
    EXPECT_LT(TimeOf_us(tResult, "reply 1 "), 310'000U) << Tale(tResult);
    EXPECT_EQ(HasPrinted(tResult, "[vernierlensd] : Zoom in stop!"), bRest) << Tale(tResult);
    EXPECT_EQ(HasPrinted(tResult, "[vernierlensd] : Reinitialize FIFO..."), !bRest) << Tale(tResult);
    EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Zoom out stop!")) << Tale(tResult);
  }
}

// Clients are served before frames, but not for ever.
TEST(Life, FrameGetsItsTurnAmongClients) {
  const TCamera tCamera("zoom");
  std::vector<TLifeEvent> atEvents = {Frame(100, tCamera, Button("zoomin", "released"))};
  atEvents.insert(atEvents.begin(), 60, Ask(100, szStatus));
  const TLifeResult tResult = Live(tCamera, atEvents, 1000);
  const std::string sBefore = tResult.sTranscript.substr(0, tResult.sTranscript.find("Zoom in stop!"));
  EXPECT_LE(Count(sBefore, " reply "), 9U) << Tale(tResult);
  ExpectRest(tCamera, tResult);
}

// Restores that come while one runs are not run again, unless another event lies between them.  A later one runs.
TEST(Life, WaitingRestoresAreMerged) {
  const std::string sRestore = EventFrame("<message><autofocus>falling</autofocus></message>");
  const std::string sThree = sRestore + sRestore + sRestore;
  const std::string sRelease = Button("zoomin", "released");
  const std::pair<std::string, std::size_t> atWaiting[] = {{sThree, 2}, {sThree + sRelease + sThree, 3}};
  for (const auto& [sWaiting, dwRestores] : atWaiting) {
    const TCamera tCamera("zoom");
    const std::vector<TLifeEvent> atFrames = {Frame(100, tCamera, sRestore), Frame(2000, tCamera, sWaiting),
                                              Frame(200'000, tCamera, sRestore)};
    const TLifeResult tResult = LiveToRest(tCamera, atFrames, 290'000);
    // Each restore ends in a search with the iris open, and walks the zoom to its low stop once.
    EXPECT_EQ(Count(tResult.sTranscript, "create /etc/conf.d/vernierlensd/zoomworking.log"), dwRestores)
        << Tale(tResult);
  }
}

// A payload cannot forge lines of the log.
TEST(Life, PayloadsArePrintedOnOneLine) {
  const TCamera tCamera("zoom");
  const TLifeResult tResult = Live(tCamera, {Frame(100, tCamera, EventFrame("a\n[vernierlensd] : \x7F\x1B"))}, 1000);
  EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Receive FIFO command: a\\x0A[vernierlensd] : \\x7F\\x1B"))
      << Tale(tResult);
}

// With a log that nobody reads the daemon does the same at the same microseconds, and counts every dropped line.
TEST(Life, UnreadLogChangesNothing) {
  const struct {
    bool bFull, bReadAgain, bSocket, bOpenFails;  // the daemon cannot open the pipe a second time
  } atCases[] = {{false, false, false, false},
                 {true, true, false, false},
                 {true, true, true, false},
                 {true, true, false, true},
                 {true, false, false, false}};
  const std::string sNotice = "[vernierlensd] : Log lines dropped: ";
  std::string sDeeds;
  std::size_t dwLines = 0;
  for (const auto& tCase : atCases) {
    const TCamera tCamera("zoom");
    if (tCase.bOpenFails) ChangeWorld(tCamera, [](TWorld& tWorld) { tWorld.atFailingCalls[0] = {"open", 0, 1}; });
    i32 fdReader = -1;
    const auto Read = [&](TWorld*) {
      char acText[4096];
      while (tCase.bReadAgain && read(fdReader, acText, sizeof acText) > 0) {
      }
    };
    const TLifeResult tResult =
        Life_Run({.sRoot = tCamera.sRoot,
                  .qwSeed = FirstSeed(),
                  .atEvents = Asks("100 zoom=300, 500 getstatus, 25000 getstatus",
                                   {Frame(5'000, tCamera, Button("zoomin", "pressed")), Signal(5'050, SIGPIPE),
                                    Frame(5'100, tCamera, Button("zoomin", "released")), Call(20'000, Read)}),
                  .qwEnd_us = 26'000'000,
                  .fnBody = [&](TWorld*) {
                    static char szName[] = "vernierlensd";
                    static char* aszArgs[] = {szName, nullptr};
                    if (tCase.bFull) fdReader = FillLog(tCase.bSocket);
                    return VernierLensd_Main(1, aszArgs);
                  }});
    EXPECT_TRUE(tResult.eEnd == LIFE_EXITED && tResult.iStatus == 0) << Tale(tResult);
    const std::string sPrinted = Printed(tResult), sOne = "[^\n]* (print|open fails)[^\n]*\n";
    const std::string sDone = Replaced(tResult.sTranscript, sOne, "");
    if (!tCase.bFull) {
      ExpectRest(tCamera, tResult);
      sDeeds = sDone;
      dwLines = Count(sPrinted, "\n");
    }
    EXPECT_EQ(sDone, sDeeds);
    const std::size_t dwAt = sPrinted.find(sNotice);
    ASSERT_EQ(dwAt != sPrinted.npos, tCase.bReadAgain);
    if (tCase.bReadAgain) {
      // The notice is a line itself.
      const u64 qwDropped = std::strtoull(sPrinted.c_str() + dwAt + sNotice.size(), nullptr, 10) - 1;
      EXPECT_EQ(Count(sPrinted, "\n") + qwDropped, dwLines) << Tale(tResult);
    }
  }
}

TEST(Life, DaemonModeWorksWithoutALog) {
  const TCamera tCamera("zoom");
  const TLifeResult tResult = Life_Run({.sRoot = tCamera.sRoot,
                                        .atEvents = Asks("100 zoom=300, 5000 getstatus"),
                                        .qwEnd_us = 6'000'000,
                                        .asArgs = {"vernierlensd", "-d"}});
  EXPECT_EQ(tResult.eEnd, LIFE_EXITED) << Tale(tResult);
  EXPECT_EQ(Printed(tResult), "[vernierlensd] : Entering daemon mode...\n");
  EXPECT_EQ(Judge_Belief(tResult.asReplies.back(), LENS_ZOOM, 300), "") << Tale(tResult);
  EXPECT_EQ(tCamera.Truth(LENS_ZOOM), 300);
}

}  // namespace
