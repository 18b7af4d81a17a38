// What waits on descriptors, and reads and writes of them.  Pipes and sockets are real ones; a wait is a wait of the
// clock until a poll that never waits says that they are ready.
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include "clock/pace.h"
#include "hooks/flash.h"
#include "hooks/hooks.h"
#include "hooks/i2c.h"
#include "hooks/times.h"

namespace {
constinit TReal<int(int, fd_set*, fd_set*, fd_set*, timeval*)> g_realSelect{"select"};
constinit TReal<int(int, fd_set*, fd_set*, fd_set*, const timespec*, const sigset_t*)> g_realPselect{"pselect"};
constinit TReal<int(int, fd_set*, fd_set*, fd_set*, TTimeval64*)> g_realSelect64{"__select64"};
constinit TReal<int(int, fd_set*, fd_set*, fd_set*, const TTimespec64*, const sigset_t*)> g_realPselect64{
    "__pselect64"};
constinit TReal<int(pollfd*, nfds_t, int)> g_realPoll{"poll"};
constinit TReal<ssize_t(int, void*, size_t)> g_realRead{"read"};
constinit TReal<ssize_t(int, const void*, size_t)> g_realWrite{"write"};
constinit TReal<ssize_t(int, void*, size_t, int)> g_realRecv{"recv"};
constinit TReal<ssize_t(int, const void*, size_t, int)> g_realSend{"send"};
constinit TReal<int(int, int, int, int*)> g_realSocketpair{"socketpair"};
constinit TReal<int(int)> g_realClose{"close"};
constinit TReal<int(int, const sockaddr*, socklen_t)> g_realBind{"bind"};
constinit TReal<int(int, const sockaddr*, socklen_t)> g_realConnect{"connect"};
constinit TReal<int(int, void*, int, int)> g_realEpollWait{"epoll_wait"};

struct TSelect {
  i32 iCount;
  fd_set* aptSets[3];  // the caller's, as they were handed in; null where there is none
};
struct TPoll {
  pollfd* ptFds;
  nfds_t dwCount;
};
}  // namespace

int Hook_select(int n, fd_set* ptRead, fd_set* ptWrite, fd_set* ptExcept, timeval* ptTime) asm("select");
int Hook_pselect(int n, fd_set* ptRead, fd_set* ptWrite, fd_set* ptExcept, const timespec* ptTime,
                 const sigset_t* ptMask) asm("pselect");
int Hook_select64(int n, fd_set* ptRead, fd_set* ptWrite, fd_set* ptExcept, TTimeval64* ptTime) asm("__select64");
int Hook_pselect64(int n, fd_set* ptRead, fd_set* ptWrite, fd_set* ptExcept, const TTimespec64* ptTime,
                   const sigset_t* ptMask) asm("__pselect64");
int Hook_poll(pollfd* ptFds, nfds_t dwCount, int iTime_ms) asm("poll");
int Hook_poll_chk(pollfd* ptFds, nfds_t dwCount, int iTime_ms, size_t dwRoom) asm("__poll_chk");
ssize_t Hook_read(int fd, void* pv, size_t dwLength) asm("read");
ssize_t Hook_read_chk(int fd, void* pv, size_t dwLength, size_t dwRoom) asm("__read_chk");
ssize_t Hook_write(int fd, const void* pv, size_t dwLength) asm("write");
ssize_t Hook_recv(int fd, void* pv, size_t dwLength, int iFlags) asm("recv");
ssize_t Hook_recv_chk(int fd, void* pv, size_t dwLength, size_t dwRoom, int iFlags) asm("__recv_chk");
ssize_t Hook_send(int fd, const void* pv, size_t dwLength, int iFlags) asm("send");
int Hook_socketpair(int iDomain, int iType, int iProtocol, int* aiPair) asm("socketpair");
int Hook_close(int fd) asm("close");
int Hook_bind(int fd, const sockaddr* ptAddress, socklen_t dwLength) asm("bind");
int Hook_connect(int fd, const sockaddr* ptAddress, socklen_t dwLength) asm("connect");
int Hook_epoll_wait(int fdEpoll, void* pvEvents, int iMost, int iTime_ms) asm("epoll_wait");

