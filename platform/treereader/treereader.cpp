#include "treereader.h"

#include <errno.h>
#include <expat.h>
#include <fcntl.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr size_t dwMaxFile = 16 * 1024 * 1024;     // bytes; a larger file is no configuration
constexpr size_t dwMaxString = 64 * 1024;          // bytes of one destination
constexpr size_t dwMaxParserMemory = 1024 * 1024;  // bytes, for everything the parser keeps of one file
constexpr int iChunk = 8 * 1024;                   // bytes read at a time

enum EResult : int32_t { READ_DONE = 0, READ_UNREADABLE = -1, READ_BAD_ROW = -2, READ_NO_MEMORY = -3 };

// The parser's memory.  Nesting, long tokens and many distinct names all use it up, so one limit stops every hostile
// file.  The limit also bounds the time, because a token is scanned anew with each chunk that makes it longer.
// The parser gives its allocator no context, so the sum is thread-local: one thread reads a file from end to end, and
// all memory is freed at the end.
struct alignas(max_align_t) TBlock {
  size_t dwSize;  // bytes after this header
};
constinit thread_local size_t dwParserMemory = 0;

void* Memory_Resize(void* pvOld, size_t dwSize) {
  TBlock* ptOld = pvOld == nullptr ? nullptr : static_cast<TBlock*>(pvOld) - 1;
  const size_t dwOld = ptOld == nullptr ? 0 : ptOld->dwSize;
  if (dwSize > dwMaxParserMemory || dwParserMemory - dwOld + dwSize > dwMaxParserMemory) return nullptr;
  TBlock* ptNew = static_cast<TBlock*>(realloc(ptOld, sizeof(TBlock) + dwSize));
  if (ptNew == nullptr) return nullptr;
  dwParserMemory += dwSize - dwOld;
  ptNew->dwSize = dwSize;
  return ptNew + 1;
}

void* Memory_Allocate(size_t dwSize) {
  return Memory_Resize(nullptr, dwSize);
}

void Memory_Free(void* pvOld) {
  if (pvOld == nullptr) return;
  TBlock* ptOld = static_cast<TBlock*>(pvOld) - 1;
  dwParserMemory -= ptOld->dwSize;
  free(ptOld);
}

constexpr XML_Memory_Handling_Suite g_tMemory = {Memory_Allocate, Memory_Resize, Memory_Free};

enum ENumber : uint32_t { NUMBER_BLANK, NUMBER_SIGNED, NUMBER_OVER };

// The state of a row while its file is read.
struct TReading {
  const TTreeRow* ptRow;
  const char* pszRest;  // part of the key below the innermost matching open element; "" inside the key's element
  uint32_t dwMatched;   // elements of the key that are open, counted from the root
  bool bFound;          // the key's element has ended, so the value is final
  ENumber eNumber;      // how far an integer's text has been read
  bool bNegative;
  int64_t iValue;  // value of an integer, sign included, within int32
  char* pszText;   // text of a string; room for the row's dwSize bytes
  size_t dwText;   // bytes in pszText
};

struct TFile {
  XML_Parser hParser;
  TReading* atReadings;
  size_t dwReadings;
  uint32_t dwDepth;  // number of open elements
};

bool IsSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

void Integer_Take(TReading& tReading, char c) {
  if (tReading.eNumber == NUMBER_OVER || (tReading.eNumber == NUMBER_BLANK && IsSpace(c))) return;
  if (tReading.eNumber == NUMBER_BLANK && (c == '-' || c == '+')) {
    tReading.bNegative = c == '-';
    tReading.eNumber = NUMBER_SIGNED;
    return;
  }
  if (c < '0' || c > '9') {
    tReading.eNumber = NUMBER_OVER;
    return;
  }
  tReading.eNumber = NUMBER_SIGNED;
  const int64_t iValue = tReading.iValue * 10 + (tReading.bNegative ? '0' - c : c - '0');
  tReading.iValue = iValue > INT32_MAX ? INT32_MAX : iValue < INT32_MIN ? INT32_MIN : iValue;
}

