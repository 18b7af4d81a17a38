#include "orderly_life.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>

#include "core/paths.h"
#include "judge.h"
#include "lens/optics.h"
#include "lens/shift_tables.h"
#include "world/world_image.h"

namespace {

constexpr i64 llAnything = -1;
constexpr std::size_t dwMaxSteps = 48;
constexpr u64 qwLookAhead_ms = 100;  // the look comes so long before a step's end

// The true state of the lens at the end of a step.  The life writes it, its parent process reads it.
struct TLook {
  double adTrue[iLensChannels][LENS_AXES];
  double dGlass, dSharp, dDepth;  // of the life's channel
};

struct TStep {
  std::string sWhat;
  std::vector<TLifeEvent> atEvents = {};  // times since the step's beginning
  u64 qwTakes_ms = 0;
  i64 llZoom = llAnything, llFocus = llAnything;  // virtual steps, of the life's channel
  bool bSharp = false;
  bool bTrue = true;       // the believed positions of all channels must be true
  bool bFromHere = false;  // llFocus counts from where the step before has ended; 0: the focus does not move
};

struct TOrderly {
  const TLensModel& tModel;
  TDraw& tDraw;
  i32 iChannel = 0;
  std::string sChannel = {};
  u64 qwMove_ms = 0, qwAuto_ms = 0, qwScan_ms = 0, qwNight_ms = 0, qwStart_ms = 0;
  u32 dwZoom = 0;            // where the zoom was sent last
  i64 llFocus = llAnything;  // where the focus is, if that is known
  std::vector<TStep> atSteps = {};
};

// Whether a start can find the lens.  Not on a focus lens of several channels: its focus reset selects no channel.
bool CanFindAtStart(const TLensModel& tModel) {
  return tModel.iChannels == 1 || tModel.dwCapability != CAPABILITY_FOCUS_ONLY;
}

// A target beyond the end becomes the end.  One below 0 wraps round, and the daemon then takes the start.
i64 ClampFocus(const TLensModel& tModel, i64 llTarget) {
  return llTarget < 0 ? i64{tModel.tFocus.dwStart} : std::min<i64>(llTarget, tModel.tFocus.dwEnd);
}

i32 NightOffset(const TLensModel& tModel, u32 dwZoom) {
  if (!Model_HasZoom(tModel)) return NightTable_Offset(tModel, 0);
  const u32 dwIndex = dwZoom == 0 ? 0 : std::min(dwZoom, tModel.tZoom.dwTotalStep) - 1;
  u32 dwRange = 0;
  for (u32 dw = 0; dw < dwNightRanges; dw++) {
    if (NightTable_FirstIndex(tModel, dw) <= dwIndex) dwRange = dw;
  }
  return NightTable_Offset(tModel, dwRange);
}

i32 ThermalFocus(const TLensModel& tModel, u32 dwZoom, i32 iTemperature_C) {
  u32 dwRow = 0;
  for (u32 dw = 0; dw < tModel.dwThermalRowsUsed; dw++) {
    if (ThermalTable_Zoom(tModel, dw) <= dwZoom) dwRow = dw;
  }
  i32 iColumn = 0;
  for (i32 i = 0; i < tModel.iThermalColumnsUsed; i++) {
    if (ThermalTable_Temperature(i) <= iTemperature_C) iColumn = i;
  }
  return ThermalTable_Focus(tModel, dwRow, iColumn);
}

TStep& Add(TOrderly& t, std::string sWhat, u64 qwTakes_ms) {
  t.atSteps.push_back({.sWhat = std::move(sWhat), .qwTakes_ms = qwTakes_ms});
  return t.atSteps.back();
}

TStep& AddAsk(TOrderly& t, const std::string& sQuery, u64 qwTakes_ms) {
  TStep& tStep = Add(t, t.sChannel + sQuery, qwTakes_ms);
  tStep.atEvents.push_back(Ask(0, tStep.sWhat));
  return tStep;
}

// Adds a start.  If it does not use the saved positions, it must find the lens wherever it stands.
void AddStart(const TCamera& tCamera, TOrderly& t) {
  const TLensModel& tModel = t.tModel;
  enum EStart : u64 { FIRST, RESTORE, BACKUP, NORMAL };
  const u64 qwDrawn = t.tDraw.Below(6);
  const EStart eStart = qwDrawn >= NORMAL || !CanFindAtStart(tModel) ? NORMAL : static_cast<EStart>(qwDrawn);
  if (eStart == NORMAL) {
    Add(t, "start", t.qwStart_ms);
    return;
  }
  constexpr const char* aszStatus[] = {"", "restore\n", "backup\n"};
  if (eStart == FIRST) {
    unlink(tCamera.Path(szStatusPath).c_str());
  } else {
    tCamera.Write(szStatusPath, aszStatus[eStart]);
  }
  for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
    if (eStart == BACKUP || Model_IsICS(tModel) || !Model_HasAxis(tModel, eAxis)) continue;
    tCamera.Place(eAxis, static_cast<u32>(t.tDraw.Below(Model_Sheet(tModel, eAxis).dwEnd + 1)));
  }
  const u64 qwTakes_ms = static_cast<u64>(tModel.iChannels) * (8 * t.qwMove_ms + 6000) + 2 * t.qwAuto_ms + 20'000;
  constexpr const char* aszNames[] = {"first start", "start with a restore", "start with a backup"};
  TStep& tStep = Add(t, aszNames[eStart], t.qwStart_ms + qwTakes_ms);
  tStep.bTrue = eStart != BACKUP || tModel.iChannels == 1;
}

