#include "cli/transcript_line.h"

#include <sstream>

static std::optional<TDriverLine> ParseDriverLine(const std::string& sEvent) {
  std::istringstream tIn(sEvent);
  TDriverLine tLine{};
  std::string sWord;
  if (!(tIn >> tLine.sDevice >> tLine.sRequest)) return std::nullopt;
  if (tLine.sDevice != "zoommotor" && tLine.sDevice != "focusmotor" && tLine.sDevice != "icsdriver")
    return std::nullopt;
  i64 llArgument = 0;
  if (tIn >> llArgument)
    tLine.llArgument = llArgument;
  else
    tIn.clear();
  if (!(tIn >> sWord >> tLine.llResult) || sWord != "=") return std::nullopt;
  while (tIn >> sWord) {
    i64 llRotor = 0;
    if (sWord == "locked") tLine.bLocked = true;
    if (sWord == "rotor" && tIn >> llRotor) tLine.llRotor = llRotor;
  }
  return tLine;
}

std::optional<TTranscriptLine> TranscriptLine_Parse(const std::string& sLine) {
  std::istringstream tIn(sLine);
  TTranscriptLine tLine{};
  if (!(tIn >> tLine.dTime_s >> tLine.sThread)) return std::nullopt;
  std::getline(tIn >> std::ws, tLine.sEvent);
  if (tLine.sEvent.empty()) return std::nullopt;
  tLine.tDriver = ParseDriverLine(tLine.sEvent);
  return tLine;
}
