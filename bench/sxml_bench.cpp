// How fast the XML reader turns a text into its tree, beside general XML libraries on the same text.
//
//   sxml_bench [directory of .xml files] [Google Benchmark options]
//
// Every reader has its default settings and keeps its object from document to document, as the daemon keeps its handle;
// it reuses its memory or gives it back as it likes.  rapidxml writes into its text, so the copy it needs is part of
// its time; pugixml makes one itself.  rapidxml is compiled here like ours, the others come as their packages were
// built. The last table gives the median time of each peer as a multiple of ours; repetitions of all readers are
// interleaved.
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

static void Require(benchmark::State& tState, bool fParsed) {
  if (!fParsed) tState.SkipWithError("refused the document");
}

static void Read_SXMLParser(benchmark::State& tState, const std::string& strText) {
  HSXMLParser hParser = nullptr;
  if (SXMLParser_Initial(&hParser) != 0) std::abort();
  for (auto _ : tState) Require(tState, SXMLParser_ProcessBuffer(hParser, strText.c_str(), SXML_MODE_TREE) == 0);
  SXMLParser_Release(&hParser);
}

static void Read_SXMLParserNew(benchmark::State& tState, const std::string& strText) {
  for (auto _ : tState) {
    HSXMLParser hParser = nullptr;
    if (SXMLParser_Initial(&hParser) != 0) std::abort();
    Require(tState, SXMLParser_ProcessBuffer(hParser, strText.c_str(), SXML_MODE_TREE) == 0);
    SXMLParser_Release(&hParser);
  }
}

static void Read_Pugixml(benchmark::State& tState, const std::string& strText) {
  pugi::xml_document tDocument;
  for (auto _ : tState) Require(tState, bool{tDocument.load_buffer(strText.data(), strText.size())});
}

static void Read_Rapidxml(benchmark::State& tState, const std::string& strText) {
  rapidxml::xml_document<> tDocument;
  std::vector<char> acCopy(strText.size() + 1);
  for (auto _ : tState) {
    std::memcpy(acCopy.data(), strText.c_str(), acCopy.size());
    tDocument.clear();
    tDocument.parse<0>(acCopy.data());
    benchmark::DoNotOptimize(tDocument.first_node());
  }
}

static void Read_Tinyxml2(benchmark::State& tState, const std::string& strText) {
  tinyxml2::XMLDocument tDocument;
  for (auto _ : tState) Require(tState, tDocument.Parse(strText.data(), strText.size()) == tinyxml2::XML_SUCCESS);
}

// Builds no tree: its handlers do nothing.
static void Read_Expat(benchmark::State& tState, const std::string& strText) {
  const XML_Parser tParser = XML_ParserCreate(nullptr);
  for (auto _ : tState) {
    XML_ParserReset(tParser, nullptr);
    XML_SetElementHandler(
        tParser, [](void*, const XML_Char*, const XML_Char**) {}, [](void*, const XML_Char*) {});
    XML_SetCharacterDataHandler(tParser, [](void*, const XML_Char*, int) {});
    Require(tState, XML_Parse(tParser, strText.data(), static_cast<int>(strText.size()), 1) == XML_STATUS_OK);
  }
  XML_ParserFree(tParser);
}

struct TReader {
  const char* pszName;
  FReader pfnRead;
};

// The first is what the others are measured by.
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
      if (tRun.aggregate_name == "median") mapMedian[tRun.run_name.function_name] = tRun.GetAdjustedCPUTime();
    }
  }

  std::map<std::string, double> mapMedian;  // us, by "document/reader"
};

static std::string Run_Name(const TXMLDocument& tDocument, const TReader& tReader) {
  return tDocument.strName + "/" + tReader.pszName;
}

static void Register(const std::vector<TXMLDocument>& atDocuments) {
  for (const TXMLDocument& tDocument : atDocuments) {
    for (const TReader& tReader : g_atReaders) {
      benchmark::RegisterBenchmark(Run_Name(tDocument, tReader).c_str(), [&tDocument,
                                                                          &tReader](benchmark::State& tState) {
        tReader.pfnRead(tState, tDocument.strText);
        tState.SetBytesProcessed(tState.iterations() * static_cast<std::int64_t>(tDocument.strText.size()));
      })->Unit(benchmark::kMicrosecond);
    }
  }
}

static void PrintRatios(const std::vector<TXMLDocument>& atDocuments, std::map<std::string, double>& mapMedian) {
  for (const TXMLDocument& tDocument : atDocuments) {
    const double rOurs = mapMedian[Run_Name(tDocument, g_atReaders[0])];
    if (rOurs == 0) continue;  // filtered out
    std::printf("%s, %zu bytes: %.1f us, %.0f MB/s;", tDocument.strName.c_str(), tDocument.strText.size(), rOurs,
                static_cast<double>(tDocument.strText.size()) / rOurs);
    for (const TReader& tReader : g_atReaders) {
      const double rPeer = mapMedian[Run_Name(tDocument, tReader)];
      if (&tReader != g_atReaders) std::printf("  %s x%.2f", tReader.pszName, rPeer / rOurs);
    }
    std::printf("\n");
  }
}

// Freed memory stays with the process.  By default it depends on what ran before whether a reader that gives its memory
// back pays a page fault for each page of the next document: up to twenty times its time.
static void Malloc_KeepMemory() {
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
}

int main(int argc, char** argv) {
  Malloc_KeepMemory();
  std::vector<std::string> astrArguments = {argv[0], "--benchmark_repetitions=15",
                                            "--benchmark_enable_random_interleaving=true",
                                            "--benchmark_display_aggregates_only=true", "--benchmark_min_time=0.1"};
  std::vector<TXMLDocument> atDocuments = Documents_Small();
  for (int i = 1; i < argc; ++i) {
    if (argv[i][0] == '-') {
      astrArguments.emplace_back(argv[i]);
    } else {
      for (TXMLDocument& tDocument : Documents_Load(argv[i])) atDocuments.push_back(std::move(tDocument));
    }
  }
  for (TXMLDocument& tDocument : Documents_Large(4 << 20)) atDocuments.push_back(std::move(tDocument));

  std::vector<char*> apszArguments;
  for (std::string& strArgument : astrArguments) apszArguments.push_back(strArgument.data());
  int iCount = static_cast<int>(apszArguments.size());
  benchmark::Initialize(&iCount, apszArguments.data());
  if (benchmark::ReportUnrecognizedArguments(iCount, apszArguments.data())) return 1;
  Register(atDocuments);
  TMedianReporter tReporter;
  benchmark::RunSpecifiedBenchmarks(&tReporter);
  PrintRatios(atDocuments, tReporter.mapMedian);
}
