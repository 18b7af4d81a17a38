// Explores the schedules of a pair of commands, breadth first by the number of deviations, each in a life of its own.
#pragma once

#include <map>
#include <string>

#include "explore/commands.h"

struct TExploreOptions {
  u32 dwBound = 1;        // deviations in one life, at most dwMaxDeviations
  bool bPrunes = true;    // false: every deviation that there is, for a comparison
  double dSeconds = 1e9;  // of this machine's time; then the rest is cut
};

struct TFoundLoss {
  u64 qwLives;                     // that ended so
  u32 dwBound;                     // deviations of the first of them
  std::string sDeviations, sWhat;  // of the first
};

struct TExplored {
  u64 qwLives, qwOutcomes;  // an outcome: what each motor was asked for and each thread took, in order
  u64 qwAccesses;           // of shared words in the life without a deviation
  bool bCut;
  std::map<std::string, TFoundLoss> mapLosses;  // by what was wrong, its numbers left out
};

TExplored Explore_Pair(const TPair& tPair, const TExploreOptions& tOptions);

// Deviations as text: "point:deviation:argument,..."; "none" where there is none.
std::string Explore_Text(const std::vector<TDeviation>& atDeviations);
std::vector<TDeviation> Explore_Deviations(const char* pszText);

struct TExploredLife {
  TLifeResult tResult;
  std::string sLoss;  // "" it held
};
TExploredLife Explore_Live(const TPair& tPair, const TCamera& tCamera, const std::vector<TDeviation>& atDeviations);
