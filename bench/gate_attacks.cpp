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
// Sixteen closed-loop clients are a load more than an attack: one turn of each comes ahead, and no more.
constexpr double dUnnoticed = 3.0, dATurnEach = 1.0 + dwFlooders;
constexpr std::chrono::milliseconds tComeAgain{100}, tDrip{1000};
constexpr std::string_view aszFrames[] = {
    {"\x01\x01\x00\x2f<message><afbutton>pressed</afbutton></message>", 51},  // moves nothing before its release
    {"\x01\x01\x00\x10<message></mess>", 20},
    {"\x01\x02\x00\x04none", 8},
};

enum EAfter { AFTER_SILENCE, AFTER_DRIP, AFTER_HALF_CLOSE };

struct THolder {
  int fd = -1;
  TClock::time_point tNext;  // to come, or to send the next byte
};

void Holder_Come(THolder* ptHolder, const std::string& szSocket, std::string_view szFirst, EAfter eAfter) {
  ptHolder->fd = Connect(AddressOf(szSocket), szFirst, CONNECT_AT_ONCE);
  ptHolder->tNext = TClock::now() + (ptHolder->fd < 0 ? tComeAgain : tDrip);
  if (ptHolder->fd >= 0 && eAfter == AFTER_HALF_CLOSE) shutdown(ptHolder->fd, SHUT_WR);
}

void Holder_Stay(THolder* ptHolder, EAfter eAfter) {
  pollfd tPoll = {.fd = ptHolder->fd, .events = 0, .revents = 0};
  if (poll(&tPoll, 1, 0) > 0 && (tPoll.revents & POLLHUP) != 0) {
    close(ptHolder->fd);
    *ptHolder = {-1, TClock::now() + tComeAgain};
  } else if (eAfter == AFTER_DRIP && ptHolder->tNext <= TClock::now()) {
    ptHolder->tNext += tDrip;
    send(ptHolder->fd, "f", 1, MSG_NOSIGNAL);
  }
}

// 200 clients that are always there; one that the daemon drops comes again after 0.1 s.
void Hold(const std::string& szSocket, std::string_view szFirst, EAfter eAfter) {
  std::vector<THolder> atHolder(dwHolders);
  for (std::size_t i = 0; i < dwHolders; ++i) atHolder[i].tNext = TClock::now() + i * tComeAgain / dwHolders;
  for (;; usleep(1000)) {
    for (THolder& tHolder : atHolder) {
      if (tHolder.fd >= 0) {
        Holder_Stay(&tHolder, eAfter);
      } else if (tHolder.tNext <= TClock::now()) {
        Holder_Come(&tHolder, szSocket, szFirst, eAfter);
      }
    }
  }
}

// The FIFO beside the socket is kept full of noise and of frames that move nothing.
void FloodFIFO(const std::string& szSocket) {
  std::mt19937_64 fnDraw(1);
  for (int fd = -1;;) {
    if (fd < 0) fd = open((szSocket + "FIFO").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    const std::uint64_t qwNoise = fnDraw();
    const std::size_t dwKind = fnDraw() % (2 * std::size(aszFrames));
    const std::string_view szNoise(reinterpret_cast<const char*>(&qwNoise), sizeof qwNoise);
    const std::string_view szBytes = dwKind < std::size(aszFrames) ? aszFrames[dwKind] : szNoise;
    if (write(fd, szBytes.data(), szBytes.size()) >= 0) continue;
    if (errno == EPIPE) close(std::exchange(fd, -1));  // the daemon has made it anew
    usleep(200);
  }
}

void FloodQueries(const std::string& szSocket) {
  std::size_t dwAsked = 0;
  const auto Next = [&] { return aszOddRequests[dwAsked++ % std::size(aszOddRequests)]; };
  Clients_Run({szSocket, dwFlooders, Next, [](std::string_view, const std::string&) {}});
}

const TAttack atAttack[] = {
    {"nobody", dUnnoticed, false, [](const std::string&) { pause(); }},
    {"200 slow clients", dUnnoticed, false, [](const std::string& szSocket) { Hold(szSocket, "GET /?", AFTER_DRIP); }},
    {"200 half-closed", dUnnoticed, false,
     [](const std::string& szSocket) { Hold(szSocket, "GET /?fun", AFTER_HALF_CLOSE); }},
    {"200 never read", dUnnoticed, false,
     [](const std::string& szSocket) { Hold(szSocket, szStatusRequest, AFTER_SILENCE); }},
    {"200 say nothing", dUnnoticed, false, [](const std::string& szSocket) { Hold(szSocket, "", AFTER_SILENCE); }},
    {"FIFO flood", dUnnoticed, false, FloodFIFO},
    {"odd queries, 16 clients", dATurnEach, true, FloodQueries},
};

}  // namespace

std::span<const TAttack> Attacks() {
  return atAttack;
}
