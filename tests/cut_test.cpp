// The power is cut anywhere in anything that the daemon does: a sample of bench/cut_campaign, which tries every event.
#include <gtest/gtest.h>

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
  const u64 qwEvents = Cuts_CountEvents(tCamera, tRow, FirstSeed());
  ASSERT_GT(qwEvents, 50U) << "the life without a cut is not in order";
  std::mt19937_64 tDraw(FirstSeed());
  for (u64 qw = 0; qw < Lives(6); qw++) {
    TCutMoment tMoment;
    if (qw % 3 != 2) {
      tMoment.qwEvent = 1 + tDraw() % qwEvents;
    } else {
      tMoment.qwTime_us = 1 + tDraw() % (tRow.qwEnd_ms * 1000 - 1);
    }
    const TCutOutcome tOutcome = Cuts_Try(tCamera, tRow, tMoment, FirstSeed());
    ASSERT_TRUE(tOutcome.bSurvived) << tOutcome.sTale << tOutcome.sLoss << "\ncut_campaign --only " << tRow.szModel
                                    << "/" << tRow.szName << " --event " << tMoment.qwEvent << " --time "
                                    << tMoment.qwTime_us << " --seed " << FirstSeed();
  }
}

INSTANTIATE_TEST_SUITE_P(Campaign, Cut, testing::Range<std::size_t>(0, Cuts_Rows().size()), NameOf);

}  // namespace
