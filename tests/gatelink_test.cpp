// The gateway library as its two sides see it: raw bytes on the socket, and the calls of gatelink.h.
#include "gatelink.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using TClock = std::chrono::steady_clock;
const std::string szGet = "GET /?a HTTP/1.1\r\n\r\n";
const std::string szReply = "HTTP/1.1 200 OK\r\n\r\nreply to ";

long OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

int Send(int fd, const std::string& szBytes) {
  send(fd, szBytes.data(), szBytes.size(), MSG_NOSIGNAL);
  return fd;
}

// All up to the end of file; "RESET" added where the connection ends in an error.
std::string ReceiveAll(int fd) {
  std::string szAll;
  char acBytes[4096];
  ssize_t iGot = 0;
  while ((iGot = recv(fd, acBytes, sizeof acBytes, 0)) > 0) szAll.append(acBytes, static_cast<size_t>(iGot));
  close(fd);
  return iGot < 0 ? szAll + "RESET" : szAll;
}

class GateLink : public testing::Test {
 protected:
  GateLink() {
    std::signal(SIGPIPE, SIG_IGN);
    char szFolder[] = "/tmp/gatelinkXXXXXX";
    szPath_ = std::string(mkdtemp(szFolder)) + "/socket";
    EXPECT_EQ(GATELINK_init(&hGate_, szPath_.c_str()), 0);
  }
  ~GateLink() override {
    GATELINK_close(hGate_);
    EXPECT_EQ(rmdir(szPath_.substr(0, szPath_.rfind('/')).c_str()), 0) << "the node was left behind";
  }

  int Connect(int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) const {
    sockaddr_un tAddress = {.sun_family = AF_UNIX, .sun_path = {}};
    szPath_.copy(tAddress.sun_path, sizeof tAddress.sun_path - 1);
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&tAddress), sizeof tAddress), 0);
    return fd;
  }
  int ConnectAndSend(const std::string& szBytes) const { return Send(Connect(), szBytes); }
  bool Readable(std::chrono::milliseconds tWait) const {
    pollfd tPoll = {GATELINK_GetSocketFd(hGate_), POLLIN, 0};
    return poll(&tPoll, 1, static_cast<int>(tWait.count())) == 1;
  }
  // Takes a request and answers with its method and query, which are returned.
  std::string Serve(std::chrono::milliseconds tWait = 20s) {
    char* pszQuery = nullptr;
    int32_t fd = -1;
    Readable(tWait);
    if (const int iRead = GATELINK_read(hGate_, &pszQuery, &fd)) return "result " + std::to_string(iRead);
    const std::string szSeen = std::string(GATELINK_GetMethod(hGate_)) + " " + pszQuery;
    Send(fd, szReply + szSeen);
    close(fd);
    return szSeen;
  }

  // The client of the socket is the next to be answered, with this.
  void ExpectServed(int fd, const std::string& szSeen = "GET a") {
    EXPECT_EQ(Serve(), szSeen);
    EXPECT_EQ(ReceiveAll(fd), szReply + szSeen);
  }

  HGateLink hGate_ = nullptr;
  std::string szPath_;
};

struct TCase {
  const char* szRule;
  std::vector<std::string> aPieces;
  std::string szSeen;  // method and query, or the status of a refusal
};

const std::string szPadded = "GET /?a=1 HTTP/1.1\r\nX: " + std::string(8192 - 27, 'x');  // 8 KiB with the blank line
const std::string szPost = "POST /x?t=1 HTTP/1.1\r\nContent-Length: ";
std::string Post(const std::string& szBody) {
  return szPost + std::to_string(szBody.size()) + "\r\n\r\n" + szBody;
}
const std::string szChunked = "POST /?t=1 HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n";

