// The query language, number reading and token files: no hardware, no clock.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "command/client_parser.h"
#include "config/config_load.h"
#include "config/token_file.h"
#include "core/number.h"

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
    {"function=zoom&&steps=1", szUnknown},
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
}

TEST(Number, StopsAtTheEndsOf32Bits) {
  const std::pair<const char*, i32> atCases[] = {{"12", 12},
                                                 {" \t-7x", -7},
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

}  // namespace
