#include "explore/explorer.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <tuple>
#include <unordered_map>
#include <unordered_set>

#include "clock/clock.h"

namespace {

constexpr u32 dwSoon = 120;               // a task touches a word soon if it does so within these next accesses
constexpr u32 dwSoonOfMain = 400;         // the same for the main thread, which first reads its input
constexpr u32 dwFirstTimes = 2;           // a place of the code is tried the first times that it runs, and the last
constexpr u32 dwLongSleep_us = 200;       // by which a sleep overruns
constexpr std::size_t dwTimeColumn = 16;  // characters of the time in a transcript's line

u64 Mix(u64 qwLeft, u64 qwRight) {
  qwLeft ^= qwRight + 0x9E3779B97F4A7C15u + (qwLeft << 6) + (qwLeft >> 2);
  qwLeft *= 0xBF58476D1CE4E5B9u;
  return qwLeft ^ (qwLeft >> 29);
}

// A number for the order of accesses.  If each word is accessed in the same order in two lives, they count as one.
u64 OrderOfAccesses(std::span<const TPoint> atPoints) {
  struct TWord {
    u64 qwWrites, qwReads;  // the order of reads between two writes does not matter
  };
  std::unordered_map<u64, TWord> mapWords;
  for (const TPoint& tPoint : atPoints) {
    if (tPoint.ePoint != POINT_ACCESS && tPoint.ePoint != POINT_SLEEP) continue;
    const bool bWrite = tPoint.bWrite || tPoint.ePoint == POINT_SLEEP;
    TWord& tWord = mapWords[tPoint.ePoint == POINT_SLEEP ? tPoint.byTask : tPoint.qwWord];
    const u64 qwThis = Mix(Mix(tPoint.byTask, tPoint.qwTime_us), tPoint.qwPlace);
    if (bWrite)
      tWord = {.qwWrites = Mix(Mix(tWord.qwWrites, tWord.qwReads), qwThis), .qwReads = 0};
    else
      tWord.qwReads += qwThis;
  }
  u64 qwAll = 0;
  for (const auto& [qwWord, tWord] : mapWords) qwAll += Mix(qwWord, Mix(tWord.qwWrites, tWord.qwReads));
  return qwAll;
}

u64 OutcomeOf(const TExploredLife& tLife) {
  const std::string& sText = tLife.tResult.sTranscript;
  const std::hash<std::string_view> tHash;
  u64 aqwAxis[2] = {};
  for (std::size_t dwAt = 0; dwAt < sText.size();) {
    const std::size_t dwEnd = std::min(sText.find('\n', dwAt), sText.size());
    const std::string_view sLine(sText.data() + dwAt, dwEnd - dwAt);
    dwAt = dwEnd + 1;
    const bool bTold = sLine.find("motor MOTOR_") != sLine.npos || sLine.find("icsdriver") != sLine.npos ||
                       sLine.find(" takes ") != sLine.npos;
    if (!bTold) continue;
    u64& qwAxis = aqwAxis[sLine.find("zoom") != sLine.npos ? 0 : 1];
    qwAxis = Mix(qwAxis, tHash(sLine.substr(std::min(sLine.size(), dwTimeColumn))));
  }
  return Mix(Mix(aqwAxis[0], aqwAxis[1]), tHash(tLife.sLoss));
}

class TCandidates {
 public:
  TCandidates(std::span<const TPoint> atPoints, u32 dwFrom, bool bPrunes);
  std::vector<TDeviation> All();

 private:
  using TPlace = std::tuple<EPoint, u32, u64, u64, u32>;
  TPlace PlaceOf(u32 dwPoint) const;
  bool IsRare(u32 dwPoint);
  bool Touches(u32 dwTask, u32 dwPoint, u32 dwHowSoon) const;
  void AtAccess(u32 dwPoint);
  void AtOrder(u32 dwPoint);

