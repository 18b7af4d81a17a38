#include "courier.h"

#include <errno.h>
#include <expat.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr size_t dwMaxFrame = 1023;  // bytes: the reader's buffer holds 1024 with the closing NUL
constexpr size_t dwMaxPayload = dwMaxFrame - COURIER_HEADER_LENGTH;

static_assert(COURIER_MAX_EVENTS * sizeof(TCourierEvent) <= COURIER_EVENT_STORAGE);
static_assert(dwMaxFrame <= PIPE_BUF, "a frame goes into the FIFO whole or not at all");

// An event's element and text, with the codes that they stand for.
struct TEventWord {
  const char* pszElement;
  const char* pszText;
  uint32_t dwCode;
  uint32_t dwSubCode;
};

constexpr TEventWord g_atEventWords[] = {
    {"autofocus", "falling", 19, 5},     {"autofocus", "rising", 19, 4},       //
    {"afbutton", "pressed", 19, 2},      {"afbutton", "released", 19, 1},      //
    {"zoominbutton", "pressed", 21, 2},  {"zoominbutton", "released", 21, 1},  //
    {"zoomoutbutton", "pressed", 22, 2}, {"zoomoutbutton", "released", 22, 1},
};
constexpr const char* g_pszMessage = "message";
constexpr const char* g_pszChannel = "channel";

// The state of a message while it is parsed.  pszElement points to a word above, never into the parser's memory.
struct TMessage {
  XML_Parser hParser;
  bool bRefused;
  bool bChannel;  // a channel has been named
  uint32_t dwDepth;
  const char* pszElement;
  int32_t iChannel;
  int32_t iRoom;  // records that may be filled
  int32_t iCount;
  TCourierEvent atEvents[COURIER_MAX_EVENTS];
  size_t dwText;
  char szText[dwMaxPayload + 1];  // text of the open element
};

bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

void Message_Refuse(TMessage& tMessage) {
  tMessage.bRefused = true;
  XML_StopParser(tMessage.hParser, XML_FALSE);
}

// Returns the word above that equals pszName, or null if this element may not stand here.
const char* Message_FindElement(const TMessage& tMessage, const char* pszName) {
  if (tMessage.dwDepth == 0) return strcmp(pszName, g_pszMessage) == 0 ? g_pszMessage : nullptr;
  if (tMessage.dwDepth != 1) return nullptr;
  if (strcmp(pszName, g_pszChannel) == 0) {
    return tMessage.bChannel || tMessage.iCount > 0 ? nullptr : g_pszChannel;
  }
  for (const TEventWord& tWord : g_atEventWords) {
    if (strcmp(pszName, tWord.pszElement) == 0) return tMessage.iCount < tMessage.iRoom ? tWord.pszElement : nullptr;
  }
  return nullptr;
}

// After a refusal the parser may still report the end of the last tag, so the handlers look at bRefused first.
void XMLCALL Message_OnStart(void* pvMessage, const XML_Char* pszName, const XML_Char** apszAttributes) {
  TMessage& tMessage = *static_cast<TMessage*>(pvMessage);
  if (tMessage.bRefused) return;
  tMessage.pszElement = Message_FindElement(tMessage, pszName);
  if (tMessage.pszElement == nullptr || apszAttributes[0] != nullptr) return Message_Refuse(tMessage);
  tMessage.dwDepth++;
  tMessage.dwText = 0;
}

void XMLCALL Message_OnText(void* pvMessage, const XML_Char* pcText, int iLength) {
  TMessage& tMessage = *static_cast<TMessage*>(pvMessage);
  if (tMessage.bRefused) return;
  for (int i = 0; i < iLength; i++) {
    const bool bAround = tMessage.dwDepth == 1 || tMessage.dwText == 0;
    if (bAround && IsSpace(pcText[i])) continue;
    if (tMessage.dwDepth == 1 || tMessage.dwText == dwMaxPayload) return Message_Refuse(tMessage);
    tMessage.szText[tMessage.dwText++] = pcText[i];
  }
}

