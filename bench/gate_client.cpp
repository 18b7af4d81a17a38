#include "gate_client.h"

#include <signal.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr timeval tPatience = {.tv_sec = 20, .tv_usec = 0};

struct TClient {
  int fd;
  TClock::time_point tStart;
  std::string_view sRequest;
  std::string sAnswer;
};

[[noreturn]] void ServeBare(int fdListen, const std::string& sReply) {
  char acRequest[4096];
  while (true) {
    const int fd = accept(fdListen, nullptr, nullptr);
    if (fd < 0) Die("accept");
    if (read(fd, acRequest, sizeof acRequest) > 0) WriteAll(fd, sReply);
    close(fd);
  }
}

void Ask(TClient* ptClient, const sockaddr_un& tAddress, int fdEpoll) {
  ptClient->tStart = TClock::now();
  ptClient->sAnswer.clear();
  ptClient->fd = Connect(tAddress, ptClient->sRequest, CONNECT_WAITS);
  if (ptClient->fd < 0) Die("connect");
  epoll_event tEvent = {};
  tEvent.events = EPOLLIN;
  tEvent.data.ptr = ptClient;
  if (epoll_ctl(fdEpoll, EPOLL_CTL_ADD, ptClient->fd, &tEvent) != 0) Die("epoll_ctl");
}

// Returns the last result of recv: 0 at the end of the answer.
ssize_t Receive(int fd, std::string* psAnswer, int iFlags) {
  char acReply[4096];
  ssize_t iGot = 0;
  while ((iGot = recv(fd, acReply, sizeof acReply, iFlags)) > 0) psAnswer->append(acReply, static_cast<size_t>(iGot));
  return iGot;
}

}  // namespace

void Die(const char* pszWhat) {
  std::perror(pszWhat);
  std::exit(1);
}

sockaddr_un AddressOf(const std::string& sPath) {
  sockaddr_un tAddress = {};
  tAddress.sun_family = AF_UNIX;
  sPath.copy(tAddress.sun_path, sizeof tAddress.sun_path - 1);
  return tAddress;
}

void WriteAll(int fd, const std::string& sReply) {
  if (write(fd, sReply.data(), sReply.size()) < 0) std::perror("write");
}

double Microseconds(TClock::duration tTime) {
  return std::chrono::duration<double, std::micro>(tTime).count();
}

double Quantile(std::vector<double>* padValues, double dShare) {
  if (padValues->empty()) return 0;
  const auto iAt = static_cast<std::ptrdiff_t>(dShare * static_cast<double>(padValues->size() - 1));
  std::nth_element(padValues->begin(), padValues->begin() + iAt, padValues->end());
  return (*padValues)[static_cast<std::size_t>(iAt)];
}

pid_t Fork() {
  const pid_t iProcess = fork();
  if (iProcess < 0) Die("fork");
  if (iProcess == 0) prctl(PR_SET_PDEATHSIG, SIGKILL);
  return iProcess;
}

void Kill(pid_t iProcess) {
  kill(iProcess, SIGKILL);
  waitpid(iProcess, nullptr, 0);
}

TServer StartBare(const std::string& sFolder, const std::string& sReply) {
  TServer tServer = {"bare loop", sFolder + "/bare", 0};
  const sockaddr_un tAddress = AddressOf(tServer.sPath);
  const int fdListen = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (bind(fdListen, reinterpret_cast<const sockaddr*>(&tAddress), sizeof tAddress) != 0) Die("bind");
  if (listen(fdListen, 128) != 0) Die("listen");
  tServer.iProcess = Fork();
  if (tServer.iProcess == 0) ServeBare(fdListen, sReply);
  close(fdListen);
  return tServer;
}

int Connect(const sockaddr_un& tAddress, std::string_view sRequest, EConnect eConnect) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | (eConnect == CONNECT_AT_ONCE ? SOCK_NONBLOCK : 0), 0);
  if (fd < 0) Die("socket");
  if (eConnect == CONNECT_PATIENTLY) {
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tPatience, sizeof tPatience);  // limits connect too
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tPatience, sizeof tPatience);
  }
  if (connect(fd, reinterpret_cast<const sockaddr*>(&tAddress), sizeof tAddress) == 0 &&
      send(fd, sRequest.data(), sRequest.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(sRequest.size())) {
    return fd;
  }
  close(fd);
  return -1;
}

std::string AskOnce(const std::string& sPath, std::string_view sRequest) {
  std::string sAnswer;
  const int fd = Connect(AddressOf(sPath), sRequest, CONNECT_PATIENTLY);
  if (fd < 0) return sAnswer;
  if (Receive(fd, &sAnswer, 0) != 0) sAnswer.clear();
  close(fd);
  return sAnswer;
}

TResult Clients_Run(const TClients& tClients) {
  const int fdEpoll = epoll_create1(EPOLL_CLOEXEC);
  const sockaddr_un tAddress = AddressOf(tClients.sPath);
  std::vector<TClient> atClients(tClients.dwClients);
  std::vector<double> adLatency_us;
  std::size_t dwAsking = 0;
  const auto tStart = TClock::now();
  auto tNow = tStart;
  const auto Next = [&](TClient* ptClient) {
    ptClient->sRequest = tClients.fnNext();
    if (!ptClient->sRequest.empty()) Ask(ptClient, tAddress, fdEpoll);
    return ptClient->sRequest.empty() ? 0U : 1U;
  };
  for (TClient& tClient : atClients) dwAsking += Next(&tClient);
  while (dwAsking > 0) {
    epoll_event atEvent[16];
    const int iEvents = epoll_wait(fdEpoll, atEvent, 16, 5000);
    if (iEvents <= 0) Die("no answer within 5 s");
    for (int i = 0; i < iEvents; ++i) {
      auto* ptClient = static_cast<TClient*>(atEvent[i].data.ptr);
      const ssize_t iGot = Receive(ptClient->fd, &ptClient->sAnswer, MSG_DONTWAIT);
      if (iGot < 0 && errno != EAGAIN) Die("recv");
      if (iGot != 0) continue;
      close(ptClient->fd);
      tNow = TClock::now();
      adLatency_us.push_back(Microseconds(tNow - ptClient->tStart));
      tClients.fnAnswer(ptClient->sRequest, ptClient->sAnswer);
      dwAsking -= 1U - Next(ptClient);
    }
  }
  close(fdEpoll);
  const double dSeconds = Microseconds(tNow - tStart) / 1e6;
  return {static_cast<double>(adLatency_us.size()) / dSeconds, Quantile(&adLatency_us, 0.5),
          Quantile(&adLatency_us, 0.99)};
}
