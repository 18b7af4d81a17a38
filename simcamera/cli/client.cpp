#include "cli/client.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "cli/commands.h"

namespace {

constexpr i32 iReplyTimeout_s = 10;
constexpr u64 qwPoll_us = 50'000;  // of the camera's clock, but at least tLeastPoll of the host's
constexpr auto tLeastPoll = std::chrono::milliseconds(20);

TScopedFd Connect(const std::string& sRoot) {
  const TScopedFd tDirectory = Camera_OpenDirectory(sRoot, "tmp");
  sockaddr_un tAddress{};
  tAddress.sun_family = AF_UNIX;
  std::snprintf(tAddress.sun_path, sizeof tAddress.sun_path, "%s", Camera_ShortPath(tDirectory, "VernierLens").c_str());
  TScopedFd tSocket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const timeval tTimeout{iReplyTimeout_s, 0};
  setsockopt(tSocket.Get(), SOL_SOCKET, SO_RCVTIMEO, &tTimeout, sizeof tTimeout);
  setsockopt(tSocket.Get(), SOL_SOCKET, SO_SNDTIMEO, &tTimeout, sizeof tTimeout);
  if (connect(tSocket.Get(), reinterpret_cast<const sockaddr*>(&tAddress), sizeof tAddress) != 0) return TScopedFd();
  return tSocket;
}

bool SendAll(i32 fd, const std::string& sText) {
  size_t dwSent = 0;
  while (dwSent < sText.size()) {
    const ssize_t iCount = send(fd, sText.data() + dwSent, sText.size() - dwSent, MSG_NOSIGNAL);
    if (iCount <= 0) return false;
    dwSent += static_cast<size_t>(iCount);
  }
  return true;
}

// Receives all up to the end of the connection.  Returns nothing on a timeout.
std::optional<std::string> ReceiveAll(i32 fd) {
  std::string sText;
  char acBuffer[4096];
  for (;;) {
    const ssize_t iCount = recv(fd, acBuffer, sizeof acBuffer, 0);
    if (iCount < 0) return std::nullopt;
    if (iCount == 0) return sText;
    sText.append(acBuffer, static_cast<size_t>(iCount));
  }
}

void RequireQuery(const std::string& sQuery) {
  for (const char c : sQuery) {
    // The daemon does not decode escaped bytes, so these can't be sent in a request line.
    if (static_cast<unsigned char>(c) <= ' ' || static_cast<unsigned char>(c) >= 0x7F || c == '#') {
      Cli_RefuseUsage("a query holds neither blanks nor control characters nor '#'");
    }
  }
}

// The daemon says that all axes are idle.  Channel 0 is asked last: the last channel asked becomes the current one.
bool SaysIdle(const TOpenCamera& tCamera) {
  for (i32 iChannel = tCamera.ptModel->iChannels - 1; iChannel >= 0; --iChannel) {
    const auto tStatus = Client_Status(tCamera.sRoot, iChannel);
    if (!tStatus) return false;
    for (const auto& [sKey, llValue] : *tStatus) {
      if (sKey.ends_with("_enable") && llValue != 0) return false;
    }
  }
  return true;
}

}  // namespace

bool Client_IsHeard(const std::string& sRoot) {
  return Connect(sRoot).Get() >= 0;
}

bool Client_IsMoving(const TOpenCamera& tCamera) {
  const TWorldLock tLock(tCamera.ptWorld.get());
  return Lens_IsMoving(&tCamera.ptWorld->tLens, World_Now_us(tCamera.ptWorld.get()));
}

bool Client_HasWorkingLog(const TOpenCamera& tCamera) {
  const std::string sDirectory = tCamera.sRoot + "/etc/conf.d/vernierlensd/";
  return (Model_HasFocus(*tCamera.ptModel) && access((sDirectory + "focusworking.log").c_str(), F_OK) == 0) ||
         (Model_HasZoom(*tCamera.ptModel) && access((sDirectory + "zoomworking.log").c_str(), F_OK) == 0);
}

