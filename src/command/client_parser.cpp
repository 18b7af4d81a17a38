#include "command/client_parser.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <span>
#include <string_view>

#include "core/fail.h"
#include "core/number.h"

namespace {

constexpr std::size_t dwMaxWord = 63;  // characters of a key or value
constexpr const char* szUnknownCommand = "[vernierlensd] : Unknown command.";

struct TWord {
  std::string_view sWord;
  u32 dwValue;
};

constexpr TWord g_atFunctions[] = {
    {"zoom", FUNCTION_ZOOM},
    {"focus", FUNCTION_FOCUS},
    {"auto", FUNCTION_AUTO},
    {"scan", FUNCTION_SCAN},
    {"positioning", FUNCTION_POSITIONING},
    {"motorreset", FUNCTION_MOTORRESET},
    {"getstatus", FUNCTION_GETSTATUS},
    {"getparam", FUNCTION_GETPARAM},
    {"stop", FUNCTION_STOP},
    {"irisopen", FUNCTION_IRISOPEN},
    {"irisenable", FUNCTION_IRISENABLE},
    {"resetfocus", FUNCTION_RESETFOCUS},  // focus-only lens only
    {"getfocusdefault", FUNCTION_GETFOCUSDEFAULT},
    {"setfocusdefault", FUNCTION_SETFOCUSDEFAULT},
};

constexpr TWord g_atDirections[] = {
    {"forward", DIRECTION_FORWARD}, {"backward", DIRECTION_BACKWARD}, {"direct", DIRECTION_DIRECT}};

// If a word began with another word of its table, the order of the rows would decide which of them is found.
constexpr bool WordsDistinct(std::span<const TWord> atWords) {
  for (const TWord& tOne : atWords) {
    for (const TWord& tOther : atWords) {
      if (&tOne != &tOther && tOne.sWord.starts_with(tOther.sWord)) return false;
    }
  }
  return true;
}
static_assert(WordsDistinct(g_atFunctions) && WordsDistinct(g_atDirections));

bool IsFocusOnly() {
  return g_tVernierLensdConfigInfo.dwCapability == CAPABILITY_FOCUS_ONLY;
}

// Returns the word that the text begins with, or null.
const TWord* FindWord(std::span<const TWord> atWords, std::string_view sText) {
  const auto it =
      std::find_if(atWords.begin(), atWords.end(), [&](const TWord& tWord) { return sText.starts_with(tWord.sWord); });
  return it != atWords.end() ? &*it : nullptr;
}

i32 TakeFunction(TMotorCommand* ptCommand, const char* pszValue) {
  const TWord* ptWord = FindWord(g_atFunctions, pszValue);
  if (ptWord == nullptr || (ptWord->dwValue == FUNCTION_RESETFOCUS && !IsFocusOnly())) return Fail(szUnknownCommand);
  ptCommand->dwFunction = ptWord->dwValue;
  return 0;
}

i32 TakeDirection(TMotorCommand* ptCommand, const char* pszValue) {
  const TWord* ptWord = FindWord(g_atDirections, pszValue);
  if (ptWord == nullptr) return Fail(szUnknownCommand);
  ptCommand->dwDirection = ptWord->dwValue;
  return 0;
}

i32 TakeNumber(u32* pdwNumber, const char* pszValue) {
  if (*pszValue == '\0') return Fail(szUnknownCommand);
  *pdwNumber = Text_ToU32(pszValue);
  return 0;
}

i32 TakeSteps(TMotorCommand* ptCommand, const char* pszValue) {
  return TakeNumber(&ptCommand->dwSteps, pszValue);
}

i32 TakePosition(TMotorCommand* ptCommand, const char* pszValue) {
  return TakeNumber(&ptCommand->dwPosition, pszValue);
}

// The comparison is unsigned, so a negative number becomes the end of the range too.
i32 TakeDefaultPosition(TMotorCommand* ptCommand, const char* pszValue) {
  if (!IsFocusOnly()) return Fail(szUnknownCommand);
  if (TakeNumber(&ptCommand->dwDefaultPosition, pszValue) != 0) return -1;
  ptCommand->dwDefaultPosition = std::min(ptCommand->dwDefaultPosition, g_tVernierLensdConfigInfo.dwFocusVirtualEnd);
  return 0;
}

i32 TakeIris(TMotorCommand* ptCommand, const char*) {
  ptCommand->bIris = 1;
  return 0;
}

struct TKey {
  std::string_view sKey;
  i32 (*pfnTake)(TMotorCommand* ptCommand, const char* pszValue);
};

constexpr TKey g_atKeys[] = {
    {"function", TakeFunction},
    {"direction", TakeDirection},
    {"steps", TakeSteps},
    {"position", TakePosition},
    {"defaultposition", TakeDefaultPosition},
    {"iris", TakeIris},
};

struct TQueryToken {
  char szKey[dwMaxWord + 1];
  char szValue[dwMaxWord + 1];
};

// Returns 0, or -1 with a line printed if the key or the value is longer than any of the language.
i32 SplitToken(std::string_view sToken, TQueryToken* ptToken) {
  const std::size_t dwEquals = std::min(sToken.find('='), sToken.size());
  const std::string_view sKey = sToken.substr(0, dwEquals);
  const std::string_view sValue = sToken.substr(std::min(dwEquals + 1, sToken.size()));
  if (sKey.size() > dwMaxWord || sValue.size() > dwMaxWord) return Fail(szUnknownCommand);
  *ptToken = {};
  sKey.copy(ptToken->szKey, dwMaxWord);
  sValue.copy(ptToken->szValue, dwMaxWord);
  return 0;
}

i32 TakeChannel(TVernierLensdInfo* pThis, const char* pszValue, TClientRequest* ptRequest) {
  const i32 iChannel = Text_ToI32(pszValue);
  if (*pszValue == '\0' || iChannel < 0 || iChannel >= std::min(g_tVernierLensdConfigInfo.iMaxDevNum, iMaxChannels)) {
    return Fail("[vernierlensd] : Invalid channel value.");
  }
  ptRequest->iChannel = iChannel;
  Word_Store(pThis->iCurChannel, iChannel);
  return 0;
}

i32 TakeToken(TVernierLensdInfo* pThis, std::string_view sToken, TClientRequest* ptRequest) {
  TQueryToken tToken;
  const bool bFits = SplitToken(sToken, &tToken) == 0;
  if (bFits && std::string_view(tToken.szKey).starts_with("channel")) {
    return TakeChannel(pThis, tToken.szValue, ptRequest);
  }
  TMotorCommand* ptCommand = &ptRequest->atCommand[ptRequest->iChannel];
  if (bFits && VernierLensd_InterpretClientCommand(ptCommand, tToken.szKey, tToken.szValue) == 0) return 0;
  return Fail("[vernierlensd] : VernierLensd_InterpretClientCommand failed.");
}

}  // namespace

