// Status requests through a running daemon's gateway, side by side with a bare accept-read-write-close loop.
//
//   gatelink_load [SOCKET [ROUNDS]]
//
// SOCKET is the daemon's ("-" or none: a stand-in process that only reads from the gateway library and answers).  The
// bare loop's reply has the same size.  One process plays 1, 4 and 16 clients, each of which asks again as soon as it
// has its answer; the two servers take turns by rounds of a second, and the table shows medians over the rounds.
#include <signal.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "gatelink.h"

namespace {

using TClock = std::chrono::steady_clock;
constexpr std::chrono::seconds tRound{1};
constexpr std::string_view szRequest = "GET /?function=getstatus HTTP/1.1\r\nHost: localhost\r\n\r\n";
constexpr std::size_t dwStandInReply = 400;  // bytes, about what a status comes to

struct TServer {
  const char* pszName;
  std::string szPath;
  pid_t iProcess;  // 0: not ours
};

struct TResult {  // of one round
  double dPerSecond, dMedian_us, dP99_us;
};

struct TClient {
  int fd;
  TClock::time_point tStart;
};

[[noreturn]] void Die(const char* pszWhat) {
  std::perror(pszWhat);
  std::exit(1);
}

sockaddr_un AddressOf(const std::string& szPath) {
  sockaddr_un tAddress = {};
  tAddress.sun_family = AF_UNIX;
  szPath.copy(tAddress.sun_path, sizeof tAddress.sun_path - 1);
  return tAddress;
}

void WriteAll(int fd, const std::string& szReply) {
  if (write(fd, szReply.data(), szReply.size()) < 0) std::perror("write");
}

[[noreturn]] void ServeBare(int fdListen, const std::string& szReply) {
  char acRequest[4096];
  while (true) {
    const int fd = accept(fdListen, nullptr, nullptr);
    if (fd < 0) Die("accept");
    if (read(fd, acRequest, sizeof acRequest) > 0) WriteAll(fd, szReply);
    close(fd);
  }
}

[[noreturn]] void ServeByGateway(HGateLink hGate, const std::string& szReply) {
  const int fdGate = GATELINK_GetSocketFd(hGate);
  while (true) {
    fd_set tSet;
    FD_ZERO(&tSet);
    FD_SET(fdGate, &tSet);
    timeval tWait = {3, 0};
    if (select(fdGate + 1, &tSet, nullptr, nullptr, &tWait) <= 0) continue;
    char* pszQuery = nullptr;
    int fd = -1;
    if (GATELINK_read(hGate, &pszQuery, &fd) != 0) Die("GATELINK_read");
    WriteAll(fd, szReply);
    close(fd);
  }
}

pid_t Fork() {
  const pid_t iProcess = fork();
  if (iProcess < 0) Die("fork");
  if (iProcess == 0) prctl(PR_SET_PDEATHSIG, SIGKILL);
  return iProcess;
}

TServer StartBare(const std::string& szFolder, const std::string& szReply) {
  TServer tServer = {"bare loop", szFolder + "/bare", 0};
  const sockaddr_un tAddress = AddressOf(tServer.szPath);
  const int fdListen = socket(AF_UNIX, SOCK_STREAM, 0);
  if (bind(fdListen, reinterpret_cast<const sockaddr*>(&tAddress), sizeof tAddress) != 0) Die("bind");
  if (listen(fdListen, 128) != 0) Die("listen");
  tServer.iProcess = Fork();
  if (tServer.iProcess == 0) ServeBare(fdListen, szReply);
  close(fdListen);
  return tServer;
}

TServer StartStandIn(const std::string& szFolder) {
  TServer tServer = {"stand-in", szFolder + "/gate", 0};
  tServer.iProcess = Fork();
  if (tServer.iProcess == 0) {
    HGateLink hGate = nullptr;
    if (GATELINK_init(&hGate, tServer.szPath.c_str()) != 0) Die("GATELINK_init");
    ServeByGateway(hGate, std::string(dwStandInReply, 'r'));
  }
  while (access(tServer.szPath.c_str(), F_OK) != 0) usleep(1000);
  usleep(100'000);  // from the node to the thread behind it
  return tServer;
}

void Ask(TClient* ptClient, const sockaddr_un& tAddress, int fdEpoll) {
  ptClient->tStart = TClock::now();
  ptClient->fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (ptClient->fd < 0) Die("socket");
  if (connect(ptClient->fd, reinterpret_cast<const sockaddr*>(&tAddress), sizeof tAddress) != 0) Die("connect");
  if (send(ptClient->fd, szRequest.data(), szRequest.size(), MSG_NOSIGNAL) < 0) Die("send");
  epoll_event tEvent = {};
  tEvent.events = EPOLLIN;
  tEvent.data.ptr = ptClient;
  if (epoll_ctl(fdEpoll, EPOLL_CTL_ADD, ptClient->fd, &tEvent) != 0) Die("epoll_ctl");
}

// True once the answer has come to its end.
bool Receive(const TClient& tClient) {
  char acReply[4096];
  ssize_t iGot = 0;
  while ((iGot = recv(tClient.fd, acReply, sizeof acReply, MSG_DONTWAIT)) > 0) {
  }
  if (iGot < 0 && errno != EAGAIN) Die("recv");
  return iGot == 0;
}

double At(std::vector<double>* padValues, double dShare) {
  if (padValues->empty()) return 0;
  const auto iAt = static_cast<std::ptrdiff_t>(dShare * static_cast<double>(padValues->size() - 1));
  std::nth_element(padValues->begin(), padValues->begin() + iAt, padValues->end());
  return (*padValues)[static_cast<std::size_t>(iAt)];
}

TResult Round(const TServer& tServer, std::size_t dwClients) {
  const int fdEpoll = epoll_create1(EPOLL_CLOEXEC);
  const sockaddr_un tAddress = AddressOf(tServer.szPath);
  std::vector<TClient> atClient(dwClients);
  std::vector<double> adLatency_us;
  const auto tStart = TClock::now();
  auto tNow = tStart;
  for (TClient& tClient : atClient) Ask(&tClient, tAddress, fdEpoll);
  for (std::size_t dwAsking = dwClients; dwAsking > 0;) {
    epoll_event atEvent[16];
    const int iEvents = epoll_wait(fdEpoll, atEvent, 16, 5000);
    if (iEvents <= 0) Die("no answer within 5 s");
    for (int i = 0; i < iEvents; ++i) {
      auto* ptClient = static_cast<TClient*>(atEvent[i].data.ptr);
      if (!Receive(*ptClient)) continue;
      close(ptClient->fd);
      tNow = TClock::now();
      adLatency_us.push_back(std::chrono::duration<double, std::micro>(tNow - ptClient->tStart).count());
      if (tNow - tStart < tRound) {
        Ask(ptClient, tAddress, fdEpoll);
      } else {
        --dwAsking;
      }
    }
  }
  close(fdEpoll);
  const double dSeconds = std::chrono::duration<double>(tNow - tStart).count();
  return {static_cast<double>(adLatency_us.size()) / dSeconds, At(&adLatency_us, 0.5), At(&adLatency_us, 0.99)};
}

// Bytes of the reply to a status request.
std::size_t ReplySize(const std::string& szPath) {
  const sockaddr_un tAddress = AddressOf(szPath);
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&tAddress), sizeof tAddress) != 0) Die(szPath.c_str());
  if (write(fd, szRequest.data(), szRequest.size()) < 0) Die("write");
  char acReply[4096];
  std::size_t dwReply = 0;
  ssize_t iGot = 0;
  while ((iGot = read(fd, acReply, sizeof acReply)) > 0) dwReply += static_cast<std::size_t>(iGot);
  close(fd);
  if (dwReply == 0) Die("no reply");
  return dwReply;
}

