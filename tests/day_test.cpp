// Runs days of a thermal lens, and checks that the judge sees each fault that is put into one.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "day/day.h"
#include "support.h"

namespace {

void LoseThermalTable(const std::string& sRoot, TWorld*) {
  const std::string sPath = sRoot + "/etc/conf.d/vernierlensd/config_vernierlensd.xml";
  std::stringstream tText;
  tText << std::ifstream(sPath).rdbuf();
  std::ofstream(sPath) << Replaced(tText.str(), "<shift_table>[^]*</shift_table>", "");
}
void SwitchLedsOff(const std::string& sRoot, TWorld*) {
  std::ofstream(sRoot + "/" + szIRCutFile) << "<root><ircutcontrol><disableirled>1</disableirled>"
                                              "<enableextled>0</enableextled></ircutcontrol></root>";
}
void LoseSteps(const std::string&, TWorld* ptWorld) {
  ptWorld->tLens.atAxis[0][LENS_FOCUS].iSlipNow = 8;
}

TEST(Day, JudgedByGlassAndBelief) {
  const struct {
    const char* szWhat;
    void (*pfnPrepare)(const std::string& sRoot, TWorld* ptWorld);
    bool bSharp, bBelievedTrue;
  } atCases[] = {{"sound", nullptr, true, true},
                 {"no thermal table", LoseThermalTable, false, true},
                 {"night without correction", SwitchLedsOff, false, true},
                 {"lost steps", LoseSteps, true, false}};
  for (const auto& tCase : atCases) {
    SCOPED_TRACE(tCase.szWhat);
    const u32 dwDays = tCase.pfnPrepare == nullptr ? static_cast<u32>(Lives(2)) : 1;
    const TDayReport tReport = Day_Run({.dwDays = dwDays, .qwSeed = FirstSeed(), .fnPrepare = tCase.pfnPrepare});
    ASSERT_EQ(tReport.sTrouble, "");
    EXPECT_GT(tReport.atSamples.size(), dwDays * 1430);
    EXPECT_EQ(tReport.IsSharp(), tCase.bSharp) << tReport.tLargest.dFocus << " at minute " << tReport.tLargest.dwMinute;
    EXPECT_EQ(tReport.IsBelievedTrue(), tCase.bBelievedTrue);
    EXPECT_EQ(tReport.IsGood(), tCase.bSharp && tCase.bBelievedTrue);
  }
}

}  // namespace