void String_Take(TReading& tReading, char c) {
  if (tReading.dwText == 0 && IsSpace(c)) return;
  if (tReading.dwText + 1 < tReading.ptRow->dwSize) tReading.pszText[tReading.dwText++] = c;
}

bool Reading_IsInside(const TReading& tReading, const TFile& tFile) {
  return !tReading.bFound && tReading.dwMatched == tFile.dwDepth && *tReading.pszRest == '\0';
}

void XMLCALL File_OnStart(void* pvFile, const XML_Char* pszName, const XML_Char**) {
  TFile& tFile = *static_cast<TFile*>(pvFile);
  const size_t dwName = strlen(pszName);
  for (size_t i = 0; i < tFile.dwReadings; i++) {
    TReading& tReading = tFile.atReadings[i];
    if (tReading.bFound || tReading.dwMatched != tFile.dwDepth || *tReading.pszRest == '\0') continue;
    if (strncmp(tReading.pszRest + 1, pszName, dwName) != 0) continue;
    const char* pszRest = tReading.pszRest + 1 + dwName;
    if (*pszRest != '/' && *pszRest != '\0') continue;
    tReading.pszRest = pszRest;
    tReading.dwMatched++;
  }
  tFile.dwDepth++;
}

void XMLCALL File_OnEnd(void* pvFile, const XML_Char*) {
  TFile& tFile = *static_cast<TFile*>(pvFile);
  for (size_t i = 0; i < tFile.dwReadings; i++) {
    TReading& tReading = tFile.atReadings[i];
    if (tReading.bFound || tReading.dwMatched != tFile.dwDepth) continue;
    tReading.bFound = *tReading.pszRest == '\0';
    tReading.dwMatched--;
    while (*--tReading.pszRest != '/') {
    }
  }
  tFile.dwDepth--;
}

// The parser may cut an element's text into pieces anywhere.  They are joined here.
void XMLCALL File_OnText(void* pvFile, const XML_Char* pcText, int iLength) {
  TFile& tFile = *static_cast<TFile*>(pvFile);
  for (size_t i = 0; i < tFile.dwReadings; i++) {
    TReading& tReading = tFile.atReadings[i];
    if (!Reading_IsInside(tReading, tFile)) continue;
    for (int iAt = 0; iAt < iLength; iAt++) {
      if (tReading.ptRow->dwType == TREEREADER_INTEGER) {
        Integer_Take(tReading, pcText[iAt]);
      } else {
        String_Take(tReading, pcText[iAt]);
      }
    }
  }
}

// A document type is refused, because it can declare entities that expand without end.
void XMLCALL File_OnDoctype(void* pvFile, const XML_Char*, const XML_Char*, const XML_Char*, int) {
  XML_StopParser(static_cast<TFile*>(pvFile)->hParser, XML_FALSE);
}

int32_t File_Failure(XML_Parser hParser) {
  if (XML_GetErrorCode(hParser) == XML_ERROR_NO_MEMORY) return READ_NO_MEMORY;
  return static_cast<int32_t>(XML_GetCurrentLineNumber(hParser));  // fits: dwMaxFile limits the lines too
}

int32_t File_Parse(XML_Parser hParser, int fdFile) {
  for (size_t dwRead = 0;;) {
    void* pvChunk = XML_GetBuffer(hParser, iChunk);
    if (pvChunk == nullptr) return File_Failure(hParser);
    ssize_t iRead;
    do {
      iRead = read(fdFile, pvChunk, iChunk);
    } while (iRead < 0 && errno == EINTR);
    if (iRead < 0) return READ_UNREADABLE;
    dwRead += static_cast<size_t>(iRead);
    if (dwRead > dwMaxFile) return READ_UNREADABLE;  // it has grown since it was opened
    if (XML_ParseBuffer(hParser, static_cast<int>(iRead), iRead == 0) != XML_STATUS_OK) return File_Failure(hParser);
    if (iRead == 0) return READ_DONE;
  }
}