static bool IsOutput(i32 fd);

// Past every interceptor, and never waiting.  An all-zero time is the same in every layout of timespec.
static i32 SelectNow(i32 iCount, fd_set* const (&aptSets)[3]) {
  u64 aqwNoTime[2] = {0, 0};
  return static_cast<i32>(
      syscall(SYS_pselect6, iCount, aptSets[0], aptSets[1], aptSets[2], aqwNoTime, static_cast<void*>(nullptr)));
}

static i32 PollNow(pollfd* ptFds, nfds_t dwCount) {
  u64 aqwNoTime[2] = {0, 0};
  return static_cast<i32>(syscall(SYS_ppoll, ptFds, dwCount, aqwNoTime, static_cast<void*>(nullptr), 8));
}

static bool IsReadyNow(i32 fd, short iEvents) {
  pollfd tFd{.fd = fd, .events = iEvents, .revents = 0};
  return PollNow(&tFd, 1) != 0;
}

static bool SelectReady(void* pv) {
  const TSelect& tSelect = *static_cast<TSelect*>(pv);
  fd_set atCopies[3];
  fd_set* aptCopies[3] = {nullptr, nullptr, nullptr};
  for (i32 i = 0; i < 3; ++i) {
    if (tSelect.aptSets[i] == nullptr) continue;
    atCopies[i] = *tSelect.aptSets[i];
    aptCopies[i] = &atCopies[i];
  }
  return SelectNow(tSelect.iCount, aptCopies) != 0;
}

static i32 SelectFds(void* pv, pollfd* ptFds, i32 iRoom) {
  const TSelect& tSelect = *static_cast<TSelect*>(pv);
  constexpr short aiEvents[3] = {POLLIN, POLLOUT, POLLPRI};
  i32 iFilled = 0;
  for (i32 fd = 0; fd < tSelect.iCount; ++fd) {
    i32 iEvents = 0;
    for (i32 i = 0; i < 3; ++i) {
      if (tSelect.aptSets[i] != nullptr && FD_ISSET(fd, tSelect.aptSets[i])) iEvents |= aiEvents[i];
    }
    if (iEvents != 0 && iFilled < iRoom) {
      ptFds[iFilled++] = {.fd = fd, .events = static_cast<short>(iEvents), .revents = 0};
    }
  }
  return iFilled;
}

static i32 PollFds(void* pv, pollfd* ptFds, i32 iRoom) {
  const TPoll& tPoll = *static_cast<TPoll*>(pv);
  i32 iFilled = 0;
  for (; iFilled < iRoom && iFilled < static_cast<i32>(tPoll.dwCount); ++iFilled) ptFds[iFilled] = tPoll.ptFds[iFilled];
  return iFilled;
}

static bool PollReady(void* pv) {
  const TPoll& tPoll = *static_cast<TPoll*>(pv);
  return PollNow(tPoll.ptFds, tPoll.dwCount) != 0;
}

// Copies a set as far as it is looked at; the caller's may be no longer than that.
static void CopySet(fd_set* ptTo, const fd_set* ptFrom, i32 iCount) {
  memcpy(ptTo, ptFrom, (static_cast<size_t>(iCount) + 63) / 64 * 8);
}

