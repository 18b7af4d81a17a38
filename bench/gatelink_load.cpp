// Status requests through a running daemon's gateway, side by side with a bare accept-read-write-close loop.
//
//   gatelink_load [SOCKET [ROUNDS]]
//
// SOCKET is the daemon's ("-" or none: a stand-in process that only reads from the gateway library and answers).  The
// bare loop's reply has the same size.  One process plays 1, 4 and 16 clients, each of which asks again as soon as it
// has its answer; the two servers take turns by rounds of a second, and the table shows medians over the rounds.
#include <signal.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "gate_client.h"
#include "gatelink.h"

namespace {

constexpr std::chrono::seconds tRound{1};
constexpr std::size_t dwStandInReply = 400;  // bytes, about what a status comes to

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

TResult Round(const TServer& tServer, std::size_t dwClients) {
  const auto tEnd = TClock::now() + tRound;
  const auto Next = [&] { return TClock::now() < tEnd ? szStatusRequest : std::string_view(); };
  return Clients_Run({tServer.szPath, dwClients, Next, [](std::string_view, const std::string&) {}});
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
  const std::size_t dwReply = AskOnce(tGateway.szPath, szStatusRequest).size();
  if (dwReply == 0) Die(tGateway.szPath.c_str());
  const TServer tBare = StartBare(szFolder, std::string(dwReply, 'r'));
  std::printf("Reply of %zu bytes, medians of %d rounds of 1 s\n", dwReply, iRounds);
  std::printf("clients  server       requests/s    p50 us    p99 us   ratio\n");
  for (const std::size_t dwClients : {std::size_t{1}, std::size_t{4}, std::size_t{16}})
    Compare(tGateway, tBare, dwClients, iRounds);
  for (const TServer* ptServer : {&tGateway, &tBare}) {
    if (ptServer->iProcess == 0) continue;
    Kill(ptServer->iProcess);
    unlink(ptServer->szPath.c_str());
  }
  rmdir(szFolder.c_str());
  return 0;
}
