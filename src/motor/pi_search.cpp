#include "motor/pi_search.h"

#include <algorithm>
#include <atomic>
#include <cstdio>

#include "core/wait.h"
#include "motor/reference.h"

namespace {

constexpr u64 qwSearchWait_us = 1'000'000;
constexpr u64 qwLeastSearchWaits = 60;
constexpr u64 qwMostSearchWaits = 3600;
constexpr u64 qwSettle_us = 500'000;
constexpr u64 qwRendezvousPoll_us = 500'000;

std::atomic<u32> g_bSearchingPI = 0;
std::atomic<u32> g_dwSearchesEnded = 0;

// Keeps "power on, mark as not done" apart from "both are done, power off".  Else one axis could switch the sensor off
// while the other searches.
pthread_mutex_t g_mutexPIPower = PTHREAD_MUTEX_INITIALIZER;

bool IsDone(u32 TVernierLensdConfigInfo::*pbDone) {
  return Word_Load(g_tVernierLensdConfigInfo.*pbDone) != 0;
}

void SetDone(const TAxis& tAxis, u32 bDone) {
  Word_Store(g_tVernierLensdConfigInfo.*tAxis.pbPIDone, bDone);
}

// One search of the axis, at one step time for each virtual step: to the stop, back over the sensor, and forward to the
// far end.
u64 SearchTime_us(const TAxis& tAxis) {
  const u64 qwOneStep = Axis_Config(tAxis.pdwVirtualOneStep);
  if (Axis_Config(tAxis.pbPISupport) == 0 || qwOneStep == 0) return 0;
  const u64 qwForward =
      std::max(qwOneStep * Axis_Config(tAxis.pdwVirtualEnd), u64{g_tVernierLensdConfigInfo.dwFocusPIForwardShift});
  const u64 qwSteps = 2 * u64{Axis_Config(tAxis.pdwPISearchStep)} + Axis_Config(tAxis.pdwPIBackwardShift) + qwForward;
  return qwSteps * Axis_Config(tAxis.pdwOneStepTime) / qwOneStep + qwSettle_us;
}

u64 MaxSearchWaits() {
  const u64 qwTime_us = std::max(SearchTime_us(g_tZoomAxis), SearchTime_us(g_tFocusAxis));
  return std::clamp(qwTime_us / qwSearchWait_us + 1, qwLeastSearchWaits, qwMostSearchWaits);
}

// Waits until no other search is under way and takes the turn.  Each search that ends restarts the wait's bound: a
// recovery searches channel after channel and leaves no turn in between.  Returns false if one search took too long, or
// if the daemon is ending.
bool TakeTurn(const char* pszName) {
  u32 dwEnded = g_dwSearchesEnded;
  const u64 qwMaxWaits = MaxSearchWaits();
  for (u64 qwWaits = 0; g_bSearchingPI.exchange(1) != 0; qwWaits++) {
    const u32 dwNowEnded = g_dwSearchesEnded;
    if (dwNowEnded != dwEnded) qwWaits = 0;
    dwEnded = dwNowEnded;
    std::printf("[vernierlensd] : %s waiting for search PI.\n", pszName);
    if (qwWaits == qwMaxWaits) {
      std::printf("[vernierlensd] : %s waiting too long, so exit search PI process.\n", pszName);
      return false;
    }
    Delay_us(qwSearchWait_us);
    if (Daemon_IsEnding()) return false;
  }
  return true;
}

void GiveTurnBack() {
  g_dwSearchesEnded++;
  g_bSearchingPI = 0;
}

bool WalkBlocking(i32 fd, u32 dwDirection, i32 iSteps) {
  return Motor_Request(fd, dwDirection) >= 0 && Motor_Request(fd, MOTOR_WALK_STEPS_BLOCK, iSteps) >= 0;
}

i32 EndSearch(const char* pszName, bool bThere, i32 iForward) {
  if (bThere) {
    std::printf("[vernierlensd] : %s search PI done. walk %d step\n", pszName, iForward);
  } else {
    std::printf("[vernierlensd] : %s: the driver answered a walk with an error, its end is not known.\n", pszName);
  }
  GiveTurnBack();
  return bThere ? 0 : -1;
}

// Returns true if the other axis makes a PI pass and its thread has not ended.
bool OtherTakesPart(TVernierLensdInfo* pThis, const TAxis& tOther) {
  return g_tVernierLensdConfigInfo.*tOther.pbPISupport != 0 && pThis->*tOther.pbSupport != 0 &&
         Word_Take(Axis_Box(pThis, tOther).bEnded) == 0;
}

void WaitForOther(TVernierLensdInfo* pThis, const TAxis& tOwn, const TAxis& tOther, i32 iDev) {
  if (g_tVernierLensdConfigInfo.*tOther.pbPISupport == 0) return;
  u32& dwOwn = g_tVernierLensdConfigInfo.*tOwn.pdwPIDev;
  const u32& dwOther = g_tVernierLensdConfigInfo.*tOther.pdwPIDev;
  Word_Store(dwOwn, static_cast<u32>(iDev));
  // Compare with less, not with unequal: the other axis may already have reached a later channel.
  while (Word_Load(dwOther) < static_cast<u32>(iDev) && OtherTakesPart(pThis, tOther) && !Daemon_IsEnding()) {
    std::puts(tOwn.szWaitOther);
    Delay_us(qwRendezvousPoll_us);
  }
}

}  // namespace

