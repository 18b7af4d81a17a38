// Takes in one HTTP request piece by piece, and keeps its query and method; the rest is only checked.
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
constexpr u32 dwBodyRawMax = 8 * dwBodyMax;  // bytes, with the framing; the largest body fits in chunks of one byte
constexpr u32 dwQueryRoom = dwHeadMax + 1;   // the longest query is one in the target
static_assert(dwBodyMax < dwQueryRoom);

// How far a request has come.  A value from REQUEST_MALFORMED on is the HTTP status to refuse it with.
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
  char* acQuery;        // dwQueryRoom bytes, borrowed; NUL-terminated only once the request is whole
  u32 dwQuery;          // bytes in acQuery
  u32 dwHead;           // bytes of the head taken so far
  u32 dwBody;           // bytes of the body, without framing
  u32 dwBodyRaw;        // bytes after the head
  u32 dwExpectMatched;  // letters of the current header's name that agree with "expect"
  bool bQuestion;       // the target's '?' has been passed
  bool bHeadDone;
  bool bContinue;  // the client waits for a go-ahead before it sends the body
};

// Begins a new request, whose query goes into the dwQueryRoom bytes at acQuery.
void Request_Start(TRequest* ptRequest, char* acQuery);

// Takes the next bytes.  Once the result is not REQUEST_PART, it stays the same, and further bytes are ignored.
EProgress Request_Take(TRequest* ptRequest, const char* acBytes, std::size_t dwBytes);

// Returns whether "100 Continue" is to be sent now; true at most once for each request.
bool Request_TakeContinue(TRequest* ptRequest);

// Returns the method of a whole request, such as "GET".  The text is static.
const char* Request_Method(const TRequest& tRequest);
