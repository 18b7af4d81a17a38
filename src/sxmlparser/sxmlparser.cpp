#include "sxmlparser/sxmlparser.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "core/regular_file.h"
#include "sxmlparser/sxml_scanner.h"
#include "sxmlparser/sxml_tree.h"

constexpr i32 g_iMaxTextSize = std::numeric_limits<i32>::max() - 1;  // bytes; with its NUL, a text then fits into i32

static void Ignore_Element(void*, const char*, i32) {}
static void Ignore_Attribute(void*, const char*, i32, const char*, i32, const char*, i32) {}
static void Ignore_Text(void*, const char*, i32, const char*, i32) {}

i32 SXMLParser_Initial(HSXMLParser* phParser) {
  if (phParser == nullptr) return -1;
  *phParser = static_cast<TSXMLParser*>(std::calloc(1, sizeof(TSXMLParser)));
  if (*phParser == nullptr) return -1;
  TSXMLOption tOption{};
  tOption.dwFlags = SXML_OPTION_CALLBACKS;
  return SXMLParser_SetOption(*phParser, &tOption);
}

i32 SXMLParser_Release(HSXMLParser* phParser) {
  if (phParser == nullptr) return -1;
  if (*phParser != nullptr) {
    std::free((*phParser)->pvBlock);
    std::free((*phParser)->pvNotes);
  }
  std::free(*phParser);
  *phParser = nullptr;
  return 0;
}

i32 SXMLParser_SetOption(HSXMLParser hParser, const TSXMLOption* ptOption) {
  if (hParser == nullptr || ptOption == nullptr) return 0;
  if ((ptOption->dwFlags & SXML_OPTION_MODE) != 0) hParser->dwMode = ptOption->dwMode;
  if ((ptOption->dwFlags & SXML_OPTION_CALLBACKS) != 0) {
    hParser->pfnStartElement = ptOption->pfnStartElement != nullptr ? ptOption->pfnStartElement : Ignore_Element;
    hParser->pfnEndElement = ptOption->pfnEndElement != nullptr ? ptOption->pfnEndElement : Ignore_Element;
    hParser->pfnAttribute = ptOption->pfnAttribute != nullptr ? ptOption->pfnAttribute : Ignore_Attribute;
    hParser->pfnText = ptOption->pfnText != nullptr ? ptOption->pfnText : Ignore_Text;
    hParser->pvUserData = ptOption->pvUserData;
  }
  if ((ptOption->dwFlags & SXML_OPTION_EXTRA) != 0) {
    hParser->dwExtra1 = ptOption->dwExtra1;
    hParser->dwExtra2 = ptOption->dwExtra2;
  }
  return 0;
}

struct TEventPass {
  const TSXMLParser* pThis;
  std::string_view sElement;    // name in the last opening tag
  std::string_view sAttribute;  // name; reported together with its value
};

static inline i32 Length(std::string_view sv) {
  return static_cast<i32>(sv.size());
}

static inline void Pass_Opening(TEventPass& t, std::string_view sName) {
  t.sElement = sName;
  t.pThis->pfnStartElement(t.pThis->pvUserData, sName.data(), Length(sName));
}

static inline void Pass_AttributeName(TEventPass& t, std::string_view sName) {
  t.sAttribute = sName;
}

static inline void Pass_AttributeValue(TEventPass& t, std::string_view sValue) {
  t.pThis->pfnAttribute(t.pThis->pvUserData, t.sElement.data(), Length(t.sElement), t.sAttribute.data(),
                        Length(t.sAttribute), sValue.data(), Length(sValue));
}

static inline void Pass_Text(TEventPass& t, std::string_view sText) {
  t.pThis->pfnText(t.pThis->pvUserData, t.sElement.data(), Length(t.sElement), sText.data(), Length(sText));
}

static inline i32 Pass_Closing(TEventPass& t, std::string_view sName) {
  t.pThis->pfnEndElement(t.pThis->pvUserData, sName.data(), Length(sName));
  return 0;
}

static inline size_t Pass_ExpectedName(const TEventPass&, const char*) {
  return 0;
}

static inline void Pass_SelfClosing(TEventPass& t) {
  Pass_Text(t, {});
  Pass_Closing(t, t.sElement);
}

static i32 Parser_RunEvents(TSXMLParser* pThis, std::string_view sText) {
  if (pThis->dwMode != 1) return -1;
  TEventPass t{.pThis = pThis, .sElement = sText.substr(0, 0), .sAttribute = {}};
  return Scan_Run(sText, t);
}

i32 SXMLParser_ProcessBuffer(HSXMLParser hParser, const char* pszText, i32 iMode) {
  if (hParser == nullptr) return -1;
  if (iMode != SXML_MODE_TREE && iMode != SXML_MODE_EVENTS) return 0;
  if (iMode == SXML_MODE_TREE) Tree_Drop(hParser);
  if (pszText == nullptr) return -1;
  const std::string_view sText(pszText);
  if (sText.size() > g_iMaxTextSize) return -1;
  return iMode == SXML_MODE_TREE ? Tree_Parse(hParser, sText) : Parser_RunEvents(hParser, sText);
}

// Returns the length in bytes, or -1.  A directory reports the largest long, and a pipe cannot seek.
static long File_Length(FILE* pFile) {
  if (std::fseek(pFile, 0, SEEK_END) != 0) return -1;
  const long nLength = std::ftell(pFile);
  if (nLength < 0 || nLength > g_iMaxTextSize || std::fseek(pFile, 0, SEEK_SET) != 0) return -1;
  return nLength;
}

// Returns the file's text, ended with a NUL, which the caller frees.  Returns null if the file can't be read.
static char* File_Read(FILE* pFile) {
  const long nLength = File_Length(pFile);
  if (nLength < 0) return nullptr;
  char* const pszText = static_cast<char*>(std::malloc(static_cast<size_t>(nLength) + 1));
  if (pszText == nullptr) return nullptr;
  const size_t nRead = std::fread(pszText, 1, static_cast<size_t>(nLength), pFile);
  pszText[nRead] = '\0';
  if (std::ferror(pFile) == 0) return pszText;
  std::free(pszText);
  return nullptr;
}

static char* File_Load(const char* pszPath) {
  FILE* const pFile = pszPath == nullptr ? nullptr : RegularFile_Read(pszPath);
  if (pFile == nullptr) return nullptr;
  char* const pszText = File_Read(pFile);
  std::fclose(pFile);
  return pszText;
}

i32 SXMLParser_Process(HSXMLParser hParser, const char* pszPath, i32 iMode) {
  if (hParser == nullptr) return -1;
  if (iMode == SXML_MODE_TREE) Tree_Drop(hParser);
  char* const pszText = File_Load(pszPath);
  if (pszText == nullptr) return -1;
  const i32 iResult = SXMLParser_ProcessBuffer(hParser, pszText, iMode);
  std::free(pszText);
  return iResult;
}
