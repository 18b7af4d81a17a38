// The C interface opens a gateway, reads from it and closes it.
#include "gatelink.h"

#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "gate.h"

namespace {

constexpr u32 dwDrainRounds = 8;

i32 Open_Socket(TGate* ptGate, const char* pszPath) {
  const std::size_t dwPath = pszPath == nullptr ? 0 : strnlen(pszPath, sizeof ptGate->tAddress.sun_path);
  if (dwPath == 0 || dwPath == sizeof ptGate->tAddress.sun_path) return -1;
  ptGate->tAddress.sun_family = AF_UNIX;
  std::memcpy(ptGate->tAddress.sun_path, pszPath, dwPath);
  ptGate->fdListen = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (ptGate->fdListen < 0) return -1;
  std::remove(pszPath);  // removes any node, also an empty directory
  if (bind(ptGate->fdListen, reinterpret_cast<const sockaddr*>(&ptGate->tAddress), sizeof ptGate->tAddress) != 0)
    return -1;
  if (lstat(pszPath, &ptGate->tNode) != 0) return -1;
  ptGate->bBound = true;
  // Nobody can connect before listen, so chmod is in time.  A umask would also change the files of other threads.
  if (chmod(pszPath, 0666) != 0) return -1;
  return listen(ptGate->fdListen, SOMAXCONN);  // the kernel lowers the number to its own limit
}

i32 Open_Descriptors(TGate* ptGate) {
  ptGate->fdEpoll = epoll_create1(EPOLL_CLOEXEC);
  ptGate->fdReady = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  ptGate->fdStop = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (ptGate->fdEpoll < 0 || ptGate->fdReady < 0 || ptGate->fdStop < 0) return -1;
  if (Watch(ptGate, EPOLL_CTL_ADD, ptGate->fdStop, EPOLLIN, dwStopTag) != 0) return -1;
  return Watch(ptGate, EPOLL_CTL_ADD, ptGate->fdListen, EPOLLIN, dwListenTag);
}

// Starts the service thread with all signals blocked: signals are meant to interrupt waits of the daemon's threads.
i32 Open_Thread(TGate* ptGate) {
  sigset_t tAll;
  sigset_t tBefore;
  sigfillset(&tAll);
  pthread_sigmask(SIG_SETMASK, &tAll, &tBefore);
  ptGate->bThread = pthread_create(&ptGate->tThread, nullptr, Serve, ptGate) == 0;
  pthread_sigmask(SIG_SETMASK, &tBefore, nullptr);
  return ptGate->bThread ? 0 : -1;
}

// Closes a gateway, even one that was opened only in part.
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
  // Another gateway may have replaced the node by now; its node stays.
  if (ptGate->bBound && lstat(pszPath, &tNode) == 0 && tNode.st_ino == ptGate->tNode.st_ino &&
      tNode.st_dev == ptGate->tNode.st_dev) {
    unlink(pszPath);
  }
  for (i32* pfd : {&ptGate->fdListen, &ptGate->fdEpoll, &ptGate->fdReady, &ptGate->fdStop}) CloseDescriptor(pfd);
  pthread_mutex_destroy(&ptGate->tLock);
  std::free(ptGate);
}

// Discards what the client sent after its request.  Unread bytes would make the daemon's close reset the connection.
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
  // The buffers are not cleared, because a buffer that is never touched costs no memory.
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
