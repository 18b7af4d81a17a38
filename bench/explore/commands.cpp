#include "explore/commands.h"

#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "camera/world_image.h"
#include "clock/clock.h"
#include "core/paths.h"
#include "explore/oracle.h"
#include "judge.h"
#include "lenses/lens_model.h"
#include "life/gatelink_script.h"

namespace {

constexpr TPairLens g_atLenses[] = {
    {"zoom", 200, 70'000, 200'000, 202, 198, 488, 480},     {"thermal", 200, 70'000, 200'000, 162, 150, 703, 690},
    {"ics", 30'000, 70'000, 200'000, 604, 590, 1220, 1200}, {"quad", 200'000, 120'000, 350'000, 102, 98, 190, 180},
    {"zoomonly", 200, 70'000, 200'000, 42, 38, 0, 0},       {"focus", 20'000, 70'000, 200'000, 0, 0, 530, 510},
};

constexpr const char* szNoQuery = "";

constexpr TPairCommand Query(const char* szName, const char* szQuery, u32 dwPromises) {
  return {.szName = szName,
          .szQuery = szQuery,
          .szFrame = nullptr,
          .szRelease = nullptr,
          .qwHeld_ms = 0,
          .dwPromises = dwPromises,
          .eSeenBy = SEEN_BY_SELECT};
}

constexpr TPairCommand Event(const char* szName, const char* szFrame, const char* szRelease, u64 qwHeld_ms,
                             u32 dwPromises) {
  return {.szName = szName,
          .szQuery = szNoQuery,
          .szFrame = szFrame,
          .szRelease = szRelease,
          .qwHeld_ms = qwHeld_ms,
          .dwPromises = dwPromises,
          .eSeenBy = SEEN_BY_SELECT};
}

constexpr TPairCommand World(const char* szName, ESeenBy eSeenBy, u32 dwPromises) {
  return {.szName = szName,
          .szQuery = szNoQuery,
          .szFrame = nullptr,
          .szRelease = nullptr,
          .qwHeld_ms = 0,
          .dwPromises = dwPromises,
          .eSeenBy = eSeenBy};
}

// A query that ends in '=' is completed with the lens's target.
constexpr TPairCommand g_atCommands[] = {
    Query("zoom", "zoom&direction=direct&position=", PROMISES_ZOOM),
    Query("zoomback", "zoom&direction=direct&position=", PROMISES_ZOOM_BACK),
    Query("zoomhere", "zoom&direction=forward&steps=0", PROMISES_NOTHING),
    Query("focus", "focus&direction=direct&position=", PROMISES_FOCUS),
    Query("focusback", "focus&direction=direct&position=", PROMISES_FOCUS_BACK),
    Query("auto", "auto", PROMISES_SHARP),
    Query("auto&iris", "auto&iris", PROMISES_SHARP),
    Query("scan", "scan", PROMISES_SHARP),
    Query("positioning", "positioning", PROMISES_REFERENCE | PROMISES_SHARP),
    Query("motorreset", "motorreset", PROMISES_REFERENCE | LEAVES_SEARCH),
    Query("resetfocus", "resetfocus", PROMISES_NOTHING),
    Query("stop", "stop", STOPS | LEAVES_SEARCH),
    Query("irisopen", "irisopen", WALKS_NOTHING),
    Query("irisenable", "irisenable", WALKS_NOTHING),
    Query("setdefault", "setfocusdefault&defaultposition=300", PROMISES_DEFAULT | WALKS_NOTHING),
    Event("hold", "<zoominbutton>pressed</zoominbutton>", "<zoominbutton>released</zoominbutton>", 700,
          PROMISES_NOTHING),
    Event("holdlong", "<zoomoutbutton>pressed</zoomoutbutton>", "<zoomoutbutton>released</zoomoutbutton>", 1700,
          PROMISES_NOTHING),
    Event("af", "<afbutton>pressed</afbutton>", "<afbutton>released</afbutton>", 300, PROMISES_NOTHING),
    Event("aflong", "<afbutton>pressed</afbutton>", "<afbutton>released</afbutton>", 2300, PROMISES_NOTHING),
    Event("restore", "<autofocus>falling</autofocus>", nullptr, 0, PROMISES_NOTHING),
    Event("backup", "<autofocus>rising</autofocus>", nullptr, 0, PROMISES_SAVED_ZOOM | PROMISES_SAVED_FOCUS),
    World("night", SEEN_BY_CLOCK, CHANGES_LIGHT),
    World("term", SEEN_BY_ANYONE, ENDS_LIFE),
};

std::string FullQuery(const TPairLens& tLens, const TPairCommand& tCommand) {
  const std::string sQuery = std::string("function=") + tCommand.szQuery;
  switch (tCommand.dwPromises) {
    case PROMISES_ZOOM:
      return sQuery + std::to_string(tLens.iZoom);
    case PROMISES_ZOOM_BACK:
      return sQuery + std::to_string(tLens.iZoomBack);
    case PROMISES_FOCUS:
      return sQuery + std::to_string(tLens.iFocus);
    case PROMISES_FOCUS_BACK:
      return sQuery + std::to_string(tLens.iFocusBack);
    default:
      return sQuery;
  }
}

TArrival Request(u64 qwLatest_ms, u32 dwNumber, std::string sQuery) {
  return {.qwLatest_us = qwLatest_ms * 1000,
          .eSeenBy = SEEN_BY_SELECT,
          .fnHappen = [dwNumber, sQuery = std::move(sQuery)](TWorld*) {
            GatelinkScript_Request(dwNumber, "GET", sQuery.c_str());
          }};
}

TArrival Message(u64 qwLatest_ms, const TCamera& tCamera, const char* szContent) {
  return {.qwLatest_us = qwLatest_ms * 1000,
          .eSeenBy = SEEN_BY_SELECT,
          .fnHappen = Frame(0, tCamera, EventFrame("<message>" + std::string(szContent) + "</message>")).fnCall};
}

// The command's arrivals, the first by qwLatest_ms.  Requests take their numbers from *pdwRequests on.
std::vector<TArrival> Arrivals(const TPairLens& tLens, const TPairCommand& tCommand, const TCamera& tCamera,
                               u64 qwLatest_ms, u32* pdwRequests) {
  std::vector<TArrival> atArrivals;
  if (*tCommand.szQuery != '\0') {
    atArrivals.push_back(Request(qwLatest_ms, (*pdwRequests)++, FullQuery(tLens, tCommand)));
  } else if (tCommand.szFrame != nullptr) {
    atArrivals.push_back(Message(qwLatest_ms, tCamera, tCommand.szFrame));
    if (tCommand.szRelease != nullptr) {
      atArrivals.push_back(Message(tCommand.qwHeld_ms, tCamera, tCommand.szRelease));
    }
  } else if (tCommand.eSeenBy == SEEN_BY_ANYONE) {
    atArrivals.push_back({.qwLatest_us = qwLatest_ms * 1000, .eSeenBy = SEEN_BY_ANYONE, .fnHappen = [](TWorld*) {
                            Clock_Signal(SIGTERM);
                          }});
  } else {
    atArrivals.push_back({.qwLatest_us = qwLatest_ms * 1000, .eSeenBy = SEEN_BY_CLOCK, .fnHappen = [](TWorld* ptWorld) {
                            ptWorld->bNight = 1;
                          }});
  }
  return atArrivals;
}

bool EndsLife(const TPair& tPair) {
  return (tPair.ptSecond->dwPromises & ENDS_LIFE) != 0;
}

bool HasAxis(const TLensModel& tModel, ELensAxis eAxis) {
  return eAxis == LENS_ZOOM ? Model_HasZoom(tModel) : Model_HasFocus(tModel);
}

std::string JudgeStatus(const TLensModel& tModel, const TCamera& tCamera, const TLifeResult& tResult, u32 dwRequests) {
  if (tResult.asReplies.size() < dwRequests) return "a client without an answer";
  for (u32 dw = 0; dw < dwRequests; dw++) {
    if (tResult.asReplies[dw].empty()) return "a client without an answer";
  }
  for (i32 i = 0; i < tModel.iChannels; i++) {
    const std::string& sStatus = tResult.asReplies[dwRequests - static_cast<u32>(tModel.iChannels - i)];
    for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
      if (!HasAxis(tModel, eAxis)) continue;
      std::string sWhy = Judge_Idle(sStatus, eAxis);
      if (sWhy.empty()) sWhy = Judge_Belief(sStatus, eAxis, tCamera.Truth(eAxis, i));
      if (!sWhy.empty()) return "channel " + std::to_string(i) + ": " + sWhy;
    }
  }
  return "";
}

// The end of the life; a recovery that a client has ended, and of several channels also one that a command has gone
// ahead of: the log then has the next start do what is missing.
bool MayLeaveLog(const TPair& tPair) {
  if (EndsLife(tPair)) return true;
  const bool bSeveral = Lenses_Find(tPair.ptLens->szModel)->iChannels > 1;
  return tPair.ptFirst == nullptr && (bSeveral || (tPair.ptSecond->dwPromises & LEAVES_SEARCH) != 0);
}

bool HasLog(const TCamera& tCamera) {
  return access(tCamera.Path(szZoomLogPath).c_str(), F_OK) == 0 ||
         access(tCamera.Path(szFocusLogPath).c_str(), F_OK) == 0;
}

// One set serves all channels: it is true if it is of one of them.
bool IsSavedTrue(const TLensModel& tModel, const TCamera& tCamera) {
  const std::string sSaved = tCamera.Read(Model_IsICS(tModel) ? szICSPositionsPath : szPositionsPath);
  const auto IsTrue = [&](ELensAxis eAxis, i32 iChannel) {
    const std::string sKey = Judge_Name(eAxis) + "_motor=";
    const std::size_t dwAt = sSaved.find(sKey);
    return !HasAxis(tModel, eAxis) ||
           (dwAt != sSaved.npos && std::atoi(sSaved.c_str() + dwAt + sKey.size()) == tCamera.Truth(eAxis, iChannel));
  };
  for (i32 i = 0; i < tModel.iChannels; i++) {
    if (IsTrue(LENS_ZOOM, i) && IsTrue(LENS_FOCUS, i)) return true;
  }
  return false;
}

std::string JudgePlace(const TCamera& tCamera, ELensAxis eAxis, i32 iTarget) {
  const double dTruth = tCamera.Truth(eAxis);
  if (dTruth == iTarget) return "";
  return Judge_Name(eAxis) + " ends at " + std::to_string(static_cast<i32>(dTruth)) + ", not at " +
         std::to_string(iTarget);
}

bool IsSharp(const TCamera& tCamera) {
  TWorld* ptWorld = World_Map(tCamera.sRoot.c_str());
  const double dMissed = std::fabs(Lens_GlassVirtual(&ptWorld->tLens, 0, LENS_FOCUS) - World_SharpFocus(ptWorld, 0));
  const bool bSharp = dMissed <= World_DepthOfFocus(ptWorld, 0);
  World_Unmap(ptWorld);
  return bSharp;
}

std::string JudgeZoomPromise(const TPairLens& tLens, bool bICS, u32 dwPromises, const TCamera& tCamera) {
  constexpr i32 iICSReference = 100;
  if ((dwPromises & PROMISES_ZOOM) != 0) return JudgePlace(tCamera, LENS_ZOOM, tLens.iZoom);
  if ((dwPromises & PROMISES_ZOOM_BACK) != 0) return JudgePlace(tCamera, LENS_ZOOM, tLens.iZoomBack);
  if ((dwPromises & PROMISES_REFERENCE) != 0) return JudgePlace(tCamera, LENS_ZOOM, bICS ? iICSReference : 0);
  if ((dwPromises & PROMISES_SAVED_ZOOM) != 0 && !bICS) return JudgePlace(tCamera, LENS_ZOOM, dwPairBackupZoom);
  return "";
}

std::string JudgeFocusPromise(const TPairLens& tLens, bool bICS, u32 dwPromises, const TCamera& tCamera) {
  if ((dwPromises & PROMISES_FOCUS) != 0) return JudgePlace(tCamera, LENS_FOCUS, tLens.iFocus);
  if ((dwPromises & PROMISES_FOCUS_BACK) != 0) return JudgePlace(tCamera, LENS_FOCUS, tLens.iFocusBack);
  if ((dwPromises & PROMISES_SAVED_FOCUS) != 0 && !bICS) return JudgePlace(tCamera, LENS_FOCUS, dwPairBackupFocus);
  if ((dwPromises & PROMISES_SHARP) != 0 && !bICS && !IsSharp(tCamera)) return "not sharp";
  return "";
}

std::string JudgeIris(const TCamera& tCamera, const std::string& sStatus) {
  u32 adwBlock[BLOCK_WORDS] = {};
  const std::string sBlock = tCamera.Read("/shm/0");
  std::memcpy(adwBlock, sBlock.data(), std::min(sBlock.size(), sizeof adwBlock));
  const i32 iAsked = static_cast<i32>(adwBlock[BLOCK_IRIS_REQUEST]);
  const i32 iSaid = StatusValue(sStatus, "iris_open");
  if (iAsked == iSaid) return "";
  return "iris asked of the image side " + std::to_string(iAsked) + ", status says " + std::to_string(iSaid);
}

std::string JudgePromises(const TPair& tPair, const TLensModel& tModel, const TCamera& tCamera) {
  const bool bICS = Model_IsICS(tModel);
  const u32 dwFirst = tPair.ptFirst != nullptr ? tPair.ptFirst->dwPromises : PROMISES_NOTHING;
  u32 dwPromises = tPair.ptSecond->dwPromises;
  if ((dwFirst & CHANGES_LIGHT) != 0) dwPromises &= ~static_cast<u32>(PROMISES_OF_FOCUS);
  if (tPair.ptFirst == nullptr && (dwPromises & (WALKS_NOTHING | STOPS)) != 0) dwPromises |= PROMISES_SHARP;
  std::string sWhy;
  if (Model_HasZoom(tModel)) sWhy = JudgeZoomPromise(*tPair.ptLens, bICS, dwPromises, tCamera);
  if (sWhy.empty() && Model_HasFocus(tModel)) sWhy = JudgeFocusPromise(*tPair.ptLens, bICS, dwPromises, tCamera);
  if (!sWhy.empty() || !Model_HasFocus(tModel)) return sWhy;
  const bool bDefault =
      ((dwFirst | dwPromises) & PROMISES_DEFAULT) != 0 && tModel.dwCapability == CAPABILITY_FOCUS_ONLY;
  if (bDefault && std::atoi(tCamera.Read(szFocusDefaultPath).c_str()) != static_cast<i32>(dwPairDefault)) {
    return "the focus default is not stored";
  }
  return "";
}

}  // namespace