// Sends each channel to a place of its own.
void AddMoveOfEach(TOrderly& t) {
  const ELensAxis eAxis = Model_HasZoom(t.tModel) ? LENS_ZOOM : LENS_FOCUS;
  if (t.tModel.dwCapability == CAPABILITY_NONE) return;
  for (i32 i = 0; i < t.tModel.iChannels; i++) {
    const u32 dwPlace = Story_DrawPlace(t.tDraw, Model_Sheet(t.tModel, eAxis));
    const std::string sQuery = "channel=" + std::to_string(i) + "&" + Story_Direct(eAxis, dwPlace);
    TStep& tStep = Add(t, sQuery, 3 * t.qwMove_ms);
    tStep.atEvents.push_back(Ask(0, sQuery));
    tStep.bTrue = i + 1 == t.tModel.iChannels;
  }
}

void AddMoves(TOrderly& t) {
  const TLensModel& tModel = t.tModel;
  const bool bPan = Model_HasFocus(tModel) && !Model_IsICS(tModel);
  for (u32 dw = 0; dw < 2 && Model_HasZoom(tModel); dw++) {
    t.dwZoom = Story_DrawPlace(t.tDraw, tModel.tZoom);
    if (bPan) t.llFocus = Optics_PanFocus(tModel, std::max(t.dwZoom, 1U));
    TStep& tStep = AddAsk(t, Story_Direct(LENS_ZOOM, t.dwZoom), t.qwMove_ms);
    tStep.llZoom = t.dwZoom;
    tStep.llFocus = t.llFocus;
  }
  if (!Model_HasFocus(tModel) || Model_HasZoom(tModel)) return;
  t.llFocus = Story_DrawPlace(t.tDraw, tModel.tFocus);
  AddAsk(t, Story_Direct(LENS_FOCUS, static_cast<u64>(t.llFocus)), t.qwMove_ms).llFocus = t.llFocus;
}

