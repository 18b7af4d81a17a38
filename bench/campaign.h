// What all campaigns use: their command line, and the processes that divide a row's work among them.
#pragma once

#include <functional>
#include <span>
#include <string>

#include "core/types.h"

struct TCampaignOptions {
  std::string sOnly = {};  // name of a row, or its first parts; "" for all rows
  u64 qwSeed = 1;          // the first
  u64 qwSeeds = 1;         // how many
  u64 qwJobs = 2;
  bool bVerbose = false;
};

struct TNumberOption {
  const char* szName;
  u64* pqwValue;
};

// Reads the options above and the campaign's own ones.  Returns false on wrong usage.
bool Campaign_ReadOptions(int iCount, char** apszArgs, std::span<const TNumberOption> atOwn,
                          TCampaignOptions* ptOptions);

// True if --only asks for this row.  '/' separates the parts of a row's name.
bool Campaign_IsWanted(const TCampaignOptions& tOptions, const std::string& sRow);

// Runs fnShare(job) for each job from 0 on, each in its own process: the parent of a life may have only one thread. The
// processes leave their results in memory of Campaign_Shared.  Returns false if a process did not end well.
bool Campaign_Share(const TCampaignOptions& tOptions, const std::function<void(u64 qwJob)>& fnShare);

// Zeroed memory that all processes share until the program ends.
void* Campaign_Shared(std::size_t dwSize);