double MedianOf(const std::vector<TResult>& atResult, double TResult::*pdField) {
  std::vector<double> adValue;
  for (const TResult& tResult : atResult) adValue.push_back(tResult.*pdField);
  return At(&adValue, 0.5);
}

void Compare(const TServer& tGateway, const TServer& tBare, std::size_t dwClients, int iRounds) {
  std::vector<TResult> atGateway, atBare;
  for (int i = 0; i < iRounds; ++i) {
    atGateway.push_back(Round(tGateway, dwClients));
    atBare.push_back(Round(tBare, dwClients));
  }
  const auto Line = [&](const TServer& tServer, const std::vector<TResult>& atResult) {
    const double dPerSecond = MedianOf(atResult, &TResult::dPerSecond);
    std::printf("%7zu  %-10s %12.0f %9.1f %9.1f", dwClients, tServer.pszName, dPerSecond,
                MedianOf(atResult, &TResult::dMedian_us), MedianOf(atResult, &TResult::dP99_us));
    return dPerSecond;
  };
  const double dBare = Line(tBare, atBare);
  std::printf("\n");
  const double dGateway = Line(tGateway, atGateway);
  std::printf(" %7.2f\n", dGateway / dBare);
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  signal(SIGPIPE, SIG_IGN);
  const bool bDaemon = argc > 1 && std::strcmp(argv[1], "-") != 0;
  const int iRounds = argc > 2 ? std::max(1, std::atoi(argv[2])) : 10;
  char szTemplate[] = "/tmp/gatelinkloadXXXXXX";
  if (mkdtemp(szTemplate) == nullptr) Die("mkdtemp");
  const std::string szFolder = szTemplate;
  const TServer tGateway = bDaemon ? TServer{"daemon", argv[1], 0} : StartStandIn(szFolder);
  const std::size_t dwReply = ReplySize(tGateway.szPath);
  const TServer tBare = StartBare(szFolder, std::string(dwReply, 'r'));
  std::printf("Reply of %zu bytes, medians of %d rounds of 1 s\n", dwReply, iRounds);
  std::printf("clients  server       requests/s    p50 us    p99 us   ratio\n");
  for (const std::size_t dwClients : {std::size_t{1}, std::size_t{4}, std::size_t{16}})
    Compare(tGateway, tBare, dwClients, iRounds);
  for (const TServer* ptServer : {&tGateway, &tBare}) {
    if (ptServer->iProcess == 0) continue;
    kill(ptServer->iProcess, SIGKILL);
    waitpid(ptServer->iProcess, nullptr, 0);
    unlink(ptServer->szPath.c_str());
  }
  rmdir(szFolder.c_str());
  return 0;
}
