// The gateway's service thread takes connections in and waits for their requests; whole ones stand in a queue until the
// daemon's thread fetches them.  A place (0 to 63) is free, waited for by the service thread, or in the queue.  Free
// places and the queue are shared under the lock; a place that is waited for belongs to the service thread alone.
#include "gatelink.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

#include "request.h"

namespace {

constexpr u32 dwPlaces = 64;
constexpr i32 iBacklog = 128;
constexpr u64 dwSilence_ms = 5000;    // a client that sends nothing for so long is dropped
constexpr u64 dwPatience_ms = 15000;  // and one that has not sent its request by then, however busy
constexpr u64 dwFarewell_ms = 1000;   // to read a refusal in; what the client still sends is swallowed meanwhile
constexpr u64 dwNoAccept_ms = 100;    // pause of accepting when descriptors or memory have run out
constexpr u64 dwNever = ~u64{0};
constexpr timeval tSendTimeout = {.tv_sec = 1, .tv_usec = 0};
constexpr std::size_t dwReceiveRoom = 16384;  // bytes: a whole request and a little more
constexpr u32 dwDrainRounds = 8;

// Words that the epoll set hands back; below dwPlaces it is a place.
constexpr u64 dwListenTag = dwPlaces;
constexpr u64 dwStopTag = dwPlaces + 1;

struct TPlace {
  i32 fd;
  bool bRefused;   // answered with an error, waiting for the client's end of file
  u64 dwArrived;   // ms, as Now_ms
  u64 dwDeadline;  // ms
  TRequest tRequest;
};

struct TGate {
  i32 fdListen = -1;
  i32 fdEpoll = -1;
  i32 fdReady = -1;  // counts up while the queue is not empty, or the gateway has failed
  i32 fdStop = -1;
  sockaddr_un tAddress = {};
  struct stat tNode = {};
  bool bBound = false;
  bool bThread = false;
  pthread_t tThread = {};
  pthread_mutex_t tLock = PTHREAD_MUTEX_INITIALIZER;

  // Under the lock.
  u64 dwFree = ~u64{0};  // a bit a place; the lowest is taken first, so that few of the buffers are ever touched
  u32 dwQueued = 0;
  u32 dwQueueHead = 0;
  u32 adwQueue[dwPlaces] = {};
  bool bReady = false;  // fdReady is readable
  bool bListening = true;
  bool bNoAccept = false;  // out of descriptors: the service thread alone ends this
  bool bFailed = false;

  // The service thread's own.
  u64 dwWaited = 0;  // a bit a place
  u64 dwAcceptAgain = dwNever;
  char acReceived[dwReceiveRoom];

  // The reader's own.
  char szMethod[24] = "";
  char szQuery[dwQueryRoom];

