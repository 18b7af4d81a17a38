#include "sxmlparser/sxml_tree.h"

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "sxmlparser/sxml_scanner.h"

// Every event adds here what it takes in the build pass below, so that the block is exactly used.  No sum overflows:
// each byte counted for the strings, and each record, stands for a byte of the text.
struct TCountPass {
  i32 iStackSize;
  i32 iStrSize;
  i32 iElementCount;
  i32 iAttributeCount;
  i32 iDepth;
};

[[gnu::always_inline]] static inline void Count_String(TCountPass& t, std::string_view sv) {
  t.iStrSize += static_cast<i32>(sv.size()) + 1;
}

[[gnu::always_inline]] static inline i32 Pass_Opening(TCountPass& t, std::string_view svName) {
  Count_String(t, svName);
  ++t.iElementCount;
  t.iStackSize = std::max(t.iStackSize, ++t.iDepth);
  return 0;
}

[[gnu::always_inline]] static inline void Pass_AttributeName(TCountPass& t, std::string_view svName) {
  Count_String(t, svName);
  ++t.iAttributeCount;
}

[[gnu::always_inline]] static inline void Pass_AttributeValue(TCountPass& t, std::string_view svValue) {
  Count_String(t, svValue);
}

[[gnu::always_inline]] static inline void Pass_Text(TCountPass& t, std::string_view svText) {
  Count_String(t, svText);
}

[[gnu::always_inline]] static inline i32 Pass_SelfClosing(TCountPass& t) {
  ++t.iStrSize;
  --t.iDepth;
  return 0;
}

[[gnu::always_inline]] static inline i32 Pass_Closing(TCountPass& t, std::string_view) {
  return --t.iDepth < 0 ? Scan_Error(SXML_ERROR_NESTING) : 0;
}

// The build pass works on its own copy of the cursors, which the compiler can keep in registers.
struct TBuildPass {
  const char* pTextEnd;
  char* pszCur;
  char* pszEnd;
  TXMLElement* pElement;
  TXMLElement* pElementEnd;
  TXMLAttribute* pAttribute;
  TXMLAttribute* pAttributeEnd;
  TXMLElement** ppTop;  // behind the innermost open element
  TXMLElement** ppStack;
  TXMLElement** ppStackEnd;
  TXMLElement* pClosed;  // closed last: the elder sibling of an element whose parent has a child already
  i32 iElementIndex;
  i32 iAttributeIndex;
};

// Copies and NUL-terminates a string.  Short ones, nearly all, go as 16 bytes of which the tail is soon overwritten,
// where both sides have that many left.
[[gnu::always_inline]] static inline const char* Build_String(TBuildPass& t, std::string_view sv) {
  char* const pszCopy = t.pszCur;
  if (sv.size() <= 16 && t.pTextEnd - sv.data() >= 16 && t.pszEnd - pszCopy > 16) {
    std::memcpy(pszCopy, sv.data(), 16);
  } else {
    std::memcpy(pszCopy, sv.data(), sv.size());
  }
  pszCopy[sv.size()] = '\0';
  t.pszCur += sv.size() + 1;
  assert(t.pszCur <= t.pszEnd);
  return pszCopy;
}

[[gnu::always_inline]] static inline void Build_Link(TBuildPass& t, TXMLElement* pParent) {
  if (pParent->ptFirstChild == nullptr) {
    pParent->ptFirstChild = t.pElement;
  } else {
    t.pClosed->ptNextSibling = t.pElement;
  }
  ++pParent->iChildCount;
}

[[gnu::always_inline]] static inline i32 Pass_Opening(TBuildPass& t, std::string_view svName) {
  const char* const pszName = Build_String(t, svName);
  TXMLElement* const pParent = t.ppTop == t.ppStack ? nullptr : t.ppTop[-1];
  ++t.pElement;
  assert(t.pElement < t.pElementEnd);
  *t.pElement = {.iIndex = ++t.iElementIndex,
                 .pszName = pszName,
                 .pszXMLText = "",
                 .iChildCount = 0,
                 .iAttributeCount = 0,
                 .ptFirstAttribute = nullptr,
                 .ptFirstChild = nullptr,
                 .ptNextSibling = nullptr,
                 .ptParent = pParent};
  if (pParent != nullptr) Build_Link(t, pParent);
  if (t.ppTop == t.ppStackEnd) return Scan_Error(SXML_ERROR_STACK_FULL);
  *t.ppTop++ = t.pElement;
  return 0;
}

