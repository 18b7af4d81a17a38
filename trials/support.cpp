#include "support.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include "clock/clock.h"
#include "clock/inside.h"

TCamera::TCamera(const char* pszModel) : sRoot(Life_MakeRoot(pszModel)) {}
TCamera::~TCamera() {
  Life_RemoveRoot(sRoot);
}

std::string TCamera::Path(std::string_view sPath) const {
  return sRoot + std::string(sPath);
}

void TCamera::Write(std::string_view sPath, std::string_view sText) const {
  std::ofstream(Path(sPath)) << sText;
}

std::string TCamera::Read(std::string_view sPath) const {
  std::ostringstream tText;
  tText << std::ifstream(Path(sPath)).rdbuf();
  return tText.str();
}

void TCamera::Place(ELensAxis eAxis, u32 dwVirtual, i32 iChannel) const {
  TWorld* ptWorld = World_Map(sRoot.c_str());
  const TAxisModel& tModel = ptWorld->tLens.atModel[eAxis];
  TAxisTruth& tTruth = ptWorld->tLens.atAxis[iChannel][eAxis];
  tTruth.iRotor = tTruth.iGlass = tModel.iOrigin + static_cast<i32>(dwVirtual) * tModel.iDriverPerVirtual;
  World_Unmap(ptWorld);
}

double TCamera::Truth(ELensAxis eAxis, i32 iChannel) const {
  constexpr u64 qwToRest_us = 60'000'000;
  TWorld* ptWorld = World_Map(sRoot.c_str());
  Lens_Settle(&ptWorld->tLens, World_Now_us(ptWorld) + qwToRest_us);
  const double dTruth = Lens_TrueVirtual(&ptWorld->tLens, iChannel, eAxis);
  World_Unmap(ptWorld);
  return dTruth;
}

u64 NextStart_us(const std::string& sRoot) {
  TWorld* ptWorld = World_Map(sRoot.c_str());
  const u64 qwNow_us = ptWorld->qwBase_us;
  World_Unmap(ptWorld);
  return qwNow_us;
}

u64 FirstSeed() {
  const char* pszSeed = std::getenv("VERNIER_TEST_SEED");
  return pszSeed != nullptr ? std::strtoull(pszSeed, nullptr, 10) : 1;
}

u64 Lives(u64 qwPlain) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(VERNIER_EMULATED)
  return std::max<u64>(qwPlain / 10, 1);
#else
  return qwPlain;
#endif
}

TLifeEvent Ask(u64 qwAt_ms, std::string sQuery) {
  return {.qwAt_us = qwAt_ms * 1000, .sQuery = std::move(sQuery)};
}

TLifeEvent Signal(u64 qwAt_ms, i32 iSignal) {
  return {.qwAt_us = qwAt_ms * 1000, .eKind = TLifeEvent::SIGNAL, .iSignal = iSignal};
}

TLifeEvent Call(u64 qwAt_ms, std::function<void(TWorld*)> fnCall) {
  return {.qwAt_us = qwAt_ms * 1000, .eKind = TLifeEvent::CALL, .fnCall = std::move(fnCall)};
}

TLifeEvent SetNight(u64 qwAt_ms, bool bNight) {
  return Call(qwAt_ms, [=](TWorld* ptWorld) { ptWorld->bNight = bNight ? 1 : 0; });
}

TLifeEvent SetTemperature(u64 qwAt_ms, double dTemperature_C) {
  return Call(qwAt_ms, [=](TWorld* ptWorld) { ptWorld->dTemperature_C = dTemperature_C; });
}

TLifeEvent At(u64 qwAt_us, TLifeEvent tEvent) {
  tEvent.qwAt_us = qwAt_us;
  return tEvent;
}

void AskEachStatus(std::vector<TLifeEvent>& atEvents, u64 qwAt_ms, i32 iChannels) {
  for (i32 i = 0; i < iChannels; i++) {
    atEvents.push_back(Ask(qwAt_ms, "channel=" + std::to_string(i) + "&function=getstatus"));
  }
}

TLifeEvent Frame(u64 qwAt_ms, const TCamera& tCamera, std::string sBytes) {
  return Call(qwAt_ms, [sPath = tCamera.Path("/tmp/VernierLensFIFO"), sBytes = std::move(sBytes)](TWorld*) {
    const int fd = open(sPath.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0 || write(fd, sBytes.data(), sBytes.size()) < 0) std::abort();
    close(fd);
  });
}

std::string EventFrame(std::string_view sPayload) {
  std::string sFrame{1, 1};
  sFrame += static_cast<char>(sPayload.size() >> 8);
  sFrame += static_cast<char>(sPayload.size() & 0xFF);
  return sFrame.append(sPayload);
}

