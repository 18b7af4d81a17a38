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
const std::string sGet = "GET /?a HTTP/1.1\r\n\r\n";
const std::string sReply = "HTTP/1.1 200 OK\r\n\r\nreply to ";

long OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

int Send(int fd, const std::string& sBytes) {
  send(fd, sBytes.data(), sBytes.size(), MSG_NOSIGNAL);
  return fd;
}

// Returns all bytes up to the end of file, and "RESET" if the connection ends in an error.
std::string ReceiveAll(int fd) {
  std::string sAll;
  char acBytes[4096];
  ssize_t iGot = 0;
  while ((iGot = recv(fd, acBytes, sizeof acBytes, 0)) > 0) sAll.append(acBytes, static_cast<size_t>(iGot));
  close(fd);
  return iGot < 0 ? sAll + "RESET" : sAll;
}

class GateLink : public testing::Test {
 protected:
  GateLink() {
    std::signal(SIGPIPE, SIG_IGN);
    char szFolder[] = "/tmp/gatelinkXXXXXX";
    m_sPath = std::string(mkdtemp(szFolder)) + "/socket";
    EXPECT_EQ(GATELINK_init(&m_hGate, m_sPath.c_str()), 0);
  }
  ~GateLink() override {
    GATELINK_close(m_hGate);
    EXPECT_EQ(rmdir(m_sPath.substr(0, m_sPath.rfind('/')).c_str()), 0) << "the socket is still there";
  }

  int Connect(int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) const {
    sockaddr_un tAddress = {.sun_family = AF_UNIX, .sun_path = {}};
    m_sPath.copy(tAddress.sun_path, sizeof tAddress.sun_path - 1);
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&tAddress), sizeof tAddress), 0);
    return fd;
  }
  int ConnectAndSend(const std::string& sBytes) const { return Send(Connect(), sBytes); }
  bool Readable(std::chrono::milliseconds tWait) const {
    pollfd tPoll = {GATELINK_GetSocketFd(m_hGate), POLLIN, 0};
    return poll(&tPoll, 1, static_cast<int>(tWait.count())) == 1;
  }
  // Takes a request, answers with its method and query, and returns these.
  std::string Serve(std::chrono::milliseconds tWait = 20s) {
    char* pszQuery = nullptr;
    int32_t fd = -1;
    Readable(tWait);
    if (const int iRead = GATELINK_read(m_hGate, &pszQuery, &fd)) return "result " + std::to_string(iRead);
    const std::string sSeen = std::string(GATELINK_GetMethod(m_hGate)) + " " + pszQuery;
    Send(fd, sReply + sSeen);
    close(fd);
    return sSeen;
  }

  // The next request must be that of the socket's client; checks its method and query, and the answer.
  void ExpectServed(int fd, const std::string& sSeen = "GET a") {
    EXPECT_EQ(Serve(), sSeen);
    EXPECT_EQ(ReceiveAll(fd), sReply + sSeen);
  }

  HGateLink m_hGate = nullptr;
  std::string m_sPath;
};

struct TCase {
  const char* szRule;
  std::vector<std::string> asPieces;
  std::string sSeen;  // method and query, or the status of a refusal
};

const std::string sPadded = "GET /?a=1 HTTP/1.1\r\nX: " + std::string(8192 - 27, 'x');  // 8 KiB with the blank line
const std::string sPost = "POST /x?t=1 HTTP/1.1\r\nContent-Length: ";
std::string Post(const std::string& sBody) {
  return sPost + std::to_string(sBody.size()) + "\r\n\r\n" + sBody;
}
const std::string sChunked = "POST /?t=1 HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n";

