// Prints lives of every kind to the last line and the last bit, to compare those of two machines.
//   transcripts [SEED]
// For each row of the power-cut campaign: a whole life, one with a power cut, and the life after the cut.  For each
// model: lives with random clients, buttons and faults, in which the seconds since 1970 outgrow 31 bits.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

#include "cuts.h"
#include "life_story.h"
#include "world/world_image.h"

namespace {

constexpr u64 qwRecovery_us = 12'000'000;  // well into the repair; its end is not needed here
constexpr u64 qwStories = 8, qwBusy_ms = 60'000, qwStoryEnd_us = 180'000'000;
constexpr u64 qwWallAtZero_us = ((u64{1} << 31) - 45) * 1'000'000;  // January 2038
bool g_bGood = true;

// Runs a life and prints how it went and where the lens truly is afterwards.  Returns the number of events.
u64 Tell(const TCamera& tCamera, const char* szModel, const char* szLife, TLifePlan tPlan) {
  tPlan.sRoot = tCamera.sRoot;
  const TLifeResult tResult = Life_Run(tPlan);
  std::printf("== %s, %s: end %d status %d, %" PRIu64 " events, %" PRIu64 " us\n%s", szModel, szLife, tResult.eEnd,
              tResult.iStatus, tResult.qwEvents, tResult.qwTime_us, tResult.sTranscript.c_str());
  for (const std::string& sReply : tResult.asReplies) std::printf("-- reply\n%s\n", sReply.c_str());
  TWorld* ptWorld = World_Map(tPlan.sRoot.c_str());
  for (i32 i = 0; i < iLensChannels; i++) {
    std::printf("-- zoom %a focus %a sharp %a\n", Lens_GlassVirtual(&ptWorld->tLens, i, LENS_ZOOM),
                Lens_GlassVirtual(&ptWorld->tLens, i, LENS_FOCUS), World_SharpFocus(ptWorld, i));
  }
  World_Unmap(ptWorld);
  std::fputs(tResult.sStderr.c_str(), stderr);
  g_bGood = g_bGood && tResult.bTranscriptWhole && (tResult.eEnd == LIFE_EXITED || tResult.eEnd == LIFE_CUT);
  return tResult.qwEvents;
}

void TellRow(const TCutRow& tRow, u64 qwSeed) {
  const TCamera tCamera(tRow.szModel);
  TLifePlan tPlan = {.qwSeed = qwSeed, .atEvents = tRow.atEvents, .qwEnd_us = tRow.qwEnd_ms * 1000};
  Cuts_SetScene(tCamera, tRow);
  tPlan.qwCutAtEvent = 1 + TDraw(qwSeed).Below(Tell(tCamera, tRow.szModel, tRow.szName, tPlan));
  Cuts_SetScene(tCamera, tRow);
  Tell(tCamera, tRow.szModel, "cut", tPlan);
  Tell(tCamera, tRow.szModel, "behind the cut", {.qwSeed = qwSeed, .qwEnd_us = qwRecovery_us});
}

}  // namespace

int main(int iCount, char** apszArgs) {
  const u64 qwSeed = iCount > 1 ? std::strtoull(apszArgs[1], nullptr, 10) : 1;
  for (const TCutRow& tRow : Cuts_Rows()) TellRow(tRow, qwSeed);
  for (i32 i = 0; const TLensModel* ptModel = Lenses_At(i); i++) {
    for (u64 qw = qwSeed; qw < qwSeed + qwStories; qw++) {
      TDraw tDraw(qw);
      const TCamera tCamera(ptModel->szName);
      TStory tStory = Story_Draw(tCamera, *ptModel, tDraw, qwBusy_ms, 12, true);
      tStory.atEvents.push_back(Call(0, [](TWorld* ptWorld) { ptWorld->qwWallAtZero_us = ::qwWallAtZero_us; }));
      Tell(tCamera, ptModel->szName, "drawn", {.qwSeed = qw, .atEvents = tStory.atEvents, .qwEnd_us = qwStoryEnd_us});
    }
  }
  return g_bGood ? 0 : 1;
}
