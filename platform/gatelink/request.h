// One HTTP request as it comes in, piece by piece: the query and the method are kept, the rest is only looked at.
// One thread at a time per record.  Nothing blocks, nothing allocates.
#pragma once

#include <llhttp.h>

#include <cstddef>
#include <cstdint>

using i32 = std::int32_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;

constexpr u32 dwHeadMax = 8192;              // bytes, request line to blank line
constexpr u32 dwBodyMax = 4096;              // bytes, without the framing of a chunked body
constexpr u32 dwBodyRawMax = 8 * dwBodyMax;  // with it: chunks of one byte each still fit
constexpr u32 dwQueryRoom = dwHeadMax + 1;   // the longest query stands in the target
static_assert(dwBodyMax < dwQueryRoom);

// What the bytes so far amount to; from REQUEST_MALFORMED on it is the status to refuse them with.
enum EProgress : u32 {
  REQUEST_PART = 0,
  REQUEST_WHOLE = 1,
  REQUEST_MALFORMED = 400,
  REQUEST_BODY_TOO_LARGE = 413,
  REQUEST_HEAD_TOO_LARGE = 431
};

struct TRequest {
  llhttp_t tParser;
  EProgress eProgress;
  char* acQuery;        // dwQueryRoom bytes, lent; terminated only once the request is whole
  u32 dwQuery;          // bytes in acQuery
  u32 dwHead;           // bytes of the head taken so far
  u32 dwBody;           // bytes of the body, without framing
  u32 dwBodyRaw;        // bytes after the head
  u32 dwExpectMatched;  // letters of the current header's name that agree with "expect"
  bool bQuestion;       // the target's '?' has been passed
  bool bHeadDone;
  bool bContinue;  // the client waits for a go-ahead before it sends the body
};

void Request_Start(TRequest* ptRequest, char* acQuery);

// Takes the next bytes.  Once the answer is not REQUEST_PART it stays, and further bytes are ignored.
EProgress Request_Take(TRequest* ptRequest, const char* acBytes, std::size_t dwBytes);

// Whether "100 Continue" is due now; true at most once a request.
bool Request_TakeContinue(TRequest* ptRequest);

// "GET" and so on, a text that lasts; only of a whole request.
const char* Request_Method(const TRequest& tRequest);
