// lensday: runs, judges and draws days in the life of a thermal lens.  Exits with 0 if the lens stayed sharp and the
// believed positions are true, with 1 if not, with 2 on wrong usage.
#include <arguments.h>

#include <cmath>
#include <cstdio>

#include "day/day.h"
#include "day/day_plot.h"
#include "lens/lens_model.h"

namespace {

struct TOptions {
  TDayPlan tPlan;
  std::string sLens, sSvg;
};

TOptions ReadOptions(const std::vector<std::string>& asWords) {
  TOptions tOptions;
  TDayPlan& tPlan = tOptions.tPlan;
  tOptions.sLens = tPlan.pszModel;
  u64 qwDays = tPlan.dwDays;
  CLI::App tApp(
      "Runs, judges and draws days in the life of a thermal lens. Exit status: 0 sharp throughout, 1 not, "
      "2 wrong usage.",
      "lensday");
  Arguments_Prepare(tApp);
  tApp.add_option("--lens", tOptions.sLens, "a model with a thermal table; default thermal");
  Arguments_AddWhole(tApp, "--days", qwDays, 1, dwMaxDays, "how many days; default 1");
  Arguments_AddWhole(tApp, "--seed", tPlan.qwSeed, 0, ~u64{0}, "decides all that is drawn; default 1");
  Arguments_AddNumber(tApp, "--from", tPlan.dFrom_C, iDayColdest_C, iDayHottest_C,
                      "the coldest of a day, Celsius; default -10");
  Arguments_AddNumber(tApp, "--to", tPlan.dTo_C, iDayColdest_C, iDayHottest_C,
                      "the hottest of a day, Celsius; default 45");
  tApp.add_option("--svg", tOptions.sSvg, "write the picture into this file too");
  Arguments_Parse(tApp, asWords);
  if (tPlan.dFrom_C > tPlan.dTo_C) Cli_RefuseUsage("--from is above --to");
  tPlan.dwDays = static_cast<u32>(qwDays);
  return tOptions;
}

void PrintVerdict(const TDayReport& tReport) {
  u32 dwMoved = 0, dwSwitched = 0;
  for (std::size_t dw = 1; dw < tReport.atSamples.size(); ++dw) {
    if (tReport.atSamples[dw].dFocus != tReport.atSamples[dw - 1].dFocus) ++dwMoved;
    if (tReport.atSamples[dw].bNight != tReport.atSamples[dw - 1].bNight) ++dwSwitched;
  }
  const TDaySample& tLargest = tReport.tLargest;
  std::printf("  %zu minutes, %u switches of day and night; the focus moved in %u of them\n", tReport.atSamples.size(),
              dwSwitched, dwMoved);
  std::printf("  search off by %.1f steps, allowed %.1f\n", tReport.dSearchError, tReport.dSearchAllowed);
  std::printf("  largest error %.1f steps at %u:%02u h, allowed %.1f; %u minutes beyond what was allowed\n",
              std::fabs(Sample_Error(tLargest)), tLargest.dwMinute / 60, tLargest.dwMinute % 60, tLargest.dAllowed,
              tReport.dwBeyond);
  std::printf("  at the end believed and true: zoom %d and %.2f, focus %d and %.2f\n", tReport.aiBelieved[LENS_ZOOM],
              tReport.adTrue[LENS_ZOOM], tReport.aiBelieved[LENS_FOCUS], tReport.adTrue[LENS_FOCUS]);
  if (!tReport.IsSharp()) std::puts("lensday: the lens did not stay sharp");
  if (!tReport.IsBelievedTrue()) std::puts("lensday: believed and true positions differ");
}

int Run(const std::vector<std::string>& asWords) {
  TOptions tOptions = ReadOptions(asWords);
  tOptions.tPlan.pszModel = tOptions.sLens.c_str();
  const TDayReport tReport = Day_Run(tOptions.tPlan);
  if (!tReport.sTrouble.empty()) {
    std::fprintf(stderr, "lensday: %s", tReport.sTrouble.c_str());
    return 1;
  }
  DayPlot_Print(tReport);
  PrintVerdict(tReport);
  if (!tOptions.sSvg.empty() && DayPlot_WriteSvg(tReport, tOptions.sSvg.c_str()) != 0) {
    std::perror(tOptions.sSvg.c_str());
    return 1;
  }
  return tReport.IsGood() ? 0 : 1;
}

}  // namespace

int main(int iCount, char** apszArgs) {
  return Arguments_Run("lensday", iCount, apszArgs, Run);
}