bool Message_TakeChannel(TMessage& tMessage) {
  const char* pc = tMessage.szText;
  const bool bNegative = *pc == '-';
  if (bNegative) pc++;
  if (*pc == '\0') return false;
  int64_t iValue = 0;
  for (; *pc != '\0'; pc++) {
    if (*pc < '0' || *pc > '9') return false;
    iValue = iValue * 10 + (bNegative ? '0' - *pc : *pc - '0');
    iValue = iValue > INT32_MAX ? INT32_MAX : iValue < INT32_MIN ? INT32_MIN : iValue;
  }
  tMessage.iChannel = static_cast<int32_t>(iValue);
  tMessage.bChannel = true;
  return true;
}

bool Message_TakeEvent(TMessage& tMessage) {
  for (const TEventWord& tWord : g_atEventWords) {
    if (strcmp(tMessage.pszElement, tWord.pszElement) != 0 || strcmp(tMessage.szText, tWord.pszText) != 0) continue;
    TCourierEvent& tEvent = tMessage.atEvents[tMessage.iCount++];
    tEvent = {};
    tEvent.iChannel = tMessage.iChannel;
    tEvent.dwCode = tWord.dwCode;
    tEvent.dwSubCode = tWord.dwSubCode;
    return true;
  }
  return false;
}

void XMLCALL Message_OnEnd(void* pvMessage, const XML_Char*) {
  TMessage& tMessage = *static_cast<TMessage*>(pvMessage);
  if (tMessage.bRefused || --tMessage.dwDepth == 0) return;
  while (tMessage.dwText > 0 && IsSpace(tMessage.szText[tMessage.dwText - 1])) tMessage.dwText--;
  tMessage.szText[tMessage.dwText] = '\0';
  const bool bChannel = tMessage.pszElement == g_pszChannel;
  if (!(bChannel ? Message_TakeChannel(tMessage) : Message_TakeEvent(tMessage))) Message_Refuse(tMessage);
}

// A document type is refused, because it can declare entities that expand without end.
void XMLCALL Message_OnDoctype(void* pvMessage, const XML_Char*, const XML_Char*, const XML_Char*, int) {
  Message_Refuse(*static_cast<TMessage*>(pvMessage));
}

// Writes without SIGPIPE, which would end the process if the reader goes away between open and write.  The signal goes
// to the writing thread, which blocks it and then removes it.  A SIGPIPE that was pending before stays pending.
ssize_t Write_Quietly(int fdFIFO, const uint8_t* pbFrame, size_t dwLength) {
  sigset_t tPipe;
  sigset_t tPending;
  sigset_t tBefore;
  sigemptyset(&tPipe);
  sigaddset(&tPipe, SIGPIPE);
  sigemptyset(&tPending);
  sigpending(&tPending);
  pthread_sigmask(SIG_BLOCK, &tPipe, &tBefore);
  const ssize_t iWritten = write(fdFIFO, pbFrame, dwLength);
  const int iError = errno;
  if (iWritten < 0 && iError == EPIPE && sigismember(&tPending, SIGPIPE) == 0) {
    const timespec tNoWait = {};
    sigtimedwait(&tPipe, nullptr, &tNoWait);
  }
  pthread_sigmask(SIG_SETMASK, &tBefore, nullptr);
  errno = iError;
  return iWritten;
}

int32_t FIFO_Write(int fdFIFO, const uint8_t* pbFrame, size_t dwLength) {
  struct stat tStat;
  if (fstat(fdFIFO, &tStat) != 0) return -1;
  if (!S_ISFIFO(tStat.st_mode)) {
    errno = EINVAL;
    return -1;
  }
  return Write_Quietly(fdFIFO, pbFrame, dwLength) == static_cast<ssize_t>(dwLength) ? 0 : -1;
}

}  // namespace

int32_t Courier_GetTypeLength(const uint8_t* pbBuffer, int32_t iCount, uint32_t* pdwType, uint32_t* pdwHeaderLength,
                              uint32_t* pdwPayloadLength) {
  if (iCount < COURIER_HEADER_LENGTH || pbBuffer[1] != COURIER_VERSION) return -1;
  *pdwType = pbBuffer[0];
  *pdwHeaderLength = COURIER_HEADER_LENGTH;
  *pdwPayloadLength = static_cast<uint32_t>(pbBuffer[2] << 8 | pbBuffer[3]);
  return 0;
}

