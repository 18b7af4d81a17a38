// The places of connections, and the queue of whole requests.
#include <sys/socket.h>
#include <sys/time.h>

#include "gate.h"

namespace {

constexpr timeval tSendTimeout = {.tv_sec = 1, .tv_usec = 0};

// Under the lock.  Clients that have not sent their request yet may hold half of the places in use; if they hold more,
// new clients may replace them.  Only the service thread may read dwWaited.  Other threads never get here: they call
// Places_AreLeft only while a place is free.
bool Places_CanMakeRoom(const TGate* ptGate) {
  return std::popcount(ptGate->dwWaited) > std::popcount(~ptGate->dwFree) / 2;
}

bool Places_AreLeft(const TGate* ptGate) {
  return ptGate->dwFree != 0 || Places_CanMakeRoom(ptGate);
}

void Place_GiveBack(TGate* ptGate, u32 dwPlace) {
  pthread_mutex_lock(&ptGate->tLock);
  Place_GiveBackLocked(ptGate, dwPlace);
  pthread_mutex_unlock(&ptGate->tLock);
}

}  // namespace

i32 Watch(const TGate* ptGate, i32 iOperation, i32 fd, u32 dwEvents, u64 dwTag) {
  epoll_event tEvent = {};
  tEvent.events = dwEvents;
  tEvent.data.u64 = dwTag;
  return epoll_ctl(ptGate->fdEpoll, iOperation, fd, &tEvent);
}

// The counter cannot overflow, because it is written at most twice between two reads.
void Ready_Set(i32 fdReady) {
  const u64 dwOne = 1;
  [[maybe_unused]] const ssize_t iWritten = write(fdReady, &dwOne, sizeof dwOne);
}

void Ready_Clear(i32 fdReady) {
  u64 dwCount = 0;
  [[maybe_unused]] const ssize_t iRead = read(fdReady, &dwCount, sizeof dwCount);
}

void Listen_Adjust(TGate* ptGate) {
  const bool bListen = Places_AreLeft(ptGate) && !ptGate->bNoAccept;
  if (bListen == ptGate->bListening) return;
  ptGate->bListening = bListen;
  Watch(ptGate, EPOLL_CTL_MOD, ptGate->fdListen, bListen ? EPOLLIN : 0U, dwListenTag);
}

void Place_GiveBackLocked(TGate* ptGate, u32 dwPlace) {
  ptGate->dwFree |= BitOf(dwPlace);
  Listen_Adjust(ptGate);
}

void Place_Drop(TGate* ptGate, u32 dwPlace) {
  CloseDescriptor(&ptGate->atPlace[dwPlace].fd);
  ptGate->dwWaited &= ~BitOf(dwPlace);
  Place_GiveBack(ptGate, dwPlace);
}

bool Place_CanTake(TGate* ptGate) {
  pthread_mutex_lock(&ptGate->tLock);
  const bool bAny = Places_AreLeft(ptGate);
  if (!bAny) Listen_Adjust(ptGate);
  pthread_mutex_unlock(&ptGate->tLock);
  return bAny;
}

bool Place_MakeRoom(TGate* ptGate) {
  pthread_mutex_lock(&ptGate->tLock);
  const bool bCan = Places_CanMakeRoom(ptGate);
  pthread_mutex_unlock(&ptGate->tLock);
  if (!bCan) return false;
  u32 dwOldest = static_cast<u32>(std::countr_zero(ptGate->dwWaited));
  ForEachWaited(ptGate, [&](u32 dwPlace) {
    if (ptGate->atPlace[dwPlace].dwArrived < ptGate->atPlace[dwOldest].dwArrived) dwOldest = dwPlace;
  });
  Place_Drop(ptGate, dwOldest);
  return true;
}

u32 Place_Take(TGate* ptGate) {
  pthread_mutex_lock(&ptGate->tLock);
  const bool bFree = ptGate->dwFree != 0;  // once true, it stays true: no other thread takes places
  pthread_mutex_unlock(&ptGate->tLock);
  if (!bFree) Place_MakeRoom(ptGate);
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

void Queue_Announce(TGate* ptGate) {
  pthread_mutex_lock(&ptGate->tLock);
  Listen_Adjust(ptGate);  // clients that were accepted in this turn may now be replaceable
  if (ptGate->dwQueued != 0 && !ptGate->bReady) {
    ptGate->bReady = true;
    Ready_Set(ptGate->fdReady);
  }
  pthread_mutex_unlock(&ptGate->tLock);
}