TScopedFd Client_Send(const std::string& sRoot, const std::string& sQuery) {
  TScopedFd tSocket = Connect(sRoot);
  const std::string sRequest = "GET /vernierlens?" + sQuery + " HTTP/1.1\r\nHost: camera\r\nConnection: close\r\n\r\n";
  if (tSocket.Get() >= 0 && !SendAll(tSocket.Get(), sRequest)) return TScopedFd();
  return tSocket;
}

std::optional<TReply> Client_ParseReply(const std::string& sText) {
  TReply tReply{};
  const size_t dwHeadEnd = sText.find("\r\n\r\n");
  if (std::sscanf(sText.c_str(), "HTTP/%*d.%*d %d", &tReply.iStatus) != 1 || dwHeadEnd == std::string::npos) {
    return std::nullopt;
  }
  tReply.sBody = sText.substr(dwHeadEnd + 4);
  return tReply;
}

std::optional<TReply> Client_Ask(const std::string& sRoot, const std::string& sQuery) {
  const TScopedFd tSocket = Client_Send(sRoot, sQuery);
  const auto sReply = tSocket.Get() >= 0 ? ReceiveAll(tSocket.Get()) : std::nullopt;
  return sReply ? Client_ParseReply(*sReply) : std::nullopt;
}

std::map<std::string, i64> Client_ParseStatus(const std::string& sBody) {
  std::map<std::string, i64> tStatus;
  for (size_t dwAt = 0; dwAt < sBody.size();) {
    const size_t dwEnd = std::min(sBody.find("\r\n", dwAt), sBody.size());
    const std::string sLine = sBody.substr(dwAt, dwEnd - dwAt);
    char szKey[64];
    long long llValue = 0;
    if (std::sscanf(sLine.c_str(), "%63[^=]='%lld'", szKey, &llValue) == 2) tStatus[szKey] = llValue;
    dwAt = dwEnd + 2;
  }
  return tStatus;
}

std::optional<std::map<std::string, i64>> Client_Status(const std::string& sRoot, i32 iChannel) {
  const auto tReply = Client_Ask(sRoot, "channel=" + std::to_string(iChannel) + "&function=getstatus");
  if (!tReply || tReply->iStatus != 200) return std::nullopt;
  return Client_ParseStatus(tReply->sBody);
}

void Client_PrintReply(const TOpenCamera& tCamera, const std::string& sQuery) {
  RequireQuery(sQuery);
  const auto tReply = Client_Ask(tCamera.sRoot, sQuery);
  if (!tReply) Cli_Fail(tCamera.sRoot + ": the daemon does not answer");
  std::fputs(tReply->sBody.c_str(), stdout);
  if (!tReply->sBody.empty() && !tReply->sBody.ends_with('\n')) std::fputc('\n', stdout);
  if (tReply->iStatus != 200) Cli_Fail("refused with " + std::to_string(tReply->iStatus));
}

void Client_WaitForRest(const TOpenCamera& tCamera, double dTimeout_s) {
  // As fast as the machine can, camera seconds would be over between two looks: then they are the host's.
  const auto IsAsap = [&] { return tCamera.ptWorld->tPace.dSpeed >= dSpeedMax; };
  const u64 qwTimeout_us = static_cast<u64>(dTimeout_s * 1e6);
  const u64 qwFrom_us = Camera_Now_us(tCamera), qwRealFrom_us = World_RealNow_us();
  i32 iIdlePolls = 0;
  while (iIdlePolls < 2) {
    if (!Camera_IsRun(tCamera.sRoot)) Cli_Fail(tCamera.sRoot + ": the camera is not running");
    const u64 qwTook_us = IsAsap() ? World_RealNow_us() - qwRealFrom_us : Camera_Now_us(tCamera) - qwFrom_us;
    if (qwTook_us > qwTimeout_us) Cli_Fail(tCamera.sRoot + ": not idle in time");
    // The pause comes first: a command that was just accepted has to reach its motor before the first look.
    std::this_thread::sleep_for(tLeastPoll);
    Camera_Sleep(tCamera, qwPoll_us);
    const bool bIdle =
        !Client_HasWorkingLog(tCamera) && !Client_IsMoving(tCamera) && SaysIdle(tCamera) && !Client_IsMoving(tCamera);
    iIdlePolls = bIdle ? iIdlePolls + 1 : 0;
  }
}
