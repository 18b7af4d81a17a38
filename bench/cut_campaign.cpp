// Cuts the power at every event of every command and at random times, and judges the starts after the cut.  A second
// cut in the next start follows each cut of an even seed, and half of the cuts at random times of an odd one.
//   cut_campaign [--only ROW] [--event N | --time US] [--again N] [--seed S] [--seeds K] [--every N] [--times N]
//                [--jobs N] [--verbose]
// ROW is MODEL or MODEL/COMMAND.  --verbose shows the transcripts of each lost cut.  Exit status: 0 if all cuts were
// survived, 1 if a cut was lost or a row could not be tried, 2 on wrong usage.
#include <atomic>
#include <cstdio>
#include <random>

#include "campaign.h"
#include "cuts.h"

namespace {

constexpr u32 dwMaxLosses = 3;     // at most so many are shown of a row
constexpr u64 qwAgainBelow = 300;  // the second cut comes before this event: in the recovery's walks or early search

struct TOptions : TCampaignOptions {
  TCutMoment tMoment = {};  // if set, the only cut
  u64 qwEvery = 0;          // cuts at one event in so many; 0: as the row says
  u64 qwTimes = 40;         // cuts at random times, for each row and seed
};

struct TLoss {
  TCutMoment tMoment;
  u64 qwSeed;
  char szWhat[200];
};

// The counts of one row, in memory that its processes share.
struct TTally {
  std::atomic<u64> qwEvents, qwCuts, qwSurvived;
  std::atomic<u32> dwLosses, dwUntried;
  char szUncut[200];  // what was wrong in the life without a cut
  TLoss atLosses[dwMaxLosses];
};

std::string NameOf(const TCutRow& tRow) {
  return std::string(tRow.szModel) + "/" + tRow.szName;
}

u64 EveryOf(const TOptions& tOptions, const TCutRow& tRow) {
  return tOptions.qwEvery != 0 ? tOptions.qwEvery : tRow.tOptions.qwEvery;
}

void TryOne(const TOptions& tOptions, const TCutRow& tRow, const TCamera& tCamera, const TCutMoment& tMoment,
            u64 qwSeed, TTally& tTally) {
  const TCutOutcome tOutcome = Cuts_Try(tCamera, tRow, tMoment, qwSeed);
  ++tTally.qwCuts;
  if (tOutcome.bSurvived) {
    ++tTally.qwSurvived;
    return;
  }
  if (tOptions.bVerbose) std::printf("%s\n%s\n", tOutcome.sTale.c_str(), tOutcome.sLoss.c_str());
  const u32 dwLoss = tTally.dwLosses++;
  if (dwLoss >= dwMaxLosses) return;
  TLoss& tLoss = tTally.atLosses[dwLoss];
  tLoss.tMoment = tMoment;
  tLoss.qwSeed = qwSeed;
  std::snprintf(tLoss.szWhat, sizeof tLoss.szWhat, "%s", tOutcome.sLoss.c_str());
}

std::vector<TCutMoment> Moments(const TOptions& tOptions, const TCutRow& tRow, u64 qwSeed, u64 qwEvents) {
  if (tOptions.tMoment.qwEvent != 0 || tOptions.tMoment.qwTime_us != 0) return {tOptions.tMoment};
  const u64 qwEvery = EveryOf(tOptions, tRow);
  std::mt19937_64 tDraw(qwSeed);
  const bool bAgain = qwSeed % 2 == 0;
  std::vector<TCutMoment> atMoments;
  // Each seed starts its sample at another event.
  for (u64 qwEvent = 1 + qwSeed % qwEvery; qwEvent <= qwEvents; qwEvent += qwEvery) {
    atMoments.push_back({.qwEvent = qwEvent, .qwTime_us = 0, .qwAgain = bAgain ? 1 + tDraw() % qwAgainBelow : 0});
  }
  for (u64 qw = 0; qw < tOptions.qwTimes; qw++) {
    const u64 qwTime_us = 1 + tDraw() % (tRow.qwEnd_ms * 1000 - 1);
    const u64 qwAgain = !bAgain && qw % 2 == 0 ? 0 : 1 + tDraw() % qwAgainBelow;
    atMoments.push_back({.qwEvent = 0, .qwTime_us = qwTime_us, .qwAgain = qwAgain});
  }
  return atMoments;
}

// What one process does: every qwJobs-th cut.
void TryShare(const TOptions& tOptions, const TCutRow& tRow, u64 qwJob, TTally& tTally) {
  const TCamera tCamera(tRow.szModel);
  u64 qwTurn = 0;
  for (u64 qwSeed = tOptions.qwSeed; qwSeed < tOptions.qwSeed + tOptions.qwSeeds; qwSeed++) {
    const TUncut tUncut = Cuts_LiveUncut(tCamera, tRow, qwSeed);
    tTally.qwEvents = tUncut.qwEvents;
    if (!tUncut.sLoss.empty()) {
      ++tTally.dwUntried;
      std::snprintf(tTally.szUncut, sizeof tTally.szUncut, "%s", tUncut.sLoss.c_str());
    }
    std::vector<TCutMoment> atMoments = Moments(tOptions, tRow, qwSeed, tUncut.qwEvents);
    if (atMoments.size() > 1) {
      for (const TCutMoment& tMoment : Cuts_DrawMoments(tCamera, tRow, tUncut, qwSeed)) atMoments.push_back(tMoment);
    }
    for (const TCutMoment& tMoment : atMoments) {
      if (qwTurn++ % tOptions.qwJobs == qwJob) TryOne(tOptions, tRow, tCamera, tMoment, qwSeed, tTally);
    }
  }
}

void PrintRow(const TOptions& tOptions, const TCutRow& tRow, const TTally& tTally) {
  std::printf("| %s | %zu | %zu | %zu | %zu |%s%s\n", NameOf(tRow).c_str(), std::size_t{tTally.qwEvents},
              std::size_t{EveryOf(tOptions, tRow)}, std::size_t{tTally.qwCuts}, std::size_t{tTally.qwSurvived},
              tTally.dwUntried != 0 ? " the life without a cut failed: " : "", tTally.szUncut);
  for (u32 dw = 0; dw < tTally.dwLosses && dw < dwMaxLosses; dw++) {
    const TLoss& tLoss = tTally.atLosses[dw];
    const bool bEvent = tLoss.tMoment.qwEvent != 0;
    const u64 qwMoment = bEvent ? tLoss.tMoment.qwEvent : tLoss.tMoment.qwTime_us;
    std::printf("lost: cut_campaign --only %s %s %zu --again %zu --seed %zu --seeds 1 --verbose   # %s\n",
                NameOf(tRow).c_str(), bEvent ? "--event" : "--time", std::size_t{qwMoment},
                std::size_t{tLoss.tMoment.qwAgain}, std::size_t{tLoss.qwSeed}, tLoss.szWhat);
  }
  std::fflush(stdout);
}

}  // namespace

