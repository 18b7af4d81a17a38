// Clients, buttons and faults in lives that end at any moment: a sample of bench/life_campaign, which tries thousands.
#include "lives.h"

#include <gtest/gtest.h>

namespace {

class LivesOf : public testing::TestWithParam<i32> {};

std::string NameOf(const testing::TestParamInfo<i32>& tInfo) {
  return Lenses_At(tInfo.param)->pszName;
}

i32 CountModels() {
  i32 iModels = 0;
  while (Lenses_At(iModels) != nullptr) iModels++;
  return iModels;
}

TEST_P(LivesOf, EndInOrder) {
  const TLensModel& tModel = *Lenses_At(GetParam());
  const TCamera tCamera(tModel.pszName);
  for (u64 qw = 0; qw < Lives(60); qw++) {
    const TLivesOutcome tOutcome = Lives_Try(tCamera, tModel, FirstSeed() + qw);
    ASSERT_EQ(tOutcome.sLoss, "") << "life_campaign --only " << tModel.pszName << " --seed " << FirstSeed() + qw
                                  << " --seeds 1";
  }
}

TEST_P(LivesOf, TheSameSeedAreTheSame) {
  const TLensModel& tModel = *Lenses_At(GetParam());
  const TCamera tCamera(tModel.pszName);
  const auto Transcript = [&](u64 qwSeed) {
    EXPECT_EQ(Life_ResetRoot(tCamera.sRoot), 0);
    TDraw tDraw(FirstSeed());
    return Live(tCamera, Story_Draw(tCamera, tModel, tDraw, 30'000, 20, true).atEvents, 90'000, qwSeed).sTranscript;
  };
  const std::string sFirst = Transcript(FirstSeed());
  EXPECT_GT(sFirst.size(), 1000U);
  EXPECT_EQ(Transcript(FirstSeed()), sFirst);
  EXPECT_NE(Transcript(FirstSeed() + 1), sFirst) << "another seed is another interleaving";
}

INSTANTIATE_TEST_SUITE_P(Campaign, LivesOf, testing::Range(0, CountModels()), NameOf);

}  // namespace
