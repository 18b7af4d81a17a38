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
  std::string_view szRequest;
  std::string szAnswer;
};

[[noreturn]] void ServeBare(int fdListen, const std::string& szReply) {
  char acRequest[4096];
  while (true) {
    const int fd = accept(fdListen, nullptr, nullptr);
    if (fd < 0) Die("accept");
    if (read(fd, acRequest, sizeof acRequest) > 0) WriteAll(fd, szReply);
    close(fd);
  }
}

void Ask(TClient* ptClient, const sockaddr_un& tAddress, int fdEpoll) {
  ptClient->tStart = TClock::now();
  ptClient->szAnswer.clear();
  ptClient->fd = Connect(tAddress, ptClient->szRequest, CONNECT_WAITS);
  if (ptClient->fd < 0) Die("connect");
  epoll_event tEvent = {};
  tEvent.events = EPOLLIN;
  tEvent.data.ptr = ptClient;
  if (epoll_ctl(fdEpoll, EPOLL_CTL_ADD, ptClient->fd, &tEvent) != 0) Die("epoll_ctl");
}

// recv's last result: 0 once the answer has come to its end.
ssize_t Receive(int fd, std::string* pszAnswer, int iFlags) {
  char acReply[4096];
  ssize_t iGot = 0;
  while ((iGot = recv(fd, acReply, sizeof acReply, iFlags)) > 0) pszAnswer->append(acReply, static_cast<size_t>(iGot));
  return iGot;
}

}  // namespace

void Die(const char* pszWhat) {
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

double Microseconds(TClock::duration tTime) {
  return std::chrono::duration<double, std::micro>(tTime).count();
}

double At(std::vector<double>* padValues, double dShare) {
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

TServer StartBare(const std::string& szFolder, const std::string& szReply) {
  TServer tServer = {"bare loop", szFolder + "/bare", 0};
  const sockaddr_un tAddress = AddressOf(tServer.szPath);
  const int fdListen = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (bind(fdListen, reinterpret_cast<const sockaddr*>(&tAddress), sizeof tAddress) != 0) Die("bind");
  if (listen(fdListen, 128) != 0) Die("listen");
  tServer.iProcess = Fork();
  if (tServer.iProcess == 0) ServeBare(fdListen, szReply);
  close(fdListen);
  return tServer;
}

int Connect(const sockaddr_un& tAddress, std::string_view szRequest, EConnect eConnect) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | (eConnect == CONNECT_AT_ONCE ? SOCK_NONBLOCK : 0), 0);
  if (fd < 0) Die("socket");
  if (eConnect == CONNECT_PATIENTLY) {
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tPatience, sizeof tPatience);  // of connect too
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tPatience, sizeof tPatience);
  }
  if (connect(fd, reinterpret_cast<const sockaddr*>(&tAddress), sizeof tAddress) == 0 &&
      send(fd, szRequest.data(), szRequest.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(szRequest.size())) {
    return fd;
  }
  close(fd);
  return -1;
}

std::string AskOnce(const std::string& szPath, std::string_view szRequest) {
  std::string szAnswer;
  const int fd = Connect(AddressOf(szPath), szRequest, CONNECT_PATIENTLY);
  if (fd < 0) return szAnswer;
  if (Receive(fd, &szAnswer, 0) != 0) szAnswer.clear();
  close(fd);
  return szAnswer;
}

TResult Clients_Run(const TClients& tClients) {
  const int fdEpoll = epoll_create1(EPOLL_CLOEXEC);
  const sockaddr_un tAddress = AddressOf(tClients.szPath);
  std::vector<TClient> atClient(tClients.dwClients);
  std::vector<double> adLatency_us;
  std::size_t dwAsking = 0;
  const auto tStart = TClock::now();
  auto tNow = tStart;
  const auto Next = [&](TClient* ptClient) {
    ptClient->szRequest = tClients.fnNext();
    if (!ptClient->szRequest.empty()) Ask(ptClient, tAddress, fdEpoll);
    return ptClient->szRequest.empty() ? 0U : 1U;
  };
  for (TClient& tClient : atClient) dwAsking += Next(&tClient);
  while (dwAsking > 0) {
    epoll_event atEvent[16];
    const int iEvents = epoll_wait(fdEpoll, atEvent, 16, 5000);
    if (iEvents <= 0) Die("no answer within 5 s");
    for (int i = 0; i < iEvents; ++i) {
      auto* ptClient = static_cast<TClient*>(atEvent[i].data.ptr);
      const ssize_t iGot = Receive(ptClient->fd, &ptClient->szAnswer, MSG_DONTWAIT);
      if (iGot < 0 && errno != EAGAIN) Die("recv");
      if (iGot != 0) continue;
      close(ptClient->fd);
      tNow = TClock::now();
      adLatency_us.push_back(Microseconds(tNow - ptClient->tStart));
      tClients.fnAnswer(ptClient->szRequest, ptClient->szAnswer);
      dwAsking -= 1U - Next(ptClient);
    }
  }
  close(fdEpoll);
  const double dSeconds = Microseconds(tNow - tStart) / 1e6;
  return {static_cast<double>(adLatency_us.size()) / dSeconds, At(&adLatency_us, 0.5), At(&adLatency_us, 0.99)};
}