void AddNightAndDay(const TCamera& tCamera, TOrderly& t) {
  if (!Model_HasFocus(t.tModel)) return;
  const bool bLED = !t.tDraw.OneIn(3);
  if (!bLED) {
    tCamera.Write(std::string("/") + szIRCutFile,
                  "<root><ircutcontrol><disableirled>1</disableirled><enableextled>0</enableextled></ircutcontrol>"
                  "</root>\n");
  }
  const bool bOffset = bLED || t.tModel.bFlangeBack != 0;
  for (const bool bNight : {true, false}) {
    const i64 llOffset = bOffset ? NightOffset(t.tModel, t.dwZoom) : 0;
    TStep& tStep = Add(t, bNight ? "night" : "day", t.qwNight_ms);
    tStep.atEvents.push_back(SetNight(0, bNight));
    if (t.llFocus == llAnything) continue;
    t.llFocus = ClampFocus(t.tModel, t.llFocus + (bNight ? llOffset : -llOffset));
    tStep.llFocus = t.llFocus;
  }
}

TStep& AddSearch(TOrderly& t, const std::string& sQuery, u64 qwTakes_ms) {
  t.llFocus = llAnything;
  TStep& tStep = AddAsk(t, sQuery, qwTakes_ms);
  tStep.bSharp = true;
  return tStep;
}

void AddTemperatures(TOrderly& t) {
  constexpr u64 qwChecks_ms = 370'000;  // two minutes from check to check, and a move
  constexpr i32 iPan_C = 25;
  if (t.tModel.bThermalTable == 0) return;
  const i32 iTemperature_C = static_cast<i32>(t.tDraw.Below(60)) - 10;
  const bool bMoves = std::abs(iTemperature_C - iPan_C) > 1;
  const i64 llShift = ThermalFocus(t.tModel, t.dwZoom, iTemperature_C) - ThermalFocus(t.tModel, t.dwZoom, iPan_C);
  for (const i32 iThen_C : {iTemperature_C, iPan_C}) {
    TStep& tStep = Add(t, "temperature " + std::to_string(iThen_C), qwChecks_ms);
    tStep.atEvents.push_back(SetTemperature(0, iThen_C));
    tStep.bFromHere = true;
    tStep.llFocus = !bMoves ? 0 : iThen_C == iTemperature_C ? llShift : -llShift;
  }
}

void AddSearches(TOrderly& t) {
  if (!Model_HasFocus(t.tModel)) return;
  constexpr double adDistances_m[] = {1.2, 3, 5, 20, 900};
  const double dDistance_m = adDistances_m[t.tDraw.Below(std::size(adDistances_m))];
  TStep& tStep = AddSearch(t, "function=auto", t.qwAuto_ms);
  tStep.atEvents.insert(tStep.atEvents.begin(), Call(0, [=](TWorld* ptWorld) { ptWorld->dDistance_m = dDistance_m; }));
  AddTemperatures(t);
  const bool bNight = t.tDraw.OneIn(2);
  Add(t, bNight ? "night" : "day", t.qwNight_ms).atEvents.push_back(SetNight(0, bNight));
  AddSearch(t, "function=scan", t.qwScan_ms);
  if (Model_IsICS(t.tModel) || !Model_HasZoom(t.tModel) || t.tModel.iChannels == 1) return;
  const TAxisSheet& tZoom = t.tModel.tZoom;
  const u32 dwFar = t.dwZoom * 2 < tZoom.dwStart + tZoom.dwEnd ? tZoom.dwEnd : tZoom.dwStart;
  const std::string sOther = "channel=" + std::to_string((t.iChannel + 1) % t.tModel.iChannels) + "&";
  Add(t, "the next channel zooms far away", t.qwMove_ms)
      .atEvents.push_back(Ask(0, sOther + Story_Direct(LENS_ZOOM, dwFar)));
  AddSearch(t, "function=auto", t.qwAuto_ms);
}

