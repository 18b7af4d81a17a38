// The service thread: accepts connections, reads requests, and refuses bad ones.
#include <sys/socket.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "gate.h"

namespace {

constexpr u64 dwSilence_ms = 5000;    // a client that sends nothing for this time is dropped
constexpr u64 dwPatience_ms = 15000;  // a client that takes longer for its whole request is dropped, however busy
constexpr u64 dwFarewell_ms = 1000;   // time for a client to read its refusal; what it still sends is discarded
constexpr u64 dwNoAccept_ms = 100;    // pause of accepting when descriptors or memory have run out

u64 Now_ms() {
  timespec tNow = {};
  clock_gettime(CLOCK_MONOTONIC, &tNow);
  return static_cast<u64>(tNow.tv_sec) * 1000 + static_cast<u64>(tNow.tv_nsec) / 1'000'000;
}

// Sends at once or not at all.  The socket of a client that has sent no more than a request has room for the text.
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

// Keeps the connection open for a while: closing it with bytes unread would give the client an error instead of the
// answer.  Returns false if the client is gone.
bool Place_Refuse(TPlace* ptPlace, u64 dwNow) {
  if (!SendNow(ptPlace->fd, RefusalText(ptPlace->tRequest.eProgress))) return false;
  shutdown(ptPlace->fd, SHUT_WR);
  ptPlace->bRefused = true;
  ptPlace->dwDeadline = dwNow + dwFarewell_ms;
  return true;
}

// Passes received bytes on to the request.  Returns false if the connection is to be dropped.
bool Place_Feed(TPlace* ptPlace, const char* acBytes, std::size_t dwBytes, u64 dwNow) {
  if (ptPlace->bRefused) return true;
  ptPlace->dwDeadline = std::min(dwNow + dwSilence_ms, ptPlace->dwArrived + dwPatience_ms);
  const EProgress eProgress = Request_Take(&ptPlace->tRequest, acBytes, dwBytes);
  if (eProgress >= REQUEST_MALFORMED) return Place_Refuse(ptPlace, dwNow);
  if (Request_TakeContinue(&ptPlace->tRequest)) return SendNow(ptPlace->fd, "HTTP/1.1 100 Continue\r\n\r\n");
  return true;
}

// Reads only once, so that a client that sends without end does not hold up the others.
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

void Accept_SetPause(TGate* ptGate, bool bPause, u64 dwAgain) {
  ptGate->dwAcceptAgain = dwAgain;
  pthread_mutex_lock(&ptGate->tLock);
  ptGate->bNoAccept = bPause;
  Listen_Adjust(ptGate);
  pthread_mutex_unlock(&ptGate->tLock);
}

enum EAccept : i32 {
  ACCEPT_FAILED = -1,  // the gateway cannot go on
  ACCEPT_DONE = 0,     // nothing more to accept in this turn
  ACCEPT_AGAIN = 1,    // room has been made, so accept is to be tried again
};

// Tells what a failure of accept means for the gateway.
EAccept Accept_Failed(TGate* ptGate, i32 iError, u64 dwNow) {
  switch (iError) {
    case EAGAIN:
    case EINTR:
    case ECONNABORTED:
      return ACCEPT_DONE;
    case EMFILE:
    case ENFILE:
    case ENOBUFS:
    case ENOMEM:
      // Out of descriptors or memory.  As with places, silent clients must not keep them from clients with a request.
      if (Place_MakeRoom(ptGate)) return ACCEPT_AGAIN;
      Accept_SetPause(ptGate, true, dwNow + dwNoAccept_ms);
      return ACCEPT_DONE;
    default:
      return ACCEPT_FAILED;
  }
}

// Accepts every connection before it reads from the first.  By then most new clients have sent their request, and need
// no turn through the epoll set.
i32 Accept_All(TGate* ptGate, u64 dwNow) {
  u32 adwNew[dwPlaces];
  u32 dwNew = 0;
  EAccept eResult = ACCEPT_AGAIN;
  while (dwNew < dwPlaces && Place_CanTake(ptGate)) {
    // The daemon wants a blocking descriptor, so each call in this library says MSG_DONTWAIT.
    const i32 fd = accept4(ptGate->fdListen, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
      eResult = Accept_Failed(ptGate, errno, dwNow);
      if (eResult == ACCEPT_AGAIN) continue;
      break;
    }
    const u32 dwPlace = Place_Take(ptGate);
    Place_Start(ptGate, dwPlace, fd, dwNow);
    adwNew[dwNew++] = dwPlace;
  }
  for (u32 i = 0; i < dwNew; ++i) Place_Receive(ptGate, adwNew[i], WATCH_NEW, dwNow);
  return eResult == ACCEPT_FAILED ? -1 : 0;
}

// Returns how long epoll_wait may wait; -1 is without limit.
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
  if (ptGate->dwAcceptAgain <= dwNow) Accept_SetPause(ptGate, false, dwNever);
}

// Runs one turn of the service thread.  Returns 0 to go on, 1 if asked to stop, or -1 if the gateway has failed.
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
      // These events come even during a pause of accepting, and would not stop by themselves.
      if ((atEvent[i].events & (EPOLLERR | EPOLLHUP)) != 0) return -1;
      bAccept = true;
    } else {
      Place_Receive(ptGate, static_cast<u32>(dwTag), WATCH_KNOWN, dwNow);
    }
  }
  Expire(ptGate, dwNow);
  // Accept last.  A new connection may get a place that was freed above, and no event of the old one may then be left.
  const i32 iResult = bAccept ? Accept_All(ptGate, dwNow) : 0;
  Queue_Announce(ptGate);
  return iResult;
}

}  // namespace

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
