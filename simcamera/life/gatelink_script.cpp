#include "life/gatelink_script.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <map>
#include <string>

#include "gatelink.h"
#include "hooks/hooks.h"
#include "life/life_record.h"

namespace {
struct TRequest {
  u32 dwNumber;
  const char* pszMethod;
  const char* pszQuery;
};
struct TConnection {
  u32 dwNumber;
  i32 fdPeer;
};

std::deque<TRequest> g_atWaiting;
std::map<i32, TConnection> g_atConnections;  // by the daemon's descriptor
i32 g_afdBell[2] = {-1, -1};                 // one byte for each request that waits
std::string g_sQuery;
std::string g_sMethod;
}  // namespace

// The script calls the kernel directly for its descriptors: a race detector would confuse them with the daemon's.
static void Ring() {
  syscall(SYS_write, g_afdBell[1], "", 1);
}

void GatelinkScript_Request(u32 dwNumber, const char* pszMethod, const char* pszQuery) {
  Transcript_Note("request %u %s %s", dwNumber, pszMethod, pszQuery);
  g_atWaiting.push_back({dwNumber, pszMethod, pszQuery});
  if (g_afdBell[1] >= 0) Ring();
}

int32_t GATELINK_init(HGateLink* phGateLink, const char* pszPath) {
  Hooks_Point("GATELINK_init");
  const bool bFails = Hooks_Fails("GATELINK_init");
  TInside tInside;
  *phGateLink = nullptr;
  if (bFails || g_afdBell[0] >= 0 || syscall(SYS_pipe2, g_afdBell, O_CLOEXEC | O_NONBLOCK) != 0) return -1;
  for (size_t i = 0; i < g_atWaiting.size(); ++i) Ring();
  Transcript_Note("gateway opens %s", pszPath);
  *phGateLink = &g_afdBell;
  return 0;
}

int32_t GATELINK_GetSocketFd(HGateLink hGateLink) {
  return hGateLink == &g_afdBell ? g_afdBell[0] : -1;
}

// Keeps the whole reply in the life's record, and a line of it in the transcript.
static void KeepReply(u32 dwNumber, const std::string& sReply) {
  TLifeRecord& tRecord = Life_Record();
  const u32 adwHead[2] = {dwNumber, static_cast<u32>(sReply.size())};
  if (tRecord.dwReplies + sizeof adwHead + sReply.size() <= sizeof tRecord.acReplies) {
    memcpy(tRecord.acReplies + tRecord.dwReplies, adwHead, sizeof adwHead);
    memcpy(tRecord.acReplies + tRecord.dwReplies + sizeof adwHead, sReply.data(), sReply.size());
    tRecord.dwReplies += static_cast<u32>(sizeof adwHead + sReply.size());
  }
  std::string sLine = sReply.substr(0, 400);
  std::replace(sLine.begin(), sLine.end(), '\n', '|');
  std::erase(sLine, '\r');
  Transcript_Note("reply %u %s", dwNumber, sLine.c_str());
}

static void ConnectionClosed(i32 fdRequest) {
  TInside tInside;
  const auto it = g_atConnections.find(fdRequest);
  if (it == g_atConnections.end()) return;
  std::string sReply;
  char acPart[4096];
  ssize_t iRead = 0;
  while ((iRead = syscall(SYS_read, it->second.fdPeer, acPart, sizeof acPart)) > 0) {
    sReply.append(acPart, static_cast<size_t>(iRead));
  }
  syscall(SYS_close, it->second.fdPeer);
  KeepReply(it->second.dwNumber, sReply);
  g_atConnections.erase(it);
}

int32_t GATELINK_read(HGateLink hGateLink, char** ppszQuery, int32_t* pfdRequest) {
  Hooks_Point("GATELINK_read");
  if (Hooks_Fails("GATELINK_read")) return -1;
  TInside tInside;
  if (hGateLink != &g_afdBell || g_afdBell[0] < 0) return -1;
  if (g_atWaiting.empty()) return 1;
  char cBell = 0;
  syscall(SYS_read, g_afdBell[0], &cBell, 1);
  Clock_DescriptorsChanged();
  const TRequest tRequest = g_atWaiting.front();
  g_atWaiting.pop_front();
  i32 afdPair[2];
  if (syscall(SYS_socketpair, AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, afdPair) != 0) return -1;
  TDescriptor* ptDescriptor = Hooks_Descriptor(afdPair[0]);
  if (ptDescriptor == nullptr) return -1;
  *ptDescriptor = {.eKind = DESCRIPTOR_WATCHED,
                   .eDevice = DEVICE_FOCUS_MOTOR,
                   .bWritten = false,
                   .szPath = "",
                   .pfnClosed = &ConnectionClosed};
  g_atConnections[afdPair[0]] = {tRequest.dwNumber, afdPair[1]};
  g_sQuery = tRequest.pszQuery;
  g_sMethod = tRequest.pszMethod;
  *ppszQuery = g_sQuery.data();
  *pfdRequest = afdPair[0];
  return 0;
}

const char* GATELINK_GetMethod(HGateLink) {
  return g_sMethod.c_str();
}

void GATELINK_close(HGateLink hGateLink) {
  Hooks_Point("GATELINK_close");
  TInside tInside;
  Transcript_Note("gateway closes");
  if (hGateLink != &g_afdBell || g_afdBell[0] < 0) return;
  for (i32& fd : g_afdBell) {
    syscall(SYS_close, fd);
    fd = -1;
  }
  g_atWaiting.clear();
}