i32 VernierLensd_ParseClientCommand(TVernierLensdInfo* pThis, const char* pszQuery, TClientRequest* ptRequest) {
  if (pszQuery == nullptr || *pszQuery == '\0') return Fail("[vernierlensd] : Empty query string!");
  ptRequest->iChannel = 0;
  Word_Store(pThis->iCurChannel, 0);

  std::string_view sRest = pszQuery;
  for (bool bMore = true; bMore;) {
    const std::size_t dwEnd = sRest.find('&');
    if (TakeToken(pThis, sRest.substr(0, dwEnd), ptRequest) != 0) return -1;
    bMore = dwEnd != std::string_view::npos;
    if (bMore) sRest.remove_prefix(dwEnd + 1);
  }
  if (ptRequest->atCommand[ptRequest->iChannel].dwFunction == FUNCTION_IDLE) {
    return Fail("[vernierlensd] : Function isn't specified.");
  }
  std::printf("[vernierlensd] : Command string: %.8192s\n", pszQuery);
  return 0;
}

i32 VernierLensd_InterpretClientCommand(TMotorCommand* ptCommand, const char* pszKey, const char* pszValue) {
  for (const TKey& tKey : g_atKeys) {
    if (std::string_view(pszKey).starts_with(tKey.sKey)) return tKey.pfnTake(ptCommand, pszValue);
  }
  return Fail(szUnknownCommand);
}

void VernierLensd_PlusToSpace(char* pszQuery) {
  if (pszQuery != nullptr) std::replace(pszQuery, pszQuery + std::strlen(pszQuery), '+', ' ');
}
