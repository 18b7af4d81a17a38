#include "cli/script.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "cli/commands.h"
#include "cli/hold.h"
#include "cli/snapshot.h"

namespace {

using TJson = nlohmann::ordered_json;

constexpr const char* g_aszCommands[] = {"ask", "press", "set", "fault", "show", "expect"};
constexpr u64 qwPress_ms = 100;

std::optional<double> ParseNumber(const std::string& sText) {
  char* pszEnd = nullptr;
  const double dValue = std::strtod(sText.c_str(), &pszEnd);
  return !sText.empty() && *pszEnd == '\0' && std::isfinite(dValue) ? std::optional(dValue) : std::nullopt;
}

std::string Where(const std::string& sFile, i32 iNumber) {
  return sFile + ":" + std::to_string(iNumber) + ": ";
}

// Nothing if the line is wrong.
std::optional<TScriptLine> ParseLine(i32 iNumber, const std::string& sAt, std::vector<std::string> asWords) {
  TScriptLine tLine{.iNumber = iNumber, .eAt = TScriptLine::AT_REST, .qwAt_us = 0, .asWords = std::move(asWords)};
  if (sAt != "rest") {
    const bool bAfter = sAt.starts_with('+');
    const auto dAt_s = ParseNumber(sAt.substr(bAfter ? 1 : 0));
    if (!dAt_s || *dAt_s < 0 || *dAt_s > 1e9) return std::nullopt;
    tLine.eAt = bAfter ? TScriptLine::AT_AFTER : TScriptLine::AT_TIME;
    tLine.qwAt_us = static_cast<u64>(std::llround(*dAt_s * 1e6));
  }
  if (tLine.asWords.empty()) return tLine.eAt == TScriptLine::AT_REST ? std::optional(tLine) : std::nullopt;
  const bool bKnown = std::ranges::find(g_aszCommands, tLine.asWords[0]) != std::end(g_aszCommands);
  return bKnown ? std::optional(tLine) : std::nullopt;
}

// A word of an expectation: a number, a place in the snapshot, or itself.
TJson Value(const TJson& tSnapshot, const std::string& sWord) {
  if (const auto dValue = ParseNumber(sWord)) return *dValue;
  if (sWord == "true" || sWord == "false") return sWord == "true";
  std::string sPath = "/" + sWord;
  std::ranges::replace(sPath, '.', '/');
  const bool bChannel = std::isdigit(static_cast<unsigned char>(sWord[0])) != 0;
  for (const std::string& sPointer : {sPath, "/channels" + (bChannel ? sPath : "/0" + sPath)}) {
    const nlohmann::json_pointer<std::string> tPointer(sPointer);
    if (tSnapshot.contains(tPointer)) return tSnapshot[tPointer];
  }
  return sWord;
}

bool Holds(const TJson& tLeft, const std::string& sOp, const TJson& tRight) {
  constexpr double dSame = 1e-9;
  const bool bNumbers = tLeft.is_number() && tRight.is_number();
  const bool bSame = bNumbers ? std::fabs(tLeft.get<double>() - tRight.get<double>()) <= dSame : tLeft == tRight;
  if (sOp == "==") return bSame;
  if (sOp == "!=") return !bSame;
  if (!bNumbers) return false;
  const bool bLess = tLeft.get<double>() < tRight.get<double>();
  if (sOp == "<") return bLess && !bSame;
  if (sOp == "<=") return bLess || bSame;
  return sOp == ">" ? !bLess && !bSame : !bLess || bSame;
}

// What is not so, in words; "" if all is as expected.
std::string Expect(const TOpenCamera& tCamera, const std::vector<std::string>& asWords) {
  constexpr const char* aszOps[] = {"==", "!=", "<", "<=", ">", ">="};
  const bool bOp = asWords.size() == 4 && std::ranges::find(aszOps, asWords[2]) != std::end(aszOps);
  if (asWords.size() != 3 && !bOp) return "expect VALUE [OP] VALUE, and OP is ==, !=, <, <=, > or >=";
  const TJson tSnapshot = Snapshot_ToJson(*Snapshot_Take(tCamera));
  const std::string sOp = bOp ? asWords[2] : "==";
  const TJson tLeft = Value(tSnapshot, asWords[1]), tRight = Value(tSnapshot, asWords.back());
  if (Holds(tLeft, sOp, tRight)) return "";
  return asWords[1] + " " + sOp + " " + asWords.back() + " does not hold: " + tLeft.dump() + " " + sOp + " " +
         tRight.dump();
}

void Note(const TOpenCamera& tCamera, std::string sText) {
  std::erase(sText, '\r');
  std::ranges::replace(sText, '\n', '|');
  const TWorldLock tLock(tCamera.ptWorld.get());
  Camera_Note(tCamera, sText);
}

std::string Ask(const TOpenCamera& tCamera, const std::vector<std::string>& asWords) {
  if (asWords.size() != 2) return "ask QUERY";
  Note(tCamera, "ask " + asWords[1]);
  const auto tReply = Hold_Ask(tCamera, asWords[1]);
  if (!tReply) return "the daemon does not answer";
  Note(tCamera, "answer " + std::to_string(tReply->iStatus) + " " + tReply->sBody);
  return tReply->iStatus == 200 ? "" : "refused with " + std::to_string(tReply->iStatus);
}

std::string Press(const TOpenCamera& tCamera, const std::vector<std::string>& asWords) {
  const auto dFor_ms = asWords.size() == 4 ? ParseNumber(asWords[3]) : static_cast<double>(qwPress_ms);
  if ((asWords.size() != 2 && (asWords.size() != 4 || asWords[2] != "--for")) || !dFor_ms || *dFor_ms < 0) {
    return "press BUTTON [--for MS]";
  }
  const u64 qwFrom_us = Camera_Now_us(tCamera);
  Button_Press(tCamera, asWords[1]);
  Hold_At(tCamera, qwFrom_us + static_cast<u64>(std::llround(*dFor_ms * 1000)));
  Button_Release(tCamera, asWords[1]);
  return "";
}

std::string Do(const TOpenCamera& tCamera, std::vector<std::string> asWords) {
  if (asWords[0] == "ask") return Ask(tCamera, asWords);
  if (asWords[0] == "press") return Press(tCamera, asWords);
  if (asWords[0] == "expect") return Expect(tCamera, asWords);
  asWords.insert(asWords.begin() + 1, tCamera.sRoot);
  return Commands_Do(asWords) == 0 ? "" : "it failed";
}

// Returns what went wrong; "" nothing.
std::string Play(const TOpenCamera& tCamera, const TScriptLine& tLine, u64 qwStart_us) {
  if (tLine.eAt == TScriptLine::AT_REST) {
    const std::string sBusy = Hold_UntilRest(tCamera);
    if (!sBusy.empty()) return "no rest: " + sBusy;
  } else {
    const u64 qwFrom_us = tLine.eAt == TScriptLine::AT_AFTER ? Camera_Now_us(tCamera) : qwStart_us;
    Hold_At(tCamera, qwFrom_us + tLine.qwAt_us);
  }
  if (tLine.asWords.empty()) return "";
  try {
    const std::string sWrong = Do(tCamera, tLine.asWords);
    // What it has set going must have begun before the next line: a button's frame, or a start after a power cut.
    if (sWrong.empty()) Hold_At(tCamera, Camera_Now_us(tCamera));
    return sWrong;
  } catch (const TRefusal& tRefusal) {
    return tRefusal.sText;
  }
}

}  // namespace

