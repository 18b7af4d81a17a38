// Runs every pair of commands in every schedule with up to two deviations, and judges each run.
//   explore_campaign [--only LENS[/FIRST[/SECOND]]] [--bound N] [--seconds N] [--jobs N] [--whole 1] [--verbose]
//   explore_campaign --only LENS/FIRST/SECOND --replay DEVIATIONS
// --seconds: the most real time for one pair.  --whole 1 leaves no schedule out, for a comparison.  --verbose prints a
// row for each pair.  --replay runs one schedule of one pair and shows its transcript.  Exit status: 0 if all held; 1
// if a pair did not, was cut short, or does not exist; 2 on wrong usage.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "campaign.h"
#include "explore/explorer.h"

namespace {

// The counts of one lens, in memory that its processes share.
struct TSum {
  std::atomic<u32> dwNext;  // the next pair that no process has begun
  std::atomic<u32> dwHeld, dwCut, dwLost;
  std::atomic<u64> qwLives, qwOutcomes;
};

void PrintPair(const std::string& sPair, const TExplored& tExplored, bool bVerbose) {
  if (bVerbose) {
    std::printf("%s: %zu lives, %zu outcomes%s\n", sPair.c_str(), std::size_t{tExplored.qwLives},
                std::size_t{tExplored.qwOutcomes}, tExplored.bCut ? ", cut short" : "");
  }
  for (const auto& [sKind, tLoss] : tExplored.mapLosses) {
    std::printf("lost: explore_campaign --only '%s' --replay %s   # %zu of %zu lives, from bound %u on: %s\n",
                sPair.c_str(), tLoss.sDeviations.c_str(), std::size_t{tLoss.qwLives}, std::size_t{tExplored.qwLives},
                tLoss.dwBound, tLoss.sWhat.c_str());
  }
  std::fflush(stdout);
}

void RunPair(const TPair& tPair, const TExploreOptions& tExplore, bool bVerbose, TSum& tSum) {
  const TExplored tExplored = Explore_Pair(tPair, tExplore);
  PrintPair(Pair_Name(tPair), tExplored, bVerbose);
  tSum.qwLives += tExplored.qwLives;
  tSum.qwOutcomes += tExplored.qwOutcomes;
  tSum.dwCut += tExplored.bCut ? 1 : 0;
  tSum.dwLost += tExplored.mapLosses.empty() ? 0 : 1;
  tSum.dwHeld += tExplored.mapLosses.empty() && !tExplored.bCut ? 1 : 0;
}

// True if all pairs held and none was cut short.
bool RunLens(const TCampaignOptions& tOptions, const TExploreOptions& tExplore, const TPairLens& tLens, TSum& tSum) {
  std::vector<TPair> atPairs = Pair_All(tLens);
  std::erase_if(atPairs, [&](const TPair& tPair) { return !Campaign_IsWanted(tOptions, Pair_Name(tPair)); });
  if (atPairs.empty()) return true;
  new (&tSum) TSum{};
  const auto tStart = std::chrono::steady_clock::now();
  Campaign_Share(tOptions, [&](u64) {
    for (u32 dw = tSum.dwNext++; dw < atPairs.size(); dw = tSum.dwNext++) {
      RunPair(atPairs[dw], tExplore, tOptions.bVerbose, tSum);
    }
  });
  std::printf("| %s | %zu | %u | %zu | %zu | %.0f | %u | %u |\n", tLens.szModel, atPairs.size(), tExplore.dwBound,
              std::size_t{tSum.qwLives}, std::size_t{tSum.qwOutcomes},
              std::chrono::duration<double>(std::chrono::steady_clock::now() - tStart).count(), tSum.dwCut.load(),
              tSum.dwLost.load());
  std::fflush(stdout);
  return tSum.dwHeld == atPairs.size();  // there are fewer also when a process did not end well
}

int Replay(const std::string& sPair, const char* pszDeviations) {
  const TPair tPair = Pair_Find(sPair);
  if (tPair.ptLens == nullptr) {
    std::fprintf(stderr, "no pair %s\n", sPair.c_str());
    return 1;
  }
  const TCamera tCamera(tPair.ptLens->szModel);
  const TExploredLife tLife = Explore_Live(tPair, tCamera, Explore_Deviations(pszDeviations));
  std::printf("%s%s\n%s\n", tLife.tResult.sTranscript.c_str(), tLife.tResult.sStderr.c_str(),
              tLife.sLoss.empty() ? "held" : tLife.sLoss.c_str());
  return tLife.sLoss.empty() ? 0 : 1;
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
  u64 qwWhole = 0;
  const TNumberOption atOwn[] = {{"--bound", &qwBound}, {"--seconds", &qwSeconds}, {"--whole", &qwWhole}};
  if (!Campaign_ReadOptions(iCount, apszArgs, atOwn, &tOptions) || qwBound > dwMaxDeviations) return Usage();
  const TExploreOptions tExplore = {
      .dwBound = static_cast<u32>(qwBound), .bPrunes = qwWhole == 0, .dSeconds = static_cast<double>(qwSeconds)};
  TSum& tSum = *static_cast<TSum*>(Campaign_Shared(sizeof(TSum)));
  std::puts("| lens | pairs | bound | lives | outcomes | s | cut short | lost |\n|---|---|---|---|---|---|---|---|");
  bool bAll = true;
  bool bAny = false;
  for (const TPairLens& tLens : PairLenses()) {
    const std::string sLens = tLens.szModel;
    if (!tOptions.sOnly.empty() && tOptions.sOnly != sLens && !tOptions.sOnly.starts_with(sLens + "/")) continue;
    bAll = RunLens(tOptions, tExplore, tLens, tSum) && bAll;
    bAny = bAny || tSum.dwNext > 0;
  }
  return bAll && bAny ? 0 : 1;
}
