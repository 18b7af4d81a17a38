// Tells lives of every kind to the last line and the last bit, for a comparison of one machine's with another's.
//   transcripts [SEED]
// Each row of the power-cut campaign: a whole life, one that is cut, and the life behind the cut.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "core/paths.h"
#include "cuts.h"

namespace {

constexpr u64 qwRecovery_us = 12'000'000;  // well into the repair; its end is no matter here

bool Tell(const TCutRow& tRow, const char* szLife, const TLifeResult& tResult) {
  std::printf("== %s %s, %s: end %d status %d, %" PRIu64 " events, %" PRIu64 " us\n", tRow.szModel, tRow.szName, szLife,
              tResult.eEnd, tResult.iStatus, tResult.qwEvents, tResult.qwTime_us);
  std::fputs(tResult.sTranscript.c_str(), stdout);
  for (const std::string& sReply : tResult.asReplies) std::printf("-- reply\n%s\n", sReply.c_str());
  std::fputs(tResult.sStderr.c_str(), stderr);
  return tResult.eEnd == LIFE_EXITED || tResult.eEnd == LIFE_CUT;
}

// The records of the true lens and of what is sharp, as bits.
void TellTruth(const TCamera& tCamera) {
  TWorld* ptWorld = World_Map(tCamera.sRoot.c_str());
  for (const auto& atChannel : ptWorld->tLens.atAxis) {
    for (const TAxisTruth& tAxis : atChannel) std::printf("rotor %d glass %d\n", tAxis.iRotor, tAxis.iGlass);
  }
  std::printf("focus %a\n", Lens_GlassVirtual(&ptWorld->tLens, 0, LENS_FOCUS));
  World_Unmap(ptWorld);
}

bool TellRow(const TCutRow& tRow, u64 qwSeed) {
  const TCamera tCamera(tRow.szModel);
  const auto SetScene = [&] {
    Life_ResetRoot(tCamera.sRoot);
    if (tRow.pszStatus != nullptr) tCamera.Write(szStatusPath, tRow.pszStatus);
  };
  TLifePlan tPlan = {.sRoot = tCamera.sRoot, .qwSeed = qwSeed, .atEvents = tRow.atEvents};
  tPlan.qwEnd_us = tRow.qwEnd_ms * 1000;
  SetScene();
  const TLifeResult tWhole = Life_Run(tPlan);
  bool bGood = Tell(tRow, "whole", tWhole);
  TellTruth(tCamera);

  SetScene();
  std::mt19937_64 tDraw(qwSeed);
  tPlan.qwCutAtEvent = 1 + tDraw() % tWhole.qwEvents;
  bGood = Tell(tRow, "cut", Life_Run(tPlan)) && bGood;
  bGood =
      Tell(tRow, "behind the cut", Life_Run({.sRoot = tCamera.sRoot, .qwSeed = qwSeed, .qwEnd_us = qwRecovery_us})) &&
      bGood;
  TellTruth(tCamera);
  return bGood;
}

}  // namespace

int main(int iCount, char** apszArgs) {
  const u64 qwSeed = iCount > 1 ? std::strtoull(apszArgs[1], nullptr, 10) : 1;
  bool bGood = true;
  for (const TCutRow& tRow : Cuts_Rows()) bGood = TellRow(tRow, qwSeed) && bGood;
  return bGood ? 0 : 1;
}
