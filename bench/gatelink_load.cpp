// Compares status requests through a running daemon's gateway with a bare accept-read-write-close loop.
//
//   gatelink_load [SOCKET [ROUNDS]]
//
// SOCKET is the daemon's.  With "-" or none, a stand-in process reads from the gateway library and only answers.  The
// bare loop's reply has the same size.  One process plays 1, 4 and 16 clients; each asks again as soon as it has its
// answer.  The two servers take turns in rounds of a second, and the table shows medians over the rounds.
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
constexpr std::size_t dwStandInReply = 400;  // bytes, about the size of a status

[[noreturn]] void ServeByGateway(HGateLink hGate, const std::string& sReply) {
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
    WriteAll(fd, sReply);
    close(fd);
  }
}

TServer StartStandIn(const std::string& sFolder) {
  TServer tServer = {"stand-in", sFolder + "/gate", 0};
  tServer.iProcess = Fork();
  if (tServer.iProcess == 0) {
    HGateLink hGate = nullptr;
    if (GATELINK_init(&hGate, tServer.sPath.c_str()) != 0) Die("GATELINK_init");
    ServeByGateway(hGate, std::string(dwStandInReply, 'r'));
  }
  while (access(tServer.sPath.c_str(), F_OK) != 0) usleep(1000);
  usleep(100'000);  // the gateway's thread starts after its socket is there
  return tServer;
}

TResult Round(const TServer& tServer, std::size_t dwClients) {
  const auto tEnd = TClock::now() + tRound;
  const auto Next = [&] { return TClock::now() < tEnd ? sStatusRequest : std::string_view(); };
  return Clients_Run({tServer.sPath, dwClients, Next, [](std::string_view, const std::string&) {}});
}

double MedianOf(const std::vector<TResult>& atResults, double TResult::*pdField) {
  std::vector<double> adValues;
  for (const TResult& tResult : atResults) adValues.push_back(tResult.*pdField);
  return Quantile(&adValues, 0.5);
}

void Compare(const TServer& tGateway, const TServer& tBare, std::size_t dwClients, int iRounds) {
  std::vector<TResult> atGateway, atBare;
  for (int i = 0; i < iRounds; ++i) {
    atGateway.push_back(Round(tGateway, dwClients));
    atBare.push_back(Round(tBare, dwClients));
  }
  const auto Line = [&](const TServer& tServer, const std::vector<TResult>& atResults) {
    const double dPerSecond = MedianOf(atResults, &TResult::dPerSecond);
    std::printf("%7zu  %-10s %12.0f %9.1f %9.1f", dwClients, tServer.pszName, dPerSecond,
                MedianOf(atResults, &TResult::dMedian_us), MedianOf(atResults, &TResult::dP99_us));
    return dPerSecond;
  };
  const double dBare = Line(tBare, atBare);
  std::printf("\n");
  const double dGateway = Line(tGateway, atGateway);
  std::printf(" %7.2f\n", dGateway / dBare);
  std::fflush(stdout);
}

}  // namespace

int main(int iCount, char** apszArgs) {
  signal(SIGPIPE, SIG_IGN);
  const bool bDaemon = iCount > 1 && std::strcmp(apszArgs[1], "-") != 0;
  const int iRounds = iCount > 2 ? std::max(1, std::atoi(apszArgs[2])) : 10;
  char szTemplate[] = "/tmp/gatelinkloadXXXXXX";
  if (mkdtemp(szTemplate) == nullptr) Die("mkdtemp");
  const std::string sFolder = szTemplate;
  const TServer tGateway = bDaemon ? TServer{"daemon", apszArgs[1], 0} : StartStandIn(sFolder);
  const std::size_t dwReply = AskOnce(tGateway.sPath, sStatusRequest).size();
  if (dwReply == 0) Die(tGateway.sPath.c_str());
  const TServer tBare = StartBare(sFolder, std::string(dwReply, 'r'));
  std::printf("Reply of %zu bytes, medians of %d rounds of 1 s\n", dwReply, iRounds);
  std::printf("clients  server       requests/s    p50 us    p99 us   ratio\n");
  for (const std::size_t dwClients : {std::size_t{1}, std::size_t{4}, std::size_t{16}})
    Compare(tGateway, tBare, dwClients, iRounds);
  for (const TServer* ptServer : {&tGateway, &tBare}) {
    if (ptServer->iProcess == 0) continue;
    Kill(ptServer->iProcess);
    unlink(ptServer->sPath.c_str());
  }
  rmdir(sFolder.c_str());
  return 0;
}
