// The gateway's inside.  Its service thread accepts connections and waits for their requests.  Whole requests stay in a
// queue until the daemon's thread takes them.  A place (0 to 63) is free, waited for by the service thread, or in the
// queue.  Free places and the queue are shared under the lock.  Only the service thread uses places that it waits for.
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

// Words that come back with an event of the epoll set.  A word below dwPlaces is the number of a place.
constexpr u64 dwListenTag = dwPlaces;
constexpr u64 dwStopTag = dwPlaces + 1;

struct TPlace {
  i32 fd;
  bool bRefused;   // answered with an error; waits for the client's end of file
  u64 dwArrived;   // ms of Now_ms
  u64 dwDeadline;  // ms of Now_ms
  TRequest tRequest;
};

struct TGate {
  i32 fdListen = -1;
  i32 fdEpoll = -1;
  i32 fdReady = -1;  // readable while the queue is not empty, or once the gateway has failed
  i32 fdStop = -1;
  sockaddr_un tAddress = {};
  struct stat tNode = {};
  bool bBound = false;
  bool bThread = false;
  pthread_t tThread = {};
  pthread_mutex_t tLock = PTHREAD_MUTEX_INITIALIZER;

  // Shared, only under the lock.
  u64 dwFree = ~u64{0};  // a bit for each place; the lowest is taken first, so that few buffers are ever touched
  u32 dwQueued = 0;
  u32 dwQueueHead = 0;
  u32 adwQueue[dwPlaces] = {};
  bool bReady = false;  // fdReady is readable
  bool bListening = true;
  bool bNoAccept = false;  // pause after descriptors or memory ran out; only the service thread writes
  bool bFailed = false;

  // Only for the service thread.
  u64 dwWaited = 0;             // a bit for each place that is waited for
  u64 dwAcceptAgain = dwNever;  // ms of Now_ms; end of the pause
  char acReceived[dwReceiveRoom];

  // Only for the thread that calls GATELINK_read.
  char szMethod[24] = "";
  char szQuery[dwQueryRoom];

  TPlace atPlace[dwPlaces];
  char aacQuery[dwPlaces][dwQueryRoom];
};
static_assert(dwPlaces == 64, "each place is one bit of a 64-bit word");

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

i32 Watch(const TGate* ptGate, i32 iOperation, i32 fd, u32 dwEvents, u64 dwTag);  // returns epoll_ctl's result

// Ready_Set makes an event descriptor readable, Ready_Clear takes that back.  Neither waits.
void Ready_Set(i32 fdReady);
void Ready_Clear(i32 fdReady);

// Listens if places are left and accepting is not paused; otherwise stops listening.  Under the lock, any thread.
// A change to listening wakes the service thread if connections already wait.
void Listen_Adjust(TGate* ptGate);

void Place_GiveBackLocked(TGate* ptGate, u32 dwPlace);  // frees the place; under the lock, any thread
// All functions below are for the service thread only.

// Closes the connection and frees its place.
void Place_Drop(TGate* ptGate, u32 dwPlace);

// Returns false if no place is free and no room can be made; the gateway then stops listening.
bool Place_CanTake(TGate* ptGate);

// Closes the connection whose request has been waited for longest.  A client that sends its request at once is newer
// than that, so slow clients cannot shut it out.  Returns false if too few of the places in use are waited for.
bool Place_MakeRoom(TGate* ptGate);

// Takes a place and returns its number; makes room if none is free.  Call this only after Place_CanTake has said true.
u32 Place_Take(TGate* ptGate);

enum EWatch { WATCH_NEW, WATCH_KNOWN };  // a known place is already in the epoll set

// Puts a place whose request is whole at the end of the queue.
void Place_Queue(TGate* ptGate, u32 dwPlace, EWatch eWatch);

// Makes fdReady readable if requests wait.  Call this once a turn, not once a request, because each call may cost a
// switch to the daemon's thread and back.
void Queue_Announce(TGate* ptGate);

void* Serve(void* pGate);  // entry of the service thread; runs until the gate is stopped or has failed
