#include "cuts.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <sstream>
#include <string_view>

#include "clock/clock.h"
#include "core/paths.h"
#include "judge.h"
#include "lens/lens_model.h"
#include "lens/optics.h"
#include "world/world_image.h"

namespace {

constexpr std::size_t dwTaleShown = 6000;  // characters of each transcript

// Camera time from a start until a model's lens is at rest again, with room to spare.
struct TPatience {
  const char* szModel;
  u64 qwRecovery_ms;  // after a cut: sensors, references of all channels, a search
  u64 qwStart_ms;     // a clean start: sensors only
};
constexpr TPatience g_atPatience[] = {{"zoom", 120'000, 8'000},    {"focus", 60'000, 20'000},
                                      {"zoomonly", 20'000, 1'500}, {"quad", 300'000, 90'000},
                                      {"thermal", 60'000, 8'000},  {"ics", 60'000, 16'000}};

const TPatience& PatienceOf(std::string_view sModel) {
  for (const TPatience& tPatience : g_atPatience) {
    if (sModel == tPatience.szModel) return tPatience;
  }
  std::fprintf(stderr, "g_atPatience has no row for the model %.*s\n", static_cast<int>(sModel.size()), sModel.data());
  std::abort();
}

constexpr u64 qwAt_ms = 100;          // time of the command, on a lens that is ready at once
constexpr u64 qwQuadAt_ms = 60'000;   // after four channels have searched for their sensors
constexpr u64 qwICSAt_ms = 6'000;     // after the set-up of an ICS lens
constexpr u64 qwFocusAt_ms = 15'000;  // after one channel has searched for its sensor
constexpr const char* pszNoStatus = nullptr;

// Puts the lens where it is sharp by day, and saves these positions.
void StandSharp(const TCamera& tCamera, const TLensModel& tModel) {
  const u32 dwZoom = tModel.tZoom.dwFirstPosition;
  const u32 dwFocus = Optics_PanFocus(tModel, dwZoom);
  if (!Model_IsICS(tModel)) tCamera.Place(LENS_FOCUS, dwFocus);
  const std::string sZoom = Model_HasZoom(tModel) ? "zoom_motor=" + std::to_string(dwZoom) + "\n" : "";
  tCamera.Write(Model_IsICS(tModel) ? szICSPositionsPath : szPositionsPath,
                sZoom + "focus_motor=" + std::to_string(dwFocus) + "\n");
}

// Puts each channel at another place.  Only one set of positions is saved: it is true for the first channel at most.
void StandApart(const TCamera& tCamera, const TLensModel& tModel) {
  ChangeWorld(tCamera, [&](TWorld& tWorld) {
    for (i32 i = 1; i < tModel.iChannels; i++) {
      for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
        TAxisTruth& tAxis = tWorld.tLens.atAxis[i][eAxis];
        tAxis.iRotor = tAxis.iGlass = tAxis.iRotor + i * 25 * static_cast<i32>(Model_Sheet(tModel, eAxis).dwOneStep);
      }
    }
  });
}

void CutPower(TWorld* ptWorld) {
  Lens_PowerCut(&ptWorld->tLens, World_Now_us(ptWorld));
  Clock_End(CLOCK_END_CUT, nullptr);
}

// How many events a life has had by certain times.  The life writes these numbers, its parent process reads them.
struct TMarks {
  std::vector<u64> aqwAt_us;
  u64* pqwEvents = nullptr;  // one number for each time
};

