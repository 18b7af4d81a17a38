// Fuzzes the table-driven reader: texts stay within their exact sizes, and what Expat refuses stores nothing.
#include "treereader.h"

#include <expat.h>

#include <cstring>
#include <memory>

#include "fuzz.h"

namespace {

constexpr const char* szPath = "/etc/conf.d/input.xml";

struct TKey {
  const char* pszKey;
  uintptr_t dwType;
  std::size_t dwSize;
};
constexpr TKey g_atKeys[] = {{"/root", TREEREADER_STRING, 8},        {"/root/a", TREEREADER_INTEGER, 4},
                             {"/root/a", TREEREADER_STRING, 5},      {"/root/a/b", TREEREADER_INTEGER, 4},
                             {"/root/a/ab", TREEREADER_STRING, 3},   {"/root/s", TREEREADER_STRING, 1},
                             {"/root/a/b/c", TREEREADER_STRING, 16}, {"/", TREEREADER_STRING, 4}};

bool IsSound(std::string_view sText) {
  const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> pParser(XML_ParserCreate(nullptr), XML_ParserFree);
  XML_UseParserAsHandlerArg(pParser.get());
  XML_SetStartDoctypeDeclHandler(
      pParser.get(), [](void* hParser, auto...) { XML_StopParser(static_cast<XML_Parser>(hParser), XML_FALSE); });
  return XML_Parse(pParser.get(), sText.data(), static_cast<int>(sText.size()), XML_TRUE) == XML_STATUS_OK;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* pbyInput, std::size_t dwInput) {
  const std::string_view sText = Input_Text(pbyInput, dwInput);
  Files_Put(szPath, sText);
  std::vector<std::unique_ptr<char[]>> aszDests;
  std::vector<TTreeRow> atRows;
  for (const TKey& tKey : g_atKeys) {
    aszDests.push_back(std::make_unique<char[]>(tKey.dwSize));
    std::memset(aszDests.back().get(), '!', tKey.dwSize);
    atRows.push_back({tKey.pszKey, tKey.dwType, tKey.dwSize, aszDests.back().get(), 0});
  }
  atRows.push_back({});

  const i32 iResult = TreeReader_ReadAll(szPath, atRows.data());
  Check(iResult == -3 || (IsSound(sText) ? iResult == 0 : iResult > 0), "sound documents are read, others refused");
  for (std::size_t dw = 0; dw < aszDests.size(); dw++) {
    const std::string_view sDest(aszDests[dw].get(), g_atKeys[dw].dwSize);
    const bool bUntouched = sDest.find_first_not_of('!') == std::string_view::npos;
    Check(bUntouched || iResult == 0, "a refused document stores nothing");
    if (bUntouched || g_atKeys[dw].dwType == TREEREADER_INTEGER) continue;
    const std::string_view sStored = sDest.substr(0, sDest.find('\0'));
    Check(sStored.size() < sDest.size(), "a string ends within its size");
    Check(sStored.empty() || Words(sStored.front() + std::string("x") + sStored.back()).front().size() == 3, "trimmed");
  }
  return 0;
}
