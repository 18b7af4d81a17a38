#include "core/daemon/inputs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "core/fail.h"
#include "core/paths.h"
#include "gatelink.h"

namespace {

constexpr mode_t wFIFOMode = 0777;
constexpr std::size_t dwNewPathRoom = 64;
constexpr u32 dwNewPathTries = 8;

// Refuses a descriptor of FD_SETSIZE or more: FD_SET would write beyond the end of the set.
i32 Input_Enter(TVernierLensdInfo* pThis, i32 fd) {
  if (fd < 0 || fd >= FD_SETSIZE) return -1;
  FD_SET(fd, &pThis->fdsRead);
  pThis->iMaxFd = std::max(pThis->iMaxFd, fd);
  return 0;
}

void Input_Leave(TVernierLensdInfo* pThis, i32 fd) {
  if (fd >= 0) FD_CLR(fd, &pThis->fdsRead);
}

// Makes a FIFO beside the path, to be renamed over what stands there.  Everybody may write in that folder.  The name
// contains the microseconds, so nobody can take all names in advance.
i32 MakeNewFIFO(char (&szNew)[dwNewPathRoom]) {
  for (u32 dwTry = 0; dwTry < dwNewPathTries; dwTry++) {
    timeval tNow = {};
    gettimeofday(&tNow, nullptr);
    std::snprintf(szNew, sizeof szNew, "%s.%06u", szFIFOPath, static_cast<u32>(tNow.tv_usec) + dwTry);
    if (mkfifo(szNew, wFIFOMode) == 0) return 0;
  }
  return -1;
}

}  // namespace

i32 VernierLensd_InitGateLink(TVernierLensdInfo* pThis) {
  if (GATELINK_init(&pThis->hGateLink, szGateLinkPath) != 0) {
    pThis->hGateLink = nullptr;
    return Fail("[vernierlensd] : GATELINK_init failed.");
  }
  pThis->fdGateLink = GATELINK_GetSocketFd(pThis->hGateLink);
  if (Input_Enter(pThis, pThis->fdGateLink) != 0) {
    VernierLensd_CloseGateLink(pThis);
    return Fail("[vernierlensd] : GATELINK_init failed.");
  }
  return 0;
}

i32 VernierLensd_InitFIFO(TVernierLensdInfo* pThis) {
  pThis->fdFIFO = -1;
  pThis->tEventFrame = {};
  pThis->qwFIFORestored = 0;
  char szNew[dwNewPathRoom];
  if (MakeNewFIFO(szNew) != 0) return Fail("[vernierlensd] : Failed to create FIFO.");
  pThis->fdFIFO = open(szNew, O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (Input_Enter(pThis, pThis->fdFIFO) != 0) {
    unlink(szNew);
    VernierLensd_CloseFIFO(pThis);
    return Fail("[vernierlensd] : Failed to open FIFO.");
  }
  // rename replaces a link, also a dangling one, and does not follow it.  Only a folder has to be removed first.
  if (std::rename(szNew, szFIFOPath) == 0) return 0;
  const bool bRemoved = std::remove(szFIFOPath) == 0;
  if (bRemoved && std::rename(szNew, szFIFOPath) == 0) return 0;
  unlink(szNew);
  VernierLensd_CloseFIFO(pThis);
  if (bRemoved) return Fail("[vernierlensd] : Failed to create FIFO.");
  std::printf("[vernierlensd] : Failed to remove %s.\n", szFIFOPath);
  return -1;
}

i32 VernierLensd_ReopenGateLink(TVernierLensdInfo* pThis) {
  std::puts("[vernierlensd] : Reinitialize GATELink...");
  VernierLensd_CloseGateLink(pThis);
  if (VernierLensd_InitGateLink(pThis) == 0) return 0;
  return Fail("[vernierlensd] : VernierLensd_InitGateLink failed.");
}

i32 VernierLensd_ReopenFIFO(TVernierLensdInfo* pThis) {
  std::puts("[vernierlensd] : VernierLensd_FIFOCommandHandler failed.");
  std::puts("[vernierlensd] : Reinitialize FIFO...");
  VernierLensd_CloseFIFO(pThis);
  if (VernierLensd_InitFIFO(pThis) != 0) std::puts("[vernierlensd] : VernierLensd_InitFIFO failed.");
  return -1;
}

void VernierLensd_CloseGateLink(TVernierLensdInfo* pThis) {
  Input_Leave(pThis, pThis->fdGateLink);
  pThis->fdGateLink = -1;
  if (pThis->hGateLink != nullptr) GATELINK_close(pThis->hGateLink);
  pThis->hGateLink = nullptr;
}

void VernierLensd_CloseFIFO(TVernierLensdInfo* pThis) {
  Input_Leave(pThis, pThis->fdFIFO);
  if (pThis->fdFIFO >= 0) close(pThis->fdFIFO);
  pThis->fdFIFO = -1;
}
