// Cuts the power at every event of every command and judges what the next starts make of it.
//   cut_campaign [--only ROW] [--event N] [--seed S] [--seeds K] [--every N] [--jobs 1|2] [--verbose]
// ROW is MODEL or MODEL/COMMAND.  Exit status: 0 all survived; 1 some lost, or a row that could not be tried; 2 usage.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cuts.h"

namespace {

constexpr u32 dwMaxJobs = 8;
constexpr u32 dwMaxLosses = 3;  // that are shown of a row

struct TOptions {
  std::string sOnly;
  u64 qwEvent = 0;  // 0 all
  u64 qwSeed = 1, qwSeeds = 1;
  u64 qwEvery = 0;  // 0 the row's own
  u64 qwJobs = 2;
  bool bVerbose = false;
};

struct TLoss {
  u64 qwEvent, qwSeed;
  char szWhat[200];
};

// Of one row; shared with the processes that try it.
struct TTally {
  std::atomic<u64> qwEvents, qwCuts, qwSurvived;
  std::atomic<u32> dwLosses, dwUntried;
  TLoss atLosses[dwMaxLosses];
};

std::string NameOf(const TCutRow& tRow) {
  return std::string(tRow.szModel) + "/" + tRow.szName;
}

bool IsWanted(const TOptions& tOptions, const TCutRow& tRow) {
  return tOptions.sOnly.empty() || tOptions.sOnly == tRow.szModel || tOptions.sOnly == NameOf(tRow);
}

void TryOne(const TOptions& tOptions, const TCutRow& tRow, const TCamera& tCamera, u64 qwEvent, u64 qwSeed,
            TTally& tTally) {
  const TCutOutcome tOutcome = Cuts_Try(tCamera, tRow, qwEvent, qwSeed);
  ++tTally.qwCuts;
  if (tOutcome.bSurvived) {
    ++tTally.qwSurvived;
    return;
  }
  if (tOptions.bVerbose) std::printf("%s\n%s\n", tOutcome.sTale.c_str(), tOutcome.sLoss.c_str());
  const u32 dwLoss = tTally.dwLosses++;
  if (dwLoss >= dwMaxLosses) return;
  TLoss& tLoss = tTally.atLosses[dwLoss];
  tLoss.qwEvent = qwEvent;
  tLoss.qwSeed = qwSeed;
  std::snprintf(tLoss.szWhat, sizeof tLoss.szWhat, "%s", tOutcome.sLoss.c_str());
}

// The share of one of the processes: one cut in qwJobs.
void TryShare(const TOptions& tOptions, const TCutRow& tRow, u64 qwJob, TTally& tTally) {
  const TCamera tCamera(tRow.szModel);
  const u64 qwEvery = tOptions.qwEvery != 0 ? tOptions.qwEvery : tRow.qwEvery;
  u64 qwTurn = 0;
  for (u64 qwSeed = tOptions.qwSeed; qwSeed < tOptions.qwSeed + tOptions.qwSeeds; qwSeed++) {
    if (tOptions.qwEvent != 0) {
      if (qwTurn++ % tOptions.qwJobs == qwJob) TryOne(tOptions, tRow, tCamera, tOptions.qwEvent, qwSeed, tTally);
      continue;
    }
    const u64 qwEvents = Cuts_CountEvents(tCamera, tRow, qwSeed);
    if (qwEvents == 0) ++tTally.dwUntried;
    tTally.qwEvents = qwEvents;
    // Another seed begins its sample elsewhere.
    for (u64 qwEvent = 1 + qwSeed % qwEvery; qwEvent <= qwEvents; qwEvent += qwEvery) {
      if (qwTurn++ % tOptions.qwJobs == qwJob) TryOne(tOptions, tRow, tCamera, qwEvent, qwSeed, tTally);
    }
  }
}

void TryRow(const TOptions& tOptions, const TCutRow& tRow, TTally& tTally) {
  std::fflush(stdout);
  pid_t aiProcesses[dwMaxJobs] = {};
  for (u64 qwJob = 0; qwJob < tOptions.qwJobs; qwJob++) {
    aiProcesses[qwJob] = fork();
    if (aiProcesses[qwJob] != 0) continue;
    TryShare(tOptions, tRow, qwJob, tTally);
    std::fflush(stdout);
    _exit(0);
  }
  for (u64 qwJob = 0; qwJob < tOptions.qwJobs; qwJob++) {
    int iStatus = 0;
    if (waitpid(aiProcesses[qwJob], &iStatus, 0) < 0 || iStatus != 0) ++tTally.dwUntried;
  }
}

void PrintRow(const TOptions& tOptions, const TCutRow& tRow, const TTally& tTally) {
  const u64 qwEvery = tOptions.qwEvery != 0 ? tOptions.qwEvery : tRow.qwEvery;
  std::printf("| %s | %llu | %llu | %llu | %llu |%s\n", NameOf(tRow).c_str(),
              static_cast<unsigned long long>(tTally.qwEvents.load()), static_cast<unsigned long long>(qwEvery),
              static_cast<unsigned long long>(tTally.qwCuts.load()),
              static_cast<unsigned long long>(tTally.qwSurvived.load()),
              tTally.dwUntried.load() != 0 ? " NOT TRIED: the uncut life failed" : "");
  for (u32 dw = 0; dw < tTally.dwLosses.load() && dw < dwMaxLosses; dw++) {
    const TLoss& tLoss = tTally.atLosses[dw];
    std::printf("lost: cut_campaign --only %s --event %llu --seed %llu --verbose   # %s\n", NameOf(tRow).c_str(),
                static_cast<unsigned long long>(tLoss.qwEvent), static_cast<unsigned long long>(tLoss.qwSeed),
                tLoss.szWhat);
  }
}

bool ReadOptions(int iCount, char** apszArgs, TOptions& tOptions) {
  const struct {
    const char* szName;
    u64* pqwValue;
  } atNumbers[] = {{"--event", &tOptions.qwEvent},
                   {"--seed", &tOptions.qwSeed},
                   {"--seeds", &tOptions.qwSeeds},
                   {"--every", &tOptions.qwEvery},
                   {"--jobs", &tOptions.qwJobs}};
  for (int i = 1; i < iCount; i++) {
    const std::string_view sName = apszArgs[i];
    if (sName == "--verbose") {
      tOptions.bVerbose = true;
      continue;
    }
    if (++i >= iCount) return false;
    if (sName == "--only") {
      tOptions.sOnly = apszArgs[i];
      continue;
    }
    u64* pqwValue = nullptr;
    for (const auto& tNumber : atNumbers) {
      if (sName == tNumber.szName) pqwValue = tNumber.pqwValue;
    }
    if (pqwValue == nullptr) return false;
    *pqwValue = std::strtoull(apszArgs[i], nullptr, 10);
  }
  return tOptions.qwJobs >= 1 && tOptions.qwJobs <= dwMaxJobs;
}

}  // namespace

int main(int iCount, char** apszArgs) {
  TOptions tOptions;
  if (!ReadOptions(iCount, apszArgs, tOptions)) {
    std::fputs("cut_campaign [--only ROW] [--event N] [--seed S] [--seeds K] [--every N] [--jobs N] [--verbose]\n",
               stderr);
    return 2;
  }
  void* pv = mmap(nullptr, sizeof(TTally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (pv == MAP_FAILED) return 1;
  TTally& tTally = *static_cast<TTally*>(pv);
  bool bAll = true;
  u32 dwRows = 0;
  std::puts("| command | events | one in | cuts | survived |\n|---|---|---|---|---|");
  for (const TCutRow& tRow : Cuts_Rows()) {
    if (!IsWanted(tOptions, tRow)) continue;
    new (&tTally) TTally{};
    TryRow(tOptions, tRow, tTally);
    PrintRow(tOptions, tRow, tTally);
    bAll = bAll && tTally.dwUntried == 0 && tTally.qwCuts > 0 && tTally.qwSurvived == tTally.qwCuts;
    dwRows++;
  }
  return bAll && dwRows > 0 ? 0 : 1;
}
