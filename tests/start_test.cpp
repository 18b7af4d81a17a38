// Start-up on files that are broken or missing, release after each failed step, the command line.
#include <csignal>
#include <filesystem>
#include <regex>

#include "whole_lives.h"

namespace {

// Puts sNew between the element's tags of the model's configuration.
void SetKey(const TCamera& tCamera, std::string_view sPath, std::string_view sElement, std::string_view sNew) {
  std::string sText = tCamera.Read(sPath);
  const std::size_t dwStart = sText.find("<" + std::string(sElement) + ">") + sElement.size() + 2;
  ASSERT_LT(dwStart, sText.size()) << sElement;
  sText.replace(dwStart, sText.find('<', dwStart) - dwStart, sNew);
  tCamera.Write(sPath, sText);
}

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

// A daemon that runs on nonsense stays safe: it answers, every move ends, and SIGTERM ends it.
TEST(Start, NonsenseRunsAndStaysSafe) {
  const std::pair<std::string, const char*> atValues[] = {
      {"onestep", "0"},     {"onestep", "-8"},      {"onestep", "99999999999"},
      {"onesteptime", "0"}, {"onesteptime", "-1"},  {"end", "-1"},
      {"end", "0"},         {"start", "-1"},        {"adjuststep", "-1"},
      {"totalstep", "0"},   {"adjuststep", "word"}, {"nvideoin", "0"},
      {"nvideoin", "6"},    {"nvideoin", "-1"},     {"focusstart", ""}};
  for (const auto& [sElement, szValue] : atValues) {
    const TCamera tCamera("zoom");
    SetKey(tCamera, sElement == "nvideoin" ? szCapabilityPath : szConfigPath, sElement, szValue);
    const TLifeResult tResult = Live(tCamera,
                                     {Ask(100, "function=zoom&direction=direct&position=400"),
                                      Ask(5000, "function=zoom&direction=backward&steps=30"), Ask(9000, szStatus),
                                      Ask(9100, "function=getparam&position=9")},
                                     9500);
    SCOPED_TRACE(sElement + " " + szValue + "\n" + Tale(tResult));
    EXPECT_EQ(Judge_Order(tResult), "");
    ASSERT_EQ(tResult.asReplies.size(), 4U);
    EXPECT_EQ(StatusValue(tResult.asReplies[2], "zoom_enable"), 0);
    EXPECT_LT(tResult.qwTime_us, 15'000'000U);
  }
}

// Neither a reference nor a search goes by an end that no lens has: both end, at a place that the range holds.
TEST(Start, EndThatNoLensHasHoldsNothingUp) {
  for (const char* szModel : {"zoom", "focus"}) {  // whose reference is 0, and the end
    for (const char* szQuery : {"function=scan", "function=positioning"}) {
      const TCamera tCamera(szModel);
      tCamera.Write(szConfigPath, std::regex_replace(tCamera.Read(szConfigPath), std::regex("<end>[0-9]+"), "<end>-1"));
      const TLifeResult tResult =
          Live(tCamera,
               {Ask(100, szQuery), Ask(90'000, "function=focus&direction=direct&position=9"), Ask(100'000, szStatus)},
               101'000);
      SCOPED_TRACE(std::string(szModel) + " " + szQuery + Tale(tResult));
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
  SetKey(tCamera, szConfigPath, "totalstep", "4294967295");
  const TLifeResult tResult = Live(tCamera, {}, 1000);
  EXPECT_EQ(Judge_Order(tResult), "") << Tale(tResult);
  EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Create focus pan table failed.")) << Tale(tResult);
}

TEST(Start, SavedPositionsOutsideTheRangeAreLimited) {
  const TCamera tCamera("zoom");
  tCamera.Write(szPositionsPath, "zoom_motor=-5\nfocus_motor=1481\n");
  const TLifeResult tResult = Live(tCamera, {Ask(500, szStatus)}, 1000);
  EXPECT_EQ(StatusValue(tResult.asReplies[0], "zoom_motor"), 0);
  EXPECT_EQ(StatusValue(tResult.asReplies[0], "focus_motor"), 1480);
  EXPECT_TRUE(HasPrinted(tResult, "[vernierlensd] : Saved position -5 is outside the range, 0 is used."));
}

TEST(Start, LeavesAndReplacesItsFiles) {
  const TCamera tCamera("zoom");
  tCamera.Write(szFIFOPath, "stale");
  const TLifeResult tResult = Live(tCamera,
                                   {Call(500,
                                         [&](TWorld*) {
                                           if (tCamera.Read(szPidPath) != "4711") std::abort();
                                         })},
                                   1000);
  EXPECT_EQ(Judge_Order(tResult), "") << Tale(tResult);
  EXPECT_TRUE(std::filesystem::is_fifo(tCamera.Path(szFIFOPath)));
  EXPECT_FALSE(Exists(tCamera, szPidPath));
}

TEST(Start, MotorThatIsNotThereEndsTheDaemon) {
  const TCamera tCamera("zoomonly");
  SetKey(tCamera, szImageFeaturePath, "vernierlens", "1");
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