std::span<const TPairLens> PairLenses() {
  return g_atLenses;
}

std::span<const TPairCommand> PairCommands() {
  return g_atCommands;
}

TPair Pair_Find(const std::string& sLens, const std::string& sFirst, const std::string& sSecond) {
  TPair tPair = {};
  for (const TPairLens& tLens : g_atLenses) {
    if (sLens == tLens.szModel) tPair.ptLens = &tLens;
  }
  for (const TPairCommand& tCommand : g_atCommands) {
    if (sFirst == tCommand.szName) tPair.ptFirst = &tCommand;
    if (sSecond == tCommand.szName) tPair.ptSecond = &tCommand;
  }
  return tPair;
}

std::vector<TPair> Pair_All(const TPairLens& tLens) {
  std::vector<TPair> atPairs;
  for (const TPairCommand& tSecond : g_atCommands) {
    if (!Model_IsICS(*Lenses_Find(tLens.szModel))) atPairs.push_back({&tLens, nullptr, &tSecond});
    for (const TPairCommand& tFirst : g_atCommands) {
      if ((tFirst.dwPromises & ENDS_LIFE) == 0) atPairs.push_back({&tLens, &tFirst, &tSecond});
    }
  }
  return atPairs;
}

std::string Pair_Name(const TPair& tPair) {
  return std::string(tPair.ptLens->szModel) + "/" + (tPair.ptFirst != nullptr ? tPair.ptFirst->szName : szRecovery) +
         "/" + tPair.ptSecond->szName;
}

