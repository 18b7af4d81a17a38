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
  switch (tCommand.dwFunction) {
    case FUNCTION_GETSTATUS:
      VernierLensd_ReplyStatus(pThis, tRequest.fdRequest, tRequest.iChannel);
      break;
    case FUNCTION_GETPARAM:
      VernierLensd_ReplyFocusValue(pThis, tRequest.fdRequest, tCommand.dwPosition);
      break;
    case FUNCTION_GETFOCUSDEFAULT:
      if (g_tVernierLensdConfigInfo.dwCapability == CAPABILITY_FOCUS_ONLY && pThis->bSupportICS == 0) {
        VernierLensd_ReplyFocusDefault(pThis, tRequest.fdRequest);
      } else {
        VernierLensd_ReplyBadRequest(tRequest.fdRequest);  // this lens has no default; an OK would look like a value
      }
      break;
    default:
      // The wake-ups first: a client that has its OK may ask for the status at once.
      VernierLensd_DispatchClientCommand(pThis, &tRequest);
      VernierLensd_ReplyOK(tRequest.fdRequest);
      break;
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
