// Runs and judges lives of every stock model and of random lenses.  Each seed gives one life with clients, buttons,
// faults, signals and power cuts, and one without hurry.
//   life_campaign [--only MODEL] [--seeds N] [--drawn N] [--seed S] [--jobs N] [--verbose]
// MODEL "drawn" is a random lens, another one for each seed: drawn-SEED.  --drawn N says how many of them; with --only
// drawn, --seeds N does.  A lost life is printed with the command that repeats it, and with the record of a drawn lens.
// --verbose shows its transcript.  Exit status: 0 if all held, 1 if not or without such a model, 2 on wrong usage.
#include <atomic>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "campaign.h"
#include "lens/drawn_lens.h"
#include "orderly_life.h"

namespace {

constexpr u32 dwMaxLosses = 10;  // at most so many are shown of a model
constexpr const char* pszDrawn = "drawn";

struct TOptions : TCampaignOptions {
  u64 qwDrawn = 4000;  // drawn lenses
};

struct TLoss {
  u64 qwSeed;
  char szWhat[240];
};

// The counts of one model, in memory that its processes share.
struct TTally {
  std::atomic<u64> qwLives, qwAnswers, qwSlowest_us, qwLongestEnd_us;
  std::atomic<u64> aqwEnds[LIVES_ENDS];
  std::atomic<u32> dwLosses;
  TLoss atLosses[dwMaxLosses];
};

void Raise(std::atomic<u64>& qwHighest, u64 qwValue) {
  u64 qwFormer = qwHighest;
  while (qwFormer < qwValue && !qwHighest.compare_exchange_weak(qwFormer, qwValue)) {
  }
}

void TryOne(const TOptions& tOptions, const TLensModel& tModel, const TCamera& tCamera, u64 qwSeed, TTally& tTally) {
  TLivesOutcome tOutcome = Lives_Try(tCamera, tModel, qwSeed);
  ++tTally.qwLives;
  ++tTally.aqwEnds[tOutcome.eEnd];
  tTally.qwAnswers += tOutcome.qwAnswers;
  Raise(tTally.qwSlowest_us, tOutcome.qwSlowest_us);
  Raise(tTally.qwLongestEnd_us, tOutcome.qwLongestEnd_us);
  if (tOutcome.sLoss.empty()) {
    tOutcome = OrderlyLife_Try(tCamera, tModel, qwSeed);
    if (!tOutcome.sLoss.empty()) tOutcome.sLoss = "without hurry: " + tOutcome.sLoss;
  }
  if (tOutcome.sLoss.empty()) return;
  if (tOptions.bVerbose) std::printf("%s\n%s\n", tOutcome.sTale.c_str(), tOutcome.sLoss.c_str());
  const u32 dwLoss = tTally.dwLosses++;
  if (dwLoss >= dwMaxLosses) return;
  tTally.atLosses[dwLoss].qwSeed = qwSeed;
  std::snprintf(tTally.atLosses[dwLoss].szWhat, sizeof TLoss::szWhat, "%s", tOutcome.sLoss.c_str());
}

// What one process does: every qwJobs-th seed.
void TryShare(const TOptions& tOptions, const char* pszRow, u64 qwSeeds, u64 qwJob, TTally& tTally) {
  const TLensModel* ptStock = Lenses_Find(pszRow);
  const std::unique_ptr<TCamera> ptCamera = ptStock != nullptr ? std::make_unique<TCamera>(pszRow) : nullptr;
  for (u64 qw = qwJob; qw < qwSeeds; qw += tOptions.qwJobs) {
    const u64 qwSeed = tOptions.qwSeed + qw;
    if (ptStock != nullptr) {
      TryOne(tOptions, *ptStock, *ptCamera, qwSeed, tTally);
      continue;
    }
    const TLensModel& tModel = *Lenses_Find(DrawnLens_Name(qwSeed).c_str());
    TryOne(tOptions, tModel, TCamera(tModel.szName), qwSeed, tTally);
  }
}

void PrintRow(const char* pszRow, const TTally& tTally) {
  std::printf("| %s | %zu | %zu | %zu | %zu | %zu | %.3f | %.2f | %u |\n", pszRow, std::size_t{tTally.qwLives},
              std::size_t{tTally.aqwEnds[ENDED_AT_REST]}, std::size_t{tTally.aqwEnds[ENDED_BY_SIGNAL]},
              std::size_t{tTally.aqwEnds[ENDED_BY_CUT]}, std::size_t{tTally.qwAnswers},
              static_cast<double>(tTally.qwSlowest_us) / 1e6, static_cast<double>(tTally.qwLongestEnd_us) / 1e6,
              u32{tTally.dwLosses});
  for (u32 dw = 0; dw < tTally.dwLosses && dw < dwMaxLosses; dw++) {
    const u64 qwSeed = tTally.atLosses[dw].qwSeed;
    std::printf("lost: life_campaign --only %s --seed %zu --seeds 1 --verbose   # %s\n", pszRow, std::size_t{qwSeed},
                tTally.atLosses[dw].szWhat);
    const TLensModel* ptDrawn =
        std::strcmp(pszRow, pszDrawn) == 0 ? Lenses_Find(DrawnLens_Name(qwSeed).c_str()) : nullptr;
    if (ptDrawn != nullptr) std::fputs(DrawnLens_Describe(*ptDrawn).c_str(), stdout);
  }
  std::fflush(stdout);
}

}  // namespace

int main(int iCount, char** apszArgs) {
  TOptions tOptions;
  tOptions.qwSeeds = 1500;  // of each model
  const TNumberOption atOwn[] = {{"--drawn", &tOptions.qwDrawn}};
  if (!Campaign_ReadOptions(iCount, apszArgs, atOwn, &tOptions)) {
    std::fputs("life_campaign [--only MODEL] [--seeds N] [--drawn N] [--seed S] [--jobs N] [--verbose]\n", stderr);
    return 2;
  }
  TTally& tTally = *static_cast<TTally*>(Campaign_Shared(sizeof(TTally)));
  std::vector<const char*> apszRows;
  for (i32 i = 0; Lenses_At(i) != nullptr; i++) apszRows.push_back(Lenses_At(i)->szName);
  apszRows.push_back(pszDrawn);
  bool bAll = true;
  u32 dwModels = 0;
  std::puts(
      "| model | seeds | to rest | SIGTERM | cut | answers | slowest, s | longest end, s | lost |\n"
      "|---|---|---|---|---|---|---|---|---|");
  for (const char* pszRow : apszRows) {
    if (!Campaign_IsWanted(tOptions, pszRow)) continue;
    const bool bDrawnToo = pszRow == pszDrawn && tOptions.sOnly.empty();
    const u64 qwSeeds = bDrawnToo ? tOptions.qwDrawn : tOptions.qwSeeds;
    new (&tTally) TTally{};
    const bool bTried =
        Campaign_Share(tOptions, [&](u64 qwJob) { TryShare(tOptions, pszRow, qwSeeds, qwJob, tTally); });
    PrintRow(pszRow, tTally);
    bAll = bAll && bTried && tTally.dwLosses == 0 && tTally.qwLives == qwSeeds;
    dwModels++;
  }
  return bAll && dwModels > 0 ? 0 : 1;
}
