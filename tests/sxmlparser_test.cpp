// The XML reader: trees, lookups, events, files, and what it refuses.
#include "sxmlparser/sxmlparser.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>

namespace {

struct TRelease {
  void operator()(TSXMLParser* hParser) const { SXMLParser_Release(&hParser); }
};
using TParser = std::unique_ptr<TSXMLParser, TRelease>;

TParser NewParser() {
  HSXMLParser hParser = nullptr;
  EXPECT_EQ(SXMLParser_Initial(&hParser), 0);
  return TParser(hParser);
}

// Parses a heap copy of exact size, so that a sanitizer sees a read past the text.
i32 Parse(const TParser& tParser, const std::string& sText, i32 iMode = SXML_MODE_TREE) {
  const auto pszText = std::make_unique<char[]>(sText.size() + 1);
  std::memcpy(pszText.get(), sText.c_str(), sText.size() + 1);
  return SXMLParser_ProcessBuffer(tParser.get(), pszText.get(), iMode);
}

// name@attribute=value[text](children), each child followed by a blank.
std::string DumpElement(const TXMLElement* ptElement) {
  std::string sDump = ptElement->pszName;
  for (i32 i = 0; i < ptElement->iAttributeCount; ++i) {
    const TXMLAttribute& tAttribute = ptElement->ptFirstAttribute[i];
    sDump.append("@").append(tAttribute.pszName).append("=").append(tAttribute.pszValue);
  }
  if (*ptElement->pszXMLText != '\0') sDump.append("[").append(ptElement->pszXMLText).append("]");
  i32 iChildren = 0;
  for (auto* ptChild = ptElement->ptFirstChild; ptChild != nullptr; ptChild = ptChild->ptNextSibling, ++iChildren) {
    EXPECT_EQ(ptChild->ptParent, ptElement);
    sDump.append(iChildren == 0 ? "(" : "").append(DumpElement(ptChild)).append(" ");
  }
  EXPECT_EQ(iChildren, ptElement->iChildCount);
  return sDump.append(iChildren > 0 ? ")" : "");
}

// The elements at top level.  The walk must give every element, in the order of the numbers.
std::string Dump(const TParser& tParser) {
  std::string sDump;
  i32 iIndex = 0, iAttributes = 0;
  for (auto* pt = SXMLParser_GetFirstElement(tParser.get()); pt; pt = SXMLParser_GetNextElement(tParser.get())) {
    EXPECT_EQ(pt->iIndex, ++iIndex);
    EXPECT_EQ(SXMLParser_GetElementByIndex(tParser.get(), iIndex), pt);
    iAttributes += pt->iAttributeCount;
    if (pt->ptParent == nullptr) sDump.append(sDump.empty() ? "" : " ").append(DumpElement(pt));
  }
  EXPECT_EQ(iIndex, SXMLParser_GetElementCount(tParser.get()));
  EXPECT_EQ(iAttributes, SXMLParser_GetAttributeCount(tParser.get()));
  EXPECT_EQ(SXMLParser_GetNextElement(tParser.get()), nullptr);
  return sDump;
}

struct TDocument {
  const char* pszText;
  u32 dwResult;
  const char* pszTree = "";
};

constexpr TDocument g_atDocuments[] = {
    {"", 0},
    {"<a></a>", 0, "a"},
    {"<a>x<b/>y</a>", 0, "a(b )"},
    {"<a>x<!-- c -->y</a>", 0, "a[y]"},
    {"text<a/><b/>", 0, "a b"},
    {"<a>&lt;\x80\xff\n]]></a>", 0, "a[&lt;\x80\xff\n]]>]"},
    {"<_a-b.c:d9 \t></_a-b.c:d9\t>", 0, "_a-b.c:d9"},
    {"<a><b></></>", 0, "a(b )"},
    {"<ab></abc>", SXML_ERROR_CLOSING_NAME},
    {"<longer.than.a.word></longer.than.a.wort>", SXML_ERROR_CLOSING_NAME},
    {"<abc></ab>", 0, "abc"},
    {"<a></b><1", SXML_ERROR_TAG_START},  // the whole text is walked before names are compared
    {"</a>", SXML_ERROR_NESTING},
    {"<a>", SXML_ERROR_NESTING},
    {"<a b='1'c=\"'\"d = ''/>", 0, "a@b=1@c='@d="},
    {"<a b='<c>/>'>x</a>", 0, "a@b=<c>/>[x]"},
    {"<a b='1'><c d='2' e='3'/><c f='4'/><d><e/></d></a>", 0, "a@b=1(c@d=2@e=3 c@f=4 d(e ) )"},
    {"<a _b='1'/>", SXML_ERROR_TAG_END},
    {"<a\xe4/>", SXML_ERROR_TAG_END},
    {"<a b='1'", SXML_ERROR_TAG_END},
    {"<a></a b>", SXML_ERROR_TAG_END},
    {"<a b\n='1'/>", SXML_ERROR_EQUALS},
    {"<a b=\n'1'/>", SXML_ERROR_VALUE},
    {"<a b='1/>", SXML_ERROR_VALUE},
    {"<a b= ", SXML_ERROR_NESTING},  // the end of the text where a value may start is no error
    {"< a/>", SXML_ERROR_TAG_START},
    {"<!DOCTYPE x><a/>", SXML_ERROR_TAG_START},
    {"<a><![CDATA[x]]></a>", SXML_ERROR_TAG_START},
    {"<?xml version='1.0'?><a/>", 0, "a"},
    {"<a/><!-- <b> -->", SXML_ERROR_COMMENT},
    {"<a/><!-- <b> -->\n", 0, "a"},
    {"<a/><!-- -- >", SXML_ERROR_COMMENT},
    {"<a/><?p?>", SXML_ERROR_INSTRUCTION},
    {"<a/><!--", 0, "a"},
    {"<a/><", 0, "a"},
    {"text</", 0},  // has a text event without an element
};

// Parses every document with a new handle, and with one handle for all: what the last one left must not matter.
TEST(SXMLParser, TreeOrCode) {
  const TParser tShared = NewParser();
  for (const TDocument& t : g_atDocuments) {
    SCOPED_TRACE(t.pszText);
    const TParser tOwn = NewParser();
    for (const TParser* ptParser : {&tOwn, &tShared}) {
      EXPECT_EQ(static_cast<u32>(Parse(*ptParser, t.pszText)), t.dwResult);
      EXPECT_EQ(Dump(*ptParser), t.pszTree);
      EXPECT_EQ(SXMLParser_GetElementText(ptParser->get(), "no such", nullptr), nullptr);
    }
  }
}

TEST(SXMLParser, Lookups) {
  const TParser tParser = NewParser();
  const HSXMLParser h = tParser.get();
  EXPECT_EQ(SXMLParser_GetElementText(h, "r", nullptr), nullptr);  // nothing parsed yet
  ASSERT_EQ(Parse(tParser, "<r><a k='0'/><a><b>1</b></a><c k='1' l='2' k='3'><b>4</b></c></r><s/>"), 0);
  EXPECT_STREQ(SXMLParser_GetElementText(h, "r", "c", "b", nullptr), "4");
  EXPECT_STREQ(SXMLParser_GetElementText(h, "r", "a", nullptr), "");
  EXPECT_EQ(SXMLParser_GetElementText(h, "r", "a", "b", nullptr), nullptr);  // only the first "a" is seen
  EXPECT_EQ(SXMLParser_GetElementText(h, "s", nullptr), nullptr);
  EXPECT_EQ(SXMLParser_GetElementText(h, nullptr), nullptr);
  EXPECT_EQ(SXMLParser_GetElement(h, "r", "c", nullptr), SXMLParser_GetElementByIndex(h, 5));
  EXPECT_EQ(SXMLParser_GetElementIndex(h, "r", "c", "b", nullptr), 6);
  EXPECT_STREQ(SXMLParser_GetAttributeValue(h, "k", "r", "c", nullptr), "1");
  EXPECT_EQ(SXMLParser_GetAttributeIndex(h, "l", "r", "c", nullptr), 3);
  EXPECT_EQ(SXMLParser_GetAttributeIndex(h, "l", "r", "a", nullptr), 0);
  EXPECT_EQ(SXMLParser_GetAttributeValue(h, nullptr, "r", "c", nullptr), nullptr);
  EXPECT_STREQ(SXMLParser_GetElementTextByIndex(h, 4), "1");
  EXPECT_STREQ(SXMLParser_GetAttributeValueByIndex(h, 4), "3");
  for (const i32 iOutside : {-1, 0, 8}) {
    EXPECT_EQ(SXMLParser_GetElementByIndex(h, iOutside), nullptr);
    EXPECT_EQ(SXMLParser_GetElementTextByIndex(h, iOutside), nullptr);
    EXPECT_EQ(SXMLParser_GetAttributeValueByIndex(h, iOutside), nullptr);
  }
}

TEST(SXMLParser, BlockIsReusedAndErrorsLeaveNoTree) {
  const TParser tParser = NewParser();
  ASSERT_EQ(Parse(tParser, "<first><a>some longer text</a><b/></first>"), 0);
  const void* pvName = SXMLParser_GetElementByIndex(tParser.get(), 1)->pszName;
  ASSERT_EQ(Parse(tParser, "<r>2</r>"), 0);
  EXPECT_EQ(SXMLParser_GetElementByIndex(tParser.get(), 1)->pszName, pvName);  // the block starts with the strings
  EXPECT_EQ(Parse(tParser, "<x>", 3), 0);
  EXPECT_EQ(Parse(tParser, "<x>", SXML_MODE_EVENTS), -1);  // not allowed by dwMode
  EXPECT_EQ(Dump(tParser), "r[2]");
  EXPECT_EQ(SXMLParser_ProcessBuffer(tParser.get(), nullptr, SXML_MODE_TREE), -1);
  EXPECT_EQ(Dump(tParser), "");
}

// The records of 34 million elements exceed 2^31 bytes on a 64-bit machine, which only 64-bit arithmetic sees.
TEST(SXMLParser, RefusesBlocksBeyondASignedWord) {
  const TParser tParser = NewParser();
  std::string sText(4 * ((sizeof(void*) == 8 ? 34 : 56) << 20), '>');
  for (size_t dw = 0; dw < sText.size(); dw += 4) std::memcpy(&sText[dw], "<a/>", 4);
  EXPECT_EQ(static_cast<u32>(SXMLParser_ProcessBuffer(tParser.get(), sText.c_str(), 1)), SXML_ERROR_NO_MEMORY);
  EXPECT_EQ(Parse(tParser, "<a/>"), 0);
}

void Add(void* pvLog, const char* pszKind, std::initializer_list<std::pair<const char*, i32>> atParts) {
  std::string& sLog = *static_cast<std::string*>(pvLog);
  sLog += pszKind;
  for (const auto& [psz, iLength] : atParts) {
    sLog.append(":").append(psz == nullptr ? "null" : std::string(psz, static_cast<size_t>(iLength)));
  }
}

TEST(SXMLParser, Events) {
  const TParser tParser = NewParser();
  std::string sLog;
  TSXMLOption tOption{};
  tOption.dwFlags = SXML_OPTION_MODE | SXML_OPTION_CALLBACKS;
  tOption.dwMode = 1;
  tOption.pfnStartElement = [](void* pv, const char* psz, i32 i) { Add(pv, " start", {{psz, i}}); };
  tOption.pfnEndElement = [](void* pv, const char* psz, i32 i) { Add(pv, " end", {{psz, i}}); };
  tOption.pfnAttribute = [](void* pv, const char* psz, i32 i, const char* pszName, i32 iName, const char* pszValue,
                            i32 iValue) {
    Add(pv, " attr", {{psz, i}, {pszName, iName}, {pszValue, iValue}});
  };
  tOption.pfnText = [](void* pv, const char* psz, i32 i, const char* pszText, i32 iText) {
    Add(pv, " text", {{psz, i}, {pszText, iText}});
  };
  tOption.pvUserData = &sLog;
  EXPECT_EQ(SXMLParser_SetOption(tParser.get(), &tOption), 0);
  EXPECT_EQ(Parse(tParser, "</z><a b='1'>x<b/>y</a><c>t</d><e>", SXML_MODE_EVENTS), 0);
  EXPECT_EQ(sLog, " text:: end:z start:a attr:a:b:1 start:b text:b:null end:b end:a start:c text:c:t end:d start:e");
}

TEST(SXMLParser, Files) {
  const TParser tParser = NewParser();
  const std::string sPath = ::testing::TempDir() + "sxmlparser_test." + std::to_string(getpid());
  const std::pair<std::string, const char*> atFiles[] = {
      {"<a>1</a>", "a[1]"}, {"", ""}, {std::string("<a>2</a>\0<b>", 12), "a[2]"}};
  for (const auto& [sText, pszTree] : atFiles) {
    std::ofstream(sPath, std::ios::binary) << sText;
    EXPECT_EQ(SXMLParser_Process(tParser.get(), sPath.c_str(), SXML_MODE_TREE), 0);
    EXPECT_EQ(Dump(tParser), pszTree);
  }
  std::remove(sPath.c_str());
  int afdPipe[2];
  ASSERT_EQ(pipe(afdPipe), 0);
  for (const std::string& sRefused : {sPath, std::string("/"), "/dev/fd/" + std::to_string(afdPipe[0])}) {
    EXPECT_EQ(SXMLParser_Process(tParser.get(), sRefused.c_str(), SXML_MODE_TREE), -1) << sRefused;
    EXPECT_EQ(SXMLParser_GetElementCount(tParser.get()), 0) << "the last document's values stay";
  }
}

}  // namespace