[[gnu::always_inline]] static inline void Pass_AttributeName(TBuildPass& t, std::string_view svName) {
  ++t.pAttribute;
  assert(t.pAttribute < t.pAttributeEnd);
  *t.pAttribute = {.iIndex = ++t.iAttributeIndex, .pszName = Build_String(t, svName), .pszValue = nullptr};
  if (t.pElement->iAttributeCount++ == 0) t.pElement->ptFirstAttribute = t.pAttribute;
}

[[gnu::always_inline]] static inline void Pass_AttributeValue(TBuildPass& t, std::string_view svValue) {
  t.pAttribute->pszValue = Build_String(t, svValue);
}

// In a text of nothing but "</" this writes to slot 0, which is nobody's.
[[gnu::always_inline]] static inline void Pass_Text(TBuildPass& t, std::string_view svText) {
  t.pElement->pszXMLText = Build_String(t, svText);
}

[[gnu::always_inline]] static inline i32 Pass_SelfClosing(TBuildPass& t) {
  t.pElement->pszXMLText = t.pszCur;
  *t.pszCur++ = '\0';
  assert(t.pszCur <= t.pszEnd);
  t.pClosed = *--t.ppTop;
  return 0;
}

// Compares over the tag's length only: "</ab>" closes "abc", and "</>" anything.  The NUL behind pszName ends the
// comparison, so that no byte outside the strings and slot 0 behind them is read.
[[gnu::always_inline]] static inline bool Build_NameFits(const TBuildPass& t, const char* pszName,
                                                         std::string_view svTag) {
  if (svTag.size() > 8 || t.pTextEnd - svTag.data() < 8) {
    return std::strncmp(pszName, svTag.data(), svTag.size()) == 0;
  }
  const u64 qwDiffer = Bytes_Load(pszName) ^ Bytes_Load(svTag.data());
  return svTag.empty() || qwDiffer << (64 - 8 * svTag.size()) == 0;
}

[[gnu::always_inline]] static inline i32 Pass_Closing(TBuildPass& t, std::string_view svTag) {
  if (t.ppTop == t.ppStack) return Scan_Error(SXML_ERROR_NESTING);
  t.pClosed = *--t.ppTop;
  return Build_NameFits(t, t.pClosed->pszName, svTag) ? 0 : Scan_Error(SXML_ERROR_CLOSING_NAME);
}

void Tree_Drop(TSXMLParser* pThis) {
  pThis->iXMLStackSize = 0;
  pThis->iXMLStrSize = 0;
  pThis->iXMLElementCount = 0;
  pThis->iXMLAttributeCount = 0;
  pThis->iXMLStackDepth = 0;
  pThis->iElementIndex = 0;
  pThis->iAttributeIndex = 0;
  pThis->pszCurXMLStr = nullptr;
  pThis->pCurElement = nullptr;
  pThis->pCurAttribute = nullptr;
}

// What the element array may have to move up to be aligned: 3 bytes where pointers have 4, 7 where they have 8.
constexpr i32 g_iAlignSlack = alignof(TXMLElement) - 1;

// Makes pvBlock a block of at least so many bytes.  One that is used again isn't cleared: records and strings are
// written whole before a count or a pointer leads to them.
static i32 Tree_TakeBlock(TSXMLParser* pThis, u64 qwSize) {
  if (qwSize <= static_cast<u64>(pThis->iBlockSize)) return 0;
  std::free(pThis->pvBlock);
  pThis->pvBlock = qwSize > std::numeric_limits<i32>::max() ? nullptr : std::calloc(1, static_cast<size_t>(qwSize));
  pThis->iBlockSize = pThis->pvBlock == nullptr ? 0 : static_cast<i32>(qwSize);
  return pThis->pvBlock == nullptr ? Scan_Error(SXML_ERROR_NO_MEMORY) : 0;
}

