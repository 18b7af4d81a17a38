// The query language, number reading and token files; then which of two commands wins, in whole lives.
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>

#include "command/client_parser.h"
#include "config/config_load.h"
#include "config/token_file.h"
#include "core/number.h"
#include "motor/motor_device.h"
#include "short_lives.h"

namespace {

constexpr const char* szUnknown =
    "[vernierlensd] : Unknown command.\n[vernierlensd] : VernierLensd_InterpretClientCommand failed.\n";
constexpr const char* szChannel = "[vernierlensd] : Invalid channel value.\n";
constexpr const char* szNoFunction = "[vernierlensd] : Function isn't specified.\n";

struct TParseCase {
  std::string sQuery;
  const char* szCommand;  // "channel: function direction steps position default iris", or what a refusal prints
  i32 iCurChannel = 0;
  u32 dwCapability = CAPABILITY_ZOOM_AND_FOCUS;
};

std::string Long(const char* szStart, std::size_t dwLength) {
  return std::string(szStart).append(dwLength - std::string(szStart).size(), '0');
}

const TParseCase g_atParses[] = {
    {"function=zoom&direction=forward&steps=3", "0: 1 0 3 0 0 0"},
    {"channel=1&function=focus&direction=direct&position=120", "1: 2 2 0 120 0 0", 1},
    {"functional=autofocus&directions=backwards&stepsize=4", "0: 3 1 4 0 0 0"},
    {"function=stop&function=zoom&direction=direction", "0: 1 2 0 0 0 0"},
    {"iris=0&function=auto", "0: 3 0 0 0 0 1"},
    {"iris&function=auto", "0: 3 0 0 0 0 1"},
    {"position=1=2&function=getparam", "0: 8 0 0 1 0 0"},
    {"steps=99999999999&position=-99999999999&function=zoom", "0: 1 0 2147483647 2147483648 0 0"},
    {"steps=4294967297&position=-1&function=zoom", "0: 1 0 2147483647 4294967295 0 0"},
    {"steps=x&function=zoom", "0: 1 0 0 0 0 0"},
    {"channel=x&function=getstatus", "0: 7 0 0 0 0 0"},
    {"channel=3&function=getstatus", "3: 7 0 0 0 0 0", 3},
    {"channel=2&channel=1&function=stop", "1: 9 0 0 0 0 0", 1},
    {"function=resetfocus", "0: 13 0 0 0 0 0", 0, CAPABILITY_FOCUS_ONLY},
    {"function=setfocusdefault&defaultposition=120", "0: 15 0 0 0 120 0", 0, CAPABILITY_FOCUS_ONLY},
    {"function=setfocusdefault&defaultposition=-1", "0: 15 0 0 0 500 0", 0, CAPABILITY_FOCUS_ONLY},
    {Long("position=", 9 + 63) + "&function=zoom", "0: 1 0 0 0 0 0"},
    {"function=zoom&channel=1", szNoFunction, 1},
    {"channel=4&function=stop", szChannel},
    {"channel=-1&function=stop", szChannel},
    {"channel=&function=stop", szChannel},
    {"channel=4294967296&function=stop", szChannel},
    {"channel=2&channel=9", szChannel, 2},
    {"function=resetfocus", szUnknown},
    {"defaultposition=1&function=zoom", szUnknown},
    {"function=zoom&", szUnknown},
    {"function=Zoom", szUnknown},
    {"step=1&function=zoom", szUnknown},
    {"function=", szUnknown},
    {"direction=up&function=zoom", szUnknown},
    {"steps=&function=zoom", szUnknown},
    {Long("position=", 9 + 64) + "&function=zoom", szUnknown},
    {Long("position", 64) + "=1&function=zoom", szUnknown},
    {Long("channel=", 8 + 64) + "&function=zoom", szUnknown},
    {"", "[vernierlensd] : Empty query string!\n", 2},
};

TEST(Query, IsParsedOrRefused) {
  for (const TParseCase& tCase : g_atParses) {
    SCOPED_TRACE(tCase.sQuery);
    static TVernierLensdInfo tInfo;
    tInfo.iCurChannel = 2;
    g_tVernierLensdConfigInfo.iMaxDevNum = 4;
    g_tVernierLensdConfigInfo.dwFocusVirtualEnd = 500;
    g_tVernierLensdConfigInfo.dwCapability = tCase.dwCapability;
    TClientRequest tRequest = {};
    testing::internal::CaptureStdout();
    const i32 iResult = VernierLensd_ParseClientCommand(&tInfo, tCase.sQuery.c_str(), &tRequest);
    const std::string sPrinted = testing::internal::GetCapturedStdout();
    const TMotorCommand& tCommand = tRequest.atCommand[tRequest.iChannel];
    char szCommand[160];
    std::snprintf(szCommand, sizeof szCommand, "%d: %u %u %u %u %u %u", tRequest.iChannel, tCommand.dwFunction,
                  tCommand.dwDirection, tCommand.dwSteps, tCommand.dwPosition, tCommand.dwDefaultPosition,
                  tCommand.bIris);
    EXPECT_EQ(iResult == 0 ? szCommand : sPrinted, tCase.szCommand);
    if (iResult == 0) {
      EXPECT_EQ(sPrinted, "[vernierlensd] : Command string: " + tCase.sQuery + "\n");
    }
    EXPECT_EQ(tInfo.iCurChannel, tCase.iCurChannel);
  }
}

TEST(Query, PlusIsABlank) {
  char szQuery[] = "+function=zoom+&steps=+5%2B";
  VernierLensd_PlusToSpace(szQuery);
  EXPECT_STREQ(szQuery, " function=zoom &steps= 5%2B");
  VernierLensd_PlusToSpace(nullptr);
  TLifeEvent tPost = Ask(500, "function=stop&steps=+3");
  tPost.sMethod = "POST";
  const TLifeResult tResult = Live(TCamera("zoom"), {Ask(400, "function=stop&steps=+3"), tPost}, 1000);
  for (const char* szEnd : {"+3\n", " 3\n"})
    EXPECT_EQ(Count(Printed(tResult), "steps=" + std::string(szEnd)), 1U) << szEnd;
}

TEST(Number, StopsAtTheEndsOf32Bits) {
  const std::pair<const char*, i32> atCases[] = {{" \t-7x", -7},
                                                 {"+3", 3},
                                                 {"", 0},
                                                 {"x1", 0},
                                                 {"0x10", 0},
                                                 {"2147483648", 2147483647},
                                                 {"-2147483649", -2147483647 - 1},
                                                 {"99999999999999999999", 2147483647}};
  for (const auto& [szText, iNumber] : atCases) EXPECT_EQ(Text_ToI32(szText), iNumber) << szText;
}

TEST(FocusStart, TakesSixteenNumbersAndNoMore) {
  const struct {
    const char* szList;
    i32 iFirst, iSecond, iLast;
  } atCases[] = {{"1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18", 1, 2, 16},
                 {",,5,,-6", 5, -6, 0},
                 {"", 0, 0, 0},
                 {"x, 7", 0, 7, 0}};
  for (const auto& tCase : atCases) {
    i32 ai[iFocusStartEntries + 1] = {};
    std::string sList = tCase.szList;
    VernierLensd_ParseFocusStartTable(ai, sList.data(), ",");
    EXPECT_TRUE(ai[0] == tCase.iFirst && ai[1] == tCase.iSecond && ai[15] == tCase.iLast && ai[16] == 0) << sList;
  }
}

TEST(TokenFile, TakesKnownKeysOnly) {
  const struct {
    std::string sText;
    u32 dwZoom, dwFocus;  // 7 where the file leaves them alone
  } atCases[] = {{"zoom_motor=12\nfocus_motor=34\nnight_mode=1\n", 12, 34},
                 {"focus_motor=34 zoom_motor=12", 12, 34},
                 {"zoom_motor=1\nzoom_motor=2\n", 2, 7},
                 {"zoom_motor_old=3\n", 3, 7},
                 {"zoom_motor\nfocus_motor=\n", 7, 0},
                 {"zoom_motor=-5\nfocus_motor=4294967296", 4294967291, 2147483647},
                 {"", 7, 7},
                 {std::string(200, 'x') + "zoom_motor=1 focus_motor=2", 7, 2},
                 {std::string(131, 'x') + "zoom_motor=1\nfocus_motor=2", 7, 2},
                 {"zoom_motor=1" + std::string(119, '0') + " focus_motor=2", 2147483647, 2},
                 {"zoom_motor=" + std::string(121, '1') + "\nfocus_motor=2", 7, 2}};
  char szPath[] = "/tmp/vernier_token_XXXXXX";
  const int fd = mkstemp(szPath);
  ASSERT_GE(fd, 0);
  close(fd);
  for (const auto& tCase : atCases) {
    std::ofstream(szPath) << tCase.sText;
    u32 dwZoom = 7;
    u32 dwFocus = 7;
    const TTokenRow atRows[] = {{.sKey = "zoom_motor", .pdwDest = &dwZoom},
                                {.sKey = "focus_motor", .pdwDest = &dwFocus}};
    EXPECT_EQ(TokenFile_Read(szPath, atRows), 0);
    EXPECT_EQ(dwZoom, tCase.dwZoom) << tCase.sText;
    EXPECT_EQ(dwFocus, tCase.dwFocus) << tCase.sText;
  }
  unlink(szPath);
  EXPECT_EQ(TokenFile_Read(szPath, {}), -1);
}

// The later of two commands wins, even if the zoom sends the focus along only after it: here its thread is still busy.
TEST(Commands, NoFollowUpOvertakesANewerCommand) {
  const struct {
    const char* szRule;
    const char* szModel;
    const char* szAsks;
    double dLeast, dMost;  // where the focus ends
  } atCases[] = {
      {"a stop while the zoom goes nowhere", "zoom", "100 focus=1400, 6000 zoom=200, 6150 stop", 1300, 1400},
      {"a stop while the zoom takes up backlash", "zoom", "100 focus=1400, 6000 zoom=190, 6380 stop", 1250, 1400},
      {"a focus while the zoom walks to its reference", "zoom", "100 motorreset, 1000 zoom=400, 2000 focus=900", 900,
       900},
      {"a focus while a zoom before it takes up backlash", "zoom", "100 zoom=150, 665 zoom=400, 675 focus=900", 900,
       900},
  };
  for (const auto& tCase : atCases) {
    SCOPED_TRACE(tCase.szRule);
    const TCamera tCamera(tCase.szModel);
    const TLifeResult tResult = LiveToRest(tCamera, Asks(tCase.szAsks), 30'000);
    EXPECT_GE(tCamera.Truth(LENS_FOCUS), tCase.dLeast) << Tale(tResult);
    EXPECT_LE(tCamera.Truth(LENS_FOCUS), tCase.dMost) << Tale(tResult);
  }
}

// In blocking mode no walk can be interrupted.  A focus that already follows is not sent a second time after a stop.
TEST(Commands, StopOnABlockingLensSendsNoSecondFocus) {
  const std::string sMoves = "100 focus=1400, 6000 zoom=160";
  std::string asRequests[2];
  for (const bool bStop : {false, true}) {
    const TLifeResult tResult = Live(TCamera("thermal"), Asks(sMoves + (bStop ? ", 6150 stop" : "")), 12'000);
    asRequests[bStop ? 1 : 0] = Requests(tResult, "focusmotor");
  }
  EXPECT_EQ(asRequests[1], asRequests[0]);
}

TEST(Commands, BackupEndsOnBothSavedPositions) {
  const std::string sBackup = EventFrame("<message><autofocus>rising</autofocus></message>");
  for (const char* szFile : {"zoom_motor=300\nfocus_motor=640\n", "focus_motor=640\nzoom_motor=300\n"}) {
    for (const char* szModel : {"zoom", "thermal"}) {
      SCOPED_TRACE(szFile);
      const TCamera tCamera(szModel);
      tCamera.Write(szBackupPath, szFile);
      const TLifeResult tResult = LiveToRest(tCamera, {Frame(100, tCamera, sBackup)}, 20'000);
      EXPECT_EQ(tCamera.Truth(LENS_ZOOM), 300);
      EXPECT_EQ(tCamera.Truth(LENS_FOCUS), 640) << Tale(tResult);
    }
  }
}

// A command for the iris or the default focus needs no walk.  It is carried out even if another command replaces it.
TEST(Commands, NoneWithoutAWalkIsLost) {
  const struct {
    const char* szModel;
    const char* szAsks;
    u64 qwEnd_ms;
    i32 iIris;
    const char* szDefault;
  } atCases[] = {
      {"zoom", "2000 irisopen, 4000 focus=900, 4500 irisenable, 4500 focus+3", 9000, 0, ""},
      {"thermal", "2000 irisopen, 4000 focus=900, 4100 irisenable, 4110 focus+3", 9000, 0, ""},
      {"thermal", "2000 focus=900, 2100 irisenable, 2110 irisopen, 2120 stop", 9000, 1, ""},
      {"focus", "20000 focus=900, 20100 setfocusdefault&defaultposition=333, 20110 stop", 25'000, 0, "333\n"},
      {"focus", "20000 focus=900, 20100 setfocusdefault&defaultposition=333", 20'200, 0, "333\n"},
  };
  for (const auto& tCase : atCases) {
    const TCamera tCamera(tCase.szModel);
    const auto PrintIris = [&](TWorld*) { std::printf("iris %u\n", Judge_Published(tCamera, BLOCK_IRIS_REQUEST, 0)); };
    const TLifeResult tResult =
        Live(tCamera, Asks(tCase.szAsks, {Ask(tCase.qwEnd_ms - 5, szStatus), Call(tCase.qwEnd_ms - 1, PrintIris)}),
             tCase.qwEnd_ms);
    SCOPED_TRACE(tCase.szAsks + Tale(tResult));
    EXPECT_EQ(Judge_Order(tResult), "");
    EXPECT_EQ(StatusValue(tResult.asReplies.back(), "iris_open"), tCase.iIris);
    EXPECT_TRUE(HasPrinted(tResult, "iris " + std::to_string(tCase.iIris)));
    EXPECT_TRUE(tCase.szDefault[0] == '\0' || tCamera.Read(szFocusDefaultPath) == tCase.szDefault);
  }
}

// Each repeat of a held zoom is a new command, newer than a focus command that a client sent during the hold.
TEST(Commands, FocusFollowsAHeldZoomOn) {
  const TCamera tCamera("zoom");
  const TLifeResult tResult = LiveToRest(tCamera,
                                         Asks("5000 focus=60", {Frame(2000, tCamera, Button("zoomin", "pressed")),
                                                                Frame(9000, tCamera, Button("zoomin", "released"))}),
                                         60'000);
  EXPECT_LT(DepthsOff(tCamera), 5) << Tale(tResult);
}

// The next move finds a lost reference.  A stop starts no motor for it, nor does an auto focus, which stops the zoom.
TEST(Commands, StopStartsNoMotor) {
  const TCamera tWrong("zoom");
  const TDriverFault tRefused = {.dwRequest = MOTOR_WALK_STEPS, .iPassed = 0, .iTimes = 1, .iAdded = 0};
  const auto Refuse = [&](TWorld* pt) { pt->tLens.atFault[LENS_ZOOM] = tRefused; };
  TLifeResult tResult = Live(tWrong, Asks("1000 zoom=600, 20000 stop", {Call(900, Refuse)}), 60'000);
  EXPECT_EQ(Count(Requests(tResult, "zoommotor"), "WALK"), 1U) << Tale(tResult);

  const TCamera tQuad("quad");
  tQuad.Write(szStatusPath, "backup\n");
  for (const ELensAxis eAxis : g_aeAxes) tQuad.Place(eAxis, 120, 1);
  tResult = Live(tQuad, Asks("60000 stop, 90000 auto"), 150'000);
  for (const ELensAxis eAxis : g_aeAxes) EXPECT_EQ(tQuad.Truth(eAxis, 1), 120) << Tale(tResult);
}

// After a power cut the log stays until a search has ended or a client has chosen a focus position.
TEST(Commands, RecoveryOutlastsWhateverComesBetween) {
  for (const char* szModel : {"zoom", "thermal", "ics"}) {
    const u64 qwFrom_ms = std::string_view(szModel) == "ics" ? 5000 : 0;
    for (const char* szQuery : {"irisopen", "irisenable", "stop", "motorreset", "scan"}) {
      for (const u64 qwAt_ms : {300U, 2500U, 9000U, 12'000U}) {  // the walk to the reference, then the search
        const TCamera tCamera(szModel);
        tCamera.Write(szZoomLogPath, "");
        const std::string sStop = std::string_view(szQuery) == "scan" ? ", 19000 stop" : "";
        const TLifeResult tResult =
            Live(tCamera, Asks(std::to_string(qwFrom_ms + qwAt_ms) + " " + szQuery + sStop), 99'500);
        SCOPED_TRACE(szModel + std::string(" ") + szQuery + " at " + std::to_string(qwAt_ms) + Tale(tResult));
        EXPECT_EQ(Judge_Order(tResult), "");
        const bool bSearched = szQuery[0] == 'i';
        EXPECT_EQ(DepthsOff(tCamera) < 1, bSearched) << DepthsOff(tCamera);
        EXPECT_EQ(Exists(tCamera, szFocusLogPath), !bSearched);
        EXPECT_FALSE(bSearched && Exists(tCamera, szZoomLogPath));
        if (bSearched) continue;
        // The next start searches.
        Live(tCamera, {}, 99'000);
        EXPECT_LT(DepthsOff(tCamera), 1);
        EXPECT_FALSE(Exists(tCamera, szFocusLogPath));
      }
    }
  }
}

// A client's command that is replaced before a thread takes it does not end the recovery.  A focus move that has run to
// its end does, since the client has chosen the position.  Judged by the glass and by the log.
TEST(Commands, RecoveryGoesOnUnlessAClientTakesItsPlace) {
  const struct {
    const char* szModel;
    const char* szAsks;
    bool bSharp, bLog;
  } atCases[] = {
      {"zoom", "300 focus=900, 310 irisopen", true, false},
      {"focus", "300 focus=900, 310 irisopen, 6000 focus=900, 6000 irisenable", true, false},
      {"thermal", "300 focus=900, 301 irisopen, 302 focus=900, 303 irisenable", true, false},
      {"thermal", "300 focus=900, 301 stop, 302 irisopen", false, true},
      {"quad", "100 stop, 110 irisopen", false, true},
      {"quad", "100 focus=900, 110 irisopen", true, false},
      {"zoom", "0 focus=900, 0 irisopen", true, false},
      {"thermal", "5000 stop, 6000 focus=900, 6100 irisopen", false, false},
      {"thermal", "5000 stop, 6000 zoom=90, 6320 stop", true, false},
  };
  for (const auto& tCase : atCases) {
    const TCamera tCamera(tCase.szModel);
    tCamera.Write(szFocusLogPath, "");
    const TLifeResult tResult = Live(tCamera, Asks(tCase.szAsks, {Ask(99'000, szStatus)}), 99'500);
    SCOPED_TRACE(tCase.szModel + std::string(" ") + tCase.szAsks + Tale(tResult));
    EXPECT_EQ(Judge_Order(tResult), "");
    EXPECT_EQ(Judge_Belief(tResult.asReplies.back(), LENS_FOCUS, tCamera.Truth(LENS_FOCUS)), "");
    EXPECT_EQ(DepthsOff(tCamera) < 1, tCase.bSharp) << DepthsOff(tCamera);
    EXPECT_EQ(Exists(tCamera, szFocusLogPath), tCase.bLog);
  }
}

// A search starts from the focus of the present zoom position, however the zoom got there, on each channel.
TEST(Commands, SearchFindsFocusWhereverTheZoomHasGone) {
  const std::pair<const char*, const char*> atCases[] = {
      {"zoom", "100 motorreset, 10000 scan"},
      {"quad", "60000 channel=1&zoom=390, 80000 scan"},
      {"quad", "60000 positioning, 60500 channel=1&zoom=390, 90000 auto"},
      // After a stopped zoom a search would start from its target's focus.  A zoom by 0 steps corrects that.
      {"zoom", "100 zoom=750, 1500 stop, 2000 zoom+0, 9000 auto"},
  };
  for (const auto& [szModel, szAsks] : atCases) {
    SCOPED_TRACE(std::string(szModel) + " " + szAsks);
    ForSeeds(4, [&, szModel = szModel, szAsks = szAsks](u64 qwSeed) {
      const TCamera tCamera(szModel);
      const TLifeResult tResult = LiveToRest(tCamera, Asks(szAsks), 180'000, qwSeed);
      EXPECT_LT(DepthsOff(tCamera), 1) << Tale(tResult);
    });
  }
}

}  // namespace
