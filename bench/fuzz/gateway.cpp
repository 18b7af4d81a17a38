// Fuzzes the bytes of a connection.  Whole and in pieces they give the same request, within its limits, with the query
// that stands in the target.
#include "request.h"

#include <cstring>
#include <memory>

#include "fuzz.h"

namespace {

struct TRead {
  TRequest tRequest;
  std::unique_ptr<char[]> acQuery = std::make_unique<char[]>(dwQueryRoom);
};

// Lets small inputs reach the limits: the bytes 1, n, b stand for 64 * n times the byte b.
std::string Expand(std::string_view sInput) {
  std::string sBytes;
  for (std::size_t dw = 0; dw < sInput.size() && sBytes.size() < 2 * dwBodyRawMax; dw++) {
    const bool bRun = sInput[dw] == 1 && dw + 2 < sInput.size();
    sBytes.append(bRun ? 64 * static_cast<std::size_t>(static_cast<u8>(sInput[dw + 1])) : 1,
                  sInput[bRun ? dw + 2 : dw]);
    if (bRun) dw += 2;
  }
  return sBytes;
}

// Reads the bytes in pieces of 1 to dwLongest, each in a copy of its exact size.
void Read(TRead& t, std::string_view sBytes, std::size_t dwLongest) {
  Request_Start(&t.tRequest, t.acQuery.get());
  u32 dwContinues = 0;
  for (std::size_t dwPiece = 1; !sBytes.empty(); dwPiece = dwPiece * 5 % dwLongest + 1) {
    const std::size_t dwNow = std::min(dwLongest >= sBytes.size() ? sBytes.size() : dwPiece, sBytes.size());
    const auto acPiece = std::make_unique<char[]>(dwNow);
    std::memcpy(acPiece.get(), sBytes.data(), dwNow);
    const EProgress eBefore = t.tRequest.eProgress;
    const EProgress eProgress = Request_Take(&t.tRequest, acPiece.get(), dwNow);
    Check(eBefore == REQUEST_PART || eProgress == eBefore, "an outcome stays");
    if (Request_TakeContinue(&t.tRequest)) dwContinues++;
    sBytes.remove_prefix(dwNow);
  }
  Check(dwContinues <= 1, "one go-ahead at most");
  Check(t.tRequest.dwQuery < dwQueryRoom && t.tRequest.dwBody <= dwBodyMax, "query and body within their limits");
}

// The query of the request line, whatever else the parser makes of it.
std::string_view TargetQuery(std::string_view sBytes) {
  sBytes.remove_prefix(std::min(sBytes.find_first_not_of("\r\n"), sBytes.size()));
  sBytes.remove_prefix(std::min(sBytes.find(' '), sBytes.size()));
  sBytes.remove_prefix(std::min(sBytes.find_first_not_of(' '), sBytes.size()));
  sBytes = sBytes.substr(0, sBytes.find_first_of(" \r\n"));
  return sBytes.substr(std::min(sBytes.find('?'), sBytes.size() - 1) + 1);
}

void CheckWhole(const TRead& t, std::string_view sBytes) {
  const std::string_view sQuery(t.acQuery.get());
  Check(sQuery.size() == t.tRequest.dwQuery, "a query ends at its NUL");
  Check(*Request_Method(t.tRequest) != '\0', "a method has a name");
  const bool bBody = t.tRequest.tParser.method == HTTP_POST && t.tRequest.dwBody > 0;
  Check(bBody || sQuery == TargetQuery(sBytes), "the query is what follows the target's first '?'");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* pbyInput, std::size_t dwInput) {
  std::string_view sInput = Input_Text(pbyInput, dwInput);
  const std::size_t dwLongest = 1 + std::size_t{Input_Choose(sInput, 16)} * 97;
  const std::string sBytes = Expand(sInput);
  TRead tWhole, tPieces;
  Read(tWhole, sBytes, sBytes.size());
  Read(tPieces, sBytes, dwLongest);
  const EProgress eWhole = tWhole.tRequest.eProgress;
  if (eWhole == REQUEST_WHOLE) CheckWhole(tWhole, sBytes);
  if (tPieces.tRequest.eProgress == REQUEST_WHOLE) CheckWhole(tPieces, sBytes);
  const bool bRefused = eWhole >= REQUEST_MALFORMED;
  // Framing of the body that comes in one piece with the head is not counted, so near that limit the pieces matter.
  if (sBytes.size() > dwBodyRawMax) return 0;
  Check(bRefused == (tPieces.tRequest.eProgress >= REQUEST_MALFORMED), "pieces are refused like the whole");
  Check(bRefused || eWhole == tPieces.tRequest.eProgress, "pieces are as whole as the whole");
  if (eWhole == REQUEST_WHOLE) Check(std::strcmp(tWhole.acQuery.get(), tPieces.acQuery.get()) == 0, "and ask the same");
  return 0;
}