TPairLife Pair_Prepare(const TPair& tPair, const TCamera& tCamera) {
  const TPairLens& tLens = *tPair.ptLens;
  if (Life_ResetRoot(tCamera.sRoot) != 0) std::abort();
  tCamera.Write(szBackupPath, "zoom_motor=" + std::to_string(dwPairBackupZoom) +
                                  "\nfocus_motor=" + std::to_string(dwPairBackupFocus) + "\n");
  TPairLife tLife = {};
  tLife.tPlan.sRoot = tCamera.sRoot;
  const u64 qwFrom_ms = tPair.ptFirst != nullptr ? tLens.qwReady_ms : 0;
  u64 qwAt_ms = qwFrom_ms;
  if (tPair.ptFirst == nullptr) {
    const TLensModel& tModel = *Lenses_Find(tLens.szModel);
    if (Model_HasZoom(tModel)) tCamera.Write(szZoomLogPath, "");
    if (Model_HasFocus(tModel)) tCamera.Write(szFocusLogPath, "");
  } else {
    for (const TArrival& tArrival : Arrivals(tLens, *tPair.ptFirst, tCamera, 0, &tLife.dwRequests)) {
      qwAt_ms += tArrival.qwLatest_us / 1000;
      tLife.tPlan.atEvents.push_back(Call(qwAt_ms, tArrival.fnHappen));
    }
  }
  const u64 qwRest_ms = qwFrom_ms + tLens.qwRest_ms;
  tLife.tSchedule.atArrivals = Arrivals(tLens, *tPair.ptSecond, tCamera, tLens.qwSecond_ms, &tLife.dwRequests);
  tLife.tSchedule.qwOpens_us = qwAt_ms * 1000;
  tLife.tSchedule.qwCloses_us = (qwAt_ms + tLens.qwSecond_ms + 3000) * 1000;
  tLife.tPlan.qwEnd_us = (qwRest_ms + 300) * 1000;
  if (EndsLife(tPair)) return tLife;
  tLife.tPlan.atEvents.push_back(Call(qwRest_ms, [](TWorld*) { Oracle_AtRest(); }));
  for (i32 i = 0; i < Lenses_Find(tLens.szModel)->iChannels; i++) {
    const std::string sQuery = "channel=" + std::to_string(i) + "&function=getstatus";
    tLife.tPlan.atEvents.push_back(Call(qwRest_ms, Request(0, tLife.dwRequests++, sQuery).fnHappen));
  }
  return tLife;
}

std::string Pair_Judge(const TPair& tPair, const TCamera& tCamera, u32 dwRequests, const TLifeResult& tResult) {
  const TLensModel& tModel = *Lenses_Find(tPair.ptLens->szModel);
  std::string sWhy = Judge_Order(tResult);
  if (sWhy.empty() && !EndsLife(tPair)) sWhy = JudgeStatus(tModel, tCamera, tResult, dwRequests);
  if (!sWhy.empty()) return sWhy;
  if (HasLog(tCamera)) return MayLeaveLog(tPair) ? "" : "a working log is left";
  if (!IsSavedTrue(tModel, tCamera)) return "saved positions are not true";
  if (EndsLife(tPair)) return "";
  sWhy = JudgePromises(tPair, tModel, tCamera);
  return sWhy.empty() && Model_HasFocus(tModel) ? JudgeIris(tCamera, tResult.asReplies.back()) : sWhy;
}