static i32 SelectVirtually(const char* szCall, i32 iCount, fd_set* const (&aptSets)[3], u64 qwTime_us) {
  Clock_Point(szCall);
  TInside tInside;
  if (Word_Load(Clock_World()->bSelectFails) != 0) {
    Transcript_Note("%s fails", szCall);
    return -ENOMEM;
  }
  fd_set atAsked[3]{};
  TSelect tSelect{.iCount = iCount, .aptSets = {nullptr, nullptr, nullptr}};
  for (i32 i = 0; i < 3; ++i) {
    if (aptSets[i] == nullptr) continue;
    CopySet(&atAsked[i], aptSets[i], iCount);
    tSelect.aptSets[i] = &atAsked[i];
  }
  const u64 qwUntil_us = qwTime_us == qwNever_us ? qwNever_us : Clock_Deadline(qwTime_us);
  for (;;) {
    for (i32 i = 0; i < 3; ++i) {
      if (aptSets[i] != nullptr) CopySet(aptSets[i], &atAsked[i], iCount);
    }
    const i32 iReady = SelectNow(iCount, aptSets);
    if (iReady < 0) return -errno;
    if (iReady > 0) Transcript_Note("%s %d ready", szCall, iReady);
    if (iReady > 0) Clock_HandedIn();
    if (iReady > 0 || qwTime_us == 0) return iReady;
    const EWaitEnd eEnd = Clock_Wait({.qwUntil_us = qwUntil_us,
                                      .eInterrupt = INTERRUPT_ALWAYS,
                                      .pfnReady = &SelectReady,
                                      .pvReady = &tSelect,
                                      .pfnFds = &SelectFds});
    if (eEnd == WAIT_INTERRUPTED) Transcript_Note("%s interrupted", szCall);
    if (eEnd == WAIT_INTERRUPTED) return -EINTR;
    // What has become ready in this very moment is the next call's; the poll has left the sets empty.
    if (eEnd == WAIT_TIMED_OUT) return 0;
  }
}

static i32 FailBelow0(i32 iResult) {
  if (iResult >= 0) return iResult;
  errno = -iResult;
  return -1;
}

template <class TTimeval>
static u64 Micros(const TTimeval& t) {
  return static_cast<u64>(t.tv_sec) * 1'000'000 + static_cast<u64>(t.tv_usec);
}

template <class TTimeval>
static void SetMicros(TTimeval* pt, u64 qw_us) {
  pt->tv_sec = static_cast<decltype(pt->tv_sec)>(qw_us / 1'000'000);
  pt->tv_usec = static_cast<decltype(pt->tv_usec)>(qw_us % 1'000'000);
}

template <class TTimeval>
static int Select(TReal<int(int, fd_set*, fd_set*, fd_set*, TTimeval*)>& tReal, int n, fd_set* ptRead, fd_set* ptWrite,
                  fd_set* ptExcept, TTimeval* ptTime) {
  if (!Hooks_OnVirtualClock("select")) return tReal(n, ptRead, ptWrite, ptExcept, ptTime);
  const u64 qwTime_us = ptTime == nullptr ? qwNever_us : Micros(*ptTime);
  const u64 qwStart_us = Clock_Now_us();
  const i32 iResult = SelectVirtually("select", n, {ptRead, ptWrite, ptExcept}, qwTime_us);
  if (ptTime != nullptr) {
    const u64 qwSpent_us = Clock_Now_us() - qwStart_us;
    SetMicros(ptTime, qwSpent_us < qwTime_us ? qwTime_us - qwSpent_us : 0);
  }
  return FailBelow0(iResult);
}

int Hook_select(int n, fd_set* ptRead, fd_set* ptWrite, fd_set* ptExcept, timeval* ptTime) {
  return Select(g_realSelect, n, ptRead, ptWrite, ptExcept, ptTime);
}
int Hook_select64(int n, fd_set* ptRead, fd_set* ptWrite, fd_set* ptExcept, TTimeval64* ptTime) {
  return Select(g_realSelect64, n, ptRead, ptWrite, ptExcept, ptTime);
}

template <class TTimespec>
static int Pselect(TReal<int(int, fd_set*, fd_set*, fd_set*, const TTimespec*, const sigset_t*)>& tReal, int n,
                   fd_set* const (&aptSets)[3], const TTimespec* ptTime, const sigset_t* ptMask) {
  if (!Hooks_OnVirtualClock("pselect")) return tReal(n, aptSets[0], aptSets[1], aptSets[2], ptTime, ptMask);
  sigset_t tBefore;
  if (ptMask != nullptr) Clock_SetMask(SIG_SETMASK, ptMask, &tBefore);
  const u64 qwTime_us = ptTime == nullptr ? qwNever_us : Times_Micros(*ptTime);
  const i32 iResult = SelectVirtually("pselect", n, aptSets, qwTime_us);
  if (ptMask != nullptr) Clock_SetMask(SIG_SETMASK, &tBefore, nullptr);
  return FailBelow0(iResult);
}

