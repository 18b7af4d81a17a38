#include "gate_attacks.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <random>
#include <utility>

#include "gate_client.h"

namespace {

constexpr std::size_t dwHolders = 200, dwFlooders = 16;
// Sixteen closed-loop clients are a load rather than an attack: a request waits for at most one of each of them.
constexpr double dUnnoticed = 3.0, dATurnEach = 1.0 + dwFlooders;
constexpr std::chrono::milliseconds tComeAgain{100}, tDrip{1000};
constexpr std::string_view g_asFrames[] = {
    {"\x01\x01\x00\x2f<message><afbutton>pressed</afbutton></message>", 51},  // moves nothing until it is released
    {"\x01\x01\x00\x10<message></mess>", 20},
    {"\x01\x02\x00\x04none", 8},
};

enum EAfter { AFTER_SILENCE, AFTER_DRIP, AFTER_HALF_CLOSE };

struct THolder {
  int fd = -1;
  TClock::time_point tNext;  // when to connect, or to send the next byte
};

void Holder_Connect(THolder* ptHolder, const std::string& sSocket, std::string_view sFirst, EAfter eAfter) {
  ptHolder->fd = Connect(AddressOf(sSocket), sFirst, CONNECT_AT_ONCE);
  ptHolder->tNext = TClock::now() + (ptHolder->fd < 0 ? tComeAgain : tDrip);
  if (ptHolder->fd >= 0 && eAfter == AFTER_HALF_CLOSE) shutdown(ptHolder->fd, SHUT_WR);
}

void Holder_Continue(THolder* ptHolder, EAfter eAfter) {
  pollfd tPoll = {.fd = ptHolder->fd, .events = 0, .revents = 0};
  if (poll(&tPoll, 1, 0) > 0 && (tPoll.revents & POLLHUP) != 0) {
    close(ptHolder->fd);
    *ptHolder = {-1, TClock::now() + tComeAgain};
  } else if (eAfter == AFTER_DRIP && ptHolder->tNext <= TClock::now()) {
    ptHolder->tNext += tDrip;
    send(ptHolder->fd, "f", 1, MSG_NOSIGNAL);
  }
}

// 200 clients that stay connected; one that the daemon drops connects again after 0.1 s.
void Hold(const std::string& sSocket, std::string_view sFirst, EAfter eAfter) {
  std::vector<THolder> atHolders(dwHolders);
  for (std::size_t dw = 0; dw < dwHolders; ++dw) atHolders[dw].tNext = TClock::now() + dw * tComeAgain / dwHolders;
  for (;; usleep(1000)) {
    for (THolder& tHolder : atHolders) {
      if (tHolder.fd >= 0) {
        Holder_Continue(&tHolder, eAfter);
      } else if (tHolder.tNext <= TClock::now()) {
        Holder_Connect(&tHolder, sSocket, sFirst, eAfter);
      }
    }
  }
}

// Keeps the FIFO beside the socket full of noise and of frames that move nothing.
void FloodFIFO(const std::string& sSocket) {
  std::mt19937_64 fnDraw(1);
  for (int fd = -1;;) {
    if (fd < 0) fd = open((sSocket + "FIFO").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    const std::uint64_t qwNoise = fnDraw();
    const std::size_t dwKind = fnDraw() % (2 * std::size(g_asFrames));
    const std::string_view sNoise(reinterpret_cast<const char*>(&qwNoise), sizeof qwNoise);
    const std::string_view sBytes = dwKind < std::size(g_asFrames) ? g_asFrames[dwKind] : sNoise;
    if (write(fd, sBytes.data(), sBytes.size()) >= 0) continue;
    if (errno == EPIPE) close(std::exchange(fd, -1));  // the daemon has made a new FIFO
    usleep(200);
  }
}

void FloodQueries(const std::string& sSocket) {
  std::size_t dwAsked = 0;
  const auto Next = [&] { return g_asOddRequests[dwAsked++ % std::size(g_asOddRequests)]; };
  Clients_Run({sSocket, dwFlooders, Next, [](std::string_view, const std::string&) {}});
}

const TAttack g_atAttacks[] = {
    {"nobody", dUnnoticed, false, [](const std::string&) { pause(); }},
    {"200 slow clients", dUnnoticed, false, [](const std::string& sSocket) { Hold(sSocket, "GET /?", AFTER_DRIP); }},
    {"200 half-closed", dUnnoticed, false,
     [](const std::string& sSocket) { Hold(sSocket, "GET /?fun", AFTER_HALF_CLOSE); }},
    {"200 never read", dUnnoticed, false,
     [](const std::string& sSocket) { Hold(sSocket, sStatusRequest, AFTER_SILENCE); }},
    {"200 say nothing", dUnnoticed, false, [](const std::string& sSocket) { Hold(sSocket, "", AFTER_SILENCE); }},
    {"FIFO flood", dUnnoticed, false, FloodFIFO},
    {"odd queries, 16 clients", dATurnEach, true, FloodQueries},
};

}  // namespace

std::span<const TAttack> Attacks() {
  return g_atAttacks;
}