static i32 Tree_LayOut(TSXMLParser* pThis, const TCountPass& tCount) {
  const u64 qwSize = static_cast<u64>(tCount.iStrSize) + g_iAlignSlack +
                     sizeof(TXMLElement*) * static_cast<u64>(tCount.iStackSize) +
                     sizeof(TXMLElement) * (static_cast<u64>(tCount.iElementCount) + 1) +
                     sizeof(TXMLAttribute) * (static_cast<u64>(tCount.iAttributeCount) + 1);
  if (const i32 iError = Tree_TakeBlock(pThis, qwSize); iError != 0) return iError;
  pThis->iXMLStackSize = tCount.iStackSize;
  pThis->iXMLStrSize = tCount.iStrSize;
  pThis->iXMLElementCount = tCount.iElementCount;
  pThis->iXMLAttributeCount = tCount.iAttributeCount;
  pThis->pszXMLString = pThis->pszCurXMLStr = static_cast<char*>(pThis->pvBlock);
  void* const pvElements = pThis->pszXMLString + ((tCount.iStrSize + g_iAlignSlack) & ~g_iAlignSlack);
  pThis->pXMLElement = pThis->pCurElement = static_cast<TXMLElement*>(pvElements);
  void* const pvAttributes = pThis->pXMLElement + tCount.iElementCount + 1;
  pThis->pXMLAttribute = pThis->pCurAttribute = static_cast<TXMLAttribute*>(pvAttributes);
  void* const pvStack = pThis->pXMLAttribute + tCount.iAttributeCount + 1;
  pThis->ppXMLStack = static_cast<TXMLElement**>(pvStack);
  return 0;
}

static i32 ConstructDOMCb(TSXMLParser* pThis, std::string_view svText) {
  TBuildPass t{.pTextEnd = svText.data() + svText.size(),
               .pszCur = pThis->pszCurXMLStr,
               .pszEnd = pThis->pszXMLString + pThis->iXMLStrSize,
               .pElement = pThis->pCurElement,
               .pElementEnd = pThis->pXMLElement + pThis->iXMLElementCount + 1,
               .pAttribute = pThis->pCurAttribute,
               .pAttributeEnd = pThis->pXMLAttribute + pThis->iXMLAttributeCount + 1,
               .ppTop = pThis->ppXMLStack,
               .ppStack = pThis->ppXMLStack,
               .ppStackEnd = pThis->ppXMLStack + pThis->iXMLStackSize,
               .pClosed = nullptr,
               .iElementIndex = 0,
               .iAttributeIndex = 0};
  const i32 iError = Scan_Run(svText, t);
  pThis->pszCurXMLStr = t.pszCur;
  pThis->pCurElement = t.pElement;
  pThis->pCurAttribute = t.pAttribute;
  pThis->iElementIndex = t.iElementIndex;
  pThis->iAttributeIndex = t.iAttributeIndex;
  return iError;
}

static i32 Tree_Count(std::string_view svText, TCountPass& tCount) {
  TCountPass t{};  // not tCount itself: it can lie in registers as long as nobody points to it
  const i32 iError = Scan_Run(svText, t);
  tCount = t;
  if (iError != 0) return iError;
  return t.iDepth == 0 ? 0 : Scan_Error(SXML_ERROR_NESTING);
}

i32 Tree_Parse(TSXMLParser* pThis, std::string_view svText) {
  Tree_Drop(pThis);
  TCountPass tCount;
  i32 iError = Tree_Count(svText, tCount);
  if (iError == 0) iError = Tree_LayOut(pThis, tCount);
  if (iError == 0) iError = ConstructDOMCb(pThis, svText);
  if (iError != 0) Tree_Drop(pThis);
  return iError;
}