u64* MarkMemory() {
  constexpr std::size_t dwMarks = 8;
  static void* pv = mmap(nullptr, dwMarks * sizeof(u64), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (pv == MAP_FAILED) std::abort();
  return static_cast<u64*>(pv);
}

void AddMarks(TLifePlan& tPlan, TMarks& tMarks) {
  tMarks.pqwEvents = MarkMemory();
  for (std::size_t dw = 0; dw < tMarks.aqwAt_us.size(); dw++) {
    u64* pqwEvents = tMarks.pqwEvents + dw;
    *pqwEvents = 0;
    const auto Mark = [=](TWorld*) { *pqwEvents = Clock_Events(); };
    tPlan.atEvents.push_back(At(tMarks.aqwAt_us[dw], Call(0, Mark)));
  }
}

TLifeResult CutLife(const TCamera& tCamera, const TCutRow& tRow, const TCutMoment& tMoment, u64 qwSeed,
                    TMarks* ptMarks = nullptr) {
  TLifePlan tPlan{.sRoot = tCamera.sRoot,
                  .qwSeed = qwSeed,
                  .atEvents = tRow.atEvents,
                  .qwCutAtEvent = tMoment.qwEvent,
                  .qwEnd_us = tRow.qwEnd_ms * 1000};
  if (tMoment.qwTime_us != 0) tPlan.atEvents.push_back(At(tMoment.qwTime_us, Call(0, CutPower)));
  if (ptMarks != nullptr) AddMarks(tPlan, *ptMarks);
  return Life_Run(tPlan);
}

// A life in which clients ask only for the status of every channel, shortly before its end.
TLifeResult RestingLife(const TCamera& tCamera, i32 iChannels, u64 qwFor_ms, u64 qwSeed, u64 qwCutAtEvent = 0,
                        TMarks* ptMarks = nullptr) {
  TLifePlan tPlan{
      .sRoot = tCamera.sRoot, .qwSeed = qwSeed, .qwCutAtEvent = qwCutAtEvent, .qwEnd_us = (qwFor_ms + 200) * 1000};
  AskEachStatus(tPlan.atEvents, qwFor_ms, iChannels);
  if (ptMarks != nullptr) AddMarks(tPlan, *ptMarks);
  return Life_Run(tPlan);
}

constexpr std::string_view sRecovers = "Power loss unexpectedly!";

bool HasRecovered(const TLifeResult& tResult) {
  return tResult.sTranscript.find(sRecovers) != std::string::npos;
}

bool IsBackup(const char* pszStatus) {
  return pszStatus != nullptr && pszStatus[0] == 'b';
}

// A backup goes to saved positions, and a restore without a zoom goes to the default one: neither has to be sharp.
bool EndsInSearch(const TCutRow& tRow) {
  const TLensModel& tModel = *Lenses_Find(tRow.szModel);
  const auto IsNormal = [](const char* pszStatus) { return pszStatus != nullptr && pszStatus[0] == 'n'; };
  if (!Model_HasFocus(tModel) || IsBackup(tRow.tOptions.pszStatus) || IsBackup(tRow.tOptions.pszNextStatus))
    return false;
  return Model_HasZoom(tModel) || IsNormal(tRow.tOptions.pszStatus);
}

// By how much a search may miss the sharp position: it ends on a step of its last level.  Virtual steps.
double SearchAccuracy(const TLensModel& tModel) {
  const TSearchSheet& tSearch = tModel.tSearch;
  if (Model_IsICS(tModel)) return 4;
  return 1 + 0.75 * (tSearch.bFineTuning != 0 ? tSearch.dwStepFine : tSearch.dwStepSmall);
}

// A backup moves one channel.  If no command moves the others, they stay lost, and the logs tell the next start so.
bool LeavesOthersLost(const TCutRow& tRow) {
  return IsBackup(tRow.tOptions.pszStatus) && tRow.atEvents.empty() && Lenses_Find(tRow.szModel)->iChannels > 1;
}

// If a move comes before a channel has been recovered, that channel is found at its next command.  The log stays.
std::string JudgeRecovery(const TCamera& tCamera, const TCutRow& tRow, const TLifeResult& tResult) {
  const TLensModel& tModel = *Lenses_Find(tRow.szModel);
  std::string sWhy = Judge_Order(tResult);
  if (sWhy.empty()) sWhy = Judge_Channels(tCamera, tModel, Judge_HasLog(tCamera) ? 1 : tModel.iChannels, tResult);
  if (sWhy.empty() && tRow.tOptions.bSharp) sWhy = Judge_Sharpness(tCamera);
  return sWhy;
}

std::string JudgeNextStart(const TCamera& tCamera, const TCutRow& tRow, const TLifeResult& tResult) {
  const TLensModel& tModel = *Lenses_Find(tRow.szModel);
  std::string sWhy = Judge_Order(tResult);
  if (sWhy.empty()) sWhy = Judge_Channels(tCamera, tModel, tModel.iChannels, tResult);
  if (sWhy.empty() && Judge_HasLog(tCamera)) sWhy = "a working log stands for good";
  if (sWhy.empty() && tRow.tOptions.bSharp) sWhy = Judge_Sharpness(tCamera);
  return sWhy;
}

// One move of each channel that a backup does not move.
std::vector<TLifeEvent> MovesOfOthers() {
  return {Ask(40'000, "channel=1&function=zoom&direction=direct&position=120"),
          Ask(80'000, "channel=2&function=zoom&direction=direct&position=80"),
          Ask(120'000, "channel=3&function=zoom&direction=forward&steps=20")};
}

// The last lines of a transcript.  Waits are left out: there are so many of them that nothing else would be seen.
std::string Tail(const char* szTitle, const TLifeResult& tResult) {
  std::istringstream tLines(tResult.sTranscript);
  std::string sAll;
  for (std::string sLine; std::getline(tLines, sLine);) {
    if (sLine.find(" select ") == std::string::npos && sLine.find(" sleep ") == std::string::npos) sAll += sLine + "\n";
  }
  const std::size_t dwFrom = sAll.size() > dwTaleShown ? sAll.find('\n', sAll.size() - dwTaleShown) + 1 : 0;
  return std::string("--- ") + szTitle + "\n" + sAll.substr(dwFrom) + tResult.sStderr;
}

}  // namespace

const std::vector<TCutRow>& Cuts_Rows() {
  static const std::vector<TCutRow> atRows = {
      {"relative", "zoom", {Ask(qwAt_ms, "function=focus&direction=forward&steps=20")}, 1'500},
      {"direct", "zoom", {Ask(qwAt_ms, "function=focus&direction=direct&position=520")}, 1'500},
      {"take-up", "zoom", {Ask(qwAt_ms, "function=focus&direction=backward&steps=20")}, 1'500},
      {"zoom-following", "zoom", {Ask(qwAt_ms, "function=zoom&direction=direct&position=170")}, 3'000},
      {"end-stop", "zoom", {Ask(qwAt_ms, "function=positioning")}, 60'000, {.qwEvery = 3}},
      {"motorreset", "zoom", {Ask(qwAt_ms, "function=motorreset")}, 12'000},
      {"auto-focus", "zoom", {Ask(qwAt_ms, "function=auto")}, 40'000, {.qwEvery = 5}},
      {"scan", "zoom", {Ask(qwAt_ms, "function=scan")}, 90'000, {.qwEvery = 11}},
      {"scan-stopped",
       "zoom",
       {Ask(qwAt_ms, "function=scan"), Ask(3'000, "function=stop"),
        Ask(3'010, "function=focus&direction=direct&position=300")},
       20'000,
       {.qwEvery = 5}},
      {"restore", "zoom", {}, 60'000, {.pszStatus = "restore\n", .qwEvery = 3, .bDisplaced = true}},
      {"backup", "zoom", {}, 5'000, {.pszStatus = "backup\n"}},
      {"first-start", "zoom", {}, 60'000, {.pszStatus = pszNoStatus, .qwEvery = 3, .bDisplaced = true}},
      {"relative", "zoomonly", {Ask(qwAt_ms, "function=zoom&direction=forward&steps=20")}, 1'500},
      {"take-up", "zoomonly", {Ask(qwAt_ms, "function=zoom&direction=direct&position=20")}, 1'500},
      {"end-stop", "zoomonly", {Ask(qwAt_ms, "function=positioning")}, 3'000},
      {"backup", "zoomonly", {}, 3'000, {.pszStatus = "backup\n"}},
      {"first-start", "zoomonly", {}, 5'000, {.pszStatus = pszNoStatus, .bDisplaced = true}},
      {"start", "focus", {}, qwFocusAt_ms},
      {"start-then-backup", "focus", {}, qwFocusAt_ms, {.pszNextStatus = "backup\n"}},
      {"relative", "focus", {Ask(qwFocusAt_ms, "function=focus&direction=forward&steps=20")}, qwFocusAt_ms + 1'500},
      {"take-up", "focus", {Ask(qwFocusAt_ms, "function=focus&direction=direct&position=500")}, qwFocusAt_ms + 1'500},
      {"sensor", "focus", {Ask(qwFocusAt_ms, "function=positioning")}, qwFocusAt_ms + 30'000, {.qwEvery = 3}},
      {"motorreset", "focus", {Ask(qwFocusAt_ms, "function=motorreset")}, qwFocusAt_ms + 8'000},
      {"reset-focus", "focus", {Ask(qwFocusAt_ms, "function=resetfocus")}, qwFocusAt_ms + 8'000},
      {"auto-focus", "focus", {Ask(qwFocusAt_ms, "function=auto")}, qwFocusAt_ms + 30'000, {.qwEvery = 5}},
      {"scan", "focus", {Ask(qwFocusAt_ms, "function=scan")}, qwFocusAt_ms + 60'000, {.qwEvery = 11}},
      {"restore", "focus", {}, 20'000, {.pszStatus = "restore\n", .bDisplaced = true}},
      {"backup", "focus", {}, 20'000, {.pszStatus = "backup\n"}},
      {"first-start", "focus", {}, 20'000, {.pszStatus = pszNoStatus, .bDisplaced = true}},
      {"start", "quad", {}, qwQuadAt_ms, {.qwEvery = 3}},
      {"start-then-backup", "quad", {}, qwQuadAt_ms, {.qwEvery = 3, .pszNextStatus = "backup\n"}},
      {"take-up",
       "quad",
       {Ask(qwQuadAt_ms, "channel=2&function=zoom&direction=direct&position=80")},
       qwQuadAt_ms + 4'000,
       {.qwEvery = 3}},
      {"sensor", "quad", {Ask(qwQuadAt_ms, "channel=1&function=positioning")}, qwQuadAt_ms + 60'000, {.qwEvery = 7}},
      {"backup", "quad", {}, 10'000, {.pszStatus = "backup\n"}},
      {"backup-then-moves", "quad", MovesOfOthers(), 160'000, {.pszStatus = "backup\n", .qwEvery = 7}},
      {"first-start", "quad", {}, 240'000, {.pszStatus = pszNoStatus, .qwEvery = 19, .bDisplaced = true}},
      {"night", "zoom", {SetNight(qwAt_ms)}, 5'000, {.bSharp = true}},
      {"night-zooming", "zoom", {Ask(2'500, "function=zoom&direction=forward&steps=20"), SetNight(qwAt_ms)}, 6'000},
      {"night", "focus", {SetNight(qwFocusAt_ms)}, qwFocusAt_ms + 5'000, {.bSharp = true}},
      {"night", "quad", {SetNight(qwQuadAt_ms)}, qwQuadAt_ms + 8'000, {.qwEvery = 3}},
      {"night", "thermal", {SetNight(qwAt_ms)}, 5'000, {.bSharp = true}},
      {"start", "ics", {}, qwICSAt_ms},
      {"direct", "ics", {Ask(qwICSAt_ms, "function=focus&direction=direct&position=1500")}, qwICSAt_ms + 1'500},
      {"zoom-following", "ics", {Ask(qwICSAt_ms, "function=zoom&direction=direct&position=900")}, qwICSAt_ms + 2'500},
      {"positioning", "ics", {Ask(qwICSAt_ms, "function=positioning")}, qwICSAt_ms + 12'000, {.qwEvery = 3}},
      {"scan", "ics", {Ask(qwICSAt_ms, "function=scan")}, qwICSAt_ms + 40'000, {.qwEvery = 11}},
      {"restore", "ics", {}, 30'000, {.pszStatus = "restore\n", .qwEvery = 3}},
      {"first-start", "ics", {}, 30'000, {.pszStatus = pszNoStatus, .qwEvery = 3}},
      {"night", "ics", {SetNight(qwICSAt_ms)}, qwICSAt_ms + 5'000, {.bSharp = true}},
      {"warming", "ics", {SetTemperature(qwICSAt_ms, 40)}, 65'000, {.qwEvery = 3}},
      {"warming", "thermal", {SetTemperature(qwAt_ms, 40)}, 125'000, {.qwEvery = 3}},
  };
  return atRows;
}

void Cuts_SetScene(const TCamera& tCamera, const TCutRow& tRow) {
  if (Life_ResetRoot(tCamera.sRoot) != 0) std::abort();
  if (tRow.tOptions.pszStatus == nullptr) {
    unlink(tCamera.Path(szStatusPath).c_str());
  } else {
    tCamera.Write(szStatusPath, tRow.tOptions.pszStatus);
  }
  const TLensModel& tModel = *Lenses_Find(tRow.szModel);
  if (tRow.tOptions.bDisplaced && Model_HasZoom(tModel)) tCamera.Place(LENS_ZOOM, tModel.tZoom.dwFirstPosition + 33);
  if (tRow.tOptions.bDisplaced && Model_HasFocus(tModel)) tCamera.Place(LENS_FOCUS, tModel.tFocus.dwFirstPosition - 44);
  if (tRow.tOptions.bSharp) StandSharp(tCamera, tModel);
  if (tModel.iChannels > 1) StandApart(tCamera, tModel);
  tCamera.Write(szBackupPath, "zoom_motor=150\nfocus_motor=300\n");
}

TUncut Cuts_LiveUncut(const TCamera& tCamera, const TCutRow& tRow, u64 qwSeed) {
  constexpr u64 qwFirstMoments_us = 100'000;
  const TLensModel& tModel = *Lenses_Find(tRow.szModel);
  Cuts_SetScene(tCamera, tRow);
  const bool bEvents = !tRow.atEvents.empty();
  const auto Earlier = [](const TLifeEvent& t1, const TLifeEvent& t2) { return t1.qwAt_us < t2.qwAt_us; };
  TMarks tMarks;
  tMarks.aqwAt_us = {bEvents ? std::ranges::min_element(tRow.atEvents, Earlier)->qwAt_us : qwFirstMoments_us};
  const TLifeResult tResult = CutLife(tCamera, tRow, {}, qwSeed, &tMarks);
  TUncut tUncut{.qwEvents = tResult.qwEvents, .qwStartUpEvents = tMarks.pqwEvents[0], .sLoss = Judge_Order(tResult)};
  for (i32 i = 0; i < tModel.iChannels; i++) {
    for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
      const u32 dwSaid = Judge_PublishedPlace(tCamera, eAxis, i);
      const double dTrue = tCamera.Truth(eAxis, i);
      const bool bTold = i > 0 && LeavesOthersLost(tRow) && Judge_HasLog(tCamera, eAxis);
      if (!tUncut.sLoss.empty() || !Model_HasAxis(tModel, eAxis) || dwSaid == dTrue || bTold) continue;
      tUncut.sLoss = "channel " + std::to_string(i) + ": " + Judge_Name(eAxis) + " left at " + std::to_string(dwSaid) +
                     ", true " + std::to_string(dTrue);
    }
  }
  if (tUncut.sLoss.empty() && LeavesOthersLost(tRow)) {
    const u64 qwFor_ms = PatienceOf(tRow.szModel).qwRecovery_ms;
    tUncut.sLoss = JudgeNextStart(tCamera, tRow, RestingLife(tCamera, tModel.iChannels, qwFor_ms, qwSeed));
  }
  if (tUncut.sLoss.empty() && Judge_HasLog(tCamera)) tUncut.sLoss = "a working log stands";
  return tUncut;
}

namespace {

// Runs the row's life with its cut, then the whole start after it.  ptMarks: times of that start.
TLifeResult CutAndStart(const TCamera& tCamera, const TCutRow& tRow, u64 qwEvent, u64 qwSeed, TMarks* ptMarks) {
  const TLensModel& tModel = *Lenses_Find(tRow.szModel);
  Cuts_SetScene(tCamera, tRow);
  CutLife(tCamera, tRow, {.qwEvent = qwEvent}, qwSeed);
  if (tRow.tOptions.pszNextStatus != nullptr) tCamera.Write(szStatusPath, tRow.tOptions.pszNextStatus);
  return RestingLife(tCamera, tModel.iChannels, PatienceOf(tRow.szModel).qwRecovery_ms, qwSeed, 0, ptMarks);
}

// Adds a second cut in each phase of the recovery from a cut at qwEvent.  Returns false if that start does not recover.
bool AddCutRecovery(const TCamera& tCamera, const TCutRow& tRow, u64 qwEvent, u64 qwSeed,
                    std::vector<TCutMoment>& atMoments) {
  constexpr u64 qwSearchEvents = 300;
  std::mt19937_64 tDraw(qwSeed);
  const TLifeResult tWhole = CutAndStart(tCamera, tRow, qwEvent, qwSeed, nullptr);
  const u64 qwStarted_us = NextStart_us(tCamera.sRoot) - tWhole.qwTime_us;
  if (!HasRecovered(tWhole)) return false;
  const u64 qwRecovers_us = FirstLine_us(tWhole, sRecovers) - qwStarted_us;
  const u64 qwSearch_us = FirstLine_us(tWhole, "-level searching") - qwStarted_us;
  const bool bSearch = qwSearch_us != qwNever_us - qwStarted_us;
  TMarks tMarks;
  tMarks.aqwAt_us = {qwRecovers_us};
  if (bSearch) tMarks.aqwAt_us = {qwRecovers_us, qwSearch_us - 1, qwSearch_us + 1};
  const u64 qwAll = CutAndStart(tCamera, tRow, qwEvent, qwSeed, &tMarks).qwEvents;
  std::vector<u64> aqwBounds = {0, tMarks.pqwEvents[0]};
  if (bSearch) {
    aqwBounds.push_back(tMarks.pqwEvents[1]);
    aqwBounds.push_back(tMarks.pqwEvents[2]);
  }
  aqwBounds.push_back(std::min(qwAll, aqwBounds.back() + qwSearchEvents));
  for (std::size_t dw = 1; dw < aqwBounds.size(); dw++) {
    if (aqwBounds[dw] <= aqwBounds[dw - 1]) continue;
    const u64 qwAgain = aqwBounds[dw - 1] + 1 + tDraw() % (aqwBounds[dw] - aqwBounds[dw - 1]);
    atMoments.push_back({.qwEvent = qwEvent, .qwTime_us = 0, .qwAgain = qwAgain});
  }
  return true;
}

}  // namespace

std::vector<TCutMoment> Cuts_DrawMoments(const TCamera& tCamera, const TCutRow& tRow, const TUncut& tUncut,
                                         u64 qwSeed) {
  constexpr u32 dwCommandCuts = 2;
  constexpr u32 dwMostTries = 8;  // until a cut leaves something to recover from
  std::mt19937_64 tDraw(qwSeed);
  const u64 qwStart = std::clamp<u64>(tUncut.qwStartUpEvents, 1, tUncut.qwEvents - 1);
  const auto DrawLater = [&] { return qwStart + 1 + tDraw() % (tUncut.qwEvents - qwStart); };
  std::vector<TCutMoment> atMoments = {{.qwEvent = 1 + tDraw() % qwStart}};
  for (u32 dw = 0; dw < dwCommandCuts; dw++) atMoments.push_back({.qwEvent = DrawLater()});
  atMoments.push_back({.qwEvent = 0, .qwTime_us = 1 + tDraw() % (tRow.qwEnd_ms * 1000 - 1)});
  for (u32 dw = 0; dw < dwMostTries; dw++) {
    if (AddCutRecovery(tCamera, tRow, DrawLater(), qwSeed, atMoments)) break;
  }
  return atMoments;
}

TCutOutcome Cuts_Try(const TCamera& tCamera, const TCutRow& tRow, const TCutMoment& tMoment, u64 qwSeed) {
  const TLensModel& tModel = *Lenses_Find(tRow.szModel);
  const TPatience& tPatience = PatienceOf(tRow.szModel);
  Cuts_SetScene(tCamera, tRow);
  const TLifeResult tCut = CutLife(tCamera, tRow, tMoment, qwSeed);
  if (tCut.eEnd != LIFE_CUT) {
    return {.bSurvived = false, .sLoss = "the first life was not cut: " + tCut.sStderr, .sTale = Tail("cut", tCut)};
  }
  if (tRow.tOptions.pszNextStatus != nullptr) tCamera.Write(szStatusPath, tRow.tOptions.pszNextStatus);
  bool bRecovered = false;
  if (tMoment.qwAgain != 0) {
    bRecovered = HasRecovered(RestingLife(tCamera, tModel.iChannels, tPatience.qwRecovery_ms, qwSeed, tMoment.qwAgain));
  }
  const TLifeResult tRecovery = RestingLife(tCamera, tModel.iChannels, tPatience.qwRecovery_ms, qwSeed);
  std::string sLoss = JudgeRecovery(tCamera, tRow, tRecovery);
  bRecovered = bRecovered || HasRecovered(tRecovery);
  if (sLoss.empty() && bRecovered && EndsInSearch(tRow)) sLoss = Judge_Sharpness(tCamera, SearchAccuracy(tModel));
  if (!sLoss.empty()) {
    return {.bSurvived = false, .sLoss = sLoss, .sTale = Tail("cut", tCut) + Tail("next start", tRecovery)};
  }
  const u64 qwFor_ms = Judge_HasLog(tCamera) ? tPatience.qwRecovery_ms : tPatience.qwStart_ms;
  const TLifeResult tNext = RestingLife(tCamera, tModel.iChannels, qwFor_ms, qwSeed);
  sLoss = JudgeNextStart(tCamera, tRow, tNext);
  if (sLoss.empty()) return {.bSurvived = true, .sLoss = "", .sTale = ""};
  return {.bSurvived = false,
          .sLoss = "after a further start: " + sLoss,
          .sTale = Tail("cut", tCut) + Tail("next start", tRecovery) + Tail("further start", tNext)};
}
