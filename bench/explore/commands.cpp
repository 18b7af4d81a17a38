#include "explore/commands.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>

#include "clock/clock.h"
#include "core/paths.h"
#include "explore/oracle.h"
#include "judge.h"
#include "lens/lens_model.h"
#include "life/gatelink_script.h"

namespace {

constexpr TPairLens g_atLenses[] = {
    {"zoom", 200, 70'000, 200'000, 202, 198, 488, 480},     {"thermal", 200, 70'000, 200'000, 162, 150, 703, 690},
    {"ics", 30'000, 70'000, 200'000, 604, 590, 1220, 1200}, {"quad", 200'000, 120'000, 350'000, 102, 98, 190, 180},
    {"zoomonly", 200, 70'000, 200'000, 42, 38, 0, 0},       {"focus", 20'000, 70'000, 200'000, 0, 0, 530, 510},
};

constexpr TPairCommand g_atCommands[] = {
    {"zoom", PROMISES_ZOOM, "zoom&direction=direct&position="},
    {"zoomback", PROMISES_ZOOM_BACK, "zoom&direction=direct&position="},
    {"zoomhere", PROMISES_NOTHING, "zoom&direction=forward&steps=0"},
    {"focus", PROMISES_FOCUS, "focus&direction=direct&position="},
    {"focusback", PROMISES_FOCUS_BACK, "focus&direction=direct&position="},
    {"auto", PROMISES_SHARP, "auto"},
    {"auto&iris", PROMISES_SHARP, "auto&iris"},
    {"scan", PROMISES_SHARP, "scan"},
    {"positioning", PROMISES_REFERENCE | PROMISES_SHARP, "positioning"},
    {"motorreset", PROMISES_REFERENCE | LEAVES_SEARCH, "motorreset"},
    {"resetfocus", PROMISES_NOTHING, "resetfocus"},
    {"stop", STOPS | LEAVES_SEARCH, "stop"},
    {"irisopen", WALKS_NOTHING, "irisopen"},
    {"irisenable", WALKS_NOTHING, "irisenable"},
    {"setdefault", PROMISES_DEFAULT | WALKS_NOTHING, "setfocusdefault&defaultposition=300"},
    {"hold", PROMISES_NOTHING, nullptr, "<zoominbutton>pressed</zoominbutton>", 700},
    {"holdlong", PROMISES_NOTHING, nullptr, "<zoomoutbutton>pressed</zoomoutbutton>", 1700},
    {"af", PROMISES_NOTHING, nullptr, "<afbutton>pressed</afbutton>", 300},
    {"aflong", PROMISES_NOTHING, nullptr, "<afbutton>pressed</afbutton>", 2300},
    {"restore", PROMISES_NOTHING, nullptr, "<autofocus>falling</autofocus>"},
    {"backup", PROMISES_SAVED_ZOOM | PROMISES_SAVED_FOCUS, nullptr, "<autofocus>rising</autofocus>"},
    {"night", CHANGES_LIGHT, nullptr, nullptr, 0, SEEN_BY_CLOCK},
    {"term", ENDS_LIFE, nullptr, nullptr, 0, SEEN_BY_ANYONE},
};

// Where an axis ends if a command promises it.
struct TPlace {
  EPromise ePromise;
  ELensAxis eAxis;
  i32 iPlace;  // virtual steps
};

// For an ICS lens the positions of the backup are not judged.
std::vector<TPlace> Places(const TPairLens& tLens, bool bICS) {
  constexpr i32 iICSReference = 100;
  std::vector<TPlace> atPlaces = {{PROMISES_ZOOM, LENS_ZOOM, tLens.iZoom},
                                  {PROMISES_ZOOM_BACK, LENS_ZOOM, tLens.iZoomBack},
                                  {PROMISES_FOCUS, LENS_FOCUS, tLens.iFocus},
                                  {PROMISES_FOCUS_BACK, LENS_FOCUS, tLens.iFocusBack},
                                  {PROMISES_REFERENCE, LENS_ZOOM, bICS ? iICSReference : 0}};
  if (bICS) return atPlaces;
  atPlaces.push_back({PROMISES_SAVED_ZOOM, LENS_ZOOM, dwPairBackupZoom});
  atPlaces.push_back({PROMISES_SAVED_FOCUS, LENS_FOCUS, dwPairBackupFocus});
  return atPlaces;
}

std::string FullQuery(const TPairLens& tLens, const TPairCommand& tCommand) {
  std::string sQuery = std::string("function=") + tCommand.szQuery;
  for (const TPlace& tPlace : Places(tLens, false)) {
    if (sQuery.back() == '=' && tCommand.dwPromises == tPlace.ePromise) return sQuery + std::to_string(tPlace.iPlace);
  }
  return sQuery;
}

TArrival Request(u64 qwLatest_ms, u32 dwNumber, std::string sQuery) {
  return {.qwLatest_us = qwLatest_ms * 1000,
          .eSeenBy = SEEN_BY_SELECT,
          .fnHappen = [dwNumber, sQuery = std::move(sQuery)](TWorld*) {
            GatelinkScript_Request(dwNumber, "GET", sQuery.c_str());
          }};
}

TArrival Message(u64 qwLatest_ms, const TCamera& tCamera, const std::string& sContent) {
  return {.qwLatest_us = qwLatest_ms * 1000,
          .eSeenBy = SEEN_BY_SELECT,
          .fnHappen = Frame(0, tCamera, EventFrame("<message>" + sContent + "</message>")).fnCall};
}

// What arrives for a command, the first by qwLatest_ms.  Requests are numbered from *pdwRequests on.
std::vector<TArrival> Arrivals(const TPairLens& tLens, const TPairCommand& tCommand, const TCamera& tCamera,
                               u64 qwLatest_ms, u32* pdwRequests) {
  std::vector<TArrival> atArrivals;
  if (tCommand.szQuery != nullptr) {
    atArrivals.push_back(Request(qwLatest_ms, (*pdwRequests)++, FullQuery(tLens, tCommand)));
  } else if (tCommand.szFrame != nullptr) {
    atArrivals.push_back(Message(qwLatest_ms, tCamera, tCommand.szFrame));
    const std::string sReleased = Replaced(tCommand.szFrame, "pressed", "released");
    if (tCommand.qwHeld_ms != 0) atArrivals.push_back(Message(tCommand.qwHeld_ms, tCamera, sReleased));
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

std::string JudgeStatus(const TLensModel& tModel, const TCamera& tCamera, const TLifeResult& tResult, u32 dwRequests) {
  const bool bAll = tResult.asReplies.size() == dwRequests &&
                    std::ranges::none_of(tResult.asReplies, [](const std::string& sReply) { return sReply.empty(); });
  return bAll ? Judge_Channels(tCamera, tModel, tModel.iChannels, tResult) : "a client without an answer";
}

// A log may stay after the end of the life, and after a recovery that a client has ended.  On several channels also if
// a command came before the recovery of all of them.  The log makes the next start do what is missing.
bool MayLeaveLog(const TPair& tPair) {
  if (EndsLife(tPair)) return true;
  const bool bSeveral = Lenses_Find(tPair.ptLens->szModel)->iChannels > 1;
  return tPair.ptFirst == nullptr && (bSeveral || (tPair.ptSecond->dwPromises & LEAVES_SEARCH) != 0);
}

// There is one saved set for all channels: it is true if it is the true one of any channel.
bool IsSavedTrue(const TLensModel& tModel, const TCamera& tCamera) {
  const std::string sSaved = tCamera.Read(Model_IsICS(tModel) ? szICSPositionsPath : szPositionsPath);
  const auto IsTrue = [&](ELensAxis eAxis, i32 iChannel) {
    const std::string sKey = Judge_Name(eAxis) + "_motor=";
    const std::size_t dwAt = sSaved.find(sKey);
    return !Model_HasAxis(tModel, eAxis) ||
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

std::string JudgeIris(const TCamera& tCamera, const std::string& sStatus) {
  const i32 iAsked = static_cast<i32>(Judge_Published(tCamera, BLOCK_IRIS_REQUEST, 0));
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
  for (const TPlace& tPlace : Places(*tPair.ptLens, bICS)) {
    if ((dwPromises & tPlace.ePromise) == 0 || !Model_HasAxis(tModel, tPlace.eAxis)) continue;
    std::string sWhy = JudgePlace(tCamera, tPlace.eAxis, tPlace.iPlace);
    if (!sWhy.empty()) return sWhy;
  }
  if (!Model_HasFocus(tModel)) return "";
  if ((dwPromises & PROMISES_SHARP) != 0 && !bICS && !Judge_Sharpness(tCamera).empty()) return "not sharp";
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

TPair Pair_Find(const std::string& sName) {
  for (const TPairLens& tLens : g_atLenses) {
    for (const TPair& tPair : Pair_All(tLens)) {
      if (Pair_Name(tPair) == sName) return tPair;
    }
  }
  return {};
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
  if (Judge_HasLog(tCamera)) return MayLeaveLog(tPair) ? "" : "a working log is left";
  if (!IsSavedTrue(tModel, tCamera)) return "saved positions are not true";
  if (EndsLife(tPair)) return "";
  sWhy = JudgePromises(tPair, tModel, tCamera);
  return sWhy.empty() && Model_HasFocus(tModel) ? JudgeIris(tCamera, tResult.asReplies.back()) : sWhy;
}