std::vector<TScriptLine> Script_Read(const std::string& sFile) {
  std::ifstream tFile(sFile);
  if (!tFile) Cli_RefuseUsage(sFile + ": cannot be read");
  std::vector<TScriptLine> atLines;
  std::string sText;
  for (i32 iNumber = 1; std::getline(tFile, sText); ++iNumber) {
    std::istringstream tWords(sText);
    std::string sAt, sWord;
    std::vector<std::string> asWords;
    if (!(tWords >> sAt) || sAt[0] == '#') continue;
    while (tWords >> sWord) asWords.push_back(sWord);
    const auto tLine = ParseLine(iNumber, sAt, asWords);
    if (!tLine) {
      Cli_RefuseUsage(Where(sFile, iNumber) +
                      "not SECONDS, +SECONDS or rest, and then ask, press, set, fault, show or expect");
    }
    atLines.push_back(*tLine);
  }
  return atLines;
}

i32 Script_Play(const TOpenCamera& tCamera, const std::string& sFile, const std::vector<TScriptLine>& atLines,
                bool bUntilRest) {
  const u64 qwStart_us = Camera_Now_us(tCamera);
  std::string sWrong;
  for (const TScriptLine& tLine : atLines) {
    sWrong = Play(tCamera, tLine, qwStart_us);
    if (sWrong.empty()) continue;
    std::fprintf(stderr, "simcamera: %s%s\n", Where(sFile, tLine.iNumber).c_str(), sWrong.c_str());
    break;
  }
  if (sWrong.empty() && bUntilRest) sWrong = Hold_UntilRest(tCamera);
  return sWrong.empty() ? 0 : 1;
}
