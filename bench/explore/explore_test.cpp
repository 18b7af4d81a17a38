// Runs pairs of commands in every schedule with one deviation: see trials/explore.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "explore/explorer.h"

namespace {

// A first command, and the second ones: each comes at every moment after the first.
struct TRow {
  const char* szLens;
  const char* szFirst;
  const char* szSeconds;
};

constexpr const char* szEachZoomLens = "zoom thermal";
constexpr TRow g_atRows[] = {
    {szEachZoomLens, "zoom", "stop focus focusback zoomback auto irisopen positioning motorreset backup term"},
    {szEachZoomLens, "zoomhere", "stop focus"},
    {szEachZoomLens, "focus", "stop zoom irisopen auto backup term"},
    {szEachZoomLens, "auto", "zoom focus stop irisopen term"},
    {szEachZoomLens, "auto&iris", "irisenable"},
    {szEachZoomLens, "irisopen", "focus motorreset auto&iris stop"},
    {szEachZoomLens, "irisenable", "zoom"},
    {szEachZoomLens, "positioning", "stop zoom irisopen"},
    {szEachZoomLens, "motorreset", "auto focus"},
    {szEachZoomLens, "hold", "stop zoomback"},
    {szEachZoomLens, "backup", "stop focus"},
    {szEachZoomLens, "recovery", "stop irisopen auto"},
    {"quad", "recovery", "auto auto&iris"},
    {"focus", "setdefault", "focus resetfocus"},
    {"focus", "focus", "setdefault"},
};

std::string Told(const TPair& tPair, const TFoundLoss& tLoss) {
  return "explore_campaign --only '" + Pair_Name(tPair) + "' --replay " + tLoss.sDeviations +
         " in this build, else --bound " + std::to_string(tLoss.dwBound) + ": " + tLoss.sWhat;
}

void PrintTo(const TRow& tRow, std::ostream* ptOut) {
  *ptOut << tRow.szFirst << " and then one of: " << tRow.szSeconds;
}

class Explore : public testing::TestWithParam<TRow> {};

TEST_P(Explore, EverySchedule) {
  std::istringstream tLenses(GetParam().szLens);
  for (std::string sLens; tLenses >> sLens;) {
    std::istringstream tSeconds(GetParam().szSeconds);
    for (std::string sSecond; tSeconds >> sSecond;) {
      std::string sPair = sLens;
      const TPair tPair = Pair_Find(sPair.append("/").append(GetParam().szFirst).append("/").append(sSecond));
      ASSERT_NE(tPair.ptLens, nullptr) << sLens << " " << sSecond;
      const TExplored tExplored = Explore_Pair(tPair, {.dwBound = 1});
      EXPECT_GT(tExplored.qwAccesses, 100u) << Pair_Name(tPair) << ": shared words are not seen";
      for (const auto& [sKind, tLoss] : tExplored.mapLosses) ADD_FAILURE() << Told(tPair, tLoss);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Pairs, Explore, testing::ValuesIn(g_atRows), [](const auto& tInfo) {
  std::string sName = std::to_string(tInfo.index) + "_" + tInfo.param.szFirst;
  std::erase(sName, '&');
  return sName;
});

TEST(ExploredLife, RepeatsItsDeviations) {
  const TPair tPair = Pair_Find("zoom/zoom/focus");
  const TCamera tCamera("zoom");
  const auto Lived = [&](const std::vector<TDeviation>& atDeviations) {
    return Explore_Live(tPair, tCamera, atDeviations).tResult.sTranscript;
  };
  const std::string sPlain = Lived({});
  const auto atPoints = Schedule_Points();
  const auto itFirst = std::ranges::find(atPoints, true, &TPoint::bMayArrive);
  ASSERT_NE(itFirst, atPoints.end());
  const std::vector<TDeviation> atEarly = {{static_cast<u32>(itFirst - atPoints.begin()), DEVIATION_ARRIVAL, 0}};
  const std::string sEarly = Lived(atEarly);
  // No EXPECT_EQ, which would print both transcripts.
  EXPECT_TRUE(sEarly == Lived(Explore_Deviations(Explore_Text(atEarly).c_str()))) << Explore_Text(atEarly);
  EXPECT_TRUE(sEarly != sPlain) << Explore_Text(atEarly);
  EXPECT_TRUE(sPlain == Lived({}));
}

}  // namespace
