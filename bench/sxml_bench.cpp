// Measures how fast the XML reader turns a text into its tree, and general XML libraries on the same text.
//
//   sxml_bench [directory of .xml files] [Google Benchmark options]
//
// Every reader has its default settings and keeps its object from document to document, as the daemon keeps its handle.
// Whether it reuses its memory is its own choice.  rapidxml writes into its text, so its time includes a copy of the
// text; pugixml makes one itself.  rapidxml is compiled here like ours; the others are as their packages were built.
// The last table gives the median time of each peer as a multiple of ours.  Repetitions of all readers are interleaved.
#include <benchmark/benchmark.h>
#include <expat.h>
#include <malloc.h>
#include <tinyxml2.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <pugixml.hpp>
#include <rapidxml/rapidxml.hpp>
#include <string>
#include <vector>

#include "sxml_documents.h"
#include "sxmlparser/sxmlparser.h"

using FReader = void (*)(benchmark::State&, const std::string&);

static void Require(benchmark::State& tState, bool bParsed) {
  if (!bParsed) tState.SkipWithError("refused the document");
}

static void Read_SXMLParser(benchmark::State& tState, const std::string& sText) {
  HSXMLParser hParser = nullptr;
  if (SXMLParser_Initial(&hParser) != 0) std::abort();
  for (auto _ : tState) Require(tState, SXMLParser_ProcessBuffer(hParser, sText.c_str(), SXML_MODE_TREE) == 0);
  SXMLParser_Release(&hParser);
}

static void Read_SXMLParserNew(benchmark::State& tState, const std::string& sText) {
  for (auto _ : tState) {
    HSXMLParser hParser = nullptr;
    if (SXMLParser_Initial(&hParser) != 0) std::abort();
    Require(tState, SXMLParser_ProcessBuffer(hParser, sText.c_str(), SXML_MODE_TREE) == 0);
    SXMLParser_Release(&hParser);
  }
}

static void Read_Pugixml(benchmark::State& tState, const std::string& sText) {
  pugi::xml_document tDocument;
  for (auto _ : tState) Require(tState, bool{tDocument.load_buffer(sText.data(), sText.size())});
}

static void Read_Rapidxml(benchmark::State& tState, const std::string& sText) {
  rapidxml::xml_document<> tDocument;
  std::vector<char> acCopy(sText.size() + 1);
  for (auto _ : tState) {
    std::memcpy(acCopy.data(), sText.c_str(), acCopy.size());
    tDocument.clear();
    tDocument.parse<0>(acCopy.data());
    benchmark::DoNotOptimize(tDocument.first_node());
  }
}

static void Read_Tinyxml2(benchmark::State& tState, const std::string& sText) {
  tinyxml2::XMLDocument tDocument;
  for (auto _ : tState) Require(tState, tDocument.Parse(sText.data(), sText.size()) == tinyxml2::XML_SUCCESS);
}

// Expat builds no tree: its handlers do nothing here.
static void Read_Expat(benchmark::State& tState, const std::string& sText) {
  const XML_Parser tParser = XML_ParserCreate(nullptr);
  for (auto _ : tState) {
    XML_ParserReset(tParser, nullptr);
    XML_SetElementHandler(
        tParser, [](void*, const XML_Char*, const XML_Char**) {}, [](void*, const XML_Char*) {});
    XML_SetCharacterDataHandler(tParser, [](void*, const XML_Char*, int) {});
    Require(tState, XML_Parse(tParser, sText.data(), static_cast<int>(sText.size()), 1) == XML_STATUS_OK);
  }
  XML_ParserFree(tParser);
}

struct TReader {
  const char* pszName;
  FReader pfnRead;
};

// The others are compared with the first.
constexpr TReader g_atReaders[] = {
    {"sxmlparser", Read_SXMLParser}, {"sxmlparser new handle", Read_SXMLParserNew},
    {"pugixml", Read_Pugixml},       {"rapidxml", Read_Rapidxml},
    {"tinyxml2", Read_Tinyxml2},     {"expat", Read_Expat},
};