void AddReferences(TOrderly& t) {
  const TLensModel& tModel = t.tModel;
  if (tModel.dwCapability == CAPABILITY_NONE) return;
  const bool bICS = Model_IsICS(tModel);
  const i64 llZoom = !Model_HasZoom(tModel) ? llAnything
                     : bICS                 ? i64{tModel.atICS[LENS_ZOOM].iMin}
                                            : tModel.tZoom.dwStart;
  TStep& tReset = AddAsk(t, "function=motorreset", 3 * t.qwMove_ms + 3000);
  tReset.llZoom = llZoom;
  if (!bICS) tReset.llFocus = tModel.tFocus.bReverseCalibration != 0 ? i64{tModel.tFocus.dwEnd} : 0;
  if (Model_HasFocus(tModel)) AddSearch(t, "function=auto", t.qwAuto_ms).llZoom = llZoom;
  AddSearch(t, "function=positioning", t.qwAuto_ms + 3 * t.qwMove_ms).llZoom = llZoom;
}

void AddSteps(TOrderly& t) {
  if (!Model_HasFocus(t.tModel)) return;
  for (const char* szDirection : {"forward", "backward"}) {
    const std::string sSteps = std::to_string(t.tDraw.Below(30));
    AddAsk(t, "function=focus&steps=" + sSteps + "&direction=" + szDirection, t.qwMove_ms);
  }
}

void AddStops(TOrderly& t) {
  for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS, LENS_ZOOM, LENS_FOCUS}) {
    if (!Model_HasAxis(t.tModel, eAxis)) continue;
    const u64 qwStop_ms = 1 + t.tDraw.Below(Story_Walk_us(t.tModel, eAxis) / 1000 + 300);
    const u32 dwPlace = Story_DrawPlace(t.tDraw, Model_Sheet(t.tModel, eAxis));
    TStep& tStep = AddAsk(t, Story_Direct(eAxis, dwPlace), 2 * t.qwMove_ms + qwStop_ms);
    tStep.sWhat += " stopped after " + std::to_string(qwStop_ms) + " ms";
    tStep.atEvents.push_back(Ask(qwStop_ms, t.sChannel + "function=stop"));
  }
  if (t.tModel.dwCapability != CAPABILITY_FOCUS_ONLY || t.tModel.iChannels > 1) return;
  AddAsk(t, "function=resetfocus", 3 * t.qwMove_ms).llFocus = t.tModel.tFocus.dwFirstPosition;
}

TOrderly Begin(const TLensModel& tModel, TDraw& tDraw) {
  TOrderly t{.tModel = tModel, .tDraw = tDraw};
  t.iChannel = static_cast<i32>(tDraw.Below(static_cast<u64>(tModel.iChannels)));
  t.sChannel = "channel=" + std::to_string(t.iChannel) + "&";
  const u64 qwChannels = static_cast<u64>(tModel.iChannels);
  const u64 qwWalks_ms = (Story_Walk_us(tModel, LENS_ZOOM) + Story_Walk_us(tModel, LENS_FOCUS)) / 1000 + 1;
  t.qwMove_ms = 3 * qwWalks_ms + 2000;
  t.qwAuto_ms = Story_Search_us(tModel, false) / 1000 + 2 * t.qwMove_ms + 5000;
  t.qwScan_ms = Story_Search_us(tModel, true) / 1000 + 4 * t.qwMove_ms + 5000;
  t.qwNight_ms = qwChannels * t.qwMove_ms + 7000;
  t.qwStart_ms = 8000 + qwChannels * (4 * qwWalks_ms + 20'000);
  return t;
}

TLook* Looks() {
  static void* pvLooks =
      mmap(nullptr, dwMaxSteps * sizeof(TLook), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (pvLooks == MAP_FAILED) std::abort();
  return static_cast<TLook*>(pvLooks);
}

TLifeEvent LookAt(u64 qwAt_ms, std::size_t dwStep, i32 iChannel) {
  TLook* ptLook = Looks() + dwStep;
  return Call(qwAt_ms, [=](TWorld* ptWorld) {
    const TLens* ptLens = &ptWorld->tLens;
    Lens_Settle(&ptWorld->tLens, World_Now_us(ptWorld));
    for (i32 i = 0; i < iLensChannels; i++) {
      for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS})
        ptLook->adTrue[i][eAxis] = Lens_TrueVirtual(ptLens, i, eAxis);
    }
    ptLook->dGlass = Lens_GlassVirtual(ptLens, iChannel, LENS_FOCUS);
    ptLook->dSharp = World_SharpFocus(ptWorld, iChannel);
    ptLook->dDepth = World_DepthOfFocus(ptWorld, iChannel);
  });
}

