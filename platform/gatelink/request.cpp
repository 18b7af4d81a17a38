#include "request.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr char szExpect[] = "expect";
constexpr u32 dwExpectLength = sizeof(szExpect) - 1;
constexpr u32 dwExpectDiffers = dwExpectLength + 1;

TRequest* Of(llhttp_t* ptParser) {
  return static_cast<TRequest*>(ptParser->data);
}

int Refuse(TRequest* ptRequest, EProgress eProgress) {
  ptRequest->eProgress = eProgress;
  return HPE_USER;
}

bool HasControlByte(const char* acText, std::size_t dwText) {
  return std::any_of(acText, acText + dwText, [](char c) { return static_cast<unsigned char>(c) < ' '; });
}

// The limits of head and body keep the query within dwQueryRoom.
void AppendQuery(TRequest* ptRequest, const char* acText, std::size_t dwText) {
  std::memcpy(ptRequest->acQuery + ptRequest->dwQuery, acText, dwText);
  ptRequest->dwQuery += static_cast<u32>(dwText);
}

int OnTarget(llhttp_t* ptParser, const char* acText, std::size_t dwText) {
  TRequest* ptRequest = Of(ptParser);
  if (HasControlByte(acText, dwText)) return Refuse(ptRequest, REQUEST_MALFORMED);
  if (!ptRequest->bQuestion) {
    const auto* pcQuestion = static_cast<const char*>(std::memchr(acText, '?', dwText));
    if (pcQuestion == nullptr) return 0;
    ptRequest->bQuestion = true;
    dwText -= static_cast<std::size_t>(pcQuestion + 1 - acText);
    acText = pcQuestion + 1;
  }
  AppendQuery(ptRequest, acText, dwText);
  return 0;
}

int OnHeaderName(llhttp_t* ptParser, const char* acText, std::size_t dwText) {
  u32& dwMatched = Of(ptParser)->dwExpectMatched;
  for (std::size_t i = 0; i < dwText && dwMatched != dwExpectDiffers; ++i) {
    const bool bSame = dwMatched < dwExpectLength && (acText[i] | 0x20) == szExpect[dwMatched];
    dwMatched = bSame ? dwMatched + 1 : dwExpectDiffers;
  }
  return 0;
}

// "100-continue" is the only expectation that exists, so the value is not checked.
int OnHeaderValueEnd(llhttp_t* ptParser) {
  TRequest* ptRequest = Of(ptParser);
  if (ptRequest->dwExpectMatched == dwExpectLength) ptRequest->bContinue = true;
  ptRequest->dwExpectMatched = 0;
  return 0;
}

int OnHeadEnd(llhttp_t* ptParser) {
  TRequest* ptRequest = Of(ptParser);
  ptRequest->bHeadDone = true;
  if (ptParser->http_major != 1) return Refuse(ptRequest, REQUEST_MALFORMED);
  if (ptParser->http_minor == 0) ptRequest->bContinue = false;  // HTTP/1.0 has no interim answer
  const bool bLengthGiven = (ptParser->flags & F_CONTENT_LENGTH) != 0;
  if (bLengthGiven && ptParser->content_length > dwBodyMax) return Refuse(ptRequest, REQUEST_BODY_TOO_LARGE);
  return 0;
}

int OnBody(llhttp_t* ptParser, const char* acText, std::size_t dwText) {
  TRequest* ptRequest = Of(ptParser);
  if (dwText > dwBodyMax - ptRequest->dwBody) return Refuse(ptRequest, REQUEST_BODY_TOO_LARGE);
  const bool bFirst = ptRequest->dwBody == 0;
  ptRequest->dwBody += static_cast<u32>(dwText);
  if (ptParser->method != HTTP_POST) return 0;
  if (HasControlByte(acText, dwText)) return Refuse(ptRequest, REQUEST_MALFORMED);
  if (bFirst) ptRequest->dwQuery = 0;  // the body replaces the target's query
  AppendQuery(ptRequest, acText, dwText);
  return 0;
}

// The pause stops the parser before any bytes that the client has sent after its request.
int OnEnd(llhttp_t* ptParser) {
  TRequest* ptRequest = Of(ptParser);
  ptRequest->acQuery[ptRequest->dwQuery] = '\0';
  ptRequest->eProgress = REQUEST_WHOLE;
  return HPE_PAUSED;
}

constexpr llhttp_settings_t Settings() {
  llhttp_settings_t tSettings = {};
  tSettings.on_url = OnTarget;
  tSettings.on_header_field = OnHeaderName;
  tSettings.on_header_value_complete = OnHeaderValueEnd;
  tSettings.on_headers_complete = OnHeadEnd;
  tSettings.on_body = OnBody;
  tSettings.on_message_complete = OnEnd;
  return tSettings;
}
constexpr llhttp_settings_t g_tSettings = Settings();

void Parse(TRequest* ptRequest, const char* acBytes, std::size_t dwBytes) {
  const llhttp_errno eError = llhttp_execute(&ptRequest->tParser, acBytes, dwBytes);
  if (eError != HPE_OK && ptRequest->eProgress == REQUEST_PART) ptRequest->eProgress = REQUEST_MALFORMED;
}

}  // namespace

void Request_Start(TRequest* ptRequest, char* acQuery) {
  *ptRequest = {};
  ptRequest->acQuery = acQuery;
  llhttp_init(&ptRequest->tParser, HTTP_REQUEST, &g_tSettings);
  ptRequest->tParser.data = ptRequest;
}

EProgress Request_Take(TRequest* ptRequest, const char* acBytes, std::size_t dwBytes) {
  if (ptRequest->eProgress != REQUEST_PART) return ptRequest->eProgress;
  if (!ptRequest->bHeadDone) {
    // The parser first gets at most dwHeadMax bytes, so that a longer head is refused before the parser sees its end.
    const std::size_t dwFirst = std::min<std::size_t>(dwBytes, dwHeadMax - ptRequest->dwHead);
    ptRequest->dwHead += static_cast<u32>(dwFirst);
    Parse(ptRequest, acBytes, dwFirst);
    if (ptRequest->eProgress != REQUEST_PART) return ptRequest->eProgress;
    if (!ptRequest->bHeadDone) {
      if (ptRequest->dwHead == dwHeadMax) ptRequest->eProgress = REQUEST_HEAD_TOO_LARGE;
      return ptRequest->eProgress;
    }
    acBytes += dwFirst;
    dwBytes -= dwFirst;
  }
  ptRequest->dwBodyRaw += static_cast<u32>(std::min<std::size_t>(dwBytes, dwBodyRawMax + 1));
  Parse(ptRequest, acBytes, dwBytes);
  if (ptRequest->eProgress == REQUEST_PART && ptRequest->dwBodyRaw > dwBodyRawMax) {
    ptRequest->eProgress = REQUEST_BODY_TOO_LARGE;
  }
  return ptRequest->eProgress;
}

bool Request_TakeContinue(TRequest* ptRequest) {
  const bool bDue = ptRequest->bContinue && ptRequest->bHeadDone && ptRequest->eProgress == REQUEST_PART;
  if (bDue) ptRequest->bContinue = false;
  return bDue && ptRequest->dwBody == 0;  // a body that is already coming needs no go-ahead
}

const char* Request_Method(const TRequest& tRequest) {
  return llhttp_method_name(static_cast<llhttp_method_t>(tRequest.tParser.method));
}
