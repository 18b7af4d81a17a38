#include "command/event_message.h"

#include <algorithm>
#include <cstdio>

#include "core/fail.h"
#include "core/wait.h"
#include "motor/command_box.h"

namespace {

enum EEventCode : u32 { EVENT_ZOOM_IN = 21, EVENT_ZOOM_OUT = 22 };
enum EButton : u32 { BUTTON_RELEASED = 1, BUTTON_PRESSED = 2 };

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
  const i32 iWoken = Command_Send(pThis, g_tZoomAxis, Word_Load(pThis->iCurChannel), [&](TMotorCommand& tBlock) {
    Word_Store(tBlock.dwDirection, tButton.eDirection);
    Word_Store(tBlock.bZoomContinuous, 1);
    Word_Store(tBlock.dwFunction, FUNCTION_ZOOM);
    Word_Store(tBlock.dwSteps, 1);
  });
  if (iWoken != 0) std::puts("[vernierlensd] : Waking up zoom motor thread failed.");
}

void HandleZoomButton(TVernierLensdInfo* pThis, const TZoomButton& tButton, u32 dwSubCode) {
  if (pThis->bSupportZoom == 0) return;
  if (dwSubCode == BUTTON_PRESSED) PressZoom(pThis, tButton);
  if (dwSubCode == BUTTON_RELEASED) {
    std::puts(tButton.szReleased);
    Command_Lock(pThis->tZoomBox);
    Word_Store(pThis->tZoomCommand.bZoomContinuous, 0);
    Command_Unlock(pThis->tZoomBox);
  }
}

}  // namespace

i32 VernierLensd_HandleEventMessage(TVernierLensdInfo* pThis, i32 /*iCount*/, const TCourierEvent* ptEvent) {
  const i32 iChannels = std::min(g_tVernierLensdConfigInfo.iMaxDevNum, iMaxChannels);
  const bool bChannel = ptEvent->iChannel > 0 && ptEvent->iChannel < iChannels;
  Word_Store(pThis->iCurChannel, bChannel ? ptEvent->iChannel : 0);
  switch (ptEvent->dwCode) {
    case EVENT_ZOOM_IN:
      HandleZoomButton(pThis, g_tZoomIn, ptEvent->dwSubCode);
      return 0;
    case EVENT_ZOOM_OUT:
      HandleZoomButton(pThis, g_tZoomOut, ptEvent->dwSubCode);
      return 0;
    default:
      return Fail("[vernierlensd] : Unknown command.");
  }
}