int32_t File_ParseInto(TReading* atReadings, size_t dwReadings, int fdFile) {
  const XML_Parser hParser = XML_ParserCreate_MM(nullptr, &g_tMemory, nullptr);
  if (hParser == nullptr) return READ_NO_MEMORY;
  TFile tFile = {.hParser = hParser, .atReadings = atReadings, .dwReadings = dwReadings, .dwDepth = 0};
  XML_SetUserData(hParser, &tFile);
  XML_SetElementHandler(hParser, File_OnStart, File_OnEnd);
  XML_SetCharacterDataHandler(hParser, File_OnText);
  XML_SetStartDoctypeDeclHandler(hParser, File_OnDoctype);
  const int32_t iResult = File_Parse(hParser, fdFile);
  XML_ParserFree(hParser);
  return iResult;
}

void Reading_Store(TReading& tReading) {
  if (!tReading.bFound) return;
  if (tReading.ptRow->dwType == TREEREADER_INTEGER) {
    const int32_t iValue = static_cast<int32_t>(tReading.iValue);
    memcpy(tReading.ptRow->pvDest, &iValue, sizeof(iValue));
    return;
  }
  while (tReading.dwText > 0 && IsSpace(tReading.pszText[tReading.dwText - 1])) tReading.dwText--;
  tReading.pszText[tReading.dwText] = '\0';
  memcpy(tReading.ptRow->pvDest, tReading.pszText, tReading.dwText + 1);
}

// Reads all rows into its own memory, and stores them only after the whole file has been read without an error.
int32_t File_Read(const TTreeRow* ptRows, size_t dwRows, size_t dwStrings, int fdFile) {
  TReading* atReadings = static_cast<TReading*>(calloc(1, dwRows * sizeof(TReading) + dwStrings + 1));
  if (atReadings == nullptr) return READ_NO_MEMORY;
  char* pszText = reinterpret_cast<char*>(atReadings + dwRows);
  for (size_t i = 0; i < dwRows; i++) {
    atReadings[i].ptRow = &ptRows[i];
    atReadings[i].pszRest = ptRows[i].pszKey;
    if (ptRows[i].dwType != TREEREADER_STRING) continue;
    atReadings[i].pszText = pszText;
    pszText += ptRows[i].dwSize;
  }
  const int32_t iResult = File_ParseInto(atReadings, dwRows, fdFile);
  for (size_t i = 0; iResult == READ_DONE && i < dwRows; i++) Reading_Store(atReadings[i]);
  free(atReadings);
  return iResult;
}

// O_NONBLOCK: a FIFO in place of the file must not block the caller.
int File_Open(const char* pszFile) {
  const int fdFile = open(pszFile, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fdFile < 0) return -1;
  struct stat tStat;
  if (fstat(fdFile, &tStat) == 0 && S_ISREG(tStat.st_mode) && tStat.st_size <= static_cast<off_t>(dwMaxFile)) {
    return fdFile;
  }
  close(fdFile);
  return -1;
}

bool Row_IsValid(const TTreeRow& tRow) {
  if (tRow.pszKey[0] != '/' || tRow.pvDest == nullptr) return false;
  if (tRow.dwType == TREEREADER_INTEGER) return tRow.dwSize == sizeof(int32_t);
  return tRow.dwType == TREEREADER_STRING && tRow.dwSize > 0 && tRow.dwSize <= dwMaxString;
}

}  // namespace

int32_t TreeReader_ReadAll(const char* pszFile, const TTreeRow* ptRows) {
  size_t dwRows = 0;
  size_t dwStrings = 0;  // bytes of all string destinations
  for (; ptRows[dwRows].pszKey != nullptr; dwRows++) {
    if (!Row_IsValid(ptRows[dwRows])) return READ_BAD_ROW;
    if (ptRows[dwRows].dwType == TREEREADER_STRING) dwStrings += ptRows[dwRows].dwSize;
  }
  const int fdFile = File_Open(pszFile);
  if (fdFile < 0) return READ_UNREADABLE;
  const int32_t iResult = File_Read(ptRows, dwRows, dwStrings, fdFile);
  close(fdFile);
  return iResult;
}
