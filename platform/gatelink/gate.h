// The gateway's inside.  Its service thread takes connections in and waits for their requests; whole ones stand in a
// queue until the daemon's thread fetches them.  A place (0 to 63) is free, waited for by the service thread, or in the
// queue. Free places and the queue are shared under the lock; a place that is waited for belongs to the service thread
// alone.
#pragma once

#include <pthread.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <bit>
#include <cstddef>

#include "request.h"

constexpr u32 dwPlaces = 64;
constexpr u64 dwNever = ~u64{0};
constexpr std::size_t dwReceiveRoom = 16384;  // bytes: a whole request and a little more

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

inline u64 BitOf(u32 dwPlace) {
  return u64{1} << dwPlace;
}

inline void CloseDescriptor(i32* pfd) {
  if (*pfd >= 0) close(*pfd);
  *pfd = -1;
}

template <typename TVisit>
void ForEachWaited(const TGate* ptGate, TVisit visit) {
  for (u64 dwLeft = ptGate->dwWaited; dwLeft != 0; dwLeft &= dwLeft - 1) {
    visit(static_cast<u32>(std::countr_zero(dwLeft)));
  }
}

i32 Watch(const TGate* ptGate, i32 iOperation, i32 fd, u32 dwEvents, u64 dwTag);  // epoll_ctl's result

// Of an event descriptor.  Clearing never waits.
void Ready_Set(i32 fdReady);
void Ready_Clear(i32 fdReady);

// Under the lock.  A change to listening wakes the service thread where connections wait already.
void Listen_Adjust(TGate* ptGate);

void Place_GiveBackLocked(TGate* ptGate, u32 dwPlace);  // under the lock, any thread

// The service thread's.
void Place_Drop(TGate* ptGate, u32 dwPlace);

// False: the queue and clients that have just come have the places, and accepting rests.
bool Place_CanTake(TGate* ptGate);

// Closes the connection whose request has been waited for longest: a client that sends its request at once is younger,
// so that no number of slow clients shuts it out.  False: of the places in use too few are waited for.
bool Place_MakeRoom(TGate* ptGate);

// After Place_CanTake.  Makes room where no place is free.
u32 Place_Take(TGate* ptGate);

enum EWatch { WATCH_NEW, WATCH_KNOWN };  // a known place is already in the epoll set
void Place_Queue(TGate* ptGate, u32 dwPlace, EWatch eWatch);

// Once a turn, not once a request: each call may cost a change to the daemon's thread and back.
void Queue_Announce(TGate* ptGate);

void* Serve(void* pGate);  // the service thread: a gate, until it is stopped or has failed