TLifeResult Live(const TCamera& tCamera, std::vector<TLifeEvent> atEvents, u64 qwEnd_ms, u64 qwSeed) {
  return Life_Run(
      {.sRoot = tCamera.sRoot, .qwSeed = qwSeed, .atEvents = std::move(atEvents), .qwEnd_us = qwEnd_ms * 1000});
}

i32 FillLog(bool bSocket) {
  const TInside tInside;  // the clock counts only the calls of the daemon
  constexpr char acText[4096] = "";
  i32 afd[2];
  const i32 iMade = bSocket ? socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, afd) : pipe2(afd, O_NONBLOCK);
  if (iMade != 0) std::abort();
  while (write(afd[1], acText, sizeof acText) > 0) {
  }
  if (fcntl(afd[1], F_SETFL, 0) != 0 || dup2(afd[1], STDOUT_FILENO) < 0) std::abort();
  return afd[0];
}

namespace {

// Calls fnLine with the event of each transcript line; a line is "time thread event".
template <typename TLine>
void ForEachEvent(const TLifeResult& tResult, TLine fnLine) {
  std::istringstream tLines(tResult.sTranscript);
  for (std::string sLine; std::getline(tLines, sLine);) {
    std::istringstream tWords(sLine);
    std::string sTime;
    std::string sThread;
    tWords >> sTime >> sThread >> std::ws;
    std::string sEvent;
    std::getline(tWords, sEvent);
    fnLine(sEvent);
  }
}

}  // namespace

std::string Requests(const TLifeResult& tResult, std::string_view sDevice) {
  static const std::map<std::string, std::string> mapShort = {
      {"MOTOR_SELECT_DEVICE", "SELECT"}, {"MOTOR_SET_FORWARD", "FORWARD"},    {"MOTOR_SET_BACKWARD", "BACKWARD"},
      {"MOTOR_WALK_STEPS", "WALK"},      {"MOTOR_WALK_STEPS_BLOCK", "BLOCK"}, {"MOTOR_STOP_WALK", "STOP"}};
  std::string sRequests;
  ForEachEvent(tResult, [&](const std::string& sEvent) {
    std::istringstream tWords(sEvent);
    std::string sWord;
    std::string sName;
    std::string sArgument;
    if (!(tWords >> sWord >> sName >> sArgument) || sWord != sDevice || !sName.starts_with("MOTOR_")) return;
    const auto it = mapShort.find(sName);
    sRequests += (sRequests.empty() ? "" : ", ") + (it != mapShort.end() ? it->second : sName);
    if (sArgument != "=") sRequests += " " + sArgument;
  });
  return sRequests;
}

std::string Printed(const TLifeResult& tResult) {
  std::string sPrinted;
  ForEachEvent(tResult, [&](const std::string& sEvent) {
    if (sEvent.starts_with("print ")) sPrinted += sEvent.substr(6) + "\n";
  });
  return sPrinted;
}

bool HasPrinted(const TLifeResult& tResult, std::string_view sLine) {
  return ("\n" + Printed(tResult)).find("\n" + std::string(sLine) + "\n") != std::string::npos;
}

u64 FirstLine_us(const TLifeResult& tResult, std::string_view sText) {
  const std::size_t dwAt = tResult.sTranscript.find(sText);
  if (dwAt == std::string::npos) return qwNever_us;
  const std::size_t dwLine = tResult.sTranscript.rfind('\n', dwAt) + 1;
  return static_cast<u64>(std::llround(std::strtod(tResult.sTranscript.c_str() + dwLine, nullptr) * 1e6));
}

i32 StatusValue(std::string_view sReply, std::string_view sKey) {
  const std::string sWanted = "vernier_lens_" + std::string(sKey) + "='";
  const std::size_t dwAt = sReply.find(sWanted);
  return dwAt == std::string_view::npos ? -1 : std::atoi(sReply.substr(dwAt + sWanted.size()).data());
}

std::string Replaced(const std::string& sText, const std::string& sPattern, const std::string& sWith) {
  return std::regex_replace(sText, std::regex(sPattern), sWith);
}

std::vector<std::vector<std::string>> Matches(const std::string& sText, const std::string& sPattern) {
  const std::regex tPattern(sPattern);
  std::vector<std::vector<std::string>> asMatches;
  for (std::sregex_iterator it(sText.begin(), sText.end(), tPattern), itEnd; it != itEnd; ++it) {
    asMatches.emplace_back(it->begin(), it->end());
  }
  return asMatches;
}

std::string Tale(const TLifeResult& tResult) {
  constexpr std::size_t dwShown = 60000;
  const std::string& sAll = tResult.sTranscript;
  std::string sTale = "end " + std::to_string(tResult.eEnd) + " status " + std::to_string(tResult.iStatus) + "\n" +
                      tResult.sStderr + "\n";
  return sTale + (sAll.size() > dwShown ? sAll.substr(sAll.size() - dwShown) : sAll);
}
