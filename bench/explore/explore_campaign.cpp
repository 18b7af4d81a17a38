// Every schedule of every pair of commands, with one or two deviations, and the judgement of each.
//   explore_campaign [--only LENS[/FIRST[/SECOND]]] [--bound N] [--seconds N] [--jobs N] [--whole 1] [--verbose]
//   explore_campaign --only LENS/FIRST/SECOND --replay DEVIATIONS
// --seconds: real time for one pair at most.  --whole 1 leaves nothing out, for a comparison.  --verbose prints each
// pair's row.  --replay lives one schedule of one pair and shows its transcript.  Exit status: 0 all held; 1 some did
// not, or were cut short, or no such pair; 2 wrong usage.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "campaign.h"
#include "explore/explorer.h"

namespace {

constexpr u32 dwMaxPairs = 600, dwMaxText = 240, dwMaxLosses = 6;

struct TLossText {
  u64 qwLives;
  u32 dwBound;
  char szDeviations[dwMaxText], szWhat[dwMaxText];
};

// Of one pair; shared with the process that explores it.
struct TRow {
  u64 qwLives, qwOutcomes;
  bool bDone, bCut;
  u32 dwLosses;
  TLossText atLosses[dwMaxLosses];
};

struct TTable {
  std::atomic<u32> dwNext;  // pair that nobody has begun
  TRow atRows[dwMaxPairs];
};

void Keep(const TExplored& tExplored, TRow& tRow) {
  tRow.qwLives = tExplored.qwLives;
  tRow.qwOutcomes = tExplored.qwOutcomes;
  tRow.bCut = tExplored.bCut;
  for (const auto& [sKind, tLoss] : tExplored.mapLosses) {
    if (tRow.dwLosses == dwMaxLosses) break;
    TLossText& tText = tRow.atLosses[tRow.dwLosses++];
    tText.qwLives = tLoss.qwLives;
    tText.dwBound = tLoss.dwBound;
    std::snprintf(tText.szDeviations, dwMaxText, "%s", tLoss.sDeviations.c_str());
    std::snprintf(tText.szWhat, dwMaxText, "%s", tLoss.sWhat.c_str());
  }
  tRow.bDone = true;
}

void PrintLosses(const std::string& sPair, const TRow& tRow) {
  for (u32 dw = 0; dw < tRow.dwLosses; dw++) {
    const TLossText& tLoss = tRow.atLosses[dw];
    std::printf("lost: explore_campaign --only '%s' --replay %s   # %zu of %zu lives, from bound %u on: %s\n",
                sPair.c_str(), tLoss.szDeviations, std::size_t{tLoss.qwLives}, std::size_t{tRow.qwLives}, tLoss.dwBound,
                tLoss.szWhat);
  }
}

struct TSum {
  u64 qwLives = 0, qwOutcomes = 0;
  u32 dwPairs = 0, dwLost = 0, dwCut = 0;
};

void PrintSum(const char* szLens, const TSum& tSum, u32 dwBound, double dSeconds) {
  std::printf("| %s | %u | %u | %zu | %zu | %.0f | %u | %u |\n", szLens, tSum.dwPairs, dwBound,
              std::size_t{tSum.qwLives}, std::size_t{tSum.qwOutcomes}, dSeconds, tSum.dwCut, tSum.dwLost);
  std::fflush(stdout);
}

// True if all pairs held, whole.
bool RunLens(const TCampaignOptions& tOptions, const TExploreOptions& tExplore, const TPairLens& tLens,
             TTable& tTable) {
  std::vector<TPair> atPairs = Pair_All(tLens);
  std::erase_if(atPairs, [&](const TPair& tPair) { return !Campaign_IsWanted(tOptions, Pair_Name(tPair)); });
  if (atPairs.empty()) return true;
  new (&tTable) TTable{};
  const auto tStart = std::chrono::steady_clock::now();
  bool bAll = Campaign_Share(tOptions, [&](u64) {
    for (u32 dw = tTable.dwNext++; dw < atPairs.size(); dw = tTable.dwNext++) {
      Keep(Explore_Pair(atPairs[dw], tExplore), tTable.atRows[dw]);
    }
  });
  TSum tSum;
  for (u32 dw = 0; dw < atPairs.size(); dw++) {
    const TRow& tRow = tTable.atRows[dw];
    tSum.qwLives += tRow.qwLives;
    tSum.qwOutcomes += tRow.qwOutcomes;
    tSum.dwPairs++;
    tSum.dwLost += tRow.dwLosses > 0 ? 1 : 0;
    tSum.dwCut += tRow.bCut ? 1 : 0;
    bAll = bAll && tRow.bDone && !tRow.bCut && tRow.dwLosses == 0;
    if (tOptions.bVerbose) {
      std::printf("%s: %zu lives, %zu outcomes%s\n", Pair_Name(atPairs[dw]).c_str(), std::size_t{tRow.qwLives},
                  std::size_t{tRow.qwOutcomes}, tRow.bCut ? ", cut short" : "");
    }
    PrintLosses(Pair_Name(atPairs[dw]), tRow);
  }
  PrintSum(tLens.szModel, tSum, tExplore.dwBound,
           std::chrono::duration<double>(std::chrono::steady_clock::now() - tStart).count());
  return bAll;
}

int Replay(const std::string& sPair, const char* pszDeviations) {
  for (const TPairLens& tLens : PairLenses()) {
    for (const TPair& tPair : Pair_All(tLens)) {
      if (Pair_Name(tPair) != sPair) continue;
      const TCamera tCamera(tLens.szModel);
      const TExploredLife tLife = Explore_Live(tPair, tCamera, Explore_Deviations(pszDeviations));
      std::printf("%s%s\n%s\n", tLife.tResult.sTranscript.c_str(), tLife.tResult.sStderr.c_str(),
                  tLife.sLoss.empty() ? "held" : tLife.sLoss.c_str());
      return tLife.sLoss.empty() ? 0 : 1;
    }
  }
  std::fprintf(stderr, "no pair %s\n", sPair.c_str());
  return 1;
}

int Usage() {
  std::fputs(
      "explore_campaign [--only LENS[/FIRST[/SECOND]]] [--bound N] [--seconds N] [--jobs N] [--whole 1] "
      "[--verbose]\nexplore_campaign --only LENS/FIRST/SECOND --replay DEVIATIONS\n",
      stderr);
  return 2;
}

}  // namespace

