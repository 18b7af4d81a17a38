#include "command/event_message.h"

#include <algorithm>
#include <cstdio>

#include "command/event_frame.h"
#include "config/token_file.h"
#include "core/fail.h"
#include "core/number.h"
#include "core/paths.h"
#include "core/regular_file.h"
#include "core/wait.h"
#include "motor/command_box.h"
#include "motor/positioning.h"

namespace {

enum EEventCode : u32 { EVENT_FOCUS = 19, EVENT_ZOOM_IN = 21, EVENT_ZOOM_OUT = 22 };
enum ESubCode : u32 { BUTTON_RELEASED = 1, BUTTON_PRESSED = 2, FOCUS_BACKUP = 4, FOCUS_RESTORE = 5 };

constexpr u32 dwLongPress_ms = 2000;  // an autofocus button held longer asks for a focus scan or a focus reset
constexpr u64 qwRestorePoll_us = 1'000'000;

struct TZoomButton {
  EDirection eDirection;
  const char* szPressed;
  const char* szReleased;
};

constexpr TZoomButton g_tZoomIn = {.eDirection = DIRECTION_FORWARD,
                                   .szPressed = "[vernierlensd] : Zoom in...",
                                   .szReleased = "[vernierlensd] : Zoom in stop!"};
constexpr TZoomButton g_tZoomOut = {.eDirection = DIRECTION_BACKWARD,
                                    .szPressed = "[vernierlensd] : Zoom out...",
                                    .szReleased = "[vernierlensd] : Zoom out stop!"};

// The zoom thread repeats the move by itself while bZoomContinuous is set.
void PressZoom(TVernierLensdInfo* pThis, const TZoomButton& tButton) {
  std::puts(tButton.szPressed);
  Word_Store(pThis->dwButtonPressTime, Clock_Milliseconds());
  if (Word_Load(pThis->tZoomCommand.bZoomContinuous) != 0) return;
  const i32 iWoken =
      Command_Send(pThis, g_tZoomAxis, Command_New(Word_Load(pThis->iCurChannel)), [&](TMotorCommand& tBlock) {
        Word_Store(tBlock.dwDirection, tButton.eDirection);
        Word_Store(tBlock.bZoomContinuous, 1);
        Word_Store(tBlock.dwFunction, FUNCTION_ZOOM);
        Word_Store(tBlock.dwSteps, 1);
      });
  if (iWoken != 0) std::puts(g_tZoomAxis.szWakeFailed);
}

void EndZoomHold(TVernierLensdInfo* pThis) {
  Command_Lock(pThis->tZoomBox);
  Word_Store(pThis->tZoomCommand.bZoomContinuous, 0);
  Command_Unlock(pThis->tZoomBox);
}

void HandleZoomButton(TVernierLensdInfo* pThis, const TZoomButton& tButton, u32 dwSubCode) {
  if (pThis->bSupportZoom == 0) return;
  if (dwSubCode == BUTTON_PRESSED) PressZoom(pThis, tButton);
  if (dwSubCode == BUTTON_RELEASED) {
    std::puts(tButton.szReleased);
    EndZoomHold(pThis);
  }
}

// Returns the action that a press of this length asks for, and prints its line.
u32 FunctionOfPress(const TVernierLensdInfo* pThis, u32 dwHeld_ms) {
  if (dwHeld_ms <= dwLongPress_ms) {
    std::printf("[vernierlensd] : Press AF button over %ld seconds. Perform auto focus...\n", 0L);
    return FUNCTION_AUTO;
  }
  if (g_tVernierLensdConfigInfo.dwCapability == CAPABILITY_FOCUS_ONLY && pThis->bSupportICS == 0) {
    std::printf("[vernierlensd] : Press AF button over %ld seconds. Perform resetfocus...\n", 2L);
    return FUNCTION_RESETFOCUS;
  }
  std::printf("[vernierlensd] : Press AF button over %ld seconds. Perform focus scan...\n", 2L);
  return FUNCTION_SCAN;
}

void ReleaseAutoFocus(TVernierLensdInfo* pThis) {
  const u32 dwHeld_ms = Clock_Milliseconds() - Word_Load(pThis->dwButtonPressTime);
  if (pThis->bSupportFocus == 0 || dwHeld_ms == 0) return;
  const u32 dwFunction = FunctionOfPress(pThis, dwHeld_ms);
  const i32 iWoken = Command_Send(pThis, g_tFocusAxis, Command_New(Word_Load(pThis->iCurChannel)),
                                  [&](TMotorCommand& tBlock) { Word_Store(tBlock.dwFunction, dwFunction); });
  if (iWoken != 0) std::puts(g_tFocusAxis.szWakeFailed);
}

void SendRestore(TVernierLensdInfo* pThis, i32 iChannel) {
  const TCommandId tId = Command_New(iChannel);
  if (pThis->bSupportZoom != 0) {
    Command_Write(pThis, g_tZoomAxis, tId,
                  [](TMotorCommand& tBlock) { Positioning_Write(g_tZoomAxis, &tBlock, FUNCTION_POSITIONING); });
  }
  if (pThis->bSupportFocus != 0) {
    const i32 iWoken = Command_Send(pThis, g_tFocusAxis, tId, [&](TMotorCommand& tBlock) {
      Word_Store(tBlock.dwFunction, pThis->bSupportZoom != 0 ? FUNCTION_POSITIONING : FUNCTION_RESETFOCUS);
    });
    if (iWoken != 0) std::puts(g_tFocusAxis.szWakeFailed);
    Word_Store(pThis->tFocusCommand.bIris, 1);
  }
  if (pThis->bSupportZoom != 0 && Command_Wake(pThis, g_tZoomAxis) != 0) std::puts(g_tZoomAxis.szWakeFailed);
}

bool IsAtWork(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  return pThis->*tAxis.pbSupport != 0 && Word_Take(pThis->*tAxis.pbWakeReady) != 0 && Command_IsBusy(pThis, tAxis);
}

// This is the only place where the main thread waits for the lens.  It waits until both threads are out of work.  It
// must not wait for dwFunction, which stays set after a failed search, or for the log, which stays while a reference is
// not known.
void WaitForRestore(TVernierLensdInfo* pThis) {
  if (pThis->bSupportFocus == 0) return;
  Wait_Poll(qwRestorePoll_us, qwNoBound_us, [&] {
    for (const TAxis* ptAxis : {&g_tFocusAxis, &g_tZoomAxis}) Command_WakeAgain(pThis, *ptAxis);
    const bool bAtWork = IsAtWork(pThis, g_tFocusAxis) || IsAtWork(pThis, g_tZoomAxis);
    return !bAtWork || Daemon_IsEnding();
  });
}

// A restore frame that came while a restore ran asked for that same restore.
void Restore(TVernierLensdInfo* pThis) {
  if (pThis->qwFIFORead <= pThis->qwFIFORestored) return;
  const i32 iChannels = std::min(g_tVernierLensdConfigInfo.iMaxDevNum, iMaxChannels);
  EndZoomHold(pThis);  // a held zoom would be sent again over the restore, and its release could not be read meanwhile
  for (i32 i = 0; i < iChannels && !Daemon_IsEnding(); i++) {
    Word_Store(pThis->iCurChannel, i);
    SendRestore(pThis, i);
    WaitForRestore(pThis);
  }
  Word_Store(pThis->iCurChannel, 0);
  EventFrames_AreRestored(pThis);
}

i32 SendSavedMove(TVernierLensdInfo* pThis, const TAxis& tAxis, TCommandId tId, u32 dwFunction,
                  const char* pszPosition) {
  return Command_Send(pThis, tAxis, tId, [&](TMotorCommand& tBlock) {
    Word_Store(tBlock.dwDirection, DIRECTION_DIRECT);
    Word_Store(tBlock.dwFunction, dwFunction);
    Word_Store(tBlock.dwPosition, Text_ToU32(pszPosition));
  });
}

i32 Backup(TVernierLensdInfo* pThis) {
  FILE* pFile = RegularFile_Read(szBackupPath);
  if (pFile == nullptr) return Fail("[vernierlensd] : fopen failed!");
  const i32 iChannel = Word_Load(pThis->iCurChannel);
  // The focus gets the newer number, whatever the order of the lines, so that the zoom does not send the focus away.
  const TCommandId tZoom = Command_New(iChannel);
  const TCommandId tFocus = Command_New(iChannel);
  TToken tToken = {};
  while (TokenFile_Next(pFile, &tToken)) {
    const char* pszZoom = Token_Value(tToken, "zoom_motor");
    const char* pszFocus = Token_Value(tToken, "focus_motor");
    if (pThis->bSupportZoom != 0 && pszZoom != nullptr) {
      if (SendSavedMove(pThis, g_tZoomAxis, tZoom, FUNCTION_ZOOM, pszZoom) != 0) std::puts(g_tZoomAxis.szWakeFailed);
    } else if (pThis->bSupportFocus != 0 && pszFocus != nullptr) {
      if (SendSavedMove(pThis, g_tFocusAxis, tFocus, FUNCTION_FOCUS, pszFocus) != 0)
        std::puts(g_tFocusAxis.szWakeFailed);
    }
  }
  std::fclose(pFile);
  return 0;
}

i32 HandleFocusEvent(TVernierLensdInfo* pThis, u32 dwSubCode) {
  switch (dwSubCode) {
    case BUTTON_PRESSED:
      Word_Store(pThis->dwButtonPressTime, Clock_Milliseconds());
      return 0;
    case BUTTON_RELEASED:
      ReleaseAutoFocus(pThis);
      return 0;
    case FOCUS_RESTORE:
      Restore(pThis);
      return 0;
    case FOCUS_BACKUP:
      return Backup(pThis);
    default:
      return Fail("[vernierlensd] : Unknown command.");
  }
}

}  // namespace

i32 VernierLensd_HandleEventMessage(TVernierLensdInfo* pThis, i32 /*iCount*/, const TCourierEvent* ptEvent) {
  const i32 iChannels = std::min(g_tVernierLensdConfigInfo.iMaxDevNum, iMaxChannels);
  const bool bChannel = ptEvent->iChannel > 0 && ptEvent->iChannel < iChannels;
  Word_Store(pThis->iCurChannel, bChannel ? ptEvent->iChannel : 0);
  // A restore that comes after an event of another kind is a new one.
  if (ptEvent->dwCode != EVENT_FOCUS || ptEvent->dwSubCode != FOCUS_RESTORE) pThis->qwFIFORestored = 0;
  switch (ptEvent->dwCode) {
    case EVENT_ZOOM_IN:
      HandleZoomButton(pThis, g_tZoomIn, ptEvent->dwSubCode);
      return 0;
    case EVENT_ZOOM_OUT:
      HandleZoomButton(pThis, g_tZoomOut, ptEvent->dwSubCode);
      return 0;
    case EVENT_FOCUS:
      return HandleFocusEvent(pThis, ptEvent->dwSubCode);
    default:
      return Fail("[vernierlensd] : Unknown command.");
  }
}