int main(int iCount, char** apszArgs) {
  TOptions tOptions;
  tOptions.qwSeeds = 4;  // a seed also decides what the flash loses at a cut
  const TNumberOption atOwn[] = {{"--event", &tOptions.tMoment.qwEvent},
                                 {"--time", &tOptions.tMoment.qwTime_us},
                                 {"--again", &tOptions.tMoment.qwAgain},
                                 {"--every", &tOptions.qwEvery},
                                 {"--times", &tOptions.qwTimes}};
  if (!Campaign_ReadOptions(iCount, apszArgs, atOwn, &tOptions)) {
    std::fputs(
        "cut_campaign [--only ROW] [--event N | --time US] [--again N] [--seed S] [--seeds K] [--every N] [--times N] "
        "[--jobs N] [--verbose]\n",
        stderr);
    return 2;
  }
  TTally& tTally = *static_cast<TTally*>(Campaign_Shared(sizeof(TTally)));
  bool bAll = true;
  u32 dwRows = 0;
  std::puts("| command | events | one in | cuts | survived |\n|---|---|---|---|---|");
  for (const TCutRow& tRow : Cuts_Rows()) {
    if (!Campaign_IsWanted(tOptions, NameOf(tRow))) continue;
    new (&tTally) TTally{};
    if (!Campaign_Share(tOptions, [&](u64 qwJob) { TryShare(tOptions, tRow, qwJob, tTally); })) ++tTally.dwUntried;
    PrintRow(tOptions, tRow, tTally);
    bAll = bAll && tTally.dwUntried == 0 && tTally.qwCuts > 0 && tTally.qwSurvived == tTally.qwCuts;
    dwRows++;
  }
  return bAll && dwRows > 0 ? 0 : 1;
}
