#include "sxmlparser/sxml_tree.h"

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "sxmlparser/sxml_notes.h"

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

// The most bytes that the element array has to move up for its alignment: 3 with pointers of 4 bytes, 7 with 8.
constexpr i32 g_iAlignSlack = alignof(TXMLElement) - 1;

static_assert(sizeof(TXMLElement) + sizeof(TXMLAttribute) >= g_iStringsSlack);  // both slots 0 follow the strings
static_assert(sizeof(TElementNote) % alignof(TAttributeNote) == 0);

// Makes a buffer at least qwSize bytes large.  A buffer that is used again isn't cleared, because whatever a count, a
// number or a pointer leads to has been written first.
static i32 Tree_Reserve(void*& pv, i32& iSize, u64 qwSize) {
  if (qwSize <= static_cast<u64>(iSize)) return 0;
  std::free(pv);
  pv = qwSize > std::numeric_limits<i32>::max() ? nullptr : std::calloc(1, static_cast<size_t>(qwSize));
  iSize = pv == nullptr ? 0 : static_cast<i32>(qwSize);
  return pv == nullptr ? Scan_Error(SXML_ERROR_NO_MEMORY) : 0;
}

static i32 Tree_LayOut(TSXMLParser* pThis, const TNotePass& t) {
  const u64 qwSize = u64{t.dwStringsSize} + g_iAlignSlack + sizeof(TXMLElement*) * u64{t.dwDeepest} +
                     sizeof(TXMLElement) * (u64{t.dwElements} + 1) + sizeof(TXMLAttribute) * (u64{t.dwAttributes} + 1);
  if (const i32 iError = Tree_Reserve(pThis->pvBlock, pThis->iBlockSize, qwSize); iError != 0) return iError;
  pThis->iXMLStackSize = static_cast<i32>(t.dwDeepest);
  pThis->iXMLStrSize = static_cast<i32>(t.dwStringsSize);
  pThis->iXMLElementCount = static_cast<i32>(t.dwElements);
  pThis->iXMLAttributeCount = static_cast<i32>(t.dwAttributes);
  pThis->pszXMLString = pThis->pszCurXMLStr = static_cast<char*>(pThis->pvBlock);
  void* const pvElements = pThis->pszXMLString + ((pThis->iXMLStrSize + g_iAlignSlack) & ~g_iAlignSlack);
  pThis->pXMLElement = pThis->pCurElement = static_cast<TXMLElement*>(pvElements);
  void* const pvAttributes = pThis->pXMLElement + pThis->iXMLElementCount + 1;
  pThis->pXMLAttribute = pThis->pCurAttribute = static_cast<TXMLAttribute*>(pvAttributes);
  void* const pvStack = pThis->pXMLAttribute + pThis->iXMLAttributeCount + 1;
  pThis->ppXMLStack = static_cast<TXMLElement**>(pvStack);
  return 0;
}

static TAttributeNote* Tree_NotesEnd(const TSXMLParser* pThis) {
  void* const pvEnd = static_cast<char*>(pThis->pvNotes) + pThis->iNotesSize;
  return static_cast<TAttributeNote*>(pvEnd);
}

// Walks the text once, with the room that block and notes have.
static i32 Tree_Note(const TSXMLParser* pThis, std::string_view sText, TNotePass& tNotes) {
  constexpr i32 iUnusedSlots = sizeof(TXMLElement) + sizeof(TXMLAttribute);  // bytes; they follow the strings
  TElementNote tNone{};
  TNotePass t{};  // a copy, which can stay in registers because no pointer to it exists
  t.pTextEnd = sText.data() + sText.size();
  t.pszStrings = static_cast<char*>(pThis->pvBlock);
  t.dwStringsRoom = static_cast<u32>(std::max(pThis->iBlockSize - iUnusedSlots, 0));
  t.atElements = &tNone;
  if (pThis->pvNotes != nullptr) {
    t.atElements = static_cast<TElementNote*>(pThis->pvNotes);
    t.atElements[0] = tNone;
    t.dwNotesRoom = static_cast<u32>(pThis->iNotesSize) - u32{sizeof(TElementNote)};
    t.pAttribute = Tree_NotesEnd(pThis);
  }
  const i32 iError = Scan_Run(sText, t);
  tNotes = t;
  tNotes.atElements = nullptr;  // tNone goes out of scope
  if (iError != 0) return iError;
  return t.dwDepth == 0 ? 0 : Scan_Error(SXML_ERROR_NESTING);
}

