#include "cli/hold.h"

#include <linux/futex.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <ctime>

namespace {

constexpr u64 qwPatience_us = 120'000'000;  // of the host's clock
constexpr u64 qwStep_us = 1'000;
constexpr u64 qwAnswer_us = 60'000'000;
constexpr u64 qwLook_us = 50'000;
constexpr u64 qwRest_us = 600'000'000;

void Set(const TOpenCamera& tCamera, u64 qwAt_us) {
  {
    const TWorldLock tLock(tCamera.ptWorld.get());
    if (!World_SetHold(tCamera.ptWorld.get(), qwAt_us)) Cli_Fail("too many processes hold this camera's clock");
  }
  World_Ring(tCamera.sRoot.c_str());
}

// Waits until the clock stands and the camera has said that nothing is under way.
void AwaitQuiet(const TOpenCamera& tCamera) {
  TPace& tPace = tCamera.ptWorld->tPace;
  const std::atomic_ref<u32> tSaid(tPace.dwQuietSaid);
  const u32 dwTicket = std::atomic_ref(tPace.dwQuietAsked).fetch_add(1, std::memory_order_acq_rel) + 1;
  const u64 qwEnd_us = World_RealNow_us() + qwPatience_us;
  while (World_RealNow_us() < qwEnd_us) {
    World_Ring(tCamera.sRoot.c_str());
    const u32 dwSaid = tSaid.load(std::memory_order_acquire);
    if (static_cast<i32>(dwSaid - dwTicket) >= 0) return;
    const timespec tShort{0, 20'000'000};
    syscall(SYS_futex, &tPace.dwQuietSaid, FUTEX_WAIT, dwSaid, &tShort, nullptr, 0);
    if (!Camera_IsRun(tCamera.sRoot)) Cli_Fail("the camera is not running");
  }
  Cli_Fail("the camera does not come to its hold");
}

std::string Busy(const TOpenCamera& tCamera) {
  if (Client_HasWorkingLog(tCamera)) return "a working log stands";
  if (Client_IsMoving(tCamera)) return "a motor turns";
  for (i32 iChannel = tCamera.ptModel->iChannels - 1; iChannel >= 0; --iChannel) {
    const auto tReply = Hold_Ask(tCamera, "channel=" + std::to_string(iChannel) + "&function=getstatus");
    if (!tReply || tReply->iStatus != 200) return "the daemon does not answer";
    for (const auto& [sKey, llValue] : Client_ParseStatus(tReply->sBody)) {
      if (!sKey.ends_with("_enable") || llValue == 0) continue;
      return "channel " + std::to_string(iChannel) + ": " + sKey + " is " + std::to_string(llValue);
    }
  }
  return "";
}

}  // namespace

void Hold_At(const TOpenCamera& tCamera, u64 qwAt_us) {
  Set(tCamera, qwAt_us);
  AwaitQuiet(tCamera);
  // Paused by somebody else, the clock stands before its hold.
  while (Camera_Now_us(tCamera) < qwAt_us) {
    const timespec tShort{0, 5'000'000};
    nanosleep(&tShort, nullptr);
    AwaitQuiet(tCamera);
  }
}

void Hold_Here(const TOpenCamera& tCamera) {
  Set(tCamera, Camera_Now_us(tCamera));
}

std::optional<TReply> Hold_Ask(const TOpenCamera& tCamera, const std::string& sQuery) {
  const u64 qwEnd_us = Camera_Now_us(tCamera) + qwAnswer_us;
  const auto Step = [&] { Hold_At(tCamera, Camera_Now_us(tCamera) + qwStep_us); };
  while (!Client_IsHeard(tCamera.sRoot)) {
    if (Camera_Now_us(tCamera) > qwEnd_us) return std::nullopt;
    Step();
  }
  const TScopedFd tSocket = Client_Send(tCamera.sRoot, sQuery);
  std::string sText;
  while (tSocket.Get() >= 0) {
    AwaitQuiet(tCamera);
    char acPart[4096];
    ssize_t iCount = 0;
    while ((iCount = recv(tSocket.Get(), acPart, sizeof acPart, MSG_DONTWAIT)) > 0) {
      sText.append(acPart, static_cast<size_t>(iCount));
    }
    if (iCount == 0) return Client_ParseReply(sText);
    if (Camera_Now_us(tCamera) > qwEnd_us) return std::nullopt;
    Step();
  }
  return std::nullopt;
}

std::string Hold_UntilRest(const TOpenCamera& tCamera) {
  const u64 qwEnd_us = Camera_Now_us(tCamera) + qwRest_us;
  std::string sBusy;
  for (i32 iIdle = 0; iIdle < 2 && Camera_Now_us(tCamera) < qwEnd_us;) {
    Hold_At(tCamera, Camera_Now_us(tCamera) + qwLook_us);
    sBusy = Busy(tCamera);
    iIdle = sBusy.empty() ? iIdle + 1 : 0;
  }
  return sBusy;
}
