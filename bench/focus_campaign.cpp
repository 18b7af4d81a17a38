// Runs auto focus and focus scan on every scene from random positions, and judges where the true glass ends.
//   focus_campaign [--only ROW] [--seeds N] [--seed S] [--jobs N] [--verbose]
// ROW is MODEL, MODEL/SCENE or MODEL/SCENE/SEARCH.  --verbose shows what the daemon printed in each search that missed.
// Prints a table.  Exit status: 0 if all lives ended in order, 1 if one did not or without such a row, 2 on wrong
// usage.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "campaign.h"
#include "lens/lens_model.h"
#include "lens/optics.h"
#include "support.h"
#include "world/world_image.h"

namespace {

// A random distance lies between these; its logarithm is uniform.
constexpr double dNearest_m = 1, dFarthest_m = 1000;

struct TPace {
  const char* szModel;
  u64 qwReady_ms;   // time of the first move: after the start's search for the sensor
  u64 qwSearch_ms;  // time of the search: after the longest move
  u64 qwEnd_ms;     // after the longest search
};
constexpr TPace g_atPaces[] = {{"zoom", 100, 12'000, 150'000},
                               {"focus", 15'000, 20'000, 90'000},
                               {"quad", 90'000, 100'000, 220'000},
                               {"thermal", 100, 8'000, 120'000},
                               {"ics", 8'000, 20'000, 120'000}};

struct TFault {
  const char* szName;  // shown instead of the scene's name; null: no fault
  i32 iSlackTimes;     // the slack is multiplied by this
  i32 iSlipOneIn;      // the focus motor loses one step in so many; 0 none
};
constexpr TFault g_atFaults[] = {{"slack-twice", 2, 0}, {"one-in-200-lost", 1, 200}};
constexpr TFault g_tSound = {nullptr, 1, 0};

struct TRow {
  const TPace* ptPace;
  const TScene* ptScene;
  const TFault* ptFault;
  const char* szFunction;  // of the query
};

enum EEnd : u32 { END_UNTRIED, END_GOOD, END_FAILED, END_DISORDER };

// The result of one search, in memory that the processes share.
struct TSearch {
  EEnd eEnd;      // as the daemon reports it
  u32 bFocused;   // the glass is within the depth of focus
  double dError;  // virtual steps from the glass to the sharp position
  u32 dwReadings;
  double dTime_s;  // camera time
  double dAtRest;  // focus value at the end, divided by the best one of the search
};

std::string NameOf(const TRow& tRow) {
  const char* szWhat = tRow.ptFault->szName != nullptr ? tRow.ptFault->szName : tRow.ptScene->pszName;
  return std::string(tRow.ptPace->szModel) + "/" + szWhat + "/" + tRow.szFunction;
}

std::vector<TRow> Rows() {
  std::vector<TRow> atRows;
  for (const TPace& tPace : g_atPaces) {
    for (const char* szFunction : {"auto", "scan"}) {
      for (const TScene& tScene : g_atScenes) atRows.push_back({&tPace, &tScene, &g_tSound, szFunction});
      for (const TFault& tFault : g_atFaults) atRows.push_back({&tPace, &g_atScenes[0], &tFault, szFunction});
    }
  }
  return atRows;
}

std::string Move(const char* szAxis, u32 dwPosition) {
  return std::string("function=") + szAxis + "&direction=direct&position=" + std::to_string(dwPosition);
}

// Sets the scene, the fault and the distance of a seed.  Returns the move that brings the lens to its start.
std::string SetScene(const TRow& tRow, TWorld* ptWorld, u64 qwSeed) {
  const TLensModel& tModel = *Lenses_Find(tRow.ptPace->szModel);
  std::mt19937_64 tDraw(qwSeed);
  const double dShare = static_cast<double>(tDraw() >> 11) / static_cast<double>(u64{1} << 53);
  ptWorld->qwSeed = qwSeed;
  ptWorld->eScene = tRow.ptScene->eScene;
  ptWorld->dDistance_m = dNearest_m * std::pow(dFarthest_m / dNearest_m, dShare);
  for (TAxisModel& tAxis : ptWorld->tLens.atModel) tAxis.iSlack *= tRow.ptFault->iSlackTimes;
  ptWorld->tLens.atAxis[0][LENS_FOCUS].iSlipOneIn = tRow.ptFault->iSlipOneIn;
  const bool bZoom = Model_HasZoom(tModel);
  const TAxisSheet& tSheet = bZoom ? tModel.tZoom : tModel.tFocus;
  const u64 qwPlaces = tSheet.dwEnd - tSheet.dwStart + 1;
  return Move(bZoom ? "zoom" : "focus", tSheet.dwStart + static_cast<u32>(tDraw() % qwPlaces));
}

// What the daemon printed about its search.
struct TPrinted {
  u32 dwReadings = 0;
  u32 dwBest = 0;
  double dLast_s = 0;  // camera time since the start of the life
};

TPrinted ReadTranscript(const TLifeResult& tResult) {
  TPrinted tPrinted;
  const std::string& s = tResult.sTranscript;
  double dStart_s = std::strtod(s.c_str(), nullptr);
  for (std::size_t dwAt = 0; dwAt < s.size();) {
    const std::size_t dwEnd = std::min(s.find('\n', dwAt), s.size());
    const std::string_view sLine = std::string_view(s).substr(dwAt, dwEnd - dwAt);
    constexpr std::string_view sValue = ", Focus Value: ";
    if (const std::size_t dw = sLine.find(sValue); dw != std::string_view::npos) {
      tPrinted.dwReadings++;
      tPrinted.dwBest = std::max(tPrinted.dwBest, static_cast<u32>(std::atoi(s.c_str() + dwAt + dw + sValue.size())));
    }
    if (sLine.find("Best focus: ") != std::string_view::npos) {
      tPrinted.dLast_s = std::strtod(s.c_str() + dwAt, nullptr) - dStart_s;
    }
    dwAt = dwEnd + 1;
  }
  return tPrinted;
}

bool IsOrderly(const TLifeResult& tResult) {
  return tResult.eEnd == LIFE_EXITED && tResult.iStatus == 0 && tResult.bTranscriptWhole &&
         tResult.asReplies.size() == 3 && !tResult.asReplies.back().empty();
}

TSearch Search(const TRow& tRow, const TCamera& tCamera, u64 qwSeed, bool bVerbose) {
  const TPace& tPace = *tRow.ptPace;
  if (Life_ResetRoot(tCamera.sRoot) != 0) std::abort();
  TWorld* ptWorld = World_Map(tCamera.sRoot.c_str());
  const std::string sMove = SetScene(tRow, ptWorld, qwSeed);
  const TLifeResult tResult =
      Live(tCamera,
           {Ask(tPace.qwReady_ms, sMove), Ask(tPace.qwSearch_ms, std::string("function=") + tRow.szFunction),
            Ask(tPace.qwEnd_ms, "function=getstatus")},
           tPace.qwEnd_ms + 200, qwSeed);
  TSearch tSearch = {};
  tSearch.eEnd = END_DISORDER;
  if (IsOrderly(tResult)) {
    const TLensModel& tModel = *Lenses_Find(tPace.szModel);
    Lens_Settle(&ptWorld->tLens, World_Now_us(ptWorld));
    const double dGlass = Lens_GlassVirtual(&ptWorld->tLens, 0, LENS_FOCUS);
    const double dSharp = World_SharpFocus(ptWorld, 0);
    const TPrinted tPrinted = ReadTranscript(tResult);
    const bool bIdle = StatusValue(tResult.asReplies.back(), "focus_enable") == 0;
    const double dRest =
        Optics_FocusValue(tModel, *tRow.ptScene, Lens_GlassVirtual(&ptWorld->tLens, 0, LENS_ZOOM), dGlass, dSharp);
    tSearch = {.eEnd = bIdle && tPrinted.dLast_s > 0 ? END_GOOD : END_FAILED,
               .bFocused = std::abs(dGlass - dSharp) <= World_DepthOfFocus(ptWorld, 0),
               .dError = std::abs(dGlass - dSharp),
               .dwReadings = tPrinted.dwReadings,
               .dTime_s = tPrinted.dLast_s - static_cast<double>(tPace.qwSearch_ms) / 1000,
               .dAtRest = tPrinted.dwBest == 0 ? 0 : dRest / tPrinted.dwBest};
    if (bVerbose && tSearch.bFocused == 0) {
      std::printf("%s seed %zu: distance %.1f m, %s, glass at %.1f, sharp at %.1f\n%s\n", NameOf(tRow).c_str(),
                  std::size_t{qwSeed}, ptWorld->dDistance_m, sMove.c_str(), dGlass, dSharp, Printed(tResult).c_str());
    }
  } else if (bVerbose) {
    std::printf("%s seed %zu\n%s\n", NameOf(tRow).c_str(), std::size_t{qwSeed}, Tale(tResult).c_str());
  }
  World_Unmap(ptWorld);
  return tSearch;
}

double Percentile(std::vector<double> adValues, double dShare) {
  if (adValues.empty()) return 0;
  std::sort(adValues.begin(), adValues.end());
  return adValues[static_cast<std::size_t>(dShare * static_cast<double>(adValues.size() - 1) + 0.5)];
}

// Returns false if a life did not end in order.
bool PrintRow(const TRow& tRow, std::span<const TSearch> atSearches) {
  u32 dwFocused = 0, dwWrong = 0, dwFailed = 0, dwDisorder = 0;
  double dReadings = 0, dTime_s = 0, dLeast = 1;
  std::vector<double> adErrors;
  for (const TSearch& tSearch : atSearches) {
    if (tSearch.eEnd == END_UNTRIED || tSearch.eEnd == END_DISORDER) {
      dwDisorder++;
      continue;
    }
    dwFocused += tSearch.bFocused;
    dwWrong += tSearch.eEnd == END_GOOD && tSearch.bFocused == 0 ? 1 : 0;
    dwFailed += tSearch.eEnd == END_FAILED ? 1 : 0;
    dReadings += tSearch.dwReadings;
    dTime_s += tSearch.dTime_s;
    dLeast = std::min(dLeast, tSearch.dAtRest);
    adErrors.push_back(tSearch.dError);
  }
  const double dTried = std::max(1.0, static_cast<double>(adErrors.size()));
  std::printf("| %s | %.1f%% | %.1f | %.1f | %.0f | %.1f | %u | %u | %.2f |", NameOf(tRow).c_str(),
              100 * dwFocused / dTried, Percentile(adErrors, 0.5), Percentile(adErrors, 0.95), dReadings / dTried,
              dTime_s / dTried, dwWrong, dwFailed, dLeast);
  if (dwDisorder != 0) std::printf(" %u LIVES NOT IN ORDER", dwDisorder);
  std::puts("");
  std::fflush(stdout);
  return dwDisorder == 0;
}

}  // namespace

int main(int iCount, char** apszArgs) {
  TCampaignOptions tOptions;
  tOptions.qwSeeds = 1000;
  if (!Campaign_ReadOptions(iCount, apszArgs, {}, &tOptions)) {
    std::fputs("focus_campaign [--only ROW] [--seeds N] [--seed S] [--jobs N] [--verbose]\n", stderr);
    return 2;
  }
  TSearch* ptSearches = static_cast<TSearch*>(Campaign_Shared(tOptions.qwSeeds * sizeof(TSearch)));
  bool bAll = true;
  u32 dwRows = 0;
  std::puts(
      "| search | in focus | error, median | error, 95% | readings | seconds | good end, wrong | not ended | at rest "
      "over best seen, least |\n|---|---|---|---|---|---|---|---|---|");
  for (const TRow& tRow : Rows()) {
    if (!Campaign_IsWanted(tOptions, NameOf(tRow))) continue;
    std::fill_n(ptSearches, tOptions.qwSeeds, TSearch{});
    const bool bTried = Campaign_Share(tOptions, [&](u64 qwJob) {
      const TCamera tCamera(tRow.ptPace->szModel);
      for (u64 qw = qwJob; qw < tOptions.qwSeeds; qw += tOptions.qwJobs) {
        ptSearches[qw] = Search(tRow, tCamera, tOptions.qwSeed + qw, tOptions.bVerbose);
      }
    });
    bAll = PrintRow(tRow, {ptSearches, tOptions.qwSeeds}) && bTried && bAll;
    dwRows++;
  }
  return bAll && dwRows > 0 ? 0 : 1;
}
