// Start-up on files that are broken or missing, release after each failed step, the command line.
#include <fcntl.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>

#include "short_lives.h"

namespace {

struct TBreak {
  const char* szPath;
  const char* szText;  // null: the file is missing; szFolder: a folder that is not empty
  const char* szLine;  // what start-up prints
  const char* szThen;  // the line of the layer above
};

constexpr const char* szFolder = "a folder";
constexpr const char* szTypeFailed = "[vernierlensd] : VernierLensd_CheckLensType failed.";
constexpr const char* szLoadFailed = "[vernierlensd] : VernierLensd_LoadConfigFile failed.";

TEST(Start, BrokenFilesEndItInOrder) {
  const TBreak atBreaks[] = {
      {szVideoInPath, nullptr, "[vernierlensd] : SXMLParser_Process failed = 0xffffffff\r", szTypeFailed},
      {szVideoInPath, "", "[vernierlensd] : Parse root_videoin_c0_lens_modelname error.", szTypeFailed},
      {szVideoInPath, "<root><videoin>", "[vernierlensd] : SXMLParser_Process failed = 0x80000010\r", szTypeFailed},
      {szVideoModePath, "<root></root>", "[vernierlensd] : Parse root_capability_videoin_c0_lens_type error.",
       szTypeFailed},
      {szCapabilityPath, nullptr, "[vernierlensd] : XML parser failed, index = -1.", szLoadFailed},
      {szCapabilityPath, "<root>\n<capability>", "[vernierlensd] : XML parser failed, index = 2.", szLoadFailed},
      {szImageFeaturePath, nullptr, "[vernierlensd] : XML parser failed, index = -1.", szLoadFailed},
      {szConfigPath, "", "[vernierlensd] : XML parser failed, index = 1.", szLoadFailed},
      {szPositionsPath, nullptr, "[vernierlensd] : fopen /etc/conf.d/vernierlensd/vernierlensd.conf failed!",
       szLoadFailed},
      {szPositionsPath, szFolder, "[vernierlensd] : fopen /etc/conf.d/vernierlensd/vernierlensd.conf failed!",
       szLoadFailed},
      {szFIFOPath, szFolder, "[vernierlensd] : Failed to remove /tmp/VernierLensFIFO.",
       "[vernierlensd] : VernierLensd_InitFIFO failed."},
  };
  for (const TBreak& tBreak : atBreaks) {
    const TCamera tCamera("zoom");
    const std::string sSaved = tCamera.Read(szPositionsPath), sPath = tCamera.Path(tBreak.szPath);
    std::filesystem::remove(sPath);
    if (tBreak.szText == szFolder) std::filesystem::create_directories(sPath + "/x");
    if (tBreak.szText != nullptr && tBreak.szText != szFolder) tCamera.Write(tBreak.szPath, tBreak.szText);
    const bool bThere = std::filesystem::is_regular_file(tCamera.Path(szPositionsPath));
    const TLifeResult tResult = Live(tCamera, {}, 1000);
    SCOPED_TRACE(tBreak.szPath + Tale(tResult));
    EXPECT_EQ(Judge_Order(tResult), "");
    EXPECT_TRUE(HasPrinted(tResult, tBreak.szLine));
    EXPECT_NE(Printed(tResult).find(std::string(tBreak.szThen) + "\n[vernierlensd] : VernierLensd_Init failed.\n"
                                                                 "[vernierlensd] : Release resources...OK\n"),
              std::string::npos);
    EXPECT_EQ(Requests(tResult, "zoommotor"), "");
    if (bThere) {
      EXPECT_EQ(tCamera.Read(szPositionsPath), sSaved) << "a start that fails costs nothing that was saved";
    }
  }
}

// With nonsense in its configuration the daemon stays safe: it answers, every move ends, and SIGTERM ends it.
TEST(Start, NonsenseRunsAndStaysSafe) {
  const std::pair<std::string, const char*> atValues[] = {
      {"onestep", "0"},     {"onestep", "-8"},      {"onestep", "99999999999"},
      {"onesteptime", "0"}, {"onesteptime", "-1"},  {"end", "-1"},
      {"end", "0"},         {"start", "-1"},        {"adjuststep", "-1"},
      {"totalstep", "0"},   {"adjuststep", "word"}, {"nvideoin", "0"},
      {"nvideoin", "6"},    {"nvideoin", "-1"},     {"focusstart", ""}};
  for (const auto& [sElement, szValue] : atValues) {
    const TCamera tCamera("zoom");
    SetElement(tCamera, sElement == "nvideoin" ? szCapabilityPath : szConfigPath, sElement, szValue);
    const TLifeResult tResult =
        Live(tCamera, Asks("100 zoom=400, 5000 zoom-30, 9000 getstatus, 9100 getparam&position=9"), 9500);
    SCOPED_TRACE(sElement + " " + szValue + "\n" + Tale(tResult));
    EXPECT_EQ(Judge_Order(tResult), "");
    ASSERT_EQ(tResult.asReplies.size(), 4U);
    EXPECT_EQ(StatusValue(tResult.asReplies[2], "zoom_enable"), 0);
    EXPECT_LT(tResult.qwTime_us, 15'000'000U);
  }
}

// An end that no lens has holds up neither a walk to the reference nor a search: each ends within the range.
TEST(Start, EndThatNoLensHasHoldsNothingUp) {
  for (const char* szModel : {"zoom", "focus"}) {  // the reference is 0 for the first, the end for the second
    for (const char* szFirst : {"100 scan", "100 positioning"}) {
      const TCamera tCamera(szModel);
      ReplaceInConfig(tCamera, "<end>[0-9]+", "<end>-1");
      const auto atEvents = Asks(std::string(szFirst) + ", 90000 focus=9, 100000 getstatus");
      const TLifeResult tResult = Live(tCamera, atEvents, 101'000);
      SCOPED_TRACE(std::string(szModel) + " " + szFirst + Tale(tResult));
      EXPECT_EQ(Judge_Order(tResult), "");
      ASSERT_EQ(tResult.asReplies.size(), 3U);
      EXPECT_EQ(StatusValue(tResult.asReplies[2], "focus_enable"), 0);
      EXPECT_EQ(StatusValue(tResult.asReplies[2], "focus_motor"), 0);
      EXPECT_LT(tResult.qwTime_us, 102'000'000U);
    }
  }
}

TEST(Start, TableOfFourBillionEntriesEndsIt) {
  const TCamera tCamera("zoom");
  SetElement(tCamera, szConfigPath, "totalstep", "4294967295");
  const TLifeResult tResult = Live(tCamera, {}, 1000);
  EXPECT_EQ(Judge_Order(tResult), "") << Tale(tResult);
  EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Create focus pan table failed.")) << Tale(tResult);
}

// An impossible saved position counts as a power loss: both logs are made before anything else, and the lens is found.
TEST(Start, FalsePositionsArePowerLosses) {
  const struct {
    std::string sSaved;
    const char* szChannels;
    const char* szLine;
  } atCases[] = {
      {"zoom_motor=-5\nfocus_motor=485\n", "1", "Saved position -5 is outside the range, 0 is used."},
      {"zoom_motor=200\nfocus_motor=1481\n", "1", "Saved position 1481 is outside the range, 1480 is used."},
      {"", "1", "Saved zoom_motor is absent or no number, 0 is used."},
      {"zoom_motor=200\n", "1", "Saved focus_motor is absent or no number, 0 is used."},
      {"zoom_motor=abc\nfocus_motor=485\n", "1", "Saved zoom_motor is absent or no number, 0 is used."},
      {"zoom_motor=200\nfocus_motor=\n", "1", "Saved focus_motor is absent or no number, 0 is used."},
      {std::string(31, '\0'), "1", "Saved zoom_motor is absent or no number, 0 is used."},
      {"zoom_motor=20" + std::string(18, '\0'), "1", "Saved zoom_motor is absent or no number, 20 is used."},
      {"zoom_motor=200\nfocus_motor=485\n", "0", "nvideoin = 0 is no number of channels, channel 0 is not known."},
      {"zoom_motor=200\nfocus_motor=485\n", "-1", "nvideoin = -1 is no number of channels, channel 0 is not known."},
      {"zoom_motor=200\nfocus_motor=485\n", "", "nvideoin = 0 is no number of channels, channel 0 is not known."}};
  for (const auto& tCase : atCases) {
    const TCamera tCamera("zoom");
    tCamera.Write(szPositionsPath, tCase.sSaved);
    SetElement(tCamera, szCapabilityPath, "nvideoin", tCase.szChannels);
    tCamera.Place(LENS_ZOOM, 500);
    tCamera.Place(LENS_FOCUS, 700);
    SCOPED_TRACE(tCase.sSaved + tCase.szChannels);
    const TLifeResult tResult = LiveToRest(tCamera, {}, 90'000);
    EXPECT_TRUE(HasPrinted(tResult, std::string("[vernierlensd] : ") + tCase.szLine)) << Tale(tResult);
    EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Power loss unexpectedly! Need positioning."));
    for (const char* szLog : {szZoomLogPath, szFocusLogPath}) {
      EXPECT_LT(tResult.sTranscript.find(std::string("create ") + szLog), tResult.sTranscript.find("mkfifo"));
    }
  }
}

// If the status file asks for a restore or backup, both logs are made before the file says "normal".
TEST(Start, LogsStandBeforeNormal) {
  for (const auto& [szModel, szWord] : {std::pair{"zoom", "restore\n"}, {"zoom", nullptr}, {"quad", "backup\n"}}) {
    const TCamera tCamera(szModel);
    std::filesystem::remove(tCamera.Path(szStatusPath));
    if (szWord != nullptr) tCamera.Write(szStatusPath, szWord);
    const std::string sAll = Live(tCamera, {}, 1000).sTranscript;
    const std::size_t dwNormal = sAll.find(std::string(szWord == nullptr ? "create " : "write ") + szStatusPath);
    EXPECT_NE(dwNormal, sAll.npos) << szModel;
    for (const char* szLog : {szZoomLogPath, szFocusLogPath}) {
      EXPECT_LT(sAll.find(std::string("create ") + szLog), dwNormal) << szModel << szLog;
    }
  }
}

// Puts four channels at four different zoom positions.
void PlaceFour(const TCamera& tCamera) {
  for (i32 i = 0; i < 4; i++) {
    tCamera.Place(LENS_ZOOM, 50 + 50 * static_cast<u32>(i), i);
    tCamera.Place(LENS_FOCUS, 100, i);
  }
}

// All channels start from one saved pair of positions.  "backup" in the status file leaves out the sensors' search.
TEST(Start, BackupOfSeveralChannelsFindsTheLens) {
  const TCamera tCamera("quad");
  tCamera.Write(szStatusPath, "backup\n");
  tCamera.Write(szBackupPath, "zoom_motor=150\nfocus_motor=300\n");
  PlaceFour(tCamera);
  const auto LiveAndJudge = [&](u64 qwAsk_ms, i32 iChannels) {
    std::vector<TLifeEvent> atEvents;
    AskEachStatus(atEvents, qwAsk_ms, 4);
    const TLifeResult tResult = Live(tCamera, atEvents, qwAsk_ms + 1'000);
    EXPECT_EQ(Judge_Channels(tCamera, *Lenses_Find("quad"), iChannels, tResult), "") << Tale(tResult);
    return StatusValue(tResult.asReplies.at(0), "zoom_motor");
  };
  EXPECT_EQ(LiveAndJudge(60'000, 1), 150);
  EXPECT_TRUE(Exists(tCamera, szZoomLogPath)) << "the other channels are still to be found";
  LiveAndJudge(200'000, 4);
  EXPECT_FALSE(Exists(tCamera, szZoomLogPath) || Exists(tCamera, szFocusLogPath));
}

// Takes the sensors from four channels and makes their low stops position 0.
void TakeSensorsAway(const TCamera& tCamera) {
  ReplaceInConfig(tCamera, "<support>1", "<support>0");
  ChangeWorld(tCamera, [](TWorld& tWorld) {
    for (const ELensAxis eAxis : g_aeAxes) tWorld.tLens.atModel[eAxis].iOrigin = 0;
  });
  PlaceFour(tCamera);
}

// Without sensors one saved pair cannot be true for several channels, so each channel's first move finds its reference.
// That is no power loss, and a stop does not start it.
TEST(Start, ChannelsWithoutSensorsAreFoundByTheirFirstMove) {
  const TCamera tCamera("quad");
  TakeSensorsAway(tCamera);
  for (i32 iChannel = 0; iChannel < 4; iChannel++) {
    const std::string sOf = " channel=" + std::to_string(iChannel) + "&";
    const auto atEvents =
        Asks("1000" + sOf + "stop, 6000" + sOf + "zoom+2, 90000" + sOf + "zoom=90, 99000" + sOf + "getstatus",
             {Call(5'000, [](TWorld*) { std::puts("stopped"); })});
    const TLifeResult tResult = Live(tCamera, atEvents, 100'000);
    ExpectRest(tCamera, tResult, iChannel);
    const std::string sBefore = tResult.sTranscript.substr(0, tResult.sTranscript.find("print stopped"));
    EXPECT_EQ(Count(sBefore, "WALK"), 0U) << Tale(tResult);
    EXPECT_EQ(Count(Requests(tResult, "zoommotor"), "BACKWARD"), 2U)
        << "the reference once, and back from 2 above the start";
    EXPECT_EQ(Count(Printed(tResult), "Power loss"), 0U);
  }
}

// On a lens without focus a positioning itself finds lost references, but only that of its own channel.
TEST(Start, PositioningLeavesOtherChannelsInDoubt) {
  const TCamera tCamera("quad");
  TakeSensorsAway(tCamera);
  SetElement(tCamera, szImageFeaturePath, "vernierlens", "2");
  const TLifeResult tResult = Live(tCamera, {Ask(1'000, "channel=1&function=positioning")}, 60'000);
  EXPECT_EQ(tCamera.Truth(LENS_ZOOM, 1), 0);
  EXPECT_EQ(tCamera.Truth(LENS_ZOOM, 2), 150) << Tale(tResult);
}

mode_t ModeOf(const TCamera& tCamera, const char* szPath) {
  return static_cast<mode_t>(std::filesystem::status(tCamera.Path(szPath)).permissions());
}

// Saves a position and a focus default.
constexpr const char* szSaveBoth = "100 focus=1000, 60000 setfocusdefault&defaultposition=7";

// Only the owner may write the files that the daemon trusts, whatever the umask.  A stricter mode is kept.
TEST(Start, FilesAreTheOwnersToWrite) {
  const struct {
    mode_t wUmask, wBefore, wAfter;
    bool bMade;  // the default and the status file are new
  } atCases[] = {{0, 0644, 0644, true}, {0, 0600, 0600, false}, {0, 0666, 0644, false}, {077, 0640, 0640, false}};
  for (const auto& tCase : atCases) {
    const TCamera tCamera("focus");
    for (const char* szPath : {szPositionsPath, szFocusDefaultPath}) {
      chmod(tCamera.Path(szPath).c_str(), tCase.wBefore);
    }
    for (const char* szPath : {szFocusDefaultPath, szStatusPath}) {
      if (tCase.bMade) std::filesystem::remove(tCamera.Path(szPath));
    }
    const mode_t wFormer = umask(tCase.wUmask);
    const auto Look = [&](TWorld*) {
      const mode_t wOthers = (ModeOf(tCamera, szPidPath) | ModeOf(tCamera, szFocusLogPath)) & (S_IWGRP | S_IWOTH);
      if (wOthers != 0) std::puts("others may write");
    };
    const TLifeResult tResult = Live(tCamera, Asks(szSaveBoth, {Call(300, Look)}), 70'000);
    umask(wFormer);
    SCOPED_TRACE(std::to_string(tCase.wUmask) + " " + std::to_string(tCase.wBefore) + Tale(tResult));
    EXPECT_FALSE(HasPrinted(tResult, "others may write"));
    EXPECT_EQ(tCamera.Read(szFocusDefaultPath), "7\n");
    for (const char* szPath : {szPositionsPath, szFocusDefaultPath, szStatusPath}) {
      EXPECT_EQ(ModeOf(tCamera, szPath), szPath == szStatusPath ? 0644 : tCase.wAfter) << szPath;
    }
  }
}

// A saved file that is a symbolic link stays one, also if it names a second link or a file that is not there yet.
TEST(Start, LinksStayLinks) {
  const TCamera tCamera("focus");
  const std::string sSaved = tCamera.Path(szPositionsPath), sTarget = tCamera.Path("/mnt/flash/saved");
  std::filesystem::rename(sSaved, sTarget);
  std::filesystem::create_symlink("../../../mnt/flash/saved", tCamera.Path("/etc/conf.d/vernierlensd/second"));
  std::filesystem::create_symlink("second", sSaved);
  std::filesystem::remove(tCamera.Path(szFocusDefaultPath));
  std::filesystem::create_symlink("default", tCamera.Path(szFocusDefaultPath));
  const TLifeResult tResult = Live(tCamera, Asks(szSaveBoth), 70'000);
  EXPECT_TRUE(std::filesystem::is_symlink(sSaved)) << Tale(tResult);
  EXPECT_EQ(Count(tCamera.Read("/mnt/flash/saved"), "focus_motor=1000\n"), 1U) << Tale(tResult);
  EXPECT_TRUE(std::filesystem::is_symlink(tCamera.Path(szFocusDefaultPath)));
  EXPECT_EQ(tCamera.Read("/etc/conf.d/vernierlensd/default"), "7\n");
  // Links in a circle cannot be read, so the start fails.
  std::filesystem::remove(sSaved);
  std::filesystem::create_symlink("vernierlensd.conf", sTarget + "2");
  std::filesystem::rename(sTarget + "2", sSaved);
  EXPECT_TRUE(HasPrinted(Live(tCamera, {}, 1000), szLoadFailed));
}

// A FIFO in a file's place counts as a missing file, and costs a printed line: nothing waits for a writer.
TEST(Start, FifosInTheFilesPlaceAreRefused) {
  const struct {
    const char* szModel;
    const char* szPath;
    const char* szThen;
  } atCases[] = {{"zoom", szVideoInPath, szTypeFailed},
                 {"zoom", szConfigPath, szLoadFailed},
                 {"zoom", szPositionsPath, szLoadFailed},
                 {"zoom", szStatusPath, "[vernierlensd] : VernierlensStatusFILE fopen fail!"},
                 {"zoom", szPanFocusPath, "[vernierlensd] : select timeout"},
                 {"zoom", szLensProfilePath, "[vernierlensd] : select timeout"},
                 {"zoom", szIRCutPath, "[vernierlensd] : SXMLParser_Process failed"},
                 {"zoom", szBackupPath, "[vernierlensd] : fopen failed!"},
                 {"zoom", szPidPath, "[vernierlensd] : select timeout"},
                 {"focus", szFocusDefaultPath, "[vernierlensd] : fopen failed!"},
                 {"ics", szICSPositionsPath, "[vernierlensd] : fopen failed!"},
                 {"ics", "/etc/conf.d/vernierlensd/temp_curve_y0", "[vernierlensd] : fopen failed!"}};
  for (const auto& tCase : atCases) {
    const TCamera tCamera(tCase.szModel);
    std::filesystem::remove(tCamera.Path(tCase.szPath));
    ASSERT_EQ(mkfifo(tCamera.Path(tCase.szPath).c_str(), 0600), 0);
    const std::string sBackup = EventFrame("<message><autofocus>rising</autofocus></message>");
    const auto SendBackup = [&](TWorld*) {
      const int fd = open(tCamera.Path(szFIFOPath).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
      if (fd >= 0 && write(fd, sBackup.data(), sBackup.size()) > 0) close(fd);
    };
    const TLifeResult tResult = Live(tCamera, {SetNight(8'000), Ask(9'000, szStatus), Call(9'500, SendBackup)}, 20'000);
    SCOPED_TRACE(tCase.szPath + Tale(tResult));
    EXPECT_EQ(Judge_Order(tResult), "");
    EXPECT_TRUE(HasPrinted(tResult, tCase.szThen));
    const bool bRead = tCase.szPath != szPidPath && tCase.szPath != szConfigPath;  // not read by the common reader
    EXPECT_EQ(HasPrinted(tResult, std::string("[vernierlensd] : ") + tCase.szPath + " is no regular file."), bRead);
  }
}

// A log that cannot be made is tried once more; then the move goes on.
TEST(Start, LogIsTriedTwice) {
  const TCamera tCamera("zoom");
  ChangeWorld(tCamera, [](TWorld& tWorld) { tWorld.bFlashReadOnly = 1; });
  const TLifeResult tResult = Live(tCamera, Asks("100 focus=490"), 1000);
  const std::string sFailed = tResult.sTranscript.substr(0, tResult.sTranscript.find("FocusCreateLogFile failed!"));
  EXPECT_EQ(Count(sFailed, std::string("write ") + szFocusLogPath + " = -1 EROFS"), 2U) << Tale(tResult);
}

// A start that fails does not remove another daemon's PID file.
TEST(Start, PidFileOfAnotherDaemonStays) {
  const TCamera tCamera("zoom");
  tCamera.Write(szPidPath, "99");
  std::filesystem::remove(tCamera.Path(szConfigPath));
  Live(tCamera, {}, 1000);
  EXPECT_EQ(tCamera.Read(szPidPath), "99");
}

TEST(Start, LeavesAndReplacesItsFiles) {
  const TCamera tCamera("zoom");
  tCamera.Write(szFIFOPath, "stale");
  const auto PrintPid = [&](TWorld*) { std::puts(tCamera.Read(szPidPath).c_str()); };
  const TLifeResult tResult = Live(tCamera, {Call(500, PrintPid)}, 1000);
  EXPECT_EQ(Judge_Order(tResult), "") << Tale(tResult);
  EXPECT_TRUE(HasPrinted(tResult, "4711"));
  EXPECT_TRUE(std::filesystem::is_fifo(tCamera.Path(szFIFOPath)));
  EXPECT_FALSE(Exists(tCamera, szPidPath));
}

TEST(Start, MotorThatIsNotThereEndsTheDaemon) {
  const TCamera tCamera("zoomonly");
  SetElement(tCamera, szImageFeaturePath, "vernierlens", "1");
  const TLifeResult tResult = Live(tCamera, {}, 20'000);
  EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Failed to open device")) << Tale(tResult);
  EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Motor thread ends unexpectedly!"));
  EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Release resources...OK"));
  EXPECT_LT(tResult.qwTime_us, 8'000'000U);
}

// SIGTERM comes at any moment of the start, also when the threads are there and their wake pairs are not yet.
TEST(Start, SigtermEndsItAtOnce) {
  for (const char* szModel : {"zoom", "ics"}) {
    const TCamera tCamera(szModel);
    for (u64 qw = 0; qw < Lives(100); qw++) {
      ASSERT_EQ(Life_ResetRoot(tCamera.sRoot), 0);
      const TLifeEvent tTerm = At((FirstSeed() + qw) * 4519 % 400'000, Signal(0, SIGTERM));
      const TLifeResult tResult = Live(tCamera, {tTerm}, 0, FirstSeed() + qw);
      SCOPED_TRACE(std::string(szModel) + " at " + std::to_string(tTerm.qwAt_us) + " us\n" + Tale(tResult));
      ASSERT_EQ(tResult.eEnd, LIFE_EXITED);
      ASSERT_EQ(tResult.iStatus, 0);
      ASSERT_LT(tResult.qwTime_us, 2'500'000U);
      ASSERT_TRUE(HasPrinted(tResult, "OK") || HasPrinted(tResult, "[vernierlensd] : Release resources...OK"));
    }
  }
}

TEST(Start, OptionsPrintAndTouchNothing) {
  const std::string sVersion = "VernierLensd Version: 1.0.4.0\nLast Modify Date:     2018/06/10 \n";
  const std::string sUsage = "Vernier Lens daemon\nUsage:\nvernierlensd [-d][-v][-h]\nOptions:\n";
  const std::pair<std::vector<std::string>, std::string> atCases[] = {{{"vernierlensd", "-d", "-v"}, sVersion},
                                                                      {{"vernierlensd", "-vd"}, sVersion},
                                                                      {{"vernierlensd", "-x"}, sUsage},
                                                                      {{"vernierlensd", "-d", "-h"}, sUsage}};
  for (const auto& [asArgs, sPrinted] : atCases) {
    const TCamera tCamera("zoom");
    const TLifeResult tResult = Life_Run({.sRoot = tCamera.sRoot, .asArgs = asArgs});
    EXPECT_EQ(tResult.iStatus, 0);
    EXPECT_TRUE(Printed(tResult).starts_with(sPrinted)) << Tale(tResult);
    EXPECT_EQ(Count(Printed(tResult), "Entering"), 0U);
    EXPECT_FALSE(Exists(tCamera, szFIFOPath));
  }
}

}  // namespace
