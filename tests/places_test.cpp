// Surroundings with something wrong: a printed line, then the promised end, or the daemon goes on without spinning.
#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <filesystem>

#include "short_lives.h"

namespace {

constexpr u64 qwEnd_ms = 300'000;

struct TPlace {
  const char* szName;
  std::function<void(const TCamera&)> fnPrepare;
  std::vector<TLifeEvent> atEvents;
  const char* szLine;
  bool bGoesOn;  // else the start fails, or the daemon ends by itself
};

TLifeEvent SetWord(u64 qwAt_ms, u32 TWorld::*pbWord, u32 bOn) {
  return Call(qwAt_ms, [=](TWorld* ptWorld) { ptWorld->*pbWord = bOn; });
}

TLifeEvent SetClock(u64 qwAt_ms, i64 llBy_s) {
  return Call(qwAt_ms, [=](TWorld* ptWorld) { ptWorld->qwWallAtZero_us += static_cast<u64>(llBy_s * 1'000'000); });
}

// Puts a folder that is not empty in the path's place.
std::function<void(const TCamera&)> Blocked(const char* szPath) {
  return [=](const TCamera& tCamera) {
    std::filesystem::remove_all(tCamera.Path(szPath));
    std::filesystem::create_directories(tCamera.Path(szPath) + "/x");
  };
}
std::function<void(const TCamera&)> Gone(const char* szPath) {
  return [=](const TCamera& tCamera) { std::filesystem::remove_all(tCamera.Path(szPath)); };
}
std::function<void(const TCamera&)> Set(u32 TWorld::*pbWord) {
  return [=](const TCamera& tCamera) { ChangeWorld(tCamera, [=](TWorld& tWorld) { tWorld.*pbWord = 1; }); };
}
void LinkAtFIFO(const TCamera& tCamera) {
  std::filesystem::create_symlink("/nowhere", tCamera.Path(szFIFOPath));
}
void FolderAtFIFO(const TCamera& tCamera) {
  std::filesystem::create_directory(tCamera.Path(szFIFOPath));
}
void Nothing(const TCamera&) {}

TEST(Place, CostsALineAndNoMore) {
  constexpr i64 llYear_s = 365 * 86'400;
  const char* szGoesOn = "[vernierlensd] : select timeout";
  const char* szNotSaved = "[vernierlensd] : VernierLensd_SaveConfigFile failed.";
  const TPlace atPlaces[] = {
      {"no program file", Gone("/usr/sbin/vernierlensd"), {}, "[vernierlensd] : shmget failed.", false},
      {"no right to the shared block", Blocked("/shm/0"), {}, "[vernierlensd] : shmget failed.", false},
      {"no folder for the FIFO", Gone("/tmp"), {}, "[vernierlensd] : Failed to create FIFO.", false},
      {"a dangling link at the FIFO's path", LinkAtFIFO, {}, szGoesOn, true},
      {"an empty folder at the FIFO's path", FolderAtFIFO, {}, szGoesOn, true},
      {"no folder for the PID",
       Gone("/var/run"),
       {},
       "[vernierlensd] : /var/run/vernierlensd.lock cannot be made, so a second daemon would not be noticed.",
       true},
      {"flash full from the start", Set(&TWorld::bFlashFull), {}, szNotSaved, true},
      {"flash read-only from the start", Set(&TWorld::bFlashReadOnly), {}, szNotSaved, true},
      {"select fails for a minute",
       Nothing,
       {SetWord(30'000, &TWorld::bSelectFails, 1), SetWord(90'000, &TWorld::bSelectFails, 0)},
       "[vernierlensd] : select failed.",
       true},
      {"clock a year back", Nothing, {SetClock(40'000, -llYear_s)}, szGoesOn, true},
      {"clock a year on", Nothing, {SetClock(40'000, llYear_s)}, szGoesOn, true},
  };
  for (const TPlace& tPlace : atPlaces) {
    const TCamera tCamera("thermal");
    tPlace.fnPrepare(tCamera);
    std::vector<TLifeEvent> atEvents = tPlace.atEvents;
    if (tPlace.bGoesOn) atEvents.push_back(Frame(39'000, tCamera, Button("zoomin", "pressed")));
    if (tPlace.bGoesOn) atEvents.push_back(Frame(41'000, tCamera, Button("zoomin", "released")));
    atEvents.push_back(Ask(120'000, "function=focus&direction=direct&position=700"));
    atEvents.push_back(Call(150'000, [](TWorld* ptWorld) { ptWorld->dTemperature_C += 20; }));
    atEvents.push_back(Ask(qwEnd_ms - 500, szStatus));
    const TLifeResult tResult = Live(tCamera, atEvents, qwEnd_ms);
    SCOPED_TRACE(tPlace.szName);
    EXPECT_EQ(Judge_Order(tResult), "") << Tale(tResult);
    EXPECT_TRUE(HasPrinted(tResult, tPlace.szLine)) << Tale(tResult);
    if (!tPlace.bGoesOn) {
      EXPECT_LT(tResult.qwTime_us, 1'000'000U);
      continue;
    }
    // The main thread and each motor thread wake about once in 3 seconds, and after a failed select ten times a second.
    EXPECT_LT(tResult.qwEvents, 9'000U) << Tale(tResult);
    EXPECT_LT(tResult.qwTime_us, (qwEnd_ms + 5'000) * 1000);
    ASSERT_FALSE(tResult.asReplies.empty());
    const std::string& sReply = tResult.asReplies.back();
    for (const ELensAxis eAxis : g_aeAxes) {
      EXPECT_EQ(Judge_Belief(sReply, eAxis, tCamera.Truth(eAxis)), "") << Tale(tResult);
    }
    EXPECT_NE(StatusValue(sReply, "focus_motor"), 700) << "the temperature is followed" << Tale(tResult);
    EXPECT_EQ(StatusValue(sReply, "zoom_enable"), 0) << "a hold across a jump of the clock ends" << Tale(tResult);
  }
}

// Calls that fail: the gateway or the FIFO must be made anew, a restore cannot be sent, a release fails, a wake-up is
// lost, an axis takes no commands.  A client sends the zoom to 300 and then the focus to 600.  In the rows with an odd
// zoom position a button then makes one more step.
TEST(Place, CallThatFailsCostsItsLines) {
  const std::string sRelease = "VernierLensd_Release failed.",
                    sThread = "Release resources...[vernierlensd] : TaskShim_Release failed.";
  const struct {
    std::vector<TFailingCall> atCalls;
    std::vector<std::string> asLines;
    i32 iZoom, iFocus = -1;  // where the true motors end; -1 anywhere
    i32 iStatus = 0;
    std::size_t dwClosed = 1;  // how often the gateway is closed
    const char* szWord = "normal\n";
  } atCases[] = {
      {{{"GATELINK_read", 0, 1}}, {"Reinitialize GATELink..."}, 301, -1, 0, 2},
      {{{"GATELINK_read", 1, 1}, {"GATELINK_init", 1, 1}}, {"VernierLensd_GateLinkCommandHandler failed."}, 201},
      {{{"write", 0, 1}}, {"VernierLensd_RestoreAutoFocus failed."}, 200, 485, 0, 1, "restore\n"},
      {{{"mkfifo", 1, 8}}, {"Failed to create FIFO.", "VernierLensd_InitFIFO failed."}, 300, 600},
      {{{"shmdt", 0, 1}}, {"Release resources...[vernierlensd] : shmdt failed.", sRelease}, 301, -1, 1, 0},
      {{{"pthread_join", 0, 1}}, {sThread, sRelease}, 301, -1, 1, 0},
      {{{"pthread_join", 1, 1}}, {sThread, sRelease}, 301, -1, 1, 0},
      {{{"send", 0, 1}}, {"Waking up zoom motor thread failed."}, 301},
      {{{"socketpair", 0, 1}}, {"Waking up focus thread failed."}, 301, 485},
      {{{"socketpair", 1, 1}}, {"Waking up zoom motor thread failed."}, 200, 600},
  };
  for (const auto& tCase : atCases) {
    const TCamera tCamera("zoom");
    ChangeWorld(tCamera, [&](TWorld& tWorld) { std::ranges::copy(tCase.atCalls, tWorld.atFailingCalls); });
    tCamera.Write(szStatusPath, tCase.szWord);
    std::vector<TLifeEvent> atEvents = Asks("100 getstatus, 500 zoom=300, 12000 focus=600");
    // With clients that ask all the time, no wait of the main thread times out.
    for (u64 qw = 1; qw < 20; qw++) atEvents.push_back(Ask(500 + 500 * qw, szStatus));
    if (tCase.iZoom != 200) atEvents.push_back(Frame(11'000, tCamera, "\x01\x01"));
    if (tCase.iZoom % 2 == 1) atEvents.push_back(Frame(13'000, tCamera, Button("zoomin", "pressed")));
    if (tCase.iZoom % 2 == 1) atEvents.push_back(Frame(13'100, tCamera, Button("zoomin", "released")));
    const TLifeResult tResult = Live(tCamera, atEvents, 40'000);
    SCOPED_TRACE(std::string(tCase.atCalls[0].szCall) + Tale(tResult));
    // A failed release leaves a thread unjoined, for which ThreadSanitizer ends the life with a status of its own.
    const bool bLeft = tCase.iStatus == 1 && tResult.iStatus == 66;
    EXPECT_TRUE(tResult.eEnd == LIFE_EXITED && (tResult.iStatus == tCase.iStatus || bLeft));
    for (const std::string& sLine : tCase.asLines) EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : " + sLine));
    EXPECT_EQ(tCamera.Truth(LENS_ZOOM), tCase.iZoom);
    EXPECT_TRUE(tCase.iFocus < 0 || tCamera.Truth(LENS_FOCUS) == tCase.iFocus) << tCamera.Truth(LENS_FOCUS);
    EXPECT_EQ(Count(tResult.sTranscript, "gateway closes"), tCase.dwClosed);
    EXPECT_EQ(tCamera.Read(szStatusPath), tCase.szWord);
    EXPECT_LT(tResult.qwEvents, 5'000U) << "nothing spins";
    EXPECT_LT(tResult.qwTime_us, 45'000'000U);
  }
}

// The zoom's search for its sensor takes 100 s.  The focus waits for it if the configuration gives the driver's step
// time.  If not, the focus gives up and stays where it is believed, until a later move finds the sensor.
TEST(Place, SearchThatDoesNotBeginChangesNothing) {
  for (const bool bTold : {true, false}) {
    for (const char* szQuery : {"scan", "motorreset"}) {
      SCOPED_TRACE(std::string(szQuery) + (bTold ? ", told" : ", not told"));
      const TCamera tCamera("quad");
      const auto LiveWith = [&](const std::string& sThen) {
        EXPECT_EQ(Life_ResetRoot(tCamera.sRoot), 0);
        tCamera.Write(szCapabilityPath, "<root><capability><nvideoin>1</nvideoin></capability></root>");
        tCamera.Write(szPositionsPath, "zoom_motor=390\nfocus_motor=380\n");
        if (bTold) SetConfig(tCamera, "zoom/onesteptime", "120000");
        ChangeWorld(tCamera, [](TWorld& tWorld) { tWorld.tLens.atModel[LENS_ZOOM].qwStepTime_ns *= 60; });
        const std::string sFirst = "200000 motorreset, 220000 focus=150, 230000 ";
        return Live(tCamera, Asks(sFirst + szQuery + sThen + ", 900000 getstatus"), 901'000);
      };
      const TLifeResult tResult = LiveWith("");
      EXPECT_EQ(Count(Printed(tResult), "waiting too long") > 0, !bTold) << Tale(tResult);
      EXPECT_EQ(Judge_Belief(tResult.asReplies.back(), LENS_FOCUS, tCamera.Truth(LENS_FOCUS)), "") << Tale(tResult);
      EXPECT_EQ(Exists(tCamera, szFocusLogPath), !bTold) << Tale(tResult);
      if (bTold) continue;
      const TLifeResult tMoved = LiveWith(", 800000 focus=222");
      EXPECT_EQ(tCamera.Truth(LENS_FOCUS), 222) << Tale(tMoved);
      EXPECT_FALSE(Exists(tCamera, szFocusLogPath)) << Tale(tMoved);
    }
  }
}

// A walk to the stop that the daemon would not wait out costs a printed line.  Even a long range has its whole walk.
TEST(Place, WalkToTheStopIsLongEnough) {
  const struct {
    const char *szEnd, *szOneStep, *szOneStepTime, *szPositioningStep;
    const char* szLine;  // of the focus, "" none
    bool bBlocking = false;
  } atCases[] = {
      {"1000", "6", "1000", "6020", "is slept out for 999 ms, the range takes up to 1000 ms."},
      {"1000", "6", "1000", "6025", ""},
      {"1000", "6", "1000", "6020", "", true},
      {"1000", "8", "1000", "7999", "is slept out for 999 ms, the range takes up to 1000 ms."},
      {"1000", "8", "1000", "8000", ""},
      {"60000", "64", "1000", "3900000", "is slept out for 58500 ms, the range takes up to 60000 ms."},
      {"60000", "64", "960", "7680001", "= 7680001 is no size of a lens, 7680000 is used."},
      {"1000", "8", "1000", "1000001", "= 1000001 is no size of a lens, 1000000 is used."},
  };
  for (const auto& tCase : atCases) {
    SCOPED_TRACE(std::string(tCase.szOneStepTime) + " " + tCase.szPositioningStep);
    const TCamera tCamera("zoom");
    SetConfig(tCamera, "focus/virtual/end", tCase.szEnd);
    SetConfig(tCamera, "focus/virtual/onestep", tCase.szOneStep);
    SetConfig(tCamera, "focus/onesteptime", tCase.szOneStepTime);
    SetConfig(tCamera, "focus/motor/positioningstep", tCase.szPositioningStep);
    SetConfig(tCamera, "blockingmode", tCase.bBlocking ? "1" : "0");
    const TLifeResult tResult = Live(tCamera, {}, 1'000);
    const std::string sLine = "[vernierlensd] : focus/motor/positioningstep";
    EXPECT_EQ(Count(Printed(tResult), sLine), tCase.szLine[0] != '\0' ? 1U : 0U) << Tale(tResult);
    EXPECT_NE(Printed(tResult).find(tCase.szLine), std::string::npos) << Tale(tResult);
    EXPECT_EQ(Count(Printed(tResult), "[vernierlensd] : zoom/motor/positioningstep"), 0U) << Tale(tResult);
  }
}

// While another daemon has the camera, a second one waits as long as a release may take, and a little longer.
TEST(Place, SuccessorOutwaitsARelease) {
  const struct {
    const char* szLocked;
    u64 qwFreed_ms, qwEnd_ms;  // 0: never
    const char* szLine;
    u64 qwAtLeast_ms;
  } atCases[] = {
      {"/var/run/vernierlensd.lock", 590'000, 620'000, "[vernierlensd] : select timeout", 590'000},
      {"/var/run/vernierlensd.lock", 0, 700'000, "[vernierlensd] : Another daemon owns the lens.", 600'000},
      {"/var/run/vernierlensd.lock", 0, 5000, "[vernierlensd] : Asked to end while another daemon owns the lens.",
       5000},
      {"/etc/conf.d/vernierlensd", 0, 5000, "[vernierlensd] : select timeout", 3000},  // anybody may lock this folder
  };
  for (const auto& tCase : atCases) {
    const TCamera tCamera("zoom");
    const std::string sPath = tCamera.Path(tCase.szLocked);
    const int fd = std::filesystem::is_directory(sPath) ? open(sPath.c_str(), O_RDONLY)
                                                        : open(sPath.c_str(), O_RDWR | O_CREAT, 0600);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    std::vector<TLifeEvent> atEvents;
    if (tCase.qwFreed_ms != 0) atEvents.push_back(Call(tCase.qwFreed_ms, [fd](TWorld*) { flock(fd, LOCK_UN); }));
    const TLifeResult tResult = Live(tCamera, atEvents, tCase.qwEnd_ms);
    EXPECT_EQ(Judge_Order(tResult), "") << Tale(tResult);
    EXPECT_GE(TimeOf_us(tResult, tCase.szLine), tCase.qwAtLeast_ms * 1000) << Tale(tResult);
    close(fd);
    const auto tMode = std::filesystem::status(tCamera.Path("/var/run/vernierlensd.lock")).permissions();
    EXPECT_EQ(tMode, std::filesystem::perms{0600});
  }
}

}  // namespace
