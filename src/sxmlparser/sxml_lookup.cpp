#include <cstdarg>
#include <cstring>

#include "sxmlparser/sxml_tree.h"
#include "sxmlparser/sxmlparser.h"

static const TXMLElement* Lookup_Element(const TSXMLParser* pThis, i32 iIndex) {
  if (pThis == nullptr || iIndex <= 0 || iIndex > pThis->iXMLElementCount) return nullptr;
  return &pThis->pXMLElement[iIndex];
}

static const TXMLElement* Lookup_Sibling(const TXMLElement* ptFrom, const char* pszName) {
  while (ptFrom != nullptr && std::strcmp(ptFrom->pszName, pszName) != 0) ptFrom = ptFrom->ptNextSibling;
  return ptFrom;
}

// Goes down the tree by the names in vaNames, up to their null.  Of siblings with one name only the first is tried.
static const TXMLElement* Lookup_Path(const TSXMLParser* pThis, va_list vaNames) {
  const TXMLElement* ptFound = nullptr;
  const TXMLElement* ptCandidate = Lookup_Element(pThis, 1);
  while (const char* const pszName = va_arg(vaNames, const char*)) {
    ptFound = Lookup_Sibling(ptCandidate, pszName);
    if (ptFound == nullptr) return nullptr;
    ptCandidate = ptFound->ptFirstChild;
  }
  return ptFound;
}

static const TXMLAttribute* Lookup_Attribute(const TXMLElement* ptElement, const char* pszName) {
  if (ptElement == nullptr || pszName == nullptr) return nullptr;
  for (i32 i = 0; i < ptElement->iAttributeCount; ++i) {
    const TXMLAttribute* const ptAttribute = &ptElement->ptFirstAttribute[i];
    if (std::strcmp(ptAttribute->pszName, pszName) == 0) return ptAttribute;
  }
  return nullptr;
}

const char* SXMLParser_GetElementText(HSXMLParser hParser, ...) {
  va_list vaNames;
  va_start(vaNames, hParser);
  const TXMLElement* const ptElement = Lookup_Path(hParser, vaNames);
  va_end(vaNames);
  return ptElement == nullptr ? nullptr : ptElement->pszXMLText;
}

const TXMLElement* SXMLParser_GetElement(HSXMLParser hParser, ...) {
  va_list vaNames;
  va_start(vaNames, hParser);
  const TXMLElement* const ptElement = Lookup_Path(hParser, vaNames);
  va_end(vaNames);
  return ptElement;
}

i32 SXMLParser_GetElementIndex(HSXMLParser hParser, ...) {
  va_list vaNames;
  va_start(vaNames, hParser);
  const TXMLElement* const ptElement = Lookup_Path(hParser, vaNames);
  va_end(vaNames);
  return ptElement == nullptr ? 0 : ptElement->iIndex;
}

const char* SXMLParser_GetAttributeValue(HSXMLParser hParser, const char* pszAttribute, ...) {
  va_list vaNames;
  va_start(vaNames, pszAttribute);
  const TXMLAttribute* const ptAttribute = Lookup_Attribute(Lookup_Path(hParser, vaNames), pszAttribute);
  va_end(vaNames);
  return ptAttribute == nullptr ? nullptr : ptAttribute->pszValue;
}

i32 SXMLParser_GetAttributeIndex(HSXMLParser hParser, const char* pszAttribute, ...) {
  va_list vaNames;
  va_start(vaNames, pszAttribute);
  const TXMLAttribute* const ptAttribute = Lookup_Attribute(Lookup_Path(hParser, vaNames), pszAttribute);
  va_end(vaNames);
  return ptAttribute == nullptr ? 0 : ptAttribute->iIndex;
}

const TXMLElement* SXMLParser_GetFirstElement(HSXMLParser hParser) {
  if (hParser == nullptr) return nullptr;
  hParser->iElementIndex = 1;
  return Lookup_Element(hParser, 1);
}

const TXMLElement* SXMLParser_GetNextElement(HSXMLParser hParser) {
  if (hParser == nullptr) return nullptr;
  if (hParser->iElementIndex <= hParser->iXMLElementCount) ++hParser->iElementIndex;  // stops one past the last
  return Lookup_Element(hParser, hParser->iElementIndex);
}

const TXMLElement* SXMLParser_GetElementByIndex(HSXMLParser hParser, i32 iIndex) {
  return Lookup_Element(hParser, iIndex);
}

const char* SXMLParser_GetElementTextByIndex(HSXMLParser hParser, i32 iIndex) {
  const TXMLElement* const ptElement = Lookup_Element(hParser, iIndex);
  return ptElement == nullptr ? nullptr : ptElement->pszXMLText;
}

const char* SXMLParser_GetAttributeValueByIndex(HSXMLParser hParser, i32 iIndex) {
  if (hParser == nullptr || iIndex <= 0 || iIndex > hParser->iXMLAttributeCount) return nullptr;
  return hParser->pXMLAttribute[iIndex].pszValue;
}

i32 SXMLParser_GetElementCount(HSXMLParser hParser) {
  return hParser == nullptr ? 0 : hParser->iXMLElementCount;
}

i32 SXMLParser_GetAttributeCount(HSXMLParser hParser) {
  return hParser == nullptr ? 0 : hParser->iXMLAttributeCount;
}