i32 VernierLensd_SearchPI(const char* pszName, u32 bGoBack, i32 fd, u32 dwPosition, u32 dwSearchStep,
                          u32 dwBackwardShift, u32 dwOneStep) {
  if (!TakeTurn(pszName)) return iSearchNotBegun;
  std::printf("[vernierlensd] : %s searching PI.\n", pszName);
  // The result of this walk does not matter: the search after it finds the sensor or fails.
  Motor_Request(fd, MOTOR_WALK_STEPS_BLOCK, Steps_ToDriver(dwSearchStep, 1));
  if (Motor_Request(fd, MOTOR_SEARCH_PI, Steps_ToDriver(dwSearchStep, 1)) != 0) {
    std::printf("[vernierlensd] : %s search PI fail.\n", pszName);
    GiveTurnBack();
    return -1;
  }
  const i32 iForward = Steps_ToDriver(dwPosition, dwOneStep);
  if (bGoBack != 0) {
    if (!WalkBlocking(fd, MOTOR_SET_BACKWARD, Steps_ToDriver(dwBackwardShift, 1))) {
      return EndSearch(pszName, false, iForward);
    }
    Delay_us(qwSettle_us);
  }
  return EndSearch(pszName, WalkBlocking(fd, MOTOR_SET_FORWARD, iForward), iForward);
}

void VernierLensd_SetPIPowerOn(i32 fd) {
  Motor_Request(fd, MOTOR_SET_PI_POWER_ON);
}

void VernierLensd_SetPIPowerOff(i32 fd) {
  pthread_mutex_lock(&g_mutexPIPower);
  const bool bZoomDone = IsDone(g_tZoomAxis.pbPIDone);
  const bool bFocusDone = IsDone(g_tFocusAxis.pbPIDone);
  std::printf("[vernierlensd] : bZoomPIDone=%d,bFocusPIDone=%d\n", bZoomDone, bFocusDone);
  if (bZoomDone && bFocusDone) {
    std::puts("[vernierlensd] : MOTOR_SET_PI_POWER_OFF!");
    Motor_Request(fd, MOTOR_SET_PI_POWER_OFF);
  }
  pthread_mutex_unlock(&g_mutexPIPower);
}

void PISearch_Begin(const TAxis& tAxis, i32 fd) {
  pthread_mutex_lock(&g_mutexPIPower);
  VernierLensd_SetPIPowerOn(fd);
  SetDone(tAxis, 0);
  pthread_mutex_unlock(&g_mutexPIPower);
}

void PISearch_End(const TAxis& tAxis, i32 fd) {
  SetDone(tAxis, 1);
  VernierLensd_SetPIPowerOff(fd);
}

void VernierLensd_WaitZoomPISearch(TVernierLensdInfo* pThis, i32 iDev) {
  WaitForOther(pThis, g_tFocusAxis, g_tZoomAxis, iDev);
}

void VernierLensd_WaitFocusPISearch(TVernierLensdInfo* pThis, i32 iDev) {
  WaitForOther(pThis, g_tZoomAxis, g_tFocusAxis, iDev);
}

void PIPass_Run(TVernierLensdInfo* pThis, const TAxis& tAxis, i32 fd) {
  const TAxis& tOther = *tAxis.ptOther;
  TCommandBox& tBox = Axis_Box(pThis, tAxis);
  tAxis.pfnCreateLog();
  PISearch_Begin(tAxis, fd);
  for (i32 i = 0; i < g_tVernierLensdConfigInfo.iMaxDevNum; i++) {
    SetDone(tAxis, 0);
    WaitForOther(pThis, tAxis, tOther, i);
    if (Daemon_IsEnding()) break;
    std::printf(tAxis.szInitDev, i);
    Motor_Request(fd, MOTOR_SELECT_DEVICE, i);
    const bool bWasLost = Reference_IsLost(pThis, tAxis, i);
    const i32 iResult = VernierLensd_SearchPI(tAxis.szPassName, 1, fd, Word_Load((pThis->*tAxis.padwPosition)[i]),
                                              Axis_Config(tAxis.pdwPISearchStep), Axis_Config(tAxis.pdwPIBackwardShift),
                                              Axis_Config(tAxis.pdwVirtualOneStep));
    tBox.iRunningChannel = i;
    if (iResult == iSearchNotBegun && Daemon_IsEnding()) break;  // the lens has not moved
    if (iResult == iSearchNotBegun) {
      Reference_Lose(pThis, tAxis, i);
    } else if (!bWasLost) {
      Reference_Set(pThis, tAxis, iResult == 0);
    }
    SetDone(tAxis, 1);
  }
  WaitForOther(pThis, tAxis, tOther, g_tVernierLensdConfigInfo.iMaxDevNum);
  SetDone(tAxis, 1);  // also if the pass was broken off: the sensor must not stay powered
  VernierLensd_SetPIPowerOff(fd);
  if (Reference_NeedsNoLog(pThis, tAxis)) tAxis.pfnDeleteLog();
}
