// Prints the transcript as it is, or each line as a JSON object.
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "cli/commands.h"
#include "cli/snapshot.h"
#include "cli/transcript_line.h"

namespace {

using TJson = nlohmann::ordered_json;

constexpr const char* szPrinted = "print ";

std::ifstream Open(const TOpenCamera& tCamera, u64 qwFrom) {
  const std::string sPath = tCamera.sRoot + "/sim/transcript";
  std::ifstream tIn(sPath, std::ios::binary | std::ios::ate);
  if (!tIn) Cli_Fail(sPath + " cannot be read");
  if (static_cast<u64>(tIn.tellg()) < qwFrom) {
    Cli_Fail("the transcript has " + std::to_string(tIn.tellg()) + " bytes: there is nothing from " +
             std::to_string(qwFrom) + " on");
  }
  tIn.seekg(static_cast<std::streamoff>(qwFrom));
  return tIn;
}

TJson LineToJson(const TTranscriptLine& tLine) {
  TJson tJson = {{"time_s", Json_Number(tLine.dTime_s)}, {"thread", tLine.sThread}, {"event", tLine.sEvent}};
  if (tLine.sEvent.starts_with(szPrinted)) tJson["print"] = tLine.sEvent.substr(std::string(szPrinted).size());
  if (!tLine.tDriver) return tJson;
  const TDriverLine& tDriver = *tLine.tDriver;
  tJson["device"] = tDriver.sDevice;
  tJson["request"] = tDriver.sRequest;
  if (tDriver.llArgument) tJson["argument"] = *tDriver.llArgument;
  tJson["result"] = tDriver.llResult;
  if (tDriver.llRotor) tJson["rotor_steps"] = *tDriver.llRotor;
  if (tDriver.bLocked) tJson["locked"] = true;
  return tJson;
}

}  // namespace

void Transcript_Print(const TOpenCamera& tCamera, u64 qwFrom) {
  std::ifstream tIn = Open(tCamera, qwFrom);
  if (tIn.peek() != std::ifstream::traits_type::eof()) std::cout << tIn.rdbuf();
}

void Transcript_PrintJson(const TOpenCamera& tCamera, u64 qwFrom) {
  std::ifstream tIn = Open(tCamera, qwFrom);
  u64 qwNext = qwFrom;
  // A line that is still being written has no end yet: it is left for the next time.
  for (std::string sLine; std::getline(tIn, sLine) && !tIn.eof();) {
    qwNext += sLine.size() + 1;
    const auto tLine = TranscriptLine_Parse(sLine);
    if (!tLine) continue;
    TJson tJson = LineToJson(*tLine);
    tJson["next"] = qwNext;
    std::cout << tJson.dump(-1, ' ', false, TJson::error_handler_t::replace) << '\n';
  }
}
