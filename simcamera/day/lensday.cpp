// lensday: runs, judges and draws days in the life of a thermal lens.  Exits with 0 if the lens stayed sharp and the
// believed positions are true, with 1 if not, with 2 on wrong usage.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "day/day.h"
#include "day/day_plot.h"
#include "lens/lens_model.h"

namespace {

struct TOptions {
  TDayPlan tPlan;
  const char* pszSvg = nullptr;
};

bool TakeNumber(const char* pszText, double dLowest, double dHighest, double* pdNumber) {
  char* pcEnd = nullptr;
  const double dNumber = std::strtod(pszText, &pcEnd);
  if (pcEnd == pszText || *pcEnd != 0 || !(dNumber >= dLowest && dNumber <= dHighest)) return false;
  *pdNumber = dNumber;
  return true;
}

bool TakeWhole(const char* pszText, u64 qwLowest, u64 qwHighest, u64* pqwNumber) {
  char* pcEnd = nullptr;
  const u64 qwNumber = std::strtoull(pszText, &pcEnd, 10);
  if (*pszText < '0' || *pszText > '9' || *pcEnd != 0 || qwNumber < qwLowest || qwNumber > qwHighest) return false;
  *pqwNumber = qwNumber;
  return true;
}

bool TakeOption(std::string_view sName, const char* pszValue, TOptions* ptOptions) {
  TDayPlan& tPlan = ptOptions->tPlan;
  if (sName == "--days") {
    u64 qwDays = 0;
    if (!TakeWhole(pszValue, 1, dwMaxDays, &qwDays)) return false;
    tPlan.dwDays = static_cast<u32>(qwDays);
    return true;
  }
  if (sName == "--seed") return TakeWhole(pszValue, 0, ~u64{0}, &tPlan.qwSeed);
  if (sName == "--from") return TakeNumber(pszValue, iDayColdest_C, iDayHottest_C, &tPlan.dFrom_C);
  if (sName == "--to") return TakeNumber(pszValue, iDayColdest_C, iDayHottest_C, &tPlan.dTo_C);
  if (sName == "--svg") ptOptions->pszSvg = pszValue;
  if (sName == "--lens") tPlan.pszModel = pszValue;
  return sName == "--svg" || sName == "--lens";
}

bool ReadOptions(int iCount, char** apszArgs, TOptions* ptOptions) {
  for (int i = 1; i < iCount; i += 2) {
    if (i + 1 == iCount || !TakeOption(apszArgs[i], apszArgs[i + 1], ptOptions)) return false;
  }
  return ptOptions->tPlan.dFrom_C <= ptOptions->tPlan.dTo_C;
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

}  // namespace

int main(int iCount, char** apszArgs) {
  TOptions tOptions;
  if (!ReadOptions(iCount, apszArgs, &tOptions)) {
    std::fprintf(stderr,
                 "lensday [--lens thermal] [--days 1..%u] [--seed S] [--from C] [--to C] [--svg FILE]\n"
                 "temperatures from %d to %d, --from not above --to\n",
                 dwMaxDays, iDayColdest_C, iDayHottest_C);
    return 2;
  }
  const TDayReport tReport = Day_Run(tOptions.tPlan);
  if (!tReport.sTrouble.empty()) {
    std::fprintf(stderr, "lensday: %s", tReport.sTrouble.c_str());
    return 1;
  }
  DayPlot_Print(tReport);
  PrintVerdict(tReport);
  if (tOptions.pszSvg != nullptr && DayPlot_WriteSvg(tReport, tOptions.pszSvg) != 0) {
    std::perror(tOptions.pszSvg);
    return 1;
  }
  return tReport.IsGood() ? 0 : 1;
}
