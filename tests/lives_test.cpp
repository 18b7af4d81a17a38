// Clients, buttons and faults in lives that end at any moment, and lives without hurry, on the stock models and on
// drawn ones: a sample of bench/life_campaign, which tries thousands.
#include "lives.h"

#include <gtest/gtest.h>

#include "lens/drawn_lens.h"
#include "orderly_life.h"

namespace {

class LivesOf : public testing::TestWithParam<i32> {};

std::string NameOf(const testing::TestParamInfo<i32>& tInfo) {
  return Lenses_At(tInfo.param)->szName;
}

i32 CountModels() {
  i32 iModels = 0;
  while (Lenses_At(iModels) != nullptr) iModels++;
  return iModels;
}

void ExpectNoLoss(const TLivesOutcome& tOutcome, const char* pszRow, u64 qwSeed, const std::string& sRecord) {
  ASSERT_EQ(tOutcome.sLoss, "") << "life_campaign --only " << pszRow << " --seed " << qwSeed << " --seeds 1\n"
                                << sRecord;
}

TEST_P(LivesOf, EndInOrder) {
  const TLensModel& tModel = *Lenses_At(GetParam());
  const TCamera tCamera(tModel.szName);
  for (u64 qw = FirstSeed(); qw < FirstSeed() + Lives(60); qw++) {
    ASSERT_NO_FATAL_FAILURE(ExpectNoLoss(Lives_Try(tCamera, tModel, qw), tModel.szName, qw, ""));
  }
}

TEST_P(LivesOf, KeepEachPromise) {
  const TLensModel& tModel = *Lenses_At(GetParam());
  const TCamera tCamera(tModel.szName);
  for (u64 qw = FirstSeed(); qw < FirstSeed() + Lives(10); qw++) {
    ASSERT_NO_FATAL_FAILURE(ExpectNoLoss(OrderlyLife_Try(tCamera, tModel, qw), tModel.szName, qw, ""));
  }
}

// In four parts, which can run in parallel.
class DrawnLives : public testing::TestWithParam<u64> {};

TEST_P(DrawnLives, AreNotLost) {
  const u64 qwFirst = (FirstSeed() - 1) * 100 + GetParam() + 1;
  for (u64 qw = qwFirst; qw < qwFirst + Lives(40); qw++) {
    const TLensModel& tModel = *Lenses_Find(DrawnLens_Name(qw).c_str());
    const TCamera tCamera(tModel.szName);
    const std::string sRecord = DrawnLens_Describe(tModel);
    ASSERT_NO_FATAL_FAILURE(ExpectNoLoss(Lives_Try(tCamera, tModel, qw), "drawn", qw, sRecord));
    ASSERT_NO_FATAL_FAILURE(ExpectNoLoss(OrderlyLife_Try(tCamera, tModel, qw), "drawn", qw, sRecord));
  }
}

INSTANTIATE_TEST_SUITE_P(Campaign, DrawnLives, testing::Values(0, 1000, 2000, 3000));

TEST_P(LivesOf, RepeatWithTheirSeed) {
  const TLensModel& tModel = *Lenses_At(GetParam());
  const TCamera tCamera(tModel.szName);
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