int32_t Courier_Parse_Event(void* hXMLParser, const char* pszPayload, uint32_t dwLength, int32_t* piCount,
                            TCourierEvent* ptEvents, void*) {
  const int32_t iRoom = *piCount < COURIER_MAX_EVENTS ? *piCount : COURIER_MAX_EVENTS;
  *piCount = 0;
  const XML_Parser hParser = static_cast<XML_Parser>(hXMLParser);
  if (dwLength > dwMaxPayload || XML_ParserReset(hParser, nullptr) != XML_TRUE) return -1;
  TMessage tMessage = {};
  tMessage.hParser = hParser;
  tMessage.iRoom = iRoom;
  XML_SetUserData(hParser, &tMessage);
  XML_SetElementHandler(hParser, Message_OnStart, Message_OnEnd);
  XML_SetCharacterDataHandler(hParser, Message_OnText);
  XML_SetStartDoctypeDeclHandler(hParser, Message_OnDoctype);
  const XML_Status eStatus = XML_Parse(hParser, pszPayload, static_cast<int>(dwLength), XML_TRUE);
  XML_ParserReset(hParser, nullptr);  // the parser must forget tMessage, which goes out of scope
  if (eStatus != XML_STATUS_OK || tMessage.bRefused || tMessage.iCount == 0) return -1;
  memcpy(ptEvents, tMessage.atEvents, static_cast<size_t>(tMessage.iCount) * sizeof(TCourierEvent));
  *piCount = tMessage.iCount;
  return 0;
}

int32_t Courier_Util_GetOptions(int32_t iCount, const char* const* apszArgs, TCourierSendOptions* ptOptions) {
  if (iCount != 5) return -1;
  const char* pszFIFO = nullptr;
  const char* pszPayload = nullptr;
  for (int32_t i = 1; i < iCount; i += 2) {
    if (strcmp(apszArgs[i], "-p") == 0) pszFIFO = apszArgs[i + 1];
    if (strcmp(apszArgs[i], "-e") == 0) pszPayload = apszArgs[i + 1];
  }
  // Five arguments hold two options.  If both are found, none is unknown or given twice.
  if (pszFIFO == nullptr || pszPayload == nullptr) return -1;
  const size_t dwFIFO = strlen(pszFIFO);
  const size_t dwPayload = strlen(pszPayload);
  if (dwFIFO == 0 || dwFIFO >= sizeof(ptOptions->szFIFO) || dwPayload == 0 || dwPayload > dwMaxPayload) return -1;
  memcpy(ptOptions->szFIFO, pszFIFO, dwFIFO + 1);
  memcpy(ptOptions->szPayload, pszPayload, dwPayload + 1);
  return 0;
}

int32_t Courier_Util_SendbyFIFO(const TCourierSendOptions* ptOptions) {
  const size_t dwPayload = strnlen(ptOptions->szPayload, sizeof(ptOptions->szPayload));
  if (dwPayload > dwMaxPayload) {
    errno = EINVAL;
    return -1;
  }
  uint8_t abFrame[dwMaxFrame] = {COURIER_TYPE_EVENT, COURIER_VERSION, static_cast<uint8_t>(dwPayload >> 8),
                                 static_cast<uint8_t>(dwPayload & 0xFF)};
  memcpy(abFrame + COURIER_HEADER_LENGTH, ptOptions->szPayload, dwPayload);
  // O_NONBLOCK: if nobody reads, or if strangers have filled the FIFO, a wait could last for ever.
  const int fdFIFO = open(ptOptions->szFIFO, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  if (fdFIFO < 0) return -1;
  const int32_t iResult = FIFO_Write(fdFIFO, abFrame, COURIER_HEADER_LENGTH + dwPayload);
  const int iError = errno;
  close(fdFIFO);
  errno = iError;
  return iResult;
}
