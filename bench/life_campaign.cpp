// Lives of every model with clients, buttons, faults, signals and power cuts, and the judgement of each.
//   life_campaign [--only MODEL] [--seeds N] [--seed S] [--jobs N] [--verbose]
// --verbose shows the transcript of each life that was lost.  Exit status: 0 all held; 1 some did not, or no such
// model; 2 wrong usage.
#include <atomic>
#include <cstdio>

#include "campaign.h"
#include "lives.h"

namespace {

constexpr u32 dwMaxLosses = 10;  // that are shown of a model

struct TLoss {
  u64 qwSeed;
  char szWhat[240];
};

// Of one model; shared with the processes that try it.
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

void TryOne(const TCampaignOptions& tOptions, const TLensModel& tModel, const TCamera& tCamera, u64 qwSeed,
            TTally& tTally) {
  const TLivesOutcome tOutcome = Lives_Try(tCamera, tModel, qwSeed);
  ++tTally.qwLives;
  ++tTally.aqwEnds[tOutcome.eEnd];
  tTally.qwAnswers += tOutcome.qwAnswers;
  Raise(tTally.qwSlowest_us, tOutcome.qwSlowest_us);
  Raise(tTally.qwLongestEnd_us, tOutcome.qwLongestEnd_us);
  if (tOutcome.sLoss.empty()) return;
  if (tOptions.bVerbose) std::printf("%s\n%s\n", tOutcome.sTale.c_str(), tOutcome.sLoss.c_str());
  const u32 dwLoss = tTally.dwLosses++;
  if (dwLoss >= dwMaxLosses) return;
  tTally.atLosses[dwLoss].qwSeed = qwSeed;
  std::snprintf(tTally.atLosses[dwLoss].szWhat, sizeof TLoss::szWhat, "%s", tOutcome.sLoss.c_str());
}

void PrintRow(const TLensModel& tModel, const TTally& tTally) {
  std::printf("| %s | %zu | %zu | %zu | %zu | %zu | %.3f | %.2f | %u |\n", tModel.pszName, std::size_t{tTally.qwLives},
              std::size_t{tTally.aqwEnds[ENDED_AT_REST]}, std::size_t{tTally.aqwEnds[ENDED_BY_SIGNAL]},
              std::size_t{tTally.aqwEnds[ENDED_BY_CUT]}, std::size_t{tTally.qwAnswers},
              static_cast<double>(tTally.qwSlowest_us) / 1e6, static_cast<double>(tTally.qwLongestEnd_us) / 1e6,
              u32{tTally.dwLosses});
  for (u32 dw = 0; dw < tTally.dwLosses && dw < dwMaxLosses; dw++) {
    std::printf("lost: life_campaign --only %s --seed %zu --seeds 1 --verbose   # %s\n", tModel.pszName,
                std::size_t{tTally.atLosses[dw].qwSeed}, tTally.atLosses[dw].szWhat);
  }
  std::fflush(stdout);
}

}  // namespace

int main(int iCount, char** apszArgs) {
  TCampaignOptions tOptions;
  tOptions.qwSeeds = 1500;  // of each model
  if (!Campaign_ReadOptions(iCount, apszArgs, {}, &tOptions)) {
    std::fputs("life_campaign [--only MODEL] [--seeds N] [--seed S] [--jobs N] [--verbose]\n", stderr);
    return 2;
  }
  TTally& tTally = *static_cast<TTally*>(Campaign_Shared(sizeof(TTally)));
  bool bAll = true;
  u32 dwModels = 0;
  std::puts(
      "| model | seeds | to rest | SIGTERM | cut | answers | slowest, s | longest end, s | lost |\n"
      "|---|---|---|---|---|---|---|---|---|");
  for (i32 i = 0; Lenses_At(i) != nullptr; i++) {
    const TLensModel& tModel = *Lenses_At(i);
    if (!Campaign_IsWanted(tOptions, tModel.pszName)) continue;
    new (&tTally) TTally{};
    const bool bTried = Campaign_Share(tOptions, [&](u64 qwJob) {
      const TCamera tCamera(tModel.pszName);
      for (u64 qw = qwJob; qw < tOptions.qwSeeds; qw += tOptions.qwJobs) {
        TryOne(tOptions, tModel, tCamera, tOptions.qwSeed + qw, tTally);
      }
    });
    PrintRow(tModel, tTally);
    bAll = bAll && bTried && tTally.dwLosses == 0 && tTally.qwLives == tOptions.qwSeeds;
    dwModels++;
  }
  return bAll && dwModels > 0 ? 0 : 1;
}
