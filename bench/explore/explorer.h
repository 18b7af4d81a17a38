// Explores the schedules of a pair of commands, each in a life: first without deviations, then with one, then with two.
#pragma once

#include <map>
#include <string>

#include "explore/commands.h"

struct TExploreOptions {
  u32 dwBound = 1;        // deviations in one life, at most dwMaxDeviations
  bool bPrunes = true;    // false: tries every deviation, for a comparison
  double dSeconds = 1e9;  // real time after which the exploration ends early
};

struct TFoundLoss {
  u64 qwLives;                     // lives that ended so
  u32 dwBound;                     // number of deviations of the first such life
  std::string sDeviations, sWhat;  // its deviations, and what did not hold
};

struct TExplored {
  u64 qwLives, qwOutcomes;  // an outcome: what each motor was asked for and what each thread took, in order
  u64 qwAccesses;           // accesses of shared words in the life without a deviation
  bool bCut;                // it ended early
  std::map<std::string, TFoundLoss> mapLosses;  // by what was wrong, without its numbers
};

TExplored Explore_Pair(const TPair& tPair, const TExploreOptions& tOptions);

// Deviations as text: "point:deviation:argument,...", or "none".
std::string Explore_Text(const std::vector<TDeviation>& atDeviations);
std::vector<TDeviation> Explore_Deviations(const char* pszText);

struct TExploredLife {
  TLifeResult tResult;
  std::string sLoss;  // what did not hold; "" all did
};
TExploredLife Explore_Live(const TPair& tPair, const TCamera& tCamera, const std::vector<TDeviation>& atDeviations);