  TPlace atPlace[dwPlaces];
  char aacQuery[dwPlaces][dwQueryRoom];
};
static_assert(dwPlaces == 64, "a bit of a 64-bit word each");

enum EWatch { WATCH_NEW, WATCH_KNOWN };  // a known place is already in the epoll set

u64 Now_ms() {
  timespec tNow = {};
  clock_gettime(CLOCK_MONOTONIC, &tNow);
  return static_cast<u64>(tNow.tv_sec) * 1000 + static_cast<u64>(tNow.tv_nsec) / 1'000'000;
}

u64 BitOf(u32 dwPlace) {
  return u64{1} << dwPlace;
}

void CloseDescriptor(i32* pfd) {
  if (*pfd >= 0) close(*pfd);
  *pfd = -1;
}

// A full counter cannot happen: it is written at most twice between two reads.
void Ready_Set(i32 fdReady) {
  const u64 dwOne = 1;
  [[maybe_unused]] const ssize_t iWritten = write(fdReady, &dwOne, sizeof dwOne);
}

void Ready_Clear(i32 fdReady) {
  u64 dwCount = 0;
  [[maybe_unused]] const ssize_t iRead = read(fdReady, &dwCount, sizeof dwCount);
}

i32 Watch(const TGate* ptGate, i32 iOperation, i32 fd, u32 dwEvents, u64 dwTag) {
  epoll_event tEvent = {};
  tEvent.events = dwEvents;
  tEvent.data.u64 = dwTag;
  return epoll_ctl(ptGate->fdEpoll, iOperation, fd, &tEvent);
}

// Under the lock.  Clients that have not sent their request yet keep no more than half of the places from new ones.
// dwWaited is the service thread's: the reader's calls all come with a free place, and look no further.
bool Places_AreLeft(const TGate* ptGate) {
  return ptGate->dwFree != 0 || std::popcount(ptGate->dwWaited) > static_cast<int>(dwPlaces / 2);
}

// Under the lock.  A change to listening wakes the service thread where connections wait already.
void Listen_Adjust(TGate* ptGate) {
  const bool bListen = Places_AreLeft(ptGate) && !ptGate->bNoAccept;
  if (bListen == ptGate->bListening) return;
  ptGate->bListening = bListen;
  Watch(ptGate, EPOLL_CTL_MOD, ptGate->fdListen, bListen ? EPOLLIN : 0U, dwListenTag);
}

// Under the lock.
void Place_GiveBackLocked(TGate* ptGate, u32 dwPlace) {
  ptGate->dwFree |= BitOf(dwPlace);
  Listen_Adjust(ptGate);
}

void Place_GiveBack(TGate* ptGate, u32 dwPlace) {
  pthread_mutex_lock(&ptGate->tLock);
  Place_GiveBackLocked(ptGate, dwPlace);
  pthread_mutex_unlock(&ptGate->tLock);
}

void Place_Drop(TGate* ptGate, u32 dwPlace) {
  CloseDescriptor(&ptGate->atPlace[dwPlace].fd);
  ptGate->dwWaited &= ~BitOf(dwPlace);
  Place_GiveBack(ptGate, dwPlace);
}

template <typename TVisit>
void ForEachWaited(const TGate* ptGate, TVisit visit) {
  for (u64 dwLeft = ptGate->dwWaited; dwLeft != 0; dwLeft &= dwLeft - 1) {
    visit(static_cast<u32>(std::countr_zero(dwLeft)));
  }
}

// False: the queue and clients that have just come have the places, and accepting rests.
bool Place_CanTake(TGate* ptGate) {
  pthread_mutex_lock(&ptGate->tLock);
  const bool bAny = Places_AreLeft(ptGate);
  if (!bAny) Listen_Adjust(ptGate);
  pthread_mutex_unlock(&ptGate->tLock);
  return bAny;
}

// After Place_CanTake.  Where no place is free, the client that has been waited for longest goes: one that sends its
// request at once is younger, so that no number of slow clients shuts it out.
u32 Place_Take(TGate* ptGate) {
  pthread_mutex_lock(&ptGate->tLock);
  const bool bFree = ptGate->dwFree != 0;  // stays so: no other thread takes places
  pthread_mutex_unlock(&ptGate->tLock);
  if (!bFree) {
    u32 dwOldest = static_cast<u32>(std::countr_zero(ptGate->dwWaited));
    ForEachWaited(ptGate, [&](u32 dwPlace) {
      if (ptGate->atPlace[dwPlace].dwArrived < ptGate->atPlace[dwOldest].dwArrived) dwOldest = dwPlace;
    });
    Place_Drop(ptGate, dwOldest);
  }
  pthread_mutex_lock(&ptGate->tLock);
  const u32 dwPlace = static_cast<u32>(std::countr_zero(ptGate->dwFree));
  ptGate->dwFree &= ~BitOf(dwPlace);
  pthread_mutex_unlock(&ptGate->tLock);
  return dwPlace;
}

void Place_Queue(TGate* ptGate, u32 dwPlace, EWatch eWatch) {
  TPlace* ptPlace = &ptGate->atPlace[dwPlace];
  if (eWatch == WATCH_KNOWN) Watch(ptGate, EPOLL_CTL_DEL, ptPlace->fd, 0, 0);
  setsockopt(ptPlace->fd, SOL_SOCKET, SO_SNDTIMEO, &tSendTimeout, sizeof tSendTimeout);
  ptGate->dwWaited &= ~BitOf(dwPlace);
  pthread_mutex_lock(&ptGate->tLock);
  ptGate->adwQueue[(ptGate->dwQueueHead + ptGate->dwQueued) % dwPlaces] = dwPlace;
  ++ptGate->dwQueued;
  pthread_mutex_unlock(&ptGate->tLock);
}

// Once a turn, not once a request: each call may cost a change to the daemon's thread and back.
void Queue_Announce(TGate* ptGate) {
  pthread_mutex_lock(&ptGate->tLock);
  Listen_Adjust(ptGate);  // clients taken in this turn may by now be the ones that make room
  if (ptGate->dwQueued != 0 && !ptGate->bReady) {
    ptGate->bReady = true;
    Ready_Set(ptGate->fdReady);
  }
  pthread_mutex_unlock(&ptGate->tLock);
}

// Goes out at once or not at all: the socket of a client that has sent no more than a request has room for it.
bool SendNow(i32 fd, const char* szText) {
  const std::size_t dwText = std::strlen(szText);
  return send(fd, szText, dwText, MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(dwText);
}

const char* RefusalText(EProgress eProgress) {
  switch (eProgress) {
    case REQUEST_BODY_TOO_LARGE:
      return "HTTP/1.1 413 Payload Too Large\r\nContent-length: 0\r\nConnection: close\r\n\r\n";
    case REQUEST_HEAD_TOO_LARGE:
      return "HTTP/1.1 431 Request Header Fields Too Large\r\nContent-length: 0\r\nConnection: close\r\n\r\n";
    case REQUEST_PART:
    case REQUEST_WHOLE:
    case REQUEST_MALFORMED:
      break;
  }
  return "HTTP/1.1 400 Bad Request\r\nContent-length: 0\r\nConnection: close\r\n\r\n";
}

// The connection stays a while: closing it over unread bytes would give the client an error in place of the answer.
// False: the client is gone.
bool Place_Refuse(TPlace* ptPlace, u64 dwNow) {
  if (!SendNow(ptPlace->fd, RefusalText(ptPlace->tRequest.eProgress))) return false;
  shutdown(ptPlace->fd, SHUT_WR);
  ptPlace->bRefused = true;
  ptPlace->dwDeadline = dwNow + dwFarewell_ms;
  return true;
}

// Feeds what has come in to the request.  False: the connection is to be dropped.
bool Place_Feed(TPlace* ptPlace, const char* acBytes, std::size_t dwBytes, u64 dwNow) {
  if (ptPlace->bRefused) return true;
  ptPlace->dwDeadline = std::min(dwNow + dwSilence_ms, ptPlace->dwArrived + dwPatience_ms);
  const EProgress eProgress = Request_Take(&ptPlace->tRequest, acBytes, dwBytes);
  if (eProgress >= REQUEST_MALFORMED) return Place_Refuse(ptPlace, dwNow);
  if (Request_TakeContinue(&ptPlace->tRequest)) return SendNow(ptPlace->fd, "HTTP/1.1 100 Continue\r\n\r\n");
  return true;
}

// Reads once, so that a client that sends without end takes turns with the others.
void Place_Receive(TGate* ptGate, u32 dwPlace, EWatch eWatch, u64 dwNow) {
  TPlace* ptPlace = &ptGate->atPlace[dwPlace];
  const ssize_t iReceived = recv(ptPlace->fd, ptGate->acReceived, dwReceiveRoom, MSG_DONTWAIT);
  if (iReceived > 0) {
    if (!Place_Feed(ptPlace, ptGate->acReceived, static_cast<std::size_t>(iReceived), dwNow)) {
      return Place_Drop(ptGate, dwPlace);
    }
    if (ptPlace->tRequest.eProgress == REQUEST_WHOLE) return Place_Queue(ptGate, dwPlace, eWatch);
  } else if (iReceived == 0 || errno != EAGAIN) {
    return Place_Drop(ptGate, dwPlace);
  }
  if (eWatch == WATCH_KNOWN) return;
  ptGate->dwWaited |= BitOf(dwPlace);
  if (Watch(ptGate, EPOLL_CTL_ADD, ptPlace->fd, EPOLLIN, dwPlace) != 0) Place_Drop(ptGate, dwPlace);
}

void Place_Start(TGate* ptGate, u32 dwPlace, i32 fd, u64 dwNow) {
  TPlace* ptPlace = &ptGate->atPlace[dwPlace];
  ptPlace->fd = fd;
  ptPlace->bRefused = false;
  ptPlace->dwArrived = dwNow;
  ptPlace->dwDeadline = dwNow + dwSilence_ms;
  Request_Start(&ptPlace->tRequest, ptGate->aacQuery[dwPlace]);
}

void Accept_Rest(TGate* ptGate, bool bRest, u64 dwAgain) {
  ptGate->dwAcceptAgain = dwAgain;
  pthread_mutex_lock(&ptGate->tLock);
  ptGate->bNoAccept = bRest;
  Listen_Adjust(ptGate);
  pthread_mutex_unlock(&ptGate->tLock);
}

// What accept's failure means for the gateway: 0 to go on, -1 for its end.
i32 Accept_Failed(TGate* ptGate, i32 iError, u64 dwNow) {
  switch (iError) {
    case EAGAIN:
    case EINTR:
    case ECONNABORTED:
      return 0;
    case EMFILE:
    case ENFILE:
    case ENOBUFS:
    case ENOMEM:
      Accept_Rest(ptGate, true, dwNow + dwNoAccept_ms);
      return 0;
    default:
      return -1;
  }
}

// Takes every connection in before it reads from the first: a client that has just connected has then mostly sent its
// request, and needs no turn through the epoll set.
i32 Accept_All(TGate* ptGate, u64 dwNow) {
  u32 adwNew[dwPlaces];
  u32 dwNew = 0;
  i32 iResult = 0;
  while (dwNew < dwPlaces && Place_CanTake(ptGate)) {
    // Blocking, as the daemon wants it; here each call says MSG_DONTWAIT.
    const i32 fd = accept4(ptGate->fdListen, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
      iResult = Accept_Failed(ptGate, errno, dwNow);
      break;
    }
    const u32 dwPlace = Place_Take(ptGate);
    Place_Start(ptGate, dwPlace, fd, dwNow);
    adwNew[dwNew++] = dwPlace;
  }
  for (u32 i = 0; i < dwNew; ++i) Place_Receive(ptGate, adwNew[i], WATCH_NEW, dwNow);
  return iResult;
}

// -1: until something happens.
i32 Timeout_ms(const TGate* ptGate) {
  u64 dwNext = ptGate->dwAcceptAgain;
  ForEachWaited(ptGate, [&](u32 dwPlace) { dwNext = std::min(dwNext, ptGate->atPlace[dwPlace].dwDeadline); });
  if (dwNext == dwNever) return -1;
  const u64 dwNow = Now_ms();
  return dwNext > dwNow ? static_cast<i32>(dwNext - dwNow) : 0;
}

void Expire(TGate* ptGate, u64 dwNow) {
  ForEachWaited(ptGate, [&](u32 dwPlace) {
    if (ptGate->atPlace[dwPlace].dwDeadline <= dwNow) Place_Drop(ptGate, dwPlace);
  });
  if (ptGate->dwAcceptAgain <= dwNow) Accept_Rest(ptGate, false, dwNever);
}

// One turn of the service thread.  0: go on, 1: asked to stop, -1: the gateway has failed.
i32 Serve_Once(TGate* ptGate) {
  epoll_event atEvent[16];
  const i32 iEvents = epoll_wait(ptGate->fdEpoll, atEvent, std::size(atEvent), Timeout_ms(ptGate));
  if (iEvents < 0) return errno == EINTR ? 0 : -1;
  const u64 dwNow = Now_ms();
  bool bAccept = false;
  for (i32 i = 0; i < iEvents; ++i) {
    const u64 dwTag = atEvent[i].data.u64;
    if (dwTag == dwStopTag) return 1;
    if (dwTag == dwListenTag) {
      // These come even while accepting rests, and would come for ever.
      if ((atEvent[i].events & (EPOLLERR | EPOLLHUP)) != 0) return -1;
      bAccept = true;
    } else {
      Place_Receive(ptGate, static_cast<u32>(dwTag), WATCH_KNOWN, dwNow);
    }
  }
  Expire(ptGate, dwNow);
  // After the known ones: a place given back above may go to a new connection, and no event of its old one may be left.
  const i32 iResult = bAccept ? Accept_All(ptGate, dwNow) : 0;
  Queue_Announce(ptGate);
  return iResult;
}

void* Serve(void* pGate) {
  auto* ptGate = static_cast<TGate*>(pGate);
  i32 iResult = 0;
  while (iResult == 0) iResult = Serve_Once(ptGate);
  if (iResult < 0) {
    pthread_mutex_lock(&ptGate->tLock);
    ptGate->bFailed = true;
    Ready_Set(ptGate->fdReady);
    pthread_mutex_unlock(&ptGate->tLock);
  }
  return nullptr;
}

i32 Open_Socket(TGate* ptGate, const char* pszPath) {
  const std::size_t dwPath = pszPath == nullptr ? 0 : strnlen(pszPath, sizeof ptGate->tAddress.sun_path);
  if (dwPath == 0 || dwPath == sizeof ptGate->tAddress.sun_path) return -1;
  ptGate->tAddress.sun_family = AF_UNIX;
  std::memcpy(ptGate->tAddress.sun_path, pszPath, dwPath);
  ptGate->fdListen = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (ptGate->fdListen < 0) return -1;
  unlink(pszPath);
  if (bind(ptGate->fdListen, reinterpret_cast<const sockaddr*>(&ptGate->tAddress), sizeof ptGate->tAddress) != 0)
    return -1;
  if (lstat(pszPath, &ptGate->tNode) != 0) return -1;
  ptGate->bBound = true;
  // Before listen nobody can connect yet; a changed umask would reach into the files of the daemon's other threads.
  if (chmod(pszPath, 0666) != 0) return -1;
  return listen(ptGate->fdListen, iBacklog);
}

i32 Open_Descriptors(TGate* ptGate) {
  ptGate->fdEpoll = epoll_create1(EPOLL_CLOEXEC);
  ptGate->fdReady = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  ptGate->fdStop = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (ptGate->fdEpoll < 0 || ptGate->fdReady < 0 || ptGate->fdStop < 0) return -1;
  if (Watch(ptGate, EPOLL_CTL_ADD, ptGate->fdStop, EPOLLIN, dwStopTag) != 0) return -1;
  return Watch(ptGate, EPOLL_CTL_ADD, ptGate->fdListen, EPOLLIN, dwListenTag);
}

// The signals stay with the daemon's threads, whose waits they are meant to interrupt.
i32 Open_Thread(TGate* ptGate) {
  sigset_t tAll;
  sigset_t tBefore;
  sigfillset(&tAll);
  pthread_sigmask(SIG_SETMASK, &tAll, &tBefore);
  ptGate->bThread = pthread_create(&ptGate->tThread, nullptr, Serve, ptGate) == 0;
  pthread_sigmask(SIG_SETMASK, &tBefore, nullptr);
  return ptGate->bThread ? 0 : -1;
}

// Also of a half-open gateway.
void Gate_Close(TGate* ptGate) {
  if (ptGate->bThread) {
    Ready_Set(ptGate->fdStop);
    pthread_join(ptGate->tThread, nullptr);
  }
  for (u64 dwLeft = ~ptGate->dwFree; dwLeft != 0; dwLeft &= dwLeft - 1) {
    CloseDescriptor(&ptGate->atPlace[std::countr_zero(dwLeft)].fd);
  }
  struct stat tNode = {};
  const char* pszPath = ptGate->tAddress.sun_path;
  // Another gateway may have replaced the node by now; that one stays.
  if (ptGate->bBound && lstat(pszPath, &tNode) == 0 && tNode.st_ino == ptGate->tNode.st_ino &&
      tNode.st_dev == ptGate->tNode.st_dev) {
    unlink(pszPath);
  }
  for (i32* pfd : {&ptGate->fdListen, &ptGate->fdEpoll, &ptGate->fdReady, &ptGate->fdStop}) CloseDescriptor(pfd);
  pthread_mutex_destroy(&ptGate->tLock);
  std::free(ptGate);
}

// Swallows what the client sent beyond its request: the daemon's close would else turn into a reset of the connection.
void Drain(i32 fd) {
  char acBytes[1024];
  for (u32 i = 0; i < dwDrainRounds; ++i) {
    if (recv(fd, acBytes, sizeof acBytes, MSG_DONTWAIT) <= 0) return;
  }
}

void CopyRequest(TGate* ptGate, const TRequest& tRequest) {
  std::memcpy(ptGate->szQuery, tRequest.acQuery, tRequest.dwQuery + 1);
  const char* pszMethod = Request_Method(tRequest);
  const std::size_t dwMethod = std::min(std::strlen(pszMethod), sizeof ptGate->szMethod - 1);
  std::memcpy(ptGate->szMethod, pszMethod, dwMethod);
  ptGate->szMethod[dwMethod] = '\0';
}

}  // namespace

extern "C" {

int32_t GATELINK_init(HGateLink* phGateLink, const char* pszPath) {
  if (phGateLink == nullptr) return -1;
  *phGateLink = nullptr;
  // Buffers that are never used are never touched and so cost no memory.
  void* pMemory = std::malloc(sizeof(TGate));
  if (pMemory == nullptr) return -1;
  auto* ptGate = ::new (pMemory) TGate;
  if (Open_Socket(ptGate, pszPath) != 0 || Open_Descriptors(ptGate) != 0 || Open_Thread(ptGate) != 0) {
    Gate_Close(ptGate);
    return -1;
  }
  *phGateLink = ptGate;
  return 0;
}

int32_t GATELINK_GetSocketFd(HGateLink hGateLink) {
  return hGateLink == nullptr ? -1 : static_cast<TGate*>(hGateLink)->fdReady;
}

int32_t GATELINK_read(HGateLink hGateLink, char** ppszQuery, int32_t* pfdRequest) {
  if (hGateLink == nullptr || ppszQuery == nullptr || pfdRequest == nullptr) return -1;
  auto* ptGate = static_cast<TGate*>(hGateLink);
  pthread_mutex_lock(&ptGate->tLock);
  const bool bFailed = ptGate->bFailed;
  const bool bAny = ptGate->dwQueued != 0;
  i32 fd = -1;
  if (bAny) {
    const u32 dwPlace = ptGate->adwQueue[ptGate->dwQueueHead];
    ptGate->dwQueueHead = (ptGate->dwQueueHead + 1) % dwPlaces;
    if (--ptGate->dwQueued == 0 && ptGate->bReady && !bFailed) {
      ptGate->bReady = false;
      Ready_Clear(ptGate->fdReady);
    }
    fd = ptGate->atPlace[dwPlace].fd;
    CopyRequest(ptGate, ptGate->atPlace[dwPlace].tRequest);
    Place_GiveBackLocked(ptGate, dwPlace);
  }
  pthread_mutex_unlock(&ptGate->tLock);
  if (!bAny) return bFailed ? -1 : 1;
  Drain(fd);
  *ppszQuery = ptGate->szQuery;
  *pfdRequest = fd;
  return 0;
}

const char* GATELINK_GetMethod(HGateLink hGateLink) {
  return hGateLink == nullptr ? "" : static_cast<TGate*>(hGateLink)->szMethod;
}

void GATELINK_close(HGateLink hGateLink) {
  if (hGateLink != nullptr) Gate_Close(static_cast<TGate*>(hGateLink));
}
}
