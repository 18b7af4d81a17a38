#include "core/inputs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "core/fail.h"
#include "core/paths.h"
#include "gatelink.h"

namespace {

constexpr mode_t wFIFOMode = 0777;

// A descriptor that an fd_set has no room for would be written beyond it.
i32 Input_Enter(TVernierLensdInfo* pThis, i32 fd) {
  if (fd < 0 || fd >= FD_SETSIZE) return -1;
  FD_SET(fd, &pThis->fdsRead);
  pThis->iMaxFd = std::max(pThis->iMaxFd, fd);
  return 0;
}

void Input_Leave(TVernierLensdInfo* pThis, i32 fd) {
  if (fd >= 0) FD_CLR(fd, &pThis->fdsRead);
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
  if (access(szFIFOPath, F_OK) == 0 && std::remove(szFIFOPath) < 0) {
    std::printf("[vernierlensd] : Failed to remove %s.\n", szFIFOPath);
    return -1;
  }
  if (mkfifo(szFIFOPath, wFIFOMode) != 0) return Fail("[vernierlensd] : Failed to create FIFO.");
  pThis->fdFIFO = open(szFIFOPath, O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (Input_Enter(pThis, pThis->fdFIFO) == 0) return 0;
  VernierLensd_CloseFIFO(pThis);
  return Fail("[vernierlensd] : Failed to open FIFO.");
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
