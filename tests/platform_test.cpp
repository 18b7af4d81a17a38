// The camera's small libraries against what comes from outside: files, frames, arguments, readers that are not there.
#include <expat.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <span>
#include <sstream>
#include <string>
#include <tuple>

#include "courier.h"
#include "taskshim.h"
#include "treereader.h"

namespace {

struct TPlatform : testing::Test {
  std::string sRoot = "/tmp/platformXXXXXX";
  std::string sPath = std::string(mkdtemp(sRoot.data())) + "/file";  // the one file or FIFO that a test makes
  ~TPlatform() override { std::filesystem::remove_all(sRoot); }
};

std::string Repeat(int iTimes, const std::string& sPart) {
  std::string sAll;
  for (; iTimes > 0; iTimes--) sAll += sPart;
  return sAll;
}

struct TFileCase {
  std::string sName, sFile, sExpected;  // the result, /r/a/n (77 before) and /r/a/s in 8 bytes ("old" before)
};
const TFileCase g_atFiles[] = {
    {"absent keys are left alone", "<r><n>1</n><a><nn>2</nn></a><a/></r>", "0 77 old"},
    {"a path is matched from the root on", "<r><r><a><n>5</n></a></r><b><a><n>6</n></a></b></r>", "0 77 old"},
    {"the first occurrence counts", "<r><a><n>1</n><n>2</n></a><a><n>3</n><s>x</s></a></r>", "0 1 x"},
    {"above int32", "<r><a><n>4294967301</n></a></r>", "0 2147483647 old"},
    {"below int32, far", "<r><a><n> -" + Repeat(90, "9") + "</n></a></r>", "0 -2147483648 old"},
    {"number with a tail", "<r><a><n>\n +" + Repeat(90, "0") + "4 2</n></a></r>", "0 4 old"},
    {"no number, no text", "<r><a><n>-+5</n><s/></a></r>", "0 0 "},
    {"string cut, then trimmed", "<r><a><s> abcde  \n fgh </s></a></r>", "0 77 abcde"},
    {"string cut to the byte", "<r><a><s>\n12345678</s></a></r>", "0 77 1234567"},
    {"divided text", "<r><a><n>1<!--x-->2<i>9</i>&#51;<![CDATA[4]]></n><s>a&lt;<s>b</s>c</s></a></r>", "0 1234 a<c"},
    {"cut off", "<r>\n<a><n>12</n><s>ab</s></a>\n", "3 77 old"},
    {"entities are refused", "<!DOCTYPE r [\n<!ENTITY a \"1\">]><r><a><n>&a;</n></a></r>", "1 77 old"},
    {"a million elements deep", "<r><a><n>1</n></a>" + Repeat(1000000, "<d>"), "-3 77 old"},
    {"a name of megabytes", "<r><a><n>1</n></a><" + std::string(4000000, 'x'), "-3 77 old"},
    {"above 16 MiB", "<r><a><n>1</n></a></r>" + std::string(16 << 20, ' '), "-1 77 old"},
};

TEST_F(TPlatform, TreeReaderStoresAllOrNothing) {
  for (const TFileCase& tCase : g_atFiles) {
    std::ofstream(sPath, std::ios::binary) << tCase.sFile;
    int32_t iNumber = 77;
    char szText[] = "old\0____#";
    const TTreeRow atRows[] = {
        {"/r/a/n", TREEREADER_INTEGER, 4, &iNumber, 0}, {"/r/a/s", TREEREADER_STRING, 8, szText, 0}, {}};
    const std::string sResult = std::to_string(TreeReader_ReadAll(sPath.c_str(), atRows));
    EXPECT_EQ(sResult + " " + std::to_string(iNumber) + " " + szText, tCase.sExpected) << tCase.sName;
    EXPECT_EQ(szText[8], '#') << tCase.sName;
  }
}

TEST_F(TPlatform, TreeReaderRefusesBadRowsAndFiles) {
  int32_t iNumber = 77;
  const auto Read = [&iNumber](const std::string& sFile, const char* pszKey, uintptr_t dwType, uintptr_t dwSize) {
    const TTreeRow atRows[] = {{"/r", TREEREADER_INTEGER, 4, &iNumber, 0}, {pszKey, dwType, dwSize, &iNumber, 0}, {}};
    return TreeReader_ReadAll(sFile.c_str(), atRows);
  };
  std::ofstream(sPath) << "<r>1</r>";
  EXPECT_TRUE(Read(sPath, "r", TREEREADER_INTEGER, 4) == -2 && Read(sPath, "/r", 0x2003, 4) == -2);
  EXPECT_TRUE(Read(sPath, "/r", TREEREADER_INTEGER, 8) == -2 && Read(sPath, "/r", TREEREADER_STRING, 0) == -2);
  EXPECT_EQ(Read(sPath + "not", "/r", TREEREADER_INTEGER, 4), -1);
  ASSERT_TRUE(unlink(sPath.c_str()) == 0 && mkfifo(sPath.c_str(), 0600) == 0);
  EXPECT_TRUE(Read(sPath, "/r", TREEREADER_INTEGER, 4) == -1 && iNumber == 77);  // and does not wait for a writer
}

const auto Message = [](const std::string& sInside) { return "<message>" + sInside + "</message>"; };
const std::string g_sPress = "<zoominbutton>pressed</zoominbutton>";
const std::string g_sBlanks(1019 - Message(g_sPress).size(), ' ');  // fill it up to the longest payload

// A payload, and its events, "channel:code.sub-code " each; "" if it is refused.
const std::pair<std::string, std::string> g_atPayloads[] = {
    {Message("<autofocus>falling</autofocus><autofocus>rising</autofocus>"), "0:19.5 0:19.4 "},
    {Message("<afbutton>pressed</afbutton><afbutton>released</afbutton>"), "0:19.2 0:19.1 "},
    {Message(g_sPress + "<zoominbutton>released</zoominbutton>"), "0:21.2 0:21.1 "},
    {Message("<zoomoutbutton>pressed</zoomoutbutton><zoomoutbutton>released</zoomoutbutton>"), "0:22.2 0:22.1 "},
    {Message("\n <channel> -1 </channel>\n<zoominbutton> pre<!-- -->ssed\n</zoominbutton> "), "-1:21.2 "},
    {Message("<channel>-" + Repeat(900, "9") + "</channel>" + g_sPress), "-2147483648:21.2 "},
    {Message(g_sPress + "<channel>1</channel>"), ""},
    {Message("<channel>1x</channel>" + g_sPress), ""},
    {Message(Repeat(11, g_sPress)), ""},
    {Message(Repeat(10, g_sPress)), Repeat(10, "0:21.2 ")},
    {Message(g_sPress) + g_sBlanks + " ", ""},
    {Message("<autofocus>pressed</autofocus>"), ""},
    {Message("<zoominbutton>pressed<i/></zoominbutton>"), ""},
    {Message("<zoominbutton a='1'>pressed</zoominbutton>"), ""},
    {"<!DOCTYPE message [<!ENTITY e 'pressed'>]>" + Message("<zoominbutton>&e;</zoominbutton>"), ""},
    {Message(g_sPress) + g_sBlanks, "0:21.2 "},
};

TEST(Courier, PayloadLanguage) {
  const XML_Parser hParser = XML_ParserCreate(nullptr);  // one for all: a refusal must not affect the next
  for (const auto& [sPayload, sExpected] : g_atPayloads) {
    TCourierEvent atEvents[COURIER_MAX_EVENTS];
    int32_t iCount = COURIER_MAX_EVENTS;
    const uint32_t dwLength = static_cast<uint32_t>(sPayload.size());
    const int32_t iResult = Courier_Parse_Event(hParser, sPayload.data(), dwLength, &iCount, atEvents, nullptr);
    EXPECT_TRUE(iResult == (sExpected.empty() ? -1 : 0) && XML_GetUserData(hParser) == nullptr) << sPayload;
    std::ostringstream tEvents;
    for (const TCourierEvent& tEvent : std::span(atEvents, static_cast<size_t>(iCount))) {
      tEvents << tEvent.iChannel << ":" << tEvent.dwCode << "." << tEvent.dwSubCode << " ";
    }
    EXPECT_EQ(tEvents.str(), sExpected) << sPayload;
  }
  XML_ParserFree(hParser);
}

TEST(Courier, HeaderAndOptions) {
  const uint8_t abyFrame[] = {9, 1, 3, 0xFB, 2, 0, 0};
  uint32_t adwGot[3] = {};
  EXPECT_EQ(Courier_GetTypeLength(abyFrame, 3, &adwGot[0], &adwGot[1], &adwGot[2]), -1);
  EXPECT_EQ(Courier_GetTypeLength(abyFrame + 3, 4, &adwGot[0], &adwGot[1], &adwGot[2]), -1);
  EXPECT_EQ(Courier_GetTypeLength(abyFrame, 4, &adwGot[0], &adwGot[1], &adwGot[2]), 0);
  EXPECT_TRUE(adwGot[0] == 9 && adwGot[1] == 4 && adwGot[2] == 1019);
  const std::string sPath(108, 'p'), sXML(1020, 'x');
  for (const auto& [pszFIFO, pszOption, pszPayload] :
       {std::tuple("f", "-x", "m"), std::tuple("f", "-e", sXML.c_str()), std::tuple(sPath.c_str(), "-e", "m")}) {
    const char* const apszArgs[] = {"fifocmd", "-p", pszFIFO, pszOption, pszPayload};
    TCourierSendOptions tOptions;
    EXPECT_EQ(Courier_Util_GetOptions(5, apszArgs, &tOptions), -1);
  }
}

TEST_F(TPlatform, CourierSendsWholeFramesAndNeverWaits) {
  const std::string sXML(1019, 'x');
  const char* const apszArgs[] = {"fifocmd", "-e", sXML.c_str(), "-p", sPath.c_str()};
  TCourierSendOptions tOptions;
  ASSERT_EQ(Courier_Util_GetOptions(5, apszArgs, &tOptions), 0);
  std::ofstream(sPath) << "a file";
  EXPECT_TRUE(Courier_Util_SendbyFIFO(&tOptions) == -1 && errno == EINVAL);
  ASSERT_TRUE(unlink(sPath.c_str()) == 0 && mkfifo(sPath.c_str(), 0600) == 0);
  EXPECT_TRUE(Courier_Util_SendbyFIFO(&tOptions) == -1 && errno == ENXIO);
  const int fdReader = open(sPath.c_str(), O_RDONLY | O_NONBLOCK);
  int iSent = 0;
  while (Courier_Util_SendbyFIFO(&tOptions) == 0) iSent++;
  EXPECT_TRUE(errno == EAGAIN && iSent > 0);
  std::string sFrame(1023, '\0');
  for (; read(fdReader, sFrame.data(), 1023) == 1023; iSent--) EXPECT_EQ(sFrame, "\x01\x01\x03\xFB" + sXML);
  EXPECT_EQ(iSent, 0);
  close(fdReader);
}

int32_t Thread_Wait(void* pvGate) {
  int* piGate = static_cast<int*>(pvGate);
  char c;
  piGate[2] = static_cast<int>(read(piGate[0], &c, 1));  // plain: the release must order it before the test's read
  return 0;
}

TEST(TaskShim, LifeOfAThread) {
  int aiGate[3] = {};
  ASSERT_EQ(pipe(aiGate), 0);
  HTaskShim hThread = &hThread;
  TTaskShimOptions tOptions = {0, aiGate, 0, 2, 0, nullptr};
  EXPECT_TRUE(TaskShim_Initial(&hThread, &tOptions) == -1 && hThread == nullptr);
  EXPECT_TRUE(TaskShim_Start(hThread) == -1 && TaskShim_Release(&hThread) == -1);
  tOptions.pfnEntry = Thread_Wait;
  ASSERT_EQ(TaskShim_Initial(&hThread, &tOptions), 0);
  EXPECT_TRUE(TaskShim_Release(&hThread) == 0 && hThread == nullptr && aiGate[2] == 0);  // never started
  ASSERT_EQ(TaskShim_Initial(&hThread, &tOptions), 0);
  tOptions = {0, aiGate, UINTPTR_MAX, 2, 0, Thread_Wait};  // TaskShim_Initial has copied the first ones
  EXPECT_TRUE(TaskShim_Start(hThread) == 0 && TaskShim_Start(hThread) == -1);
  EXPECT_EQ(write(aiGate[1], "", 1), 1);
  EXPECT_TRUE(TaskShim_Release(&hThread) == 0 && hThread == nullptr && aiGate[2] == 1);
  ASSERT_EQ(TaskShim_Initial(&hThread, &tOptions), 0);  // a stack that nobody can have
  EXPECT_TRUE(TaskShim_Start(hThread) == -1 && TaskShim_Release(&hThread) == 0);
  EXPECT_TRUE(close(aiGate[0]) == 0 && close(aiGate[1]) == 0);
}

}  // namespace