  std::span<const TPoint> m_atPoints;
  u32 m_dwFrom;
  bool m_bPrunes;
  std::vector<u32> m_adwAccesses[iMaxTasks] = {};  // points, by task
  std::map<TPlace, u32> m_mapAll = {}, m_mapSeen = {};
  std::vector<TDeviation> m_atDeviations = {};
};

TCandidates::TCandidates(std::span<const TPoint> atPoints, u32 dwFrom, bool bPrunes)
    : m_atPoints(atPoints), m_dwFrom(dwFrom), m_bPrunes(bPrunes) {
  for (u32 dw = dwFrom; dw < atPoints.size(); dw++) {
    if (atPoints[dw].ePoint == POINT_ACCESS) m_adwAccesses[atPoints[dw].byTask].push_back(dw);
    m_mapAll[PlaceOf(dw)]++;
  }
}

TCandidates::TPlace TCandidates::PlaceOf(u32 dwPoint) const {
  const TPoint& tPoint = m_atPoints[dwPoint];
  return {tPoint.ePoint, tPoint.byTask, tPoint.qwPlace, tPoint.qwWord,
          tPoint.ePoint == POINT_ORDER ? u32{tPoint.wReady} : 0U};
}

bool TCandidates::IsRare(u32 dwPoint) {
  const TPlace tPlace = PlaceOf(dwPoint);
  const u32 dwTime = ++m_mapSeen[tPlace];
  return !m_bPrunes || dwTime <= dwFirstTimes || dwTime == m_mapAll[tPlace];
}

// True if the task soon touches the word that is touched at the point, and one of the two writes it.
bool TCandidates::Touches(u32 dwTask, u32 dwPoint, u32 dwHowSoon) const {
  if (!m_bPrunes) return true;
  const TPoint& tPoint = m_atPoints[dwPoint];
  const std::vector<u32>& adwAccesses = m_adwAccesses[dwTask];
  auto it = std::upper_bound(adwAccesses.begin(), adwAccesses.end(), dwPoint);
  for (u32 dw = 0; it != adwAccesses.end() && dw < dwHowSoon; ++it, ++dw) {
    if (m_atPoints[*it].qwWord == tPoint.qwWord && (m_atPoints[*it].bWrite || tPoint.bWrite)) return true;
  }
  return false;
}

void TCandidates::AtAccess(u32 dwPoint) {
  const TPoint& tPoint = m_atPoints[dwPoint];
  for (u32 dwTask = 0; dwTask < iMaxTasks; dwTask++) {
    const bool bReady = (tPoint.wReady >> dwTask & 1) != 0 && dwTask != tPoint.byTask;
    if (bReady && Touches(dwTask, dwPoint, dwSoon)) m_atDeviations.push_back({dwPoint, DEVIATION_TASK, dwTask});
  }
  if (tPoint.bMayArrive && Touches(0, dwPoint, dwSoonOfMain)) {
    m_atDeviations.push_back({dwPoint, DEVIATION_ARRIVAL, 0});
  }
}

void TCandidates::AtOrder(u32 dwPoint) {
  const u32 dwReady = m_atPoints[dwPoint].wReady;
  const u32 dwOthers = dwReady & (dwReady - 1);
  for (u32 dwTask = 0; dwTask < iMaxTasks; dwTask++) {
    if ((dwOthers >> dwTask & 1) != 0) m_atDeviations.push_back({dwPoint, DEVIATION_TASK, dwTask});
  }
}

std::vector<TDeviation> TCandidates::All() {
  for (u32 dw = m_dwFrom; dw < m_atPoints.size(); dw++) {
    if (!IsRare(dw)) continue;
    switch (m_atPoints[dw].ePoint) {
      case POINT_ACCESS:
        AtAccess(dw);
        break;
      case POINT_ORDER:
        AtOrder(dw);
        break;
      case POINT_IDLE:
        m_atDeviations.push_back({dw, DEVIATION_ARRIVAL, 0});
        break;
      case POINT_SLEEP:
        m_atDeviations.push_back({dw, DEVIATION_OVERRUN, dwLongSleep_us});
        break;
    }
  }
  return std::move(m_atDeviations);
}

std::string WithoutNumbers(std::string sText) {
  std::erase_if(sText, [](char c) { return (c >= '0' && c <= '9') || c == '.'; });
  return sText;
}

void NoteLoss(const std::vector<TDeviation>& atDeviations, const std::string& sLoss, TExplored& tExplored) {
  TFoundLoss& tLoss = tExplored.mapLosses[WithoutNumbers(sLoss)];
  if (tLoss.qwLives++ > 0) return;
  tLoss.dwBound = static_cast<u32>(atDeviations.size());
  tLoss.sDeviations = Explore_Text(atDeviations);
  tLoss.sWhat = sLoss;
}

u64 CountAccesses(std::span<const TPoint> atPoints) {
  return static_cast<u64>(std::ranges::count(atPoints, POINT_ACCESS, &TPoint::ePoint));
}

// Adds to atNext the schedules that have one more deviation, after the last one of this life.
void AddChildren(const std::vector<TDeviation>& atDeviations, std::span<const TPoint> atPoints, bool bPrunes,
                 std::vector<std::vector<TDeviation>>& atNext) {
  const u32 dwFrom = atDeviations.empty() ? 0 : atDeviations.back().dwPoint + 1;
  for (const TDeviation& tDeviation : TCandidates(atPoints, dwFrom, bPrunes).All()) {
    atNext.push_back(atDeviations);
    atNext.back().push_back(tDeviation);
  }
}

}  // namespace

