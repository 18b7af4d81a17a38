#include "autofocus/focus_block.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/fail.h"
#include "core/paths.h"
#include "core/wait.h"

namespace {

constexpr int iBlockMode = IPC_CREAT | 0666;
constexpr u64 qwIrisPeriods = 10;
constexpr u64 qwLeastIrisPeriod_us = 10'000;
constexpr u64 qwLeastIrisBound_us = 5'000'000;

TFocusBlock* RunningBlock(const TVernierLensdInfo* pThis) {
  return pThis->aptFocusBlock[pThis->tFocusBox.iRunningChannel];
}

i32 AttachBlock(TVernierLensdInfo* pThis, i32 iChannel) {
  const key_t tKey = ftok(szBlockKeyPath, iChannel);
  // Never use a key that could not be made: it would give all channels one segment.
  const i32 iId = tKey == -1 ? -1 : shmget(tKey, sizeof(TFocusBlock), iBlockMode);
  if (iId == -1) {
    std::printf("key is %x, errno is \"%s\"\n", static_cast<u32>(tKey), std::strerror(errno));
    return Fail("[vernierlensd] : shmget failed.");
  }
  pThis->iShmId = iId;
  void* pvBlock = shmat(iId, nullptr, 0);
  if (pvBlock == reinterpret_cast<void*>(-1)) return Fail("[vernierlensd] : shmat failed.");
  pThis->aptFocusBlock[iChannel] = static_cast<TFocusBlock*>(pvBlock);
  return 0;
}

}  // namespace

i32 VernierLensd_InitShareMem(TVernierLensdInfo* pThis) {
  for (i32 i = 0; i < g_tVernierLensdConfigInfo.iMaxDevNum; i++) {
    if (AttachBlock(pThis, i) != 0) return -1;
    FocusBlock_StorePositions(pThis, i, Word_Load(pThis->adwZoomMotorPosition[i]),
                              Word_Load(pThis->adwFocusMotorPosition[i]));
    Word_Store(pThis->aptFocusBlock[i]->bFocusValueWanted, 0);
    Word_Store(pThis->aptFocusBlock[i]->bAutoFocusBusy, 0);
  }
  return 0;
}

i32 FocusBlock_Release(TVernierLensdInfo* pThis) {
  for (TFocusBlock*& ptBlock : pThis->aptFocusBlock) {
    if (ptBlock != nullptr && shmdt(ptBlock) < 0) return Fail("[vernierlensd] : shmdt failed.");
    ptBlock = nullptr;
  }
  return 0;
}

void VernierLensd_SetFocusValueWanted(TVernierLensdInfo* pThis, u32 dwValue) {
  TFocusBlock* ptBlock = RunningBlock(pThis);
  if (ptBlock != nullptr) Word_Store(ptBlock->bFocusValueWanted, dwValue);
}

void VernierLensd_ReadFocusValue(TVernierLensdInfo* pThis) {
  const TFocusBlock* ptBlock = RunningBlock(pThis);
  if (ptBlock != nullptr) pThis->adwFocusValue[pThis->tFocusBox.iRunningChannel] = Word_Load(ptBlock->dwFocusValue);
}

void VernierLensd_SetAutoFocusBusy(TVernierLensdInfo* pThis, u32 dwValue) {
  TFocusBlock* ptBlock = RunningBlock(pThis);
  if (pThis->bSupportFocus != 0 && ptBlock != nullptr) Word_Store(ptBlock->bAutoFocusBusy, dwValue);
}

void VernierLensd_RequestIris(TVernierLensdInfo* pThis, u32 dwRequest) {
  TFocusBlock* ptBlock = RunningBlock(pThis);
  if (pThis->bSupportFocus == 0 || ptBlock == nullptr) return;
  Word_Store(ptBlock->dwIrisRequest, dwRequest);
  Word_Publish(ptBlock->bIrisPending, 1);  // after the request: the image side looks at this word first
  if (dwRequest != 1) return;
  const u64 qwPeriod_us = std::max<u64>(g_tVernierLensdConfigInfo.dwOpenIrisTime, qwLeastIrisPeriod_us);
  const u64 qwBound_us = std::max(qwIrisPeriods * qwPeriod_us, qwLeastIrisBound_us);
  for (u64 qwWaited_us = 0; qwWaited_us < qwBound_us && !Daemon_IsEnding(); qwWaited_us += qwPeriod_us) {
    Delay_WhileRunning(qwPeriod_us);
    if (Word_Load(ptBlock->dwIrisRequest) != 1 || Word_Load(ptBlock->bIrisPending) != 1) return;
  }
}

void FocusBlock_StorePositions(TVernierLensdInfo* pThis, i32 iChannel, u32 dwZoom, u32 dwFocus) {
  TFocusBlock* ptBlock = pThis->aptFocusBlock[iChannel];
  if (ptBlock == nullptr) return;
  Word_Store(ptBlock->dwZoomPosition, dwZoom);
  Word_Store(ptBlock->dwFocusPosition, dwFocus);
}
