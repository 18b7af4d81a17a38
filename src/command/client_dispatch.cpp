#include "command/client_dispatch.h"

#include <cstdio>

#include "motor/command_box.h"
#include "motor/positioning.h"

namespace {

template <typename TWrite>
void Send(TVernierLensdInfo* pThis, const TAxis& tAxis, TCommandId tId, TWrite fnWrite) {
  if (Command_Send(pThis, tAxis, tId, fnWrite) != 0) std::puts(tAxis.szWakeFailed);
}

void SendFunction(TVernierLensdInfo* pThis, const TAxis& tAxis, TCommandId tId, u32 dwFunction) {
  Send(pThis, tAxis, tId, [&](TMotorCommand& tBlock) { Word_Store(tBlock.dwFunction, dwFunction); });
}

void StoreMove(TMotorCommand& tBlock, const TMotorCommand& tCommand) {
  Word_Store(tBlock.dwPosition, tCommand.dwPosition);
  Word_Store(tBlock.dwSteps, tCommand.dwSteps);
  Word_Store(tBlock.dwDirection, tCommand.dwDirection);
  Word_Store(tBlock.dwFunction, tCommand.dwFunction);
}

void DispatchFocus(TVernierLensdInfo* pThis, i32 iChannel, const TMotorCommand& tCommand) {
  const i32 iWoken = Command_Send(pThis, g_tFocusAxis, Command_New(iChannel), [&](TMotorCommand& tBlock) {
    StoreMove(tBlock, tCommand);
    Word_Store(pThis->bThermalRecheck, 1);
  });
  if (iWoken != 0) std::puts(szFocusWakeFailed);
}

void DispatchSearch(TVernierLensdInfo* pThis, i32 iChannel, const TMotorCommand& tCommand) {
  // A search needs the zoom at rest.  The search has a newer number than this stop, so no follow-up of the stopped zoom
  // is written over the search.
  SendFunction(pThis, g_tZoomAxis, Command_New(iChannel), FUNCTION_STOP);
  Send(pThis, g_tFocusAxis, Command_New(iChannel), [&](TMotorCommand& tBlock) {
    Word_Store(tBlock.bIris, g_bIrisFullyOpenStatus.load() == 1 ? 1 : tCommand.bIris);
    Word_Store(tBlock.dwFunction, tCommand.dwFunction);
    Word_Store(pThis->bThermalRecheck, 1);
  });
}

// Sends one command to both axes, as far as the lens has them.  The focus is woken first.
template <typename TWrite>
void SendBoth(TVernierLensdInfo* pThis, i32 iChannel, TWrite fnWriteZoom, u32 dwFocusFunction) {
  const TCommandId tId = Command_New(iChannel);
  if (pThis->bSupportZoom != 0) Command_Write(pThis, g_tZoomAxis, tId, fnWriteZoom);
  if (pThis->bSupportFocus != 0) SendFunction(pThis, g_tFocusAxis, tId, dwFocusFunction);
  if (pThis->bSupportZoom != 0 && Command_Wake(pThis, g_tZoomAxis) != 0) std::puts(g_tZoomAxis.szWakeFailed);
}

void DispatchPositioning(TVernierLensdInfo* pThis, i32 iChannel, u32 dwFunction) {
  const auto WriteZoom = [&](TMotorCommand& tBlock) { Positioning_Write(g_tZoomAxis, &tBlock, dwFunction); };
  SendBoth(pThis, iChannel, WriteZoom, dwFunction);
}

void DispatchStop(TVernierLensdInfo* pThis, i32 iChannel) {
  const auto WriteZoom = [](TMotorCommand& tBlock) { Word_Store(tBlock.dwFunction, FUNCTION_STOP); };
  SendBoth(pThis, iChannel, WriteZoom, FUNCTION_STOP);
}

// After the wake-up, even a failed one, sets the words that later searches and status replies read.
void DispatchIris(TVernierLensdInfo* pThis, i32 iChannel, const TMotorCommand& tCommand) {
  SendFunction(pThis, g_tFocusAxis, Command_New(iChannel), tCommand.dwFunction);
  const u32 bOpen = tCommand.dwFunction == FUNCTION_IRISOPEN ? 1 : 0;
  Word_Store(pThis->tFocusCommand.bIris, bOpen);
  g_bIrisFullyOpenStatus = bOpen;
}

void DispatchFocusDefault(TVernierLensdInfo* pThis, i32 iChannel, const TMotorCommand& tCommand) {
  Send(pThis, g_tFocusAxis, Command_New(iChannel), [&](TMotorCommand& tBlock) {
    Word_Store(tBlock.dwFunction, tCommand.dwFunction);
    Word_Store(tBlock.dwDefaultPosition, tCommand.dwDefaultPosition);
  });
}

void DispatchZoom(TVernierLensdInfo* pThis, i32 iChannel, const TMotorCommand& tCommand) {
  Send(pThis, g_tZoomAxis, Command_New(iChannel), [&](TMotorCommand& tBlock) { StoreMove(tBlock, tCommand); });
}

void DispatchFocusReset(TVernierLensdInfo* pThis, i32 iChannel, const TMotorCommand& /*tCommand*/) {
  SendFunction(pThis, g_tFocusAxis, Command_New(iChannel), FUNCTION_RESETFOCUS);
}

}  // namespace

void VernierLensd_DispatchClientCommand(TVernierLensdInfo* pThis, const TClientRequest* ptRequest) {
  const i32 iChannel = ptRequest->iChannel;
  const TMotorCommand& tCommand = ptRequest->atCommand[iChannel];
  const auto ToFocus = [&](auto pfnDispatch) {
    if (pThis->bSupportFocus != 0) pfnDispatch(pThis, iChannel, tCommand);
  };
  switch (static_cast<EFunction>(tCommand.dwFunction)) {
    case FUNCTION_ZOOM:
      if (pThis->bSupportZoom != 0) DispatchZoom(pThis, iChannel, tCommand);
      return;
    case FUNCTION_FOCUS:
      return ToFocus(DispatchFocus);
    case FUNCTION_AUTO:
    case FUNCTION_SCAN:
      return ToFocus(DispatchSearch);
    case FUNCTION_POSITIONING:
    case FUNCTION_MOTORRESET:
      return DispatchPositioning(pThis, iChannel, tCommand.dwFunction);
    case FUNCTION_STOP:
      return DispatchStop(pThis, iChannel);
    case FUNCTION_IRISOPEN:
    case FUNCTION_IRISENABLE:
      return ToFocus(DispatchIris);
    case FUNCTION_RESETFOCUS:
      return ToFocus(DispatchFocusReset);
    case FUNCTION_SETFOCUSDEFAULT:
      return ToFocus(DispatchFocusDefault);
    case FUNCTION_IDLE:
    case FUNCTION_GETSTATUS:
    case FUNCTION_GETPARAM:
    case FUNCTION_GETFOCUSDEFAULT:
      return;
  }
}