int Hook_pselect(int n, fd_set* ptRead, fd_set* ptWrite, fd_set* ptExcept, const timespec* ptTime,
                 const sigset_t* ptMask) {
  return Pselect(g_realPselect, n, {ptRead, ptWrite, ptExcept}, ptTime, ptMask);
}
int Hook_pselect64(int n, fd_set* ptRead, fd_set* ptWrite, fd_set* ptExcept, const TTimespec64* ptTime,
                   const sigset_t* ptMask) {
  return Pselect(g_realPselect64, n, {ptRead, ptWrite, ptExcept}, ptTime, ptMask);
}

int Hook_poll(pollfd* ptFds, nfds_t dwCount, int iTime_ms) {
  if (!Hooks_OnVirtualClock("poll")) return g_realPoll(ptFds, dwCount, iTime_ms);
  if (iTime_ms == 0 && dwCount == 1 && IsOutput(ptFds->fd)) return PollNow(ptFds, dwCount);  // as in PrintedOutput
  Clock_Point("poll");
  TPoll tPoll{.ptFds = ptFds, .dwCount = dwCount};
  const u64 qwUntil_us = iTime_ms < 0 ? qwNever_us : Clock_Deadline(static_cast<u64>(iTime_ms) * 1'000);
  EWaitEnd eEnd = iTime_ms == 0 ? WAIT_TIMED_OUT : WAIT_WOKEN;
  for (;;) {
    const i32 iReady = PollNow(ptFds, dwCount);
    if (iReady != 0 || eEnd == WAIT_TIMED_OUT) return iReady;
    eEnd = Clock_Wait({.qwUntil_us = qwUntil_us,
                       .eInterrupt = INTERRUPT_ALWAYS,
                       .pfnReady = &PollReady,
                       .pvReady = &tPoll,
                       .pfnFds = &PollFds});
    if (eEnd == WAIT_INTERRUPTED) return FailBelow0(-EINTR);
  }
}

int Hook_poll_chk(pollfd* ptFds, nfds_t dwCount, int iTime_ms, size_t dwRoom) {
  if (dwRoom / sizeof(pollfd) < dwCount) __builtin_trap();
  return Hook_poll(ptFds, dwCount, iTime_ms);
}

// A descriptor that the clock answers for: from a camera path, or a pipe or socket.
static bool IsOurs(i32 fd) {
  const TDescriptor* ptDescriptor = Hooks_Descriptor(fd);
  return ptDescriptor != nullptr && (ptDescriptor->eKind != DESCRIPTOR_FOREIGN || Hooks_IsPipe(fd));
}

// Waits on the clock until the descriptor is ready; false if a signal came first.
static bool WaitReady(i32 fd, short iEvents, bool bWait) {
  if (!bWait || (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0) return true;
  pollfd tFd{.fd = fd, .events = iEvents, .revents = 0};
  TPoll tPoll{.ptFds = &tFd, .dwCount = 1};
  while (!IsReadyNow(fd, iEvents)) {
    if (Clock_Wait(
            {.eInterrupt = INTERRUPT_UNLESS_RESTART, .pfnReady = &PollReady, .pvReady = &tPoll, .pfnFds = &PollFds}) ==
        WAIT_INTERRUPTED) {
      errno = EINTR;
      return false;
    }
  }
  return true;
}

ssize_t Hook_read(int fd, void* pv, size_t dwLength) {
  if (I2C_IsBus(fd)) return I2C_Read(fd, pv, dwLength);
  if (!Hooks_Active() || !IsOurs(fd) || !Hooks_OnVirtualClock("read")) return g_realRead(fd, pv, dwLength);
  Clock_Point("read");
  if (!WaitReady(fd, POLLIN, true)) return -1;
  const ssize_t iRead = g_realRead(fd, pv, dwLength);
  Clock_DescriptorsChanged();
  return iRead;
}

ssize_t Hook_read_chk(int fd, void* pv, size_t dwLength, size_t dwRoom) {
  if (dwRoom < dwLength) __builtin_trap();
  return Hook_read(fd, pv, dwLength);
}

ssize_t Hook_recv(int fd, void* pv, size_t dwLength, int iFlags) {
  if (!Hooks_Active() || !Hooks_OnVirtualClock("recv")) return g_realRecv(fd, pv, dwLength, iFlags);
  Clock_Point("recv");
  if (!WaitReady(fd, POLLIN, (iFlags & MSG_DONTWAIT) == 0)) return -1;
  const ssize_t iRead = g_realRecv(fd, pv, dwLength, iFlags);
  Clock_DescriptorsChanged();
  return iRead;
}

ssize_t Hook_recv_chk(int fd, void* pv, size_t dwLength, size_t dwRoom, int iFlags) {
  if (dwRoom < dwLength) __builtin_trap();
  return Hook_recv(fd, pv, dwLength, iFlags);
}

// A peer that is gone: the life ignores the kernel's SIGPIPE, and raises it as the clock's.
static ssize_t AfterWrite(ssize_t iWritten) {
  Clock_DescriptorsChanged();
  if (iWritten < 0 && errno == EPIPE) Clock_SignalSelf(SIGPIPE);
  return iWritten;
}

// Standard output, or a descriptor of the same pipe or terminal.
static bool IsOutput(i32 fd) {
  if (fd == STDOUT_FILENO) return true;
  const TDescriptor* ptDescriptor = Hooks_Descriptor(fd);
  if (ptDescriptor == nullptr || ptDescriptor->eKind != DESCRIPTOR_FOREIGN) return false;  // may stand on /dev/null too
  TInside tInside;
  struct stat tStat;
  struct stat tOutput;
  return fstat(fd, &tStat) == 0 && fstat(STDOUT_FILENO, &tOutput) == 0 && tStat.st_dev == tOutput.st_dev &&
         tStat.st_ino == tOutput.st_ino;
}

// No point of the clock: the daemon writes its log under its stream's lock, where no other task may get a turn.  What
// the reader of a pipe or socket does not take has not been printed.
static ssize_t PrintedOutput(const void* pv, ssize_t iWritten) {
  if (iWritten > 0) Transcript_Printed(static_cast<const char*>(pv), static_cast<size_t>(iWritten));
  return iWritten;
}

// A file that was opened for writing while the flash had room.
static bool IsOnFullFlash(const TDescriptor& tDescriptor) {
  return tDescriptor.eKind == DESCRIPTOR_FILE && tDescriptor.bWritten && Flash_Holds(tDescriptor.szPath) &&
         Word_Load(Clock_World()->bFlashFull) != 0;
}

ssize_t Hook_write(int fd, const void* pv, size_t dwLength) {
  if (Foreign_IsSelf()) return g_realWrite(fd, pv, dwLength);
  // A scripted event may print as well.
  const bool bPrints = g_bClockRuns && (Clock_RunsScript() || Hooks_OnVirtualClock("write"));
  if (bPrints && IsOutput(fd)) {
    const bool bReal = Pace_IsOn() || Hooks_IsPipe(fd);
    return PrintedOutput(pv, bReal ? g_realWrite(fd, pv, dwLength) : static_cast<ssize_t>(dwLength));
  }
  if (!Hooks_Active() || !IsOurs(fd)) return g_realWrite(fd, pv, dwLength);
  if (I2C_IsBus(fd)) return I2C_Write(fd, pv, dwLength);
  if (IsOnFullFlash(*Hooks_Descriptor(fd))) {
    Hooks_Point("write");
    errno = ENOSPC;
    return -1;
  }
  if (!Hooks_OnVirtualClock("write")) return g_realWrite(fd, pv, dwLength);
  Clock_Point("write");
  if (Hooks_Fails("write")) return FailBelow0(-EAGAIN);
  // In a run the peer may be a client that does not read: the wait is bounded by the host's clock then, as its socket
  // is.
  if (!WaitReady(fd, POLLOUT, !Pace_IsOn())) return -1;
  return AfterWrite(g_realWrite(fd, pv, dwLength));
}

ssize_t Hook_send(int fd, const void* pv, size_t dwLength, int iFlags) {
  if (!Hooks_Active() || !Hooks_OnVirtualClock("send")) return g_realSend(fd, pv, dwLength, iFlags);
  if (IsOutput(fd)) return PrintedOutput(pv, g_realSend(fd, pv, dwLength, iFlags | MSG_NOSIGNAL));
  Clock_Point("send");
  if (Hooks_Fails("send")) return FailBelow0(-ENOBUFS);
  if (!WaitReady(fd, POLLOUT, (iFlags & MSG_DONTWAIT) == 0)) return -1;
  const ssize_t iSent = g_realSend(fd, pv, dwLength, iFlags);
  if ((iFlags & MSG_NOSIGNAL) == 0) return AfterWrite(iSent);
  Clock_DescriptorsChanged();
  return iSent;
}

int Hook_socketpair(int iDomain, int iType, int iProtocol, int* aiPair) {
  return Hooks_Fails("socketpair") ? FailBelow0(-EMFILE) : g_realSocketpair(iDomain, iType, iProtocol, aiPair);
}

int Hook_close(int fd) {
  if (Foreign_IsSelf()) return g_realClose(fd);
  if (!Hooks_Active() || !IsOurs(fd)) return g_realClose(fd);
  TDescriptor& tDescriptor = *Hooks_Descriptor(fd);
  Hooks_Point("close");
  const TDescriptor tClosed = tDescriptor;
  tDescriptor = {};
  const i32 iResult = g_realClose(fd);
  Clock_DescriptorsChanged();
  if (tClosed.eKind == DESCRIPTOR_DEVICE || tClosed.bWritten) Transcript_Fact("close %s", tClosed.szPath);
  if (tClosed.eKind == DESCRIPTOR_WATCHED && tClosed.pfnClosed != nullptr) tClosed.pfnClosed(fd);
  return iResult;
}

// A camera's socket lies below ROOT, whose name may be longer than a socket address holds: the address names the
// directory by a descriptor of it.  0, or -errno.
static i32 WithAddress(TReal<int(int, const sockaddr*, socklen_t)>& tReal, i32 fd, const sockaddr* ptAddress,
                       socklen_t dwLength) {
  const bool bLocal = Hooks_Active() && ptAddress->sa_family == AF_UNIX;
  const TCameraPath tPath(bLocal ? reinterpret_cast<const sockaddr_un*>(ptAddress)->sun_path : nullptr);
  if (!tPath.bOurs) return tReal(fd, ptAddress, dwLength) < 0 ? -errno : 0;
  TInside tInside;
  char szFolder[sizeof tPath.szReal];
  snprintf(szFolder, sizeof szFolder, "%s", tPath.szReal);
  char* pszName = strrchr(szFolder, '/');
  *pszName++ = '\0';
  const i32 fdFolder = static_cast<i32>(syscall(SYS_openat, AT_FDCWD, szFolder, O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (fdFolder < 0) return -errno;
  sockaddr_un tReached{};
  tReached.sun_family = AF_UNIX;
  snprintf(tReached.sun_path, sizeof tReached.sun_path, "/proc/self/fd/%d/%.64s", fdFolder, pszName);
  const i32 iResult = tReal(fd, reinterpret_cast<const sockaddr*>(&tReached), static_cast<socklen_t>(sizeof tReached));
  const i32 iError = errno;
  syscall(SYS_close, fdFolder);
  return iResult < 0 ? -iError : iResult;
}

int Hook_bind(int fd, const sockaddr* ptAddress, socklen_t dwLength) {
  return FailBelow0(WithAddress(g_realBind, fd, ptAddress, dwLength));
}

int Hook_connect(int fd, const sockaddr* ptAddress, socklen_t dwLength) {
  return FailBelow0(WithAddress(g_realConnect, fd, ptAddress, dwLength));
}

// Of a library's own threads only: the clock may move while such a thread sits in it.
int Hook_epoll_wait(int fdEpoll, void* pvEvents, int iMost, int iTime_ms) {
  if (Hooks_OnVirtualClock("epoll_wait")) Clock_End(CLOCK_END_ERROR, "epoll_wait is not simulated");
  if (!Foreign_IsSelf()) return g_realEpollWait(fdEpoll, pvEvents, iMost, iTime_ms);
  Foreign_Sits(fdEpoll);
  const int iResult = g_realEpollWait(fdEpoll, pvEvents, iMost, iTime_ms);
  Foreign_Works();
  return iResult;
}