std::string WhyNotSharp(const TLensModel& tModel, const TLook& tLook, i32 iFocus) {
  const TAxisSheet& tFocus = tModel.tFocus;
  const TSearchSheet& tSearch = tModel.tSearch;
  constexpr u32 dwICSOptics = 1500;  // steps: the curves need at least this range
  const bool bInRange = tLook.dSharp >= tFocus.dwStart && tLook.dSharp <= tFocus.dwEnd;
  if (Model_IsICS(tModel) && (!bInRange || tFocus.dwTotalStep < dwICSOptics)) return "";
  const double dStep = Model_IsICS(tModel) ? 4 : tSearch.bFineTuning != 0 ? tSearch.dwStepFine : tSearch.dwStepSmall;
  double dMay = tLook.dDepth + dStep * 0.75 + 1.5;
  // That near to 0 the daemon does not take up the slack.
  if (!Model_IsICS(tModel) && iFocus < static_cast<i32>(tFocus.dwAdjustStep)) {
    dMay += static_cast<double>(tFocus.iSlack) / tFocus.dwOneStep;
  }
  if (std::fabs(tLook.dGlass - tLook.dSharp) <= dMay) return "";
  return "out of focus: the glass at " + std::to_string(tLook.dGlass) + ", sharp at " + std::to_string(tLook.dSharp) +
         ", may be off by " + std::to_string(dMay);
}

std::string WhyNotThere(const std::string& sStatus, ELensAxis eAxis, i64 llWanted) {
  const i32 iPosition = StatusValue(sStatus, Judge_Name(eAxis) + "_motor");
  if (llWanted == llAnything || iPosition == llWanted) return "";
  return Judge_Name(eAxis) + " ended at " + std::to_string(iPosition) + ", expected " + std::to_string(llWanted);
}

// psStatus and psFormer are the status replies of all channels at the end of this step and of the one before.
std::string JudgeStep(const TOrderly& t, const TStep& tStep, const TLook& tLook, const std::string* psStatus,
                      const std::string* psFormer) {
  const TLensModel& tModel = t.tModel;
  for (i32 i = 0; i < tModel.iChannels; i++) {
    for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
      if (!Model_HasAxis(tModel, eAxis)) continue;
      std::string sWhy = Judge_Idle(psStatus[i], eAxis);
      if (sWhy.empty() && tStep.bTrue && !Story_IsShared(tModel))
        sWhy = Judge_Belief(psStatus[i], eAxis, tLook.adTrue[i][eAxis]);
      if (!sWhy.empty()) return "channel " + std::to_string(i) + ": " + sWhy;
    }
  }
  if (Story_IsShared(tModel)) return "";
  const std::string& sStatus = psStatus[t.iChannel];
  std::string sWhy;
  if (Model_HasZoom(tModel)) sWhy = WhyNotThere(sStatus, LENS_ZOOM, tStep.llZoom);
  if (!Model_HasFocus(tModel) || !sWhy.empty()) return sWhy;
  i64 llFocus = tStep.llFocus;
  if (tStep.bFromHere) {
    const i64 llFormer = StatusValue(psFormer[t.iChannel], "focus_motor");
    llFocus = llFocus == 0 ? llFormer : ClampFocus(tModel, llFormer + llFocus);
  }
  sWhy = WhyNotThere(sStatus, LENS_FOCUS, llFocus);
  if (sWhy.empty() && tStep.bSharp) sWhy = WhyNotSharp(tModel, tLook, StatusValue(sStatus, "focus_motor"));
  return sWhy;
}

