// What the campaigns share: their command line, and the processes that share a row's work.
#pragma once

#include <functional>
#include <span>
#include <string>

#include "core/types.h"

struct TCampaignOptions {
  std::string sOnly = {};  // row or the beginning of one; "" all
  u64 qwSeed = 1;          // the first
  u64 qwSeeds = 1;
  u64 qwJobs = 2;
  bool bVerbose = false;
};

struct TNumberOption {
  const char* szName;
  u64* pqwValue;
};

// Reads the options above and those of the campaign itself.  False: wrong usage.
bool Campaign_ReadOptions(int iCount, char** apszArgs, std::span<const TNumberOption> atOwn,
                          TCampaignOptions* ptOptions);

// True if the row is asked for: a name's parts are divided by '/'.
bool Campaign_IsWanted(const TCampaignOptions& tOptions, const std::string& sRow);

// Runs fnShare(job) for each job from 0 in a process of its own, since the parent of a life has one thread.  What they
// find out they leave in memory of Campaign_Shared.  False: one of them did not end well.
bool Campaign_Share(const TCampaignOptions& tOptions, const std::function<void(u64 qwJob)>& fnShare);

// Zeroed memory that the processes share, for the rest of the program.
void* Campaign_Shared(std::size_t dwSize);
