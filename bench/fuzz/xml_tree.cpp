// Fuzzes the XML reader.  The tree lies within its block, a used handle gives the same as a new one, and the events say
// the same as the tree.  Where both accept the document, the tree is that of Expat; documents with entities or carriage
// returns, which Expat replaces, are not compared.
#include <expat.h>

#include <cstring>
#include <memory>

#include "fuzz.h"
#include "sxmlparser/sxml_tree.h"
#include "sxmlparser/sxmlparser.h"

namespace {

// A document as a text.  An element is "(name", its attributes "@name=value", its children or else "[text", and ")".
// White space in a value becomes a blank, as Expat does it.
struct TDump {
  std::string sDump;
  std::string sText;
  bool bLeaf = false;
};

void Dump_Start(TDump& t, std::string_view sName) {
  t.sDump.append("(").append(sName);
  t.sText.clear();
  t.bLeaf = true;
}

void Dump_Attribute(TDump& t, std::string_view sName, std::string_view sValue) {
  t.sDump.append("@").append(sName).append("=");
  for (const char c : sValue) t.sDump += c == '\t' || c == '\n' ? ' ' : c;
}

void Dump_End(TDump& t) {
  if (t.bLeaf) t.sDump.append("[").append(t.sText);
  t.sDump += ")";
  t.bLeaf = false;
}

bool IsString(const TSXMLParser& t, const char* psz) {
  return psz >= t.pszXMLString && psz + std::strlen(psz) < t.pszXMLString + t.iXMLStrSize;
}

void DumpElement(TDump& tDump, const TSXMLParser& t, const TXMLElement* pt) {
  Check(pt == t.pXMLElement + pt->iIndex && IsString(t, pt->pszName), "an element lies at its number");
  Check(*pt->pszXMLText == '\0' || IsString(t, pt->pszXMLText), "a text lies among the strings");
  Dump_Start(tDump, pt->pszName);
  for (i32 i = 0; i < pt->iAttributeCount; i++) {
    const TXMLAttribute& tAttribute = pt->ptFirstAttribute[i];
    Check(&tAttribute == t.pXMLAttribute + tAttribute.iIndex, "an attribute lies at its number");
    Check(IsString(t, tAttribute.pszName) && IsString(t, tAttribute.pszValue), "its texts lie among the strings");
    Dump_Attribute(tDump, tAttribute.pszName, tAttribute.pszValue);
  }
  i32 iChildren = 0;
  for (auto* ptChild = pt->ptFirstChild; ptChild != nullptr; ptChild = ptChild->ptNextSibling, iChildren++) {
    Check(ptChild->ptParent == pt, "a child knows its parent");
    DumpElement(tDump, t, ptChild);
  }
  Check(iChildren == pt->iChildCount, "children are counted");
  if (iChildren == 0) tDump.sText = pt->pszXMLText;
  Dump_End(tDump);
}

std::string DumpTree(HSXMLParser hParser) {
  const TSXMLParser& t = *hParser;
  TDump tDump;
  i32 iElements = 0, iAttributes = 0;
  for (auto* pt = SXMLParser_GetFirstElement(hParser); pt; pt = SXMLParser_GetNextElement(hParser), iElements++) {
    if (pt->ptParent == nullptr) {
      Check(pt->ptNextSibling == nullptr, "an element at top level has no sibling");
      DumpElement(tDump, t, pt);
    }
    iAttributes += pt->iAttributeCount;
  }
  Check(iElements == t.iXMLElementCount && iAttributes == t.iXMLAttributeCount, "the walk meets every element");
  const char* pcBlock = static_cast<const char*>(t.pvBlock);
  Check(reinterpret_cast<const char*>(t.ppXMLStack + t.iXMLStackSize) <= pcBlock + t.iBlockSize, "the block holds all");
  const TXMLElement* ptRoot = SXMLParser_GetElementByIndex(hParser, 1);
  const TXMLElement* ptChild = ptRoot == nullptr ? nullptr : ptRoot->ptFirstChild;
  if (ptChild == nullptr) return tDump.sDump;
  const char* pszText = SXMLParser_GetElementText(hParser, ptRoot->pszName, ptChild->pszName, nullptr);
  Check(pszText == ptChild->pszXMLText, "a child is found by its path");
  return tDump.sDump;
}

// Parses a copy of exact size, so that a sanitizer sees a read past the NUL.
i32 Process(HSXMLParser hParser, const std::string& sText, i32 iMode) {
  const auto pszText = std::make_unique<char[]>(sText.size() + 1);
  std::memcpy(pszText.get(), sText.c_str(), sText.size() + 1);
  return SXMLParser_ProcessBuffer(hParser, pszText.get(), iMode);
}

std::string_view View(const char* pszText, i32 iLength) {
  return {pszText, static_cast<std::size_t>(iLength)};
}

i32 RunEvents(HSXMLParser hParser, const std::string& sText, TDump& tDump) {
  TSXMLOption tOption = {};
  tOption.dwFlags = SXML_OPTION_MODE | SXML_OPTION_CALLBACKS;
  tOption.dwMode = 1;
  tOption.pvUserData = &tDump;
  tOption.pfnStartElement = [](void* pvDump, const char* pszElement, i32 iElement) {
    Dump_Start(*static_cast<TDump*>(pvDump), View(pszElement, iElement));
  };
  tOption.pfnAttribute = [](void* pvDump, const char*, i32, const char* pszName, i32 iName, const char* pszValue,
                            i32 iValue) {
    Dump_Attribute(*static_cast<TDump*>(pvDump), View(pszName, iName), View(pszValue, iValue));
  };
  tOption.pfnText = [](void* pvDump, const char*, i32, const char* pszText, i32 iText) {
    static_cast<TDump*>(pvDump)->sText = View(pszText, iText);
  };
  tOption.pfnEndElement = [](void* pvDump, const char*, i32) { Dump_End(*static_cast<TDump*>(pvDump)); };
  SXMLParser_SetOption(hParser, &tOption);
  return Process(hParser, sText, SXML_MODE_EVENTS);
}

bool RunExpat(const std::string& sText, TDump& tDump) {
  const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> pParser(XML_ParserCreate("UTF-8"), XML_ParserFree);
  XML_SetUserData(pParser.get(), &tDump);
  const auto Start = [](void* pvDump, const char* pszName, const char** apszAttributes) {
    Dump_Start(*static_cast<TDump*>(pvDump), pszName);
    for (; *apszAttributes != nullptr; apszAttributes += 2) {
      Dump_Attribute(*static_cast<TDump*>(pvDump), apszAttributes[0], apszAttributes[1]);
    }
  };
  XML_SetElementHandler(pParser.get(), Start,
                        [](void* pvDump, const char*) { Dump_End(*static_cast<TDump*>(pvDump)); });
  XML_SetCharacterDataHandler(pParser.get(), [](void* pvDump, const char* pszText, int iText) {
    static_cast<TDump*>(pvDump)->sText.append(View(pszText, iText));
  });
  XML_SetCommentHandler(pParser.get(), [](void* pvDump, const char*) { static_cast<TDump*>(pvDump)->sText.clear(); });
  XML_SetProcessingInstructionHandler(
      pParser.get(), [](void* pvDump, const char*, const char*) { static_cast<TDump*>(pvDump)->sText.clear(); });
  return XML_Parse(pParser.get(), sText.data(), static_cast<int>(sText.size()), XML_TRUE) == XML_STATUS_OK;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* pbyInput, std::size_t dwInput) {
  static HSXMLParser hUsed = nullptr;
  if (hUsed == nullptr) SXMLParser_Initial(&hUsed);
  HSXMLParser hNew = nullptr;
  SXMLParser_Initial(&hNew);
  const std::string sText(std::string(Input_Text(pbyInput, dwInput)).c_str());

  const i32 iResult = Process(hNew, sText, SXML_MODE_TREE);
  const u32 dwResult = static_cast<u32>(iResult);
  const bool bKnown = dwResult >= SXML_ERROR_CLOSING_NAME && dwResult <= SXML_ERROR_NESTING;
  Check(dwResult == 0 || (bKnown && dwResult != SXML_ERROR_STACK_FULL), "a known result");
  const std::string sTree = DumpTree(hNew);
  Check(iResult == 0 || sTree.empty(), "a refused document leaves no tree");
  Check(Process(hUsed, sText, SXML_MODE_TREE) == iResult && DumpTree(hUsed) == sTree, "a used handle is like new");

  TDump tEvents;
  const i32 iEvents = RunEvents(hUsed, sText, tEvents);
  Check(DumpTree(hUsed) == sTree, "events leave the tree alone");
  Check(iResult != 0 || (iEvents == 0 && tEvents.sDump == sTree), "the events are those of the tree");

  TDump tExpat;
  const bool bCompared = iResult == 0 && sText.find_first_of("&\r") == std::string::npos;
  if (bCompared && RunExpat(sText, tExpat)) Check(tExpat.sDump == sTree, "the tree is that of Expat");
  SXMLParser_Release(&hNew);
  return 0;
}