int main(int iCount, char** apszArgs) {
  const bool bReplay = iCount == 5 && std::strcmp(apszArgs[3], "--replay") == 0;
  if (bReplay) return std::strcmp(apszArgs[1], "--only") == 0 ? Replay(apszArgs[2], apszArgs[4]) : Usage();
  TCampaignOptions tOptions;
  u64 qwBound = 2;
  u64 qwSeconds = 3600;
  u64 bWhole = 0;
  const TNumberOption atOwn[] = {{"--bound", &qwBound}, {"--seconds", &qwSeconds}, {"--whole", &bWhole}};
  if (!Campaign_ReadOptions(iCount, apszArgs, atOwn, &tOptions) || qwBound > dwMaxDeviations) return Usage();
  const TExploreOptions tExplore = {
      .dwBound = static_cast<u32>(qwBound), .bPrunes = bWhole == 0, .dSeconds = static_cast<double>(qwSeconds)};
  TTable& tTable = *static_cast<TTable*>(Campaign_Shared(sizeof(TTable)));
  std::puts("| lens | pairs | bound | lives | outcomes | s | cut short | lost |\n|---|---|---|---|---|---|---|---|");
  bool bAll = true;
  bool bAny = false;
  for (const TPairLens& tLens : PairLenses()) {
    const std::string sLens = tLens.szModel;
    if (!tOptions.sOnly.empty() && tOptions.sOnly != sLens && !tOptions.sOnly.starts_with(sLens + "/")) continue;
    bAll = RunLens(tOptions, tExplore, tLens, tTable) && bAll;
    bAny = bAny || tTable.dwNext > 0;
  }
  return bAll && bAny ? 0 : 1;
}