const TCase g_atCases[] = {
    {"query behind the first ?", {"GET /a/b?x=1&y=?2%20+ HTTP/1.0\r\nHost: h\r\n\r\n"}, "GET x=1&y=?2%20+"},
    {"another method keeps the target's query", {"PUT /?q HTTP/1.1\r\nContent-Length: 2\r\n\r\nzz"}, "PUT q"},
    {"torn target", {"G", "ET /p", "?", "a=", "1 HT", "TP/1.1\r", "\n\r", "\n"}, "GET a=1"},
    {"POST: torn body", {szPost + "7\r\n\r\na=1", "&b", "=2"}, "POST a=1&b=2"},
    {"POST without body: the target", {Post("")}, "POST t=1"},
    {"POST: chunks", {szChunked, "3\r\na=1\r\n4;e=x\r\n&b=", "2\r\n0\r\n", "\r\n"}, "POST a=1&b=2"},
    {"bytes sent ahead are ignored", {"GET /?a HTTP/1.1\r\n\r\nGET /?b HTTP/1.1\r\n\r\n"}, "GET a"},
    {"head at its limit", {szPadded + "\r\n\r\n"}, "GET a=1"},
    {"head beyond it", {szPadded + "x\r\n\r\n"}, "431"},
    {"body at its limit", {Post(std::string(4096, 'b'))}, "POST " + std::string(4096, 'b')},
    {"body beyond it", {Post(std::string(4097, 'b'))}, "413"},
    {"body announced beyond it", {szPost + "4097\r\n\r\n"}, "413"},
    {"chunks beyond it", {szChunked + "1000\r\n" + std::string(4096, 'c') + "\r\n1\r\nc\r\n0\r\n\r\n"}, "413"},
    {"endless framing", {szChunked + "1;" + std::string(100'000, 'e')}, "413"},
    {"not HTTP", {"hello\r\n\r\n"}, "400"},
    {"another version", {"GET /?a HTTP/2.0\r\n\r\n"}, "400"},
    {"NUL in the body", {Post(std::string("a\0b", 3))}, "400"},
    {"NUL in the target", {std::string("GET /?a\0b HTTP/1.1\r\n\r\n", 22)}, "400"},
    {"line end in the body", {Post("a=1\r\n")}, "400"},
};

TEST_F(GateLink, GivesOutOrRefuses) {
  for (const TCase& tCase : g_atCases) {
    SCOPED_TRACE(tCase.szRule);
    const int fd = Connect();
    for (const std::string& szPiece : tCase.aPieces) {
      Send(fd, szPiece);
      if (tCase.aPieces.size() > 1) std::this_thread::sleep_for(2ms);
    }
    shutdown(fd, SHUT_WR);  // a half-closed client still gets its answer
    if (std::isdigit(tCase.szSeen[0]) != 0) {
      const std::string szAnswer = ReceiveAll(fd);
      EXPECT_EQ(szAnswer.rfind("HTTP/1.1 " + tCase.szSeen + " ", 0), 0U) << szAnswer;
      EXPECT_EQ(szAnswer.find("RESET"), std::string::npos);
      EXPECT_EQ(Serve(0ms), "result 1");
    } else {
      ExpectServed(fd, tCase.szSeen);
    }
    EXPECT_FALSE(Readable(0ms));
  }
}

TEST_F(GateLink, GoAheadComesBeforeTheBody) {
  const int fd = ConnectAndSend("POST / HTTP/1.1\r\nExpect: 100-continue\r\nContent-Length: 3\r\n\r\n");
  char acInterim[64] = {};
  recv(fd, acInterim, sizeof acInterim - 1, 0);
  EXPECT_STREQ(acInterim, "HTTP/1.1 100 Continue\r\n\r\n");
  ExpectServed(Send(fd, "a=1"), "POST a=1");
}

// One client that says nothing is dropped in the end; more of them than there are places hold nobody up meanwhile.
TEST_F(GateLink, SilentClientsAreDroppedAndHoldNobodyUp) {
  const int fdSilent = ConnectAndSend("GET /?a");
  const auto tStart = TClock::now();
  for (int i = 0; i < 20; ++i) ExpectServed(ConnectAndSend(szGet));
  EXPECT_LT(TClock::now() - tStart, 4s);
  EXPECT_EQ(ReceiveAll(fdSilent), "");
  EXPECT_GT(TClock::now() - tStart, 4900ms);
  EXPECT_LT(TClock::now() - tStart, 15s);
  std::vector<int> afdSlow;
  for (int i = 0; i < 150; ++i) afdSlow.push_back(i % 2 == 0 ? Connect() : ConnectAndSend("GET /?a"));
  const auto tCrowd = TClock::now();
  for (int i = 0; i < 20; ++i) {
    ExpectServed(ConnectAndSend(szGet));
    afdSlow.push_back(Connect());
  }
  EXPECT_LT(TClock::now() - tCrowd, 3s);
  for (const int fd : afdSlow) close(fd);
}

TEST_F(GateLink, TwoHundredAtOnceFindSixtyFourPlaces) {
  constexpr int iClients = 200;
  const long iBefore = OpenDescriptors();
  std::vector<std::thread> atClient;
  for (int i = 0; i < iClients; ++i) {
    atClient.emplace_back([this, szQuery = "n=" + std::to_string(i)] {
      EXPECT_EQ(ReceiveAll(ConnectAndSend("GET /?" + szQuery + " HTTP/1.1\r\n\r\n")), szReply + "GET " + szQuery);
    });
  }
  for (int i = 0; i < 1000 && OpenDescriptors() < iBefore + iClients + 64; ++i) std::this_thread::sleep_for(10ms);
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(OpenDescriptors(), iBefore + iClients + 64);
  for (int i = 0; i < iClients; ++i) EXPECT_EQ(Serve().rfind("GET n=", 0), 0U);
  for (std::thread& tClient : atClient) tClient.join();
}

TEST_F(GateLink, NothingLeaksOverManyRequestsAndLostClients) {
  const long iBefore = OpenDescriptors();
  for (int i = 0; i < 20'000; ++i) {
    if (i % 5 == 0) close(ConnectAndSend("GET /?ha"));
    if (i % 50 == 0) ReceiveAll(ConnectAndSend("nonsense\r\n\r\n"));
    const int fd = ConnectAndSend(szGet);
    if (i % 7 == 0) shutdown(fd, SHUT_RDWR);  // gone before the answer
    ASSERT_EQ(Serve(), "GET a");
    close(fd);
  }
  for (int i = 0; i < 500 && OpenDescriptors() != iBefore; ++i) std::this_thread::sleep_for(10ms);
  EXPECT_EQ(OpenDescriptors(), iBefore);
}

TEST_F(GateLink, NodeBelongsToTheLatest) {
  EXPECT_EQ(std::filesystem::status(szPath_).permissions(), std::filesystem::perms{0666});
  const int fd = ConnectAndSend(szGet);
  ASSERT_TRUE(Readable(20s));
  HGateLink hOld = hGate_;
  ASSERT_EQ(GATELINK_init(&hGate_, szPath_.c_str()), 0);
  GATELINK_close(hOld);  // with a request in waiting
  EXPECT_EQ(ReceiveAll(fd).rfind("HTTP", 0), std::string::npos);
  close(ConnectAndSend(szGet));
  EXPECT_EQ(Serve(), "GET a");
  GATELINK_close(hGate_);
  std::filesystem::create_directory(szPath_);
  EXPECT_EQ(GATELINK_init(&hGate_, szPath_.c_str()), 0) << "an empty directory is replaced";
  EXPECT_EQ(GATELINK_init(&hOld, ("/tmp/" + std::string(103, 'p')).c_str()), -1);
  EXPECT_EQ(hOld, nullptr);
}

TEST_F(GateLink, OutOfDescriptorsItRestsAndRecovers) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);  // the lowest free number, so all below are in use
  pollfd tPoll = {GATELINK_GetSocketFd(hGate_), POLLIN, 0};
  rlimit tLimit = {};
  getrlimit(RLIMIT_NOFILE, &tLimit);
  const rlimit tNone = {static_cast<rlim_t>(fd) + 1, tLimit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &tNone);
  const std::clock_t tStart = std::clock();
  Send(Connect(fd), szGet);
  EXPECT_EQ(poll(&tPoll, 1, 500), 0);
  EXPECT_LT(std::clock() - tStart, CLOCKS_PER_SEC / 5);
  setrlimit(RLIMIT_NOFILE, &tLimit);
  ExpectServed(fd);
}

// Five idle clients have all the descriptors that are left; a sixth with a request does not wait for their time-out.
TEST_F(GateLink, OutOfDescriptorsIdleClientsMakeRoom) {
  std::vector<int> afd(6);
  for (int& fd : afd) fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  rlimit tLimit = {};
  getrlimit(RLIMIT_NOFILE, &tLimit);
  const rlimit tFour = {static_cast<rlim_t>(afd.back()) + 5, tLimit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &tFour);
  for (const int fd : afd) Connect(fd);
  std::this_thread::sleep_for(300ms);
  const auto tStart = TClock::now();
  ExpectServed(Send(afd.back(), szGet));
  EXPECT_LT(TClock::now() - tStart, 3s);
  setrlimit(RLIMIT_NOFILE, &tLimit);
  for (const int fd : std::span(afd).first(5)) close(fd);
}

// With all places taken by requests that wait, the kernel keeps as many connections as it is allowed to.
TEST_F(GateLink, BacklogIsTheKernels) {
  int iAllowed = 0;
  std::ifstream("/proc/sys/net/core/somaxconn") >> iAllowed;
  ASSERT_GT(iAllowed, 0);
  std::vector<int> afd;
  for (int i = 0; i < 64 + std::min(iAllowed, 300); ++i) {
    afd.push_back(Send(Connect(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)), szGet));
  }
  for (const int fd : afd) close(fd);
}

TEST_F(GateLink, FailureIsToldAfterTheLastRequest) {
  const int fd = ConnectAndSend(szGet);
  ASSERT_TRUE(Readable(20s));
  for (int fdAny = 3; fdAny < 1024; ++fdAny) {  // the listening socket breaks
    int bListens = 0;
    socklen_t dwSize = sizeof bListens;
    getsockopt(fdAny, SOL_SOCKET, SO_ACCEPTCONN, &bListens, &dwSize);
    if (bListens != 0) shutdown(fdAny, SHUT_RDWR);
  }
  ExpectServed(fd);
  EXPECT_EQ(Serve(), "result -1");
  EXPECT_TRUE(Readable(0ms));
}

}  // namespace