// Runs the steps in one life and judges each.
void Live(const TCamera& tCamera, const TOrderly& t, u64 qwSeed, TLivesOutcome& tOutcome) {
  TLifePlan tPlan{.sRoot = tCamera.sRoot, .qwSeed = qwSeed};
  const std::size_t dwChannels = static_cast<std::size_t>(t.tModel.iChannels);
  std::vector<std::size_t> adwReplies;  // the number of each step's first status reply
  std::size_t dwRequests = 0;
  u64 qwAt_ms = 0;
  for (const TStep& tStep : t.atSteps) {
    for (TLifeEvent tEvent : tStep.atEvents) {
      tEvent.qwAt_us += qwAt_ms * 1000;
      if (tEvent.eKind == TLifeEvent::REQUEST) dwRequests++;
      tPlan.atEvents.push_back(tEvent);
    }
    qwAt_ms += tStep.qwTakes_ms;
    tPlan.atEvents.push_back(LookAt(qwAt_ms - qwLookAhead_ms, adwReplies.size(), t.iChannel));
    adwReplies.push_back(dwRequests);
    AskEachStatus(tPlan.atEvents, qwAt_ms - qwLookAhead_ms, t.tModel.iChannels);
    dwRequests += dwChannels;
  }
  tPlan.qwEnd_us = (qwAt_ms + 500) * 1000;
  const TLifeResult tResult = Life_Run(tPlan);
  tOutcome.sLoss = Judge_Order(tResult);
  for (std::size_t dw = 0; dw < t.atSteps.size() && tOutcome.sLoss.empty(); dw++) {
    const bool bAnswered = tResult.asReplies.size() >= adwReplies[dw] + dwChannels;
    const std::string* psStatus = bAnswered ? &tResult.asReplies[adwReplies[dw]] : nullptr;
    const std::string* psFormer = dw == 0 ? psStatus : &tResult.asReplies[adwReplies[dw - 1]];
    std::string sWhy = bAnswered ? JudgeStep(t, t.atSteps[dw], Looks()[dw], psStatus, psFormer) : "no reply";
    if (!sWhy.empty()) tOutcome.sLoss = t.atSteps[dw].sWhat + ": " + sWhy;
  }
  if (tOutcome.sLoss.empty() && Judge_HasLog(tCamera)) tOutcome.sLoss = "a working log stands";
  if (!tOutcome.sLoss.empty()) tOutcome.sTale = tResult.sTranscript + tResult.sStderr;
}

}  // namespace

TLivesOutcome OrderlyLife_Try(const TCamera& tCamera, const TLensModel& tModel, u64 qwSeed) {
  if (Life_ResetRoot(tCamera.sRoot) != 0) std::abort();
  tCamera.Write(szBackupPath, szBackupText);
  TDraw tDraw(qwSeed);
  TLivesOutcome tOutcome;
  TOrderly tFirst = Begin(tModel, tDraw);
  AddStart(tCamera, tFirst);
  AddMoveOfEach(tFirst);
  AddMoves(tFirst);
  AddNightAndDay(tCamera, tFirst);
  AddSearches(tFirst);
  AddReferences(tFirst);
  AddSteps(tFirst);
  AddStops(tFirst);
  Live(tCamera, tFirst, qwSeed, tOutcome);
  if (!tOutcome.sLoss.empty()) return tOutcome;

  TOrderly tNext = Begin(tModel, tDraw);
  Add(tNext, "restart", tNext.qwStart_ms).bTrue = tModel.iChannels == 1 || Story_StartFindsAll(tModel);
  AddMoveOfEach(tNext);
  if (Model_HasFocus(tModel)) AddSearch(tNext, "function=auto", tNext.qwAuto_ms);
  Live(tCamera, tNext, qwSeed + 1, tOutcome);
  if (!tOutcome.sLoss.empty()) tOutcome.sLoss = "in the next life: " + tOutcome.sLoss;
  return tOutcome;
}
