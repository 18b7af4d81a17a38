#include "core/daemon/log.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/types.h"

namespace {

enum EWay : u32 {
  WAY_WRITE,  // a file, /dev/null, or an open file description of our own: no write waits
  WAY_SEND,   // a socket
  WAY_POLL,   // a pipe or terminal that cannot be opened once more: poll first
};

constexpr std::size_t dwStreamBuffer = 1024;
// The longest lines are a client's query of 8 KiB and a frame's payload with each byte as \xNN.
constexpr std::size_t dwLineRoom = 12288;

// Written at start-up, before other threads and handlers.
EWay g_eWay = WAY_WRITE;
i32 g_fdLog = STDOUT_FILENO;
FILE* g_pStream = nullptr;
char g_acStream[dwStreamBuffer];

// The lock of the stream orders its writers.  A race detector does not see that lock; this word shows it the order.
u32 g_dwOrder = 0;
char g_acLine[dwLineRoom];  // the line that is being printed
std::size_t g_dwLine = 0;
char g_acRest[dwLineRoom];         // the rest of a line that the reader has begun to take; stands at the buffer's end
std::atomic<u32> g_dwRest = 0;     // bytes in g_acRest; a signal handler reads it
std::atomic<u32> g_dwDropped = 0;  // lines dropped since the reader last took one

// As write, but never waits: fails with EAGAIN if the reader takes nothing.
ssize_t Give(const char* pcText, std::size_t dwText) {
  // A pipe takes up to PIPE_BUF bytes in one piece or not at all, and has room for them when poll says so.
  const std::size_t dwPiece = std::min<std::size_t>(dwText, PIPE_BUF);
  if (g_eWay == WAY_SEND) return send(g_fdLog, pcText, dwPiece, MSG_DONTWAIT);
  pollfd tPoll = {.fd = g_fdLog, .events = POLLOUT, .revents = 0};
  if (g_eWay == WAY_POLL && poll(&tPoll, 1, 0) < 1) {
    errno = EAGAIN;
    return -1;
  }
  return write(g_fdLog, pcText, dwPiece);
}

// Writes as much of a line as the reader takes, and keeps the rest in g_acRest.  Returns false if it took nothing.
bool GiveLine(const char* pcLine, std::size_t dwLine) {
  std::size_t dwGiven = 0;
  while (dwGiven < dwLine) {
    const ssize_t iGiven = Give(pcLine + dwGiven, dwLine - dwGiven);
    if (iGiven <= 0) break;
    dwGiven += static_cast<std::size_t>(iGiven);
  }
  if (dwGiven == 0) return false;
  const std::size_t dwRest = dwLine - dwGiven;
  std::memmove(g_acRest + dwLineRoom - dwRest, pcLine + dwGiven, dwRest);
  g_dwRest = static_cast<u32>(dwRest);
  return true;
}

// Writes the rest of an earlier line.  Returns true if none is left.
bool GiveRest() {
  const std::size_t dwRest = g_dwRest;
  return dwRest == 0 || (GiveLine(g_acRest + dwLineRoom - dwRest, dwRest) && g_dwRest == 0);
}

bool SayDropped() {
  const u32 dwDropped = g_dwDropped;
  if (dwDropped == 0) return true;
  char szNotice[64];
  const i32 iNotice = std::snprintf(szNotice, sizeof szNotice, "[vernierlensd] : Log lines dropped: %u\n", dwDropped);
  if (!GiveLine(szNotice, static_cast<std::size_t>(iNotice))) return false;
  g_dwDropped -= dwDropped;  // a handler may have dropped another meanwhile
  return g_dwRest == 0;
}

void EndLine() {
  if (!GiveRest() || !SayDropped() || !GiveLine(g_acLine, g_dwLine)) ++g_dwDropped;
  g_dwLine = 0;
}

// The write function of the stream.  Runs under the stream's lock, and leaves errno to the thread that prints.
ssize_t TakeText(void* /*pvCookie*/, const char* pcText, std::size_t dwText) {
  const int iSaved = errno;
  Word_Take(g_dwOrder);
  for (const char c : std::string_view(pcText, dwText)) {
    if (c == '\n' || g_dwLine < dwLineRoom - 1) g_acLine[g_dwLine++] = c;
    if (c == '\n') EndLine();
  }
  Word_Publish(g_dwOrder, 1);
  errno = iSaved;
  return static_cast<ssize_t>(dwText);
}

// O_NONBLOCK belongs to the open file description, which a shell or other programs of the terminal share.  So a pipe or
// a terminal is opened once more, for a description of our own.
void FindWay() {
  if (g_fdLog != STDOUT_FILENO) close(g_fdLog);
  g_fdLog = STDOUT_FILENO;
  g_eWay = WAY_WRITE;
  struct stat tStat = {};
  if (fstat(STDOUT_FILENO, &tStat) != 0) return;
  if (S_ISSOCK(tStat.st_mode)) g_eWay = WAY_SEND;
  if (!S_ISFIFO(tStat.st_mode) && isatty(STDOUT_FILENO) == 0) return;
  const i32 fdOwn = open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fdOwn >= 0) g_fdLog = fdOwn;
  if (fdOwn < 0) g_eWay = WAY_POLL;
}

}  // namespace

void Log_Open() {
  FindWay();
  if (g_pStream != nullptr) return;
  g_pStream = fopencookie(nullptr, "w", {.read = nullptr, .write = &TakeText, .seek = nullptr, .close = nullptr});
  if (g_pStream == nullptr) return;
  std::setvbuf(g_pStream, g_acStream, _IOLBF, sizeof g_acStream);
  stdout = g_pStream;
}

int Log_WriteFromHandler(std::string_view sLine) {
  // A thread may be in the middle of a line, so this function leaves that thread's buffers alone.
  errno = EAGAIN;
  if (g_dwRest == 0 && Give(sLine.data(), sLine.size()) == static_cast<ssize_t>(sLine.size())) return 0;
  ++g_dwDropped;
  return -1;
}
