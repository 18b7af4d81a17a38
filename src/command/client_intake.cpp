#include "command/client_intake.h"

#include <cstdio>
#include <string_view>

#include "command/client_dispatch.h"
#include "command/client_parser.h"
#include "command/client_reply.h"
#include "core/daemon/inputs.h"
#include "gatelink.h"

namespace {

void Answer(TVernierLensdInfo* pThis, const TClientRequest& tRequest) {
  const TMotorCommand& tCommand = tRequest.atCommand[tRequest.iChannel];
  switch (static_cast<EFunction>(tCommand.dwFunction)) {
    case FUNCTION_GETSTATUS:
      return VernierLensd_ReplyStatus(pThis, tRequest.fdRequest, tRequest.iChannel);
    case FUNCTION_GETPARAM:
      return VernierLensd_ReplyFocusValue(pThis, tRequest.fdRequest, tCommand.dwPosition);
    case FUNCTION_GETFOCUSDEFAULT:
      if (g_tVernierLensdConfigInfo.dwCapability == CAPABILITY_FOCUS_ONLY && pThis->bSupportICS == 0) {
        return VernierLensd_ReplyFocusDefault(pThis, tRequest.fdRequest);
      }
      return VernierLensd_ReplyBadRequest(
          tRequest.fdRequest);  // this lens has no default; an OK would look like a value
    case FUNCTION_IDLE:
    case FUNCTION_ZOOM:
    case FUNCTION_FOCUS:
    case FUNCTION_AUTO:
    case FUNCTION_SCAN:
    case FUNCTION_POSITIONING:
    case FUNCTION_MOTORRESET:
    case FUNCTION_STOP:
    case FUNCTION_IRISOPEN:
    case FUNCTION_IRISENABLE:
    case FUNCTION_RESETFOCUS:
    case FUNCTION_SETFOCUSDEFAULT:
      // Wake the threads before the reply: a client that has its OK may ask for the status at once.
      VernierLensd_DispatchClientCommand(pThis, &tRequest);
      return VernierLensd_ReplyOK(tRequest.fdRequest);
  }
}

}  // namespace

i32 VernierLensd_GateLinkCommandHandler(TVernierLensdInfo* pThis) {
  TClientRequest tRequest = {};
  char* pszQuery = nullptr;
  if (GATELINK_read(pThis->hGateLink, &pszQuery, &tRequest.fdRequest) != 0) return VernierLensd_ReopenGateLink(pThis);
  if (std::string_view(GATELINK_GetMethod(pThis->hGateLink)) == "POST") VernierLensd_PlusToSpace(pszQuery);
  if (VernierLensd_ParseClientCommand(pThis, pszQuery, &tRequest) != 0) {
    std::puts("[vernierlensd] : VernierLensd_ParseClientCommand failed.");
    VernierLensd_ReplyBadRequest(tRequest.fdRequest);
    return -1;
  }
  Answer(pThis, tRequest);
  return 0;
}
