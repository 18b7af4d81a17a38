// Start-up on files that are broken or missing, release after each failed step, the command line.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "support.h"

namespace {

constexpr const char* szConfig = "/etc/conf.d/vernierlensd/config_vernierlensd.xml";
constexpr const char* szCapability = "/etc/conf.d/config_capability.xml";
constexpr const char* szPositions = "/etc/conf.d/vernierlensd/vernierlensd.conf";

// Puts sNew between the element's tags of the model's configuration.
void SetKey(const TCamera& tCamera, std::string_view sPath, std::string_view sElement, std::string_view sNew) {
  std::string sText = tCamera.Read(sPath);
  const std::size_t dwStart = sText.find("<" + std::string(sElement) + ">") + sElement.size() + 2;
  ASSERT_LT(dwStart, sText.size()) << sElement;
  sText.replace(dwStart, sText.find('<', dwStart) - dwStart, sNew);
  tCamera.Write(sPath, sText);
}

struct TBreak {
  const char* szName;
  std::function<void(const TCamera&)> fnBreak;
  const char* szLine;  // what start-up prints
  const char* szThen;  // the line of the layer above
};

TBreak Removed(const char* szPath, const char* szLine, const char* szThen) {
  return {szPath, [=](const TCamera& tCamera) { unlink(tCamera.Path(szPath).c_str()); }, szLine, szThen};
}

TBreak Replaced(const char* szPath, std::string sText, const char* szLine, const char* szThen) {
  return {szPath, [=](const TCamera& tCamera) { tCamera.Write(szPath, sText); }, szLine, szThen};
}

constexpr const char* szTypeFailed = "[vernierlensd] : VernierLensd_CheckLensType failed.";
constexpr const char* szLoadFailed = "[vernierlensd] : VernierLensd_LoadConfigFile failed.";

TEST(Start, BrokenFilesEndItInOrder) {
  const TBreak atBreaks[] = {
      Removed("/etc/conf.d/config_videoin_c0.xml", "[vernierlensd] : SXMLParser_Process failed = 0xffffffff\r",
              szTypeFailed),
      Replaced("/etc/conf.d/config_videoin_c0.xml", "", "[vernierlensd] : Parse root_videoin_c0_lens_modelname error.",
               szTypeFailed),
      Replaced("/etc/conf.d/config_videoin_c0.xml", "<root><videoin>",
               "[vernierlensd] : SXMLParser_Process failed = 0x80000010\r", szTypeFailed),
      Replaced("/etc/conf.d/config_videomode_c0.xml", "<root></root>",
               "[vernierlensd] : Parse root_capability_videoin_c0_lens_type error.", szTypeFailed),
      Removed(szCapability, "[vernierlensd] : XML parser failed, index = -1.", szLoadFailed),
      Replaced(szCapability, "<root>\n<capability>", "[vernierlensd] : XML parser failed, index = 2.", szLoadFailed),
      Removed("/etc/conf.d/config_imagefeature.xml", "[vernierlensd] : XML parser failed, index = -1.", szLoadFailed),
      Replaced(szConfig, "", "[vernierlensd] : XML parser failed, index = 1.", szLoadFailed),
      {"the positions are a directory",
       [](const TCamera& t) {
         unlink(t.Path(szPositions).c_str());
         mkdir(t.Path(szPositions).c_str(), 0755);
       },
       "[vernierlensd] : fopen /etc/conf.d/vernierlensd/vernierlensd.conf failed!", szLoadFailed},
      Removed(szPositions, "[vernierlensd] : fopen /etc/conf.d/vernierlensd/vernierlensd.conf failed!", szLoadFailed),
      {"a table of 4 billion entries", [](const TCamera& t) { SetKey(t, szConfig, "totalstep", "4294967295"); },
       "iZoomPositionInterval = 134217727", "[vernierlensd] : Create focus pan table failed."},
      {"the FIFO's place is taken",
       [](const TCamera& t) { std::filesystem::create_directories(t.Path("/tmp/VernierLensFIFO/x")); },
       "[vernierlensd] : Failed to remove /tmp/VernierLensFIFO.", "[vernierlensd] : VernierLensd_InitFIFO failed."},
  };
  for (const TBreak& tBreak : atBreaks) {
    const TCamera tCamera("zoom");
    const std::string sSaved = tCamera.Read(szPositions);
    tBreak.fnBreak(tCamera);
    const bool bThere = std::filesystem::is_regular_file(tCamera.Path(szPositions));
    const TLifeResult tResult = Live(tCamera, {}, 1000);
    SCOPED_TRACE(std::string(tBreak.szName) + "\n" + Tale(tResult));
    EXPECT_EQ(tResult.eEnd, LIFE_EXITED);
    EXPECT_EQ(tResult.iStatus, 0);
    EXPECT_TRUE(HasPrinted(tResult, tBreak.szLine));
    EXPECT_NE(Printed(tResult).find(std::string(tBreak.szThen) + "\n[vernierlensd] : VernierLensd_Init failed.\n"
                                                                 "[vernierlensd] : Release resources...OK\n"),
              std::string::npos);
    EXPECT_EQ(Requests(tResult, "zoommotor"), "");
    if (bThere) {
      EXPECT_EQ(tCamera.Read(szPositions), sSaved) << "a start that fails costs nothing that was saved";
    }
  }
}

// A daemon that runs on nonsense stays safe: it answers, every move ends, and SIGTERM ends it.
TEST(Start, NonsenseRunsAndStaysSafe) {
  const struct {
    const char* szElement;
    const char* szValue;
  } atValues[] = {{"onestep", "0"},
                  {"onestep", "-8"},
                  {"onesteptime", "0"},
                  {"onesteptime", "-1"},
                  {"end", "-1"},
                  {"end", "0"},
                  {"start", "-1"},
                  {"adjuststep", "-1"},
                  {"totalstep", "0"},
                  {"adjuststep", "word"},
                  {"onestep", "99999999999"},
                  {"nvideoin", "0"},
                  {"nvideoin", "6"},
                  {"nvideoin", "-1"},
                  {"focusstart", ""}};
  for (const auto& tValue : atValues) {
    const TCamera tCamera("zoom");
    const bool bChannels = std::string_view(tValue.szElement) == "nvideoin";
    SetKey(tCamera, bChannels ? szCapability : szConfig, tValue.szElement, tValue.szValue);
    const TLifeResult tResult = Live(tCamera,
                                     {Ask(100, "function=zoom&direction=direct&position=400"),
                                      Ask(5000, "function=zoom&direction=backward&steps=30"),
                                      Ask(9000, "function=getstatus"), Ask(9100, "function=getparam&position=9")},
                                     9500);
    SCOPED_TRACE(std::string(tValue.szElement) + " " + tValue.szValue + "\n" + Tale(tResult));
    EXPECT_EQ(tResult.eEnd, LIFE_EXITED);
    EXPECT_EQ(tResult.iStatus, 0);
    ASSERT_EQ(tResult.asReplies.size(), 4U);
    EXPECT_EQ(StatusValue(tResult.asReplies[2], "zoom_enable"), 0);
    EXPECT_LT(tResult.qwTime_us, 15'000'000U);
  }
}

TEST(Start, SavedPositionsOutsideTheRangeAreLimited) {
  const TCamera tCamera("zoom");
  tCamera.Write(szPositions, "zoom_motor=-5\nfocus_motor=1481\n");
  const TLifeResult tResult = Live(tCamera, {Ask(500, "function=getstatus")}, 1000);
  EXPECT_EQ(StatusValue(tResult.asReplies[0], "zoom_motor"), 0);
  EXPECT_EQ(StatusValue(tResult.asReplies[0], "focus_motor"), 1480);
  EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Saved position -5 is outside the range, 0 is used."));
}

TEST(Start, LeavesAndReplacesItsFiles) {
  const TCamera tCamera("zoom");
  tCamera.Write("/tmp/VernierLensFIFO", "stale");
  const TLifeResult tResult = Live(tCamera,
                                   {Call(500,
                                         [&](TWorld*) {
                                           if (tCamera.Read("/var/run/vernierlensd.pid") != "4711") std::abort();
                                         })},
                                   1000);
  EXPECT_EQ(tResult.eEnd, LIFE_EXITED) << Tale(tResult);
  struct stat tStat = {};
  EXPECT_EQ(stat(tCamera.Path("/tmp/VernierLensFIFO").c_str(), &tStat), 0);
  EXPECT_TRUE(S_ISFIFO(tStat.st_mode));
  EXPECT_NE(access(tCamera.Path("/var/run/vernierlensd.pid").c_str(), F_OK), 0);
}

TEST(Start, MotorThatIsNotThereEndsTheDaemon) {
  const TCamera tCamera("zoomonly");
  SetKey(tCamera, "/etc/conf.d/config_imagefeature.xml", "vernierlens", "1");
  const TLifeResult tResult = Live(tCamera, {}, 20'000);
  EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Failed to open device")) << Tale(tResult);
  EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Motor thread ends unexpectedly!"));
  EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Release resources...OK"));
  EXPECT_LT(tResult.qwTime_us, 8'000'000U);
}

// SIGTERM at any moment of the start: the threads may be there, their wake pairs not yet.
TEST(Start, SigtermEndsItAtOnce) {
  for (const char* szModel : {"zoom", "ics"}) {
    const TCamera tCamera(szModel);
    for (u64 qw = 0; qw < Lives(100); qw++) {
      ASSERT_EQ(Life_ResetRoot(tCamera.sRoot), 0);
      TLifeEvent tTerm = Signal(0, SIGTERM);
      tTerm.qwAt_us = (FirstSeed() + qw) * 4519 % 400'000;
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
  const struct {
    std::vector<std::string> asArgs;
    const char* szFirstLine;
  } atCases[] = {{{"vernierlensd", "-d", "-v"}, "VernierLensd Version: 1.0.4.0\nLast Modify Date:     2018/06/10 \n"},
                 {{"vernierlensd", "-vd"}, "VernierLensd Version: 1.0.4.0\nLast Modify Date:     2018/06/10 \n"},
                 {{"vernierlensd", "-x"}, "Vernier Lens daemon\nUsage:\nvernierlensd [-d][-v][-h]\nOptions:\n"},
                 {{"vernierlensd", "-d", "-h"}, "Vernier Lens daemon\nUsage:\n"}};
  for (const auto& tCase : atCases) {
    const TCamera tCamera("zoom");
    TLifePlan tPlan;
    tPlan.sRoot = tCamera.sRoot;
    tPlan.asArgs = tCase.asArgs;
    const TLifeResult tResult = Life_Run(tPlan);
    EXPECT_EQ(tResult.iStatus, 0);
    EXPECT_TRUE(Printed(tResult).starts_with(tCase.szFirstLine)) << Tale(tResult);
    EXPECT_EQ(Printed(tResult).find("Entering"), std::string::npos);
    EXPECT_NE(access(tCamera.Path("/tmp/VernierLensFIFO").c_str(), F_OK), 0);
  }
}

}  // namespace