// Makes block and notes large enough for the document.  If either was too small, or if a new block has replaced the one
// with the strings, the text is walked a second time.
static i32 Tree_MakeRoom(TSXMLParser* pThis, std::string_view sText, TNotePass& tNotes) {
  const i32 iBlockSize = pThis->iBlockSize;
  if (const i32 iError = Tree_LayOut(pThis, tNotes); iError != 0) return iError;
  const u64 qwNotesSize =
      sizeof(TElementNote) * (u64{tNotes.dwElements} + 1) + sizeof(TAttributeNote) * u64{tNotes.dwAttributes};
  if (const i32 iError = Tree_Reserve(pThis->pvNotes, pThis->iNotesSize, qwNotesSize); iError != 0) return iError;
  if (!tNotes.bSpilled && iBlockSize == pThis->iBlockSize) return 0;
  return Tree_Note(pThis, sText, tNotes);
}

// Element n + 1 is the next to open after element n.  So it is the first child of element n, if that has any.
static void Build_Elements(TSXMLParser* pThis) {
  const auto* const atNotes = static_cast<const TElementNote*>(pThis->pvNotes);
  char* const pszStrings = pThis->pszXMLString;
  TXMLElement* const atElements = pThis->pXMLElement;
  const i32 iCount = pThis->iXMLElementCount;
  TXMLAttribute* ptAttribute = pThis->pXMLAttribute + 1;
  for (i32 i = 1; i <= iCount; ++i) {
    const TElementNote& t = atNotes[i];
    atElements[i] = {.iIndex = i,
                     .pszName = pszStrings + t.dwName,
                     .pszXMLText = t.dwText == 0 ? "" : pszStrings + t.dwText,
                     .iChildCount = static_cast<i32>(t.dwChildren),
                     .iAttributeCount = static_cast<i32>(t.dwAttributes),
                     .ptFirstAttribute = t.dwAttributes == 0 ? nullptr : ptAttribute,
                     .ptFirstChild = t.dwChildren == 0 ? nullptr : atElements + i + 1,
                     .ptNextSibling = t.dwNext == 0 ? nullptr : atElements + t.dwNext,
                     .ptParent = t.dwParent == 0 ? nullptr : atElements + t.dwParent};
    ptAttribute += t.dwAttributes;
  }
  pThis->iElementIndex = iCount;
  pThis->pCurElement = atElements + iCount;
}

static void Build_Attributes(TSXMLParser* pThis) {
  const TAttributeNote* ptNote = Tree_NotesEnd(pThis);
  char* const pszStrings = pThis->pszXMLString;
  TXMLAttribute* const atAttributes = pThis->pXMLAttribute;
  const i32 iCount = pThis->iXMLAttributeCount;
  for (i32 i = 1; i <= iCount; ++i) {
    --ptNote;
    atAttributes[i] = {.iIndex = i, .pszName = pszStrings + ptNote->dwName, .pszValue = pszStrings + ptNote->dwValue};
  }
  pThis->iAttributeIndex = iCount;
  pThis->pCurAttribute = atAttributes + iCount;
}

// Builds the tree from the notes.  Writes each record once and whole, in the order of the arrays.
static void ConstructDOMCb(TSXMLParser* pThis, const TNotePass& tNotes) {
  assert(!tNotes.bSpilled);
  Build_Elements(pThis);
  Build_Attributes(pThis);
  pThis->pszCurXMLStr = pThis->pszXMLString + tNotes.dwStringsSize;
  assert(pThis->pCurElement < (pThis->pXMLElement + pThis->iXMLElementCount + 1));
  assert(pThis->pCurAttribute < pThis->pXMLAttribute + pThis->iXMLAttributeCount + 1);
  assert(pThis->pszCurXMLStr <= pThis->pszXMLString + pThis->iXMLStrSize);
}

i32 Tree_Parse(TSXMLParser* pThis, std::string_view sText) {
  Tree_Drop(pThis);
  TNotePass tNotes;
  i32 iError = Tree_Note(pThis, sText, tNotes);
  if (iError == 0) iError = Tree_MakeRoom(pThis, sText, tNotes);
  if (iError == 0 && tNotes.bMismatch) iError = Scan_Error(SXML_ERROR_CLOSING_NAME);
  if (iError != 0) {
    Tree_Drop(pThis);
    return iError;
  }
  ConstructDOMCb(pThis, tNotes);
  return 0;
}