TExploredLife Explore_Live(const TPair& tPair, const TCamera& tCamera, const std::vector<TDeviation>& atDeviations) {
  TPairLife tPairLife = Pair_Prepare(tPair, tCamera);
  tPairLife.tSchedule.atDeviations = atDeviations;
  TExploredLife tLife = {.tResult = Schedule_Live(tPairLife.tSchedule, tPairLife.tPlan), .sLoss = Schedule_Fault()};
  const std::string sWhy = Pair_Judge(tPair, tCamera, tPairLife.dwRequests, tLife.tResult);
  if (!sWhy.empty()) tLife.sLoss += (tLife.sLoss.empty() ? "" : "; ") + sWhy;
  if (!Schedule_IsWhole()) tLife.sLoss += "; more points than there is room for, or a deviation without its point";
  return tLife;
}

TExplored Explore_Pair(const TPair& tPair, const TExploreOptions& tOptions) {
  const auto tStart = std::chrono::steady_clock::now();
  const auto IsOver = [&] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - tStart).count() > tOptions.dSeconds;
  };
  const TCamera tCamera(tPair.ptLens->szModel);
  TExplored tExplored = {};
  std::unordered_set<u64> setOrders;
  std::unordered_set<u64> setOutcomes;
  std::vector<std::vector<TDeviation>> atLevel = {{}};
  for (u32 dwLevel = 0; dwLevel <= tOptions.dwBound; dwLevel++) {
    std::vector<std::vector<TDeviation>> atNext;
    for (const std::vector<TDeviation>& atDeviations : atLevel) {
      tExplored.bCut = tExplored.bCut || IsOver();
      if (tExplored.bCut) break;
      const TExploredLife tLife = Explore_Live(tPair, tCamera, atDeviations);
      const std::span<const TPoint> atPoints = Schedule_Points();
      tExplored.qwLives++;
      if (dwLevel == 0) tExplored.qwAccesses = CountAccesses(atPoints);
      if (!tLife.sLoss.empty()) NoteLoss(atDeviations, tLife.sLoss, tExplored);
      setOutcomes.insert(OutcomeOf(tLife));
      const bool bNew = setOrders.insert(OrderOfAccesses(atPoints)).second;
      if (dwLevel == tOptions.dwBound || (tOptions.bPrunes && !bNew)) continue;
      AddChildren(atDeviations, atPoints, tOptions.bPrunes, atNext);
    }
    atLevel = std::move(atNext);
  }
  tExplored.qwOutcomes = setOutcomes.size();
  return tExplored;
}

std::string Explore_Text(const std::vector<TDeviation>& atDeviations) {
  std::string sText;
  for (const TDeviation& tDeviation : atDeviations) {
    sText += (sText.empty() ? "" : ",") + std::to_string(tDeviation.dwPoint) + ":" +
             std::to_string(tDeviation.eDeviation) + ":" + std::to_string(tDeviation.dwArgument);
  }
  return sText.empty() ? "none" : sText;
}

std::vector<TDeviation> Explore_Deviations(const char* pszText) {
  std::vector<TDeviation> atDeviations;
  u32 dwDeviation = 0;
  for (TDeviation t = {};
       pszText != nullptr && std::sscanf(pszText, "%u:%u:%u", &t.dwPoint, &dwDeviation, &t.dwArgument) == 3;) {
    t.eDeviation = static_cast<EDeviation>(dwDeviation);
    atDeviations.push_back(t);
    pszText = std::strchr(pszText, ',');
    if (pszText != nullptr) pszText++;
  }
  return atDeviations;
}