// Prints as usual and keeps the median of each run for the table of ratios.
class TMedianReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& atRuns) override {
    ConsoleReporter::ReportRuns(atRuns);
    for (const Run& tRun : atRuns) {
      if (tRun.aggregate_name == "median") mapMedians_us[tRun.run_name.function_name] = tRun.GetAdjustedCPUTime();
    }
  }

  std::map<std::string, double> mapMedians_us;  // by "document/reader"
};

static std::string Run_Name(const TXMLDocument& tDocument, const TReader& tReader) {
  return tDocument.sName + "/" + tReader.pszName;
}

static void Register(const std::vector<TXMLDocument>& atDocuments) {
  for (const TXMLDocument& tDocument : atDocuments) {
    for (const TReader& tReader : g_atReaders) {
      benchmark::RegisterBenchmark(Run_Name(tDocument, tReader).c_str(), [&tDocument,
                                                                          &tReader](benchmark::State& tState) {
        tReader.pfnRead(tState, tDocument.sText);
        tState.SetBytesProcessed(tState.iterations() * static_cast<std::int64_t>(tDocument.sText.size()));
      })->Unit(benchmark::kMicrosecond);
    }
  }
}

static void PrintRatios(const std::vector<TXMLDocument>& atDocuments, std::map<std::string, double>& mapMedians_us) {
  for (const TXMLDocument& tDocument : atDocuments) {
    const double dOurs = mapMedians_us[Run_Name(tDocument, g_atReaders[0])];
    if (dOurs == 0) continue;  // filtered out
    std::printf("%s, %zu bytes: %.1f us, %.0f MB/s;", tDocument.sName.c_str(), tDocument.sText.size(), dOurs,
                static_cast<double>(tDocument.sText.size()) / dOurs);
    for (const TReader& tReader : g_atReaders) {
      const double dPeer = mapMedians_us[Run_Name(tDocument, tReader)];
      if (&tReader != g_atReaders) std::printf("  %s x%.2f", tReader.pszName, dPeer / dOurs);
    }
    std::printf("\n");
  }
}

// Keeps freed memory in the process.  By default a reader that frees its memory may pay a page fault for each page of
// the next document, which takes up to twenty times as long.  Whether it does would depend on what ran before.
static void Malloc_KeepMemory() {
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
}

int main(int iCount, char** apszArgs) {
  Malloc_KeepMemory();
  std::vector<std::string> asArguments = {apszArgs[0], "--benchmark_repetitions=15",
                                          "--benchmark_enable_random_interleaving=true",
                                          "--benchmark_display_aggregates_only=true", "--benchmark_min_time=0.1"};
  std::vector<TXMLDocument> atDocuments = Documents_Small();
  for (int i = 1; i < iCount; ++i) {
    if (apszArgs[i][0] == '-') {
      asArguments.emplace_back(apszArgs[i]);
    } else {
      for (TXMLDocument& tDocument : Documents_Load(apszArgs[i])) atDocuments.push_back(std::move(tDocument));
    }
  }
  for (TXMLDocument& tDocument : Documents_Large(4 << 20)) atDocuments.push_back(std::move(tDocument));

  std::vector<char*> apszArguments;
  for (std::string& sArgument : asArguments) apszArguments.push_back(sArgument.data());
  int iArguments = static_cast<int>(apszArguments.size());
  benchmark::Initialize(&iArguments, apszArguments.data());
  if (benchmark::ReportUnrecognizedArguments(iArguments, apszArguments.data())) return 1;
  Register(atDocuments);
  TMedianReporter tReporter;
  benchmark::RunSpecifiedBenchmarks(&tReporter);
  PrintRatios(atDocuments, tReporter.mapMedians_us);
}
