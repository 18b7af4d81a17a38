#include "sxml_documents.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>

std::vector<TXMLDocument> Documents_Load(const char* pszDirectory) {
  std::vector<TXMLDocument> atDocuments;
  std::error_code tError;
  for (const auto& tEntry : std::filesystem::recursive_directory_iterator(pszDirectory, tError)) {
    if (tEntry.path().extension() != ".xml") continue;
    std::ifstream tFile(tEntry.path(), std::ios::binary);
    atDocuments.push_back({tEntry.path().string(), std::string(std::istreambuf_iterator<char>(tFile), {})});
  }
  std::ranges::sort(atDocuments, {}, &TXMLDocument::sName);
  return atDocuments;
}

static std::string Profile() {
  std::ostringstream t;
  t << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root>\n\t<focus>\n";
  for (const char* pszKey : {"total_step", "offset", "backlash", "virtual_step", "step_time"}) {
    t << "\t\t<" << pszKey << ">1240</" << pszKey << ">\n";
  }
  t << "\t</focus>\n\t<!-- one row for each zoom position -->\n\t<zoomposition>\n";
  for (int i = 0; i < 24; ++i) t << "\t\t<p" << i << ">" << i * 137 % 2000 << "</p" << i << ">\n";
  t << "\t</zoomposition>\n</root>\n";
  return t.str();
}

static std::string Capability() {
  std::ostringstream t;
  t << "<?xml version=\"1.0\"?>\n<root>\n  <capability>\n    <videoin>\n";
  for (int i = 0; i < 4; ++i) {
    t << "      <c" << i << " index=\"" << i << "\" enable=\"yes\">\n        <lens>\n"
      << "          <type>motor</type>\n          <modelname>VL-2812 P-iris</modelname>\n          <filter/>\n"
      << "        </lens>\n      </c" << i << ">\n";
  }
  t << "    </videoin>\n  </capability>\n</root>\n";
  return t.str();
}

std::vector<TXMLDocument> Documents_Small() {
  return {{"profile", Profile()}, {"capability", Capability()}};
}

static std::string Wide(size_t dwBytes) {
  std::ostringstream t;
  t << "<?xml version=\"1.0\"?>\n<root>\n";
  for (size_t dw = 0; static_cast<size_t>(t.tellp()) < dwBytes; ++dw) {
    t << "  <item id=\"" << dw << "\">" << dw * 7919 % 100003 << "</item>\n";
  }
  t << "</root>\n";
  return t.str();
}

static std::string Deep(size_t dwBytes) {
  constexpr int iLevels = 90;
  std::ostringstream t;
  t << "<root>\n";
  while (static_cast<size_t>(t.tellp()) < dwBytes) {
    for (int i = 1; i < iLevels; ++i) t << "<level" << i << ">\n";
    t << "bottom";
    for (int i = iLevels - 1; i > 0; --i) t << "</level" << i << ">\n";
  }
  t << "</root>\n";
  return t.str();
}

static std::string WideAndDeep(size_t dwBytes) {
  constexpr int iLevels = 40;
  constexpr int iLeaves = 40;
  std::ostringstream t;
  t << "<?xml version=\"1.0\"?>\n<root>\n";
  while (static_cast<size_t>(t.tellp()) < dwBytes) {
    for (int i = 1; i < iLevels; ++i) {
      t << "<level" << i << " id=\"" << i * 7 << "\">\n<min>" << i << "</min>\n<unit/>\n";
    }
    for (int i = 0; i < iLeaves; ++i) t << "<item>" << i * 7919 % 100003 << "</item>\n";
    for (int i = iLevels - 1; i > 0; --i) t << "</level" << i << ">\n";
  }
  t << "</root>\n";
  return t.str();
}

static std::string Mixed(size_t dwBytes) {
  const std::vector<std::string> asKeys = {"name", "resolution", "max_frame_rate", "x", "exposurewindow", "gain"};
  std::mt19937 tRandom(20);
  std::ostringstream t;
  t << "<?xml version=\"1.0\"?>\n<configuration>\n";
  while (static_cast<size_t>(t.tellp()) < dwBytes) {
    t << "  <group name=\"g" << tRandom() % 1000 << "\" enabled='true'>\n";
    if (tRandom() % 4 == 0) t << "    <!-- values as they left the factory -->\n";
    for (auto i = tRandom() % 12; i > 0; --i) {
      const std::string& sKey = asKeys[tRandom() % asKeys.size()];
      if (tRandom() % 5 == 0) {
        t << "    <" << sKey << " unit=\"step\" min=\"0\" max=\"4000\"/>\n";
      } else {
        t << "    <" << sKey << ">" << std::string(tRandom() % 40, 'v') << "</" << sKey << ">\n";
      }
    }
    t << "  </group>\n";
  }
  t << "</configuration>\n";
  return t.str();
}

std::vector<TXMLDocument> Documents_Large(size_t dwBytes) {
  return {{"wide", Wide(dwBytes)},
          {"deep", Deep(dwBytes)},
          {"wide and deep", WideAndDeep(dwBytes)},
          {"mixed", Mixed(dwBytes)}};
}
