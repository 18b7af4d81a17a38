// Cuts the power at any event of any command: a sample of bench/cut_campaign, which tries every event.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "cuts.h"

namespace {

class Cut : public testing::TestWithParam<std::size_t> {};

std::string NameOf(const testing::TestParamInfo<std::size_t>& tInfo) {
  const TCutRow& tRow = Cuts_Rows()[tInfo.param];
  std::string sName = std::string(tRow.szModel) + "_" + tRow.szName;
  for (char& c : sName) {
    if (c == '-') c = '_';
  }
  return sName;
}

TEST_P(Cut, IsSurvived) {
  const TCutRow& tRow = Cuts_Rows()[GetParam()];
  const TCamera tCamera(tRow.szModel);
  const TUncut tUncut = Cuts_LiveUncut(tCamera, tRow, FirstSeed());
  ASSERT_EQ(tUncut.sLoss, "") << "in the life without a cut";
  std::vector<TCutMoment> atMoments = Cuts_DrawMoments(tCamera, tRow, tUncut, FirstSeed());
  std::shuffle(atMoments.begin(), atMoments.end(), std::mt19937_64(FirstSeed()));  // a sanitizer's run tries fewer
  atMoments.resize(static_cast<std::size_t>(std::min<u64>(atMoments.size(), Lives(20))));
  for (const TCutMoment& tMoment : atMoments) {
    const TCutOutcome tOutcome = Cuts_Try(tCamera, tRow, tMoment, FirstSeed());
    ASSERT_TRUE(tOutcome.bSurvived) << tOutcome.sTale << tOutcome.sLoss << "\ncut_campaign --only " << tRow.szModel
                                    << "/" << tRow.szName << " --event " << tMoment.qwEvent << " --time "
                                    << tMoment.qwTime_us << " --again " << tMoment.qwAgain << " --seed " << FirstSeed();
  }
}

INSTANTIATE_TEST_SUITE_P(Campaign, Cut, testing::Range<std::size_t>(0, Cuts_Rows().size()), NameOf);

}  // namespace