const TCase g_atCases[] = {
    {"query after the first ?", {"GET /a/b?x=1&y=?2%20+ HTTP/1.0\r\nHost: h\r\n\r\n"}, "GET x=1&y=?2%20+"},
    {"another method keeps the target's query", {"PUT /?q HTTP/1.1\r\nContent-Length: 2\r\n\r\nzz"}, "PUT q"},
    {"torn target", {"G", "ET /p", "?", "a=", "1 HT", "TP/1.1\r", "\n\r", "\n"}, "GET a=1"},
    {"POST: torn body", {sPost + "7\r\n\r\na=1", "&b", "=2"}, "POST a=1&b=2"},
    {"POST without body: the target", {Post("")}, "POST t=1"},
    {"POST: chunks", {sChunked, "3\r\na=1\r\n4;e=x\r\n&b=", "2\r\n0\r\n", "\r\n"}, "POST a=1&b=2"},
    {"bytes sent ahead are ignored", {"GET /?a HTTP/1.1\r\n\r\nGET /?b HTTP/1.1\r\n\r\n"}, "GET a"},
    {"head at its limit", {sPadded + "\r\n\r\n"}, "GET a=1"},
    {"head beyond it", {sPadded + "x\r\n\r\n"}, "431"},
    {"body at its limit", {Post(std::string(4096, 'b'))}, "POST " + std::string(4096, 'b')},
    {"body beyond it", {Post(std::string(4097, 'b'))}, "413"},
    {"body announced beyond it", {sPost + "4097\r\n\r\n"}, "413"},
    {"chunks beyond it", {sChunked + "1000\r\n" + std::string(4096, 'c') + "\r\n1\r\nc\r\n0\r\n\r\n"}, "413"},
    {"endless framing", {sChunked + "1;" + std::string(100'000, 'e')}, "413"},
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
    for (const std::string& sPiece : tCase.asPieces) {
      Send(fd, sPiece);
      if (tCase.asPieces.size() > 1) std::this_thread::sleep_for(2ms);
    }
    shutdown(fd, SHUT_WR);  // a half-closed client still gets its answer
    if (std::isdigit(tCase.sSeen[0]) != 0) {
      const std::string sAnswer = ReceiveAll(fd);
      EXPECT_EQ(sAnswer.rfind("HTTP/1.1 " + tCase.sSeen + " ", 0), 0U) << sAnswer;
      EXPECT_EQ(sAnswer.find("RESET"), std::string::npos);
      EXPECT_EQ(Serve(0ms), "result 1");
    } else {
      ExpectServed(fd, tCase.sSeen);
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

// A client that says nothing is dropped after 5 s.  Until then even more such clients than places hold nobody up.
TEST_F(GateLink, SilentClientsAreDroppedAndHoldNobodyUp) {
  const int fdSilent = ConnectAndSend("GET /?a");
  const auto tStart = TClock::now();
  for (int i = 0; i < 20; ++i) ExpectServed(ConnectAndSend(sGet));
  EXPECT_LT(TClock::now() - tStart, 4s);
  EXPECT_EQ(ReceiveAll(fdSilent), "");
  EXPECT_GT(TClock::now() - tStart, 4900ms);
  EXPECT_LT(TClock::now() - tStart, 15s);
  std::vector<int> afdSlow;
  for (int i = 0; i < 150; ++i) afdSlow.push_back(i % 2 == 0 ? Connect() : ConnectAndSend("GET /?a"));
  const auto tCrowd = TClock::now();
  for (int i = 0; i < 20; ++i) {
    ExpectServed(ConnectAndSend(sGet));
    afdSlow.push_back(Connect());
  }
  EXPECT_LT(TClock::now() - tCrowd, 3s);
  for (const int fd : afdSlow) close(fd);
}

TEST_F(GateLink, TwoHundredAtOnceFindSixtyFourPlaces) {
  constexpr int iClients = 200;
  const long iBefore = OpenDescriptors();
  std::vector<std::thread> atClients;
  for (int i = 0; i < iClients; ++i) {
    atClients.emplace_back([this, sQuery = "n=" + std::to_string(i)] {
      EXPECT_EQ(ReceiveAll(ConnectAndSend("GET /?" + sQuery + " HTTP/1.1\r\n\r\n")), sReply + "GET " + sQuery);
    });
  }
  for (int i = 0; i < 1000 && OpenDescriptors() < iBefore + iClients + 64; ++i) std::this_thread::sleep_for(10ms);
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(OpenDescriptors(), iBefore + iClients + 64);
  for (int i = 0; i < iClients; ++i) EXPECT_EQ(Serve().rfind("GET n=", 0), 0U);
  for (std::thread& tClient : atClients) tClient.join();
}

TEST_F(GateLink, NothingLeaksOverManyRequestsAndLostClients) {
  const long iBefore = OpenDescriptors();
  for (int i = 0; i < 20'000; ++i) {
    if (i % 5 == 0) close(ConnectAndSend("GET /?ha"));
    if (i % 50 == 0) ReceiveAll(ConnectAndSend("nonsense\r\n\r\n"));
    const int fd = ConnectAndSend(sGet);
    if (i % 7 == 0) shutdown(fd, SHUT_RDWR);  // gone before the answer
    ASSERT_EQ(Serve(), "GET a");
    close(fd);
  }
  for (int i = 0; i < 500 && OpenDescriptors() != iBefore; ++i) std::this_thread::sleep_for(10ms);
  EXPECT_EQ(OpenDescriptors(), iBefore);
}

TEST_F(GateLink, NodeBelongsToTheLatest) {
  EXPECT_EQ(std::filesystem::status(m_sPath).permissions(), std::filesystem::perms{0666});
  const int fd = ConnectAndSend(sGet);
  ASSERT_TRUE(Readable(20s));
  HGateLink hOld = m_hGate;
  ASSERT_EQ(GATELINK_init(&m_hGate, m_sPath.c_str()), 0);
  GATELINK_close(hOld);  // while a request waits
  EXPECT_EQ(ReceiveAll(fd).rfind("HTTP", 0), std::string::npos);
  close(ConnectAndSend(sGet));
  EXPECT_EQ(Serve(), "GET a");
  GATELINK_close(m_hGate);
  std::filesystem::create_directory(m_sPath);
  EXPECT_EQ(GATELINK_init(&m_hGate, m_sPath.c_str()), 0) << "an empty directory is replaced";
  EXPECT_EQ(GATELINK_init(&hOld, ("/tmp/" + std::string(103, 'p')).c_str()), -1);
  EXPECT_EQ(hOld, nullptr);
}

TEST_F(GateLink, OutOfDescriptorsItRestsAndRecovers) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);  // the lowest free number, so all below are in use
  pollfd tPoll = {GATELINK_GetSocketFd(m_hGate), POLLIN, 0};
  rlimit tLimit = {};
  getrlimit(RLIMIT_NOFILE, &tLimit);
  const rlimit tNone = {static_cast<rlim_t>(fd) + 1, tLimit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &tNone);
  const std::clock_t tStart = std::clock();
  Send(Connect(fd), sGet);
  EXPECT_EQ(poll(&tPoll, 1, 500), 0);
  EXPECT_LT(std::clock() - tStart, CLOCKS_PER_SEC / 5);
  setrlimit(RLIMIT_NOFILE, &tLimit);
  ExpectServed(fd);
}

// Five idle clients have all the descriptors that are left; a sixth with a request does not wait for their timeout.
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
  ExpectServed(Send(afd.back(), sGet));
  EXPECT_LT(TClock::now() - tStart, 3s);
  setrlimit(RLIMIT_NOFILE, &tLimit);
  for (const int fd : std::span(afd).first(5)) close(fd);
}

// When waiting requests take all places, the kernel queues as many more connections as its limit allows.
TEST_F(GateLink, BacklogIsTheKernelsLimit) {
  int iAllowed = 0;
  std::ifstream("/proc/sys/net/core/somaxconn") >> iAllowed;
  ASSERT_GT(iAllowed, 0);
  std::vector<int> afd;
  for (int i = 0; i < 64 + std::min(iAllowed, 300); ++i) {
    afd.push_back(Send(Connect(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)), sGet));
  }
  for (const int fd : afd) close(fd);
}

TEST_F(GateLink, FailureIsToldAfterTheLastRequest) {
  const int fd = ConnectAndSend(sGet);
  ASSERT_TRUE(Readable(20s));
  for (int fdAny = 3; fdAny < 1024; ++fdAny) {  // the listening socket breaks
    int iListens = 0;
    socklen_t dwSize = sizeof iListens;
    getsockopt(fdAny, SOL_SOCKET, SO_ACCEPTCONN, &iListens, &dwSize);
    if (iListens != 0) shutdown(fdAny, SHUT_RDWR);
  }
  ExpectServed(fd);
  EXPECT_EQ(Serve(), "result -1");
  EXPECT_TRUE(Readable(0ms));
}

}  // namespace
