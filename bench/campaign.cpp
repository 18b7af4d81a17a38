#include "campaign.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace {

constexpr u64 qwMaxJobs = 8;

u64* NumberOf(std::string_view sName, std::span<const TNumberOption> atOptions) {
  for (const TNumberOption& tOption : atOptions) {
    if (sName == tOption.szName) return tOption.pqwValue;
  }
  return nullptr;
}

}  // namespace

bool Campaign_ReadOptions(int iCount, char** apszArgs, std::span<const TNumberOption> atOwn,
                          TCampaignOptions* ptOptions) {
  const TNumberOption atCommon[] = {
      {"--seed", &ptOptions->qwSeed}, {"--seeds", &ptOptions->qwSeeds}, {"--jobs", &ptOptions->qwJobs}};
  for (int i = 1; i < iCount; i++) {
    const std::string_view sName = apszArgs[i];
    if (sName == "--verbose") {
      ptOptions->bVerbose = true;
      continue;
    }
    if (++i >= iCount) return false;
    if (sName == "--only") {
      ptOptions->sOnly = apszArgs[i];
      continue;
    }
    u64* pqwOwn = NumberOf(sName, atOwn);
    u64* pqwValue = pqwOwn != nullptr ? pqwOwn : NumberOf(sName, atCommon);
    if (pqwValue == nullptr) return false;
    *pqwValue = std::strtoull(apszArgs[i], nullptr, 10);
  }
  return ptOptions->qwJobs >= 1 && ptOptions->qwJobs <= qwMaxJobs && ptOptions->qwSeeds >= 1;
}

bool Campaign_IsWanted(const TCampaignOptions& tOptions, const std::string& sRow) {
  return tOptions.sOnly.empty() || sRow == tOptions.sOnly || sRow.starts_with(tOptions.sOnly + "/");
}

bool Campaign_Share(const TCampaignOptions& tOptions, const std::function<void(u64 qwJob)>& fnShare) {
  std::fflush(stdout);
  std::vector<pid_t> aiProcesses;
  for (u64 qwJob = 0; qwJob < tOptions.qwJobs; qwJob++) {
    const pid_t iProcess = fork();
    if (iProcess == 0) {
      fnShare(qwJob);
      std::fflush(stdout);
      _exit(0);
    }
    aiProcesses.push_back(iProcess);
  }
  bool bAll = true;
  for (const pid_t iProcess : aiProcesses) {
    int iStatus = 0;
    bAll = iProcess > 0 && waitpid(iProcess, &iStatus, 0) == iProcess && iStatus == 0 && bAll;
  }
  return bAll;
}

void* Campaign_Shared(std::size_t dwSize) {
  void* pv = mmap(nullptr, dwSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (pv == MAP_FAILED) std::abort();
  return pv;
}
