#include "command/client_reply.h"

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <string_view>

namespace {

constexpr std::size_t dwReplySize = 1024;

constexpr std::string_view sBadRequest = "HTTP/1.1 400 Bad Request\r\n\r\n";
constexpr std::string_view sOK =
    "HTTP/1.1 200 OK\r\nContent-type: text/plain\r\nCache-control: no-cache\r\nPragma: no-cache\r\n"
    "Content-length: 2\r\n\r\nOK";
static_assert(sBadRequest.size() == 28 && sOK.size() == 109);

void Reply(i32 fdRequest, std::string_view sText) {
  if (write(fdRequest, sText.data(), sText.size()) < 0) {
    // The requester has gone; there is nobody to tell.
  }
  close(fdRequest);
}

struct TBody {
  char szText[dwReplySize];
  std::size_t dwLength;
};

[[gnu::format(printf, 2, 3)]] void Body_Add(TBody* ptBody, const char* szFormat, ...) {
  va_list tArguments;
  va_start(tArguments, szFormat);
  const std::size_t dwRoom = sizeof ptBody->szText - ptBody->dwLength;
  const int iWritten = std::vsnprintf(ptBody->szText + ptBody->dwLength, dwRoom, szFormat, tArguments);
  va_end(tArguments);
  ptBody->dwLength += std::min(static_cast<std::size_t>(std::max(iWritten, 0)), dwRoom - 1);
}

void ReplyBody(i32 fdRequest, const TBody& tBody) {
  char szReply[dwReplySize];
  const int iLength = std::snprintf(szReply, sizeof szReply,
                                    "HTTP/1.1 200 OK\r\nContent-type: text/plain\r\nCache-control: no-cache\r\n"
                                    "Pragma: no-cache\r\nContent-length: %lu\r\n\r\n%s",
                                    static_cast<unsigned long>(tBody.dwLength), tBody.szText);
  Reply(fdRequest, {szReply, std::min(static_cast<std::size_t>(std::max(iLength, 0)), sizeof szReply - 1)});
}

i32 Shown(const u32& dwWord) {
  return static_cast<i32>(Word_Load(dwWord));
}

u32 FocusValue(i32 iChannel, u32 dwPosition) {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  if (g_pdwtabFocusValueTable == nullptr || tConfig.iFocusValueTableSize < 1 || iChannel >= tConfig.iMaxDevNum)
    return 0;
  const u32 dwLast = static_cast<u32>(tConfig.iFocusValueTableSize) - 1;
  const std::size_t dwRow = static_cast<std::size_t>(iChannel) * static_cast<std::size_t>(tConfig.iFocusValueTableSize);
  return Word_Load(g_pdwtabFocusValueTable[dwRow + std::min(dwPosition, dwLast)]);
}

}  // namespace

void VernierLensd_ReplyBadRequest(i32 fdRequest) {
  Reply(fdRequest, sBadRequest);
}

void VernierLensd_ReplyOK(i32 fdRequest) {
  Reply(fdRequest, sOK);
}

void VernierLensd_ReplyStatus(TVernierLensdInfo* pThis, i32 fdRequest, i32 iChannel) {
  const TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  const bool bZoom = pThis->bSupportZoom != 0;
  const bool bFocus = pThis->bSupportFocus != 0;
  TBody tBody = {};
  if (bZoom) Body_Add(&tBody, "vernier_lens_zoom_motor_max='%d'\r\n", static_cast<i32>(tConfig.dwZoomVirtualTotalStep));
  if (bFocus)
    Body_Add(&tBody, "vernier_lens_focus_motor_max='%d'\r\n", static_cast<i32>(tConfig.dwFocusVirtualTotalStep));
  if (bZoom) Body_Add(&tBody, "vernier_lens_zoom_motor_start='%d'\r\n", Shown(pThis->tZoomCommand.dwStart));
  if (bZoom) Body_Add(&tBody, "vernier_lens_zoom_motor_end='%d'\r\n", Shown(pThis->tZoomCommand.dwEnd));
  if (bFocus) Body_Add(&tBody, "vernier_lens_focus_motor_start='%d'\r\n", Shown(pThis->tFocusCommand.dwStart));
  if (bFocus) Body_Add(&tBody, "vernier_lens_focus_motor_end='%d'\r\n", Shown(pThis->tFocusCommand.dwEnd));
  if (bZoom) Body_Add(&tBody, "vernier_lens_zoom_motor='%d'\r\n", Shown(pThis->adwZoomMotorPosition[iChannel]));
  if (bFocus) Body_Add(&tBody, "vernier_lens_focus_motor='%d'\r\n", Shown(pThis->adwFocusMotorPosition[iChannel]));
  if (bZoom) Body_Add(&tBody, "vernier_lens_zoom_enable='%d'\r\n", Shown(pThis->tZoomCommand.dwFunction));
  if (bFocus) Body_Add(&tBody, "vernier_lens_focus_enable='%d'\r\n", Shown(pThis->tFocusCommand.dwFunction));
  if (bZoom || bFocus)
    Body_Add(&tBody, "vernier_lens_iris_open='%d'\r\n", static_cast<i32>(g_bIrisFullyOpenStatus.load()));
  ReplyBody(fdRequest, tBody);
}

void VernierLensd_ReplyFocusValue(TVernierLensdInfo* pThis, i32 fdRequest, u32 dwPosition) {
  TBody tBody = {};
  const u32 dwValue = FocusValue(Word_Load(pThis->iCurChannel), dwPosition);
  Body_Add(&tBody, "vernier_lens_focus_value='%d'\r\n", static_cast<i32>(dwValue));
  Body_Add(&tBody, "vernier_lens_focus_enable='%d'\r\n", Shown(pThis->tFocusCommand.dwFunction));
  ReplyBody(fdRequest, tBody);
}

void VernierLensd_ReplyFocusDefault(TVernierLensdInfo*, i32 fdRequest) {
  TBody tBody = {};
  Body_Add(&tBody, "vernier_lens_focus_default='%d'\r\n", static_cast<i32>(g_dwFocusDefault.load()));
  ReplyBody(fdRequest, tBody);
}
