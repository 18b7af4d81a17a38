// Runs a camera for a year: weather, day and night, 20 commands of clients a day, and a power cut once a week.
//   year_campaign [--only MODEL] [--days N] [--seed S]
// Each day at noon a client asks for the lens's position, which must be the true one.  Exit status: 0 if all held, 1 if
// not or without such a model, 2 on wrong usage.
#include <dirent.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "campaign.h"
#include "clock/clock.h"
#include "day/day.h"
#include "judge.h"
#include "life_story.h"
#include "world/world_image.h"

namespace {

constexpr u64 qwMinute_ms = 60'000, qwHour_ms = 60 * qwMinute_ms, qwDay_ms = 24 * qwHour_ms;
constexpr u64 qwNoon_ms = 12 * qwHour_ms;
constexpr u64 qwQuiet_ms = 20 * qwMinute_ms;  // before noon: room for a scan of the slowest lens, then two checks
constexpr u64 qwWeather_min = 5;
constexpr u32 dwCommandsADay = 20;
constexpr u64 qwWeek_days = 7;
constexpr const char* szNoonQuery = "channel=0&function=getstatus";  // no other client names the channel
constexpr i64 llHeapMayDiffer = 4096;  // bytes in a week: the simulation's queues keep some blocks

// The true lens and the daemon's process at noon.
struct TNoon {
  double adTrue[LENS_AXES];
  u64 qwHeap;  // bytes
  u64 qwDescriptors;
};

// One year, in memory that its lives share.
struct TYear {
  TDayPlan tWeather;
  TNoon atNoons[dwMaxDays];
  u64 qwStart_us;  // of the camera's clock, at the first midnight
};

u64 OpenDescriptors() {
  u64 qwOpen = 0;
  DIR* ptDir = opendir("/proc/self/fd");
  while (ptDir != nullptr && readdir(ptDir) != nullptr) qwOpen++;
  closedir(ptDir);
  return qwOpen;
}

u64 Now_ms(const TYear& tYear, TWorld* ptWorld) {
  return (World_Now_us(ptWorld) - tYear.qwStart_us) / 1000;
}

// Sets the present weather, and calls itself again every qwWeather_min.
void KeepWeather(void* pvYear) {
  TYear& tYear = *static_cast<TYear*>(pvYear);
  TWorld* ptWorld = Clock_World();
  const u32 dwMinute = static_cast<u32>(Now_ms(tYear, ptWorld) / qwMinute_ms);
  ptWorld->dTemperature_C = Day_Temperature(tYear.tWeather, dwMinute);
  ptWorld->bNight = Day_IsNight(dwMinute) ? 1 : 0;
  Clock_At(World_Now_us(ptWorld) + qwWeather_min * qwMinute_ms * 1000, &KeepWeather, pvYear);
}

void TakeNoon(TYear& tYear, u64 qwDay, TWorld* ptWorld) {
  Lens_Settle(&ptWorld->tLens, World_Now_us(ptWorld));
  TNoon& tNoon = tYear.atNoons[qwDay];
  for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
    tNoon.adTrue[eAxis] = Lens_TrueVirtual(&ptWorld->tLens, 0, eAxis);
  }
  tNoon.qwHeap = mallinfo2().uordblks;
  tNoon.qwDescriptors = OpenDescriptors();
}

// A week from qwFrom_ms to qwTo_ms, both since the first midnight.  Its noons are those of days qwFirst to qwEnd - 1.
struct TWeek {
  u64 qwFrom_ms, qwTo_ms;
  u64 qwFirst, qwEnd;
  bool bCut;  // ends by a power cut; else by SIGTERM
};

void AddDay(const TWeek& tWeek, const TLensModel& tModel, u64 qwDay, TDraw& tDraw, TYear& tYear,
            std::vector<TLifeEvent>& atEvents) {
  const auto Within = [&](u64 qwAt_ms) { return qwAt_ms >= tWeek.qwFrom_ms && qwAt_ms < tWeek.qwTo_ms; };
  const u64 qwMidnight_ms = qwDay * qwDay_ms;
  for (u32 dw = 0; dw < dwCommandsADay; dw++) {
    const u64 qwAt_ms = qwMidnight_ms + tDraw.Below(qwDay_ms);
    const bool bQuiet = qwAt_ms + qwQuiet_ms > qwMidnight_ms + qwNoon_ms && qwAt_ms <= qwMidnight_ms + qwNoon_ms;
    const std::string sQuery = Story_DrawQuery(tModel, tDraw);
    if (Within(qwAt_ms) && !bQuiet) atEvents.push_back(Ask(qwAt_ms - tWeek.qwFrom_ms, sQuery));
  }
  if (!Within(qwMidnight_ms + qwNoon_ms)) return;
  const u64 qwAt_ms = qwMidnight_ms + qwNoon_ms - tWeek.qwFrom_ms;
  atEvents.push_back(Ask(qwAt_ms, szNoonQuery));
  atEvents.push_back(Call(qwAt_ms + 10, [&tYear, qwDay](TWorld* ptWorld) { TakeNoon(tYear, qwDay, ptWorld); }));
}

// Half of the cuts come at most 2 seconds after a command.
u64 DrawCut_ms(u64 qwAbout_ms, TDraw& tDraw, std::vector<TLifeEvent>& atEvents, u64 qwFrom_ms) {
  const u64 qwCut_ms = qwAbout_ms + tDraw.Below(4 * qwHour_ms);
  if (tDraw.OneIn(2)) atEvents.push_back(Ask(qwCut_ms - tDraw.Below(2000) - qwFrom_ms, "function=auto"));
  return qwCut_ms;
}

std::string JudgeNoon(const TNoon& tFirst, const TNoon& tNoon, const std::string& sReply) {
  for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
    std::string sWhy = Judge_Idle(sReply, eAxis);
    if (sWhy.empty()) sWhy = Judge_Belief(sReply, eAxis, tNoon.adTrue[eAxis]);
    if (!sWhy.empty()) return sWhy;
  }
  const i64 llGrown = static_cast<i64>(tNoon.qwHeap) - static_cast<i64>(tFirst.qwHeap);
  if (llGrown > llHeapMayDiffer) return "the heap has grown by " + std::to_string(llGrown) + " bytes";
  return tNoon.qwDescriptors == tFirst.qwDescriptors ? "" : "descriptors are left open";
}

// Judges the noons of a week.  "" if all held.
std::string JudgeWeek(const TWeek& tWeek, const TYear& tYear, const std::vector<TLifeEvent>& atEvents,
                      const TLifeResult& tResult) {
  if (tWeek.bCut && tResult.eEnd != LIFE_CUT) return "the life ended ahead of its cut: " + tResult.sStderr;
  if (!tWeek.bCut && !Judge_Order(tResult).empty()) return Judge_Order(tResult);
  std::size_t dwReply = 0;
  u64 qwDay = tWeek.qwFirst;
  for (const TLifeEvent& tEvent : atEvents) {
    if (tEvent.eKind != TLifeEvent::REQUEST) continue;
    const std::string& sReply = tResult.asReplies.at(dwReply++);
    if (tEvent.sQuery != szNoonQuery) continue;
    const std::string sWhy = JudgeNoon(tYear.atNoons[tWeek.qwFirst], tYear.atNoons[qwDay], sReply);
    if (!sWhy.empty()) return "day " + std::to_string(qwDay) + ": " + sWhy;
    qwDay++;
  }
  return qwDay == tWeek.qwEnd ? "" : "a noon has passed without an answer";
}

// Returns "" if all held.
std::string LiveWeek(const TCamera& tCamera, const TLensModel& tModel, const TWeek& tWeek, TDraw& tDraw, TYear& tYear,
                     std::vector<TLifeEvent> atEvents) {
  for (u64 qwDay = tWeek.qwFrom_ms / qwDay_ms; qwDay * qwDay_ms < tWeek.qwTo_ms; qwDay++) {
    AddDay(tWeek, tModel, qwDay, tDraw, tYear, atEvents);
  }
  atEvents.push_back(Call(0, [&tYear](TWorld*) { KeepWeather(&tYear); }));
  const u64 qwLength_ms = tWeek.qwTo_ms - tWeek.qwFrom_ms;
  if (tWeek.bCut) {
    atEvents.push_back(Call(qwLength_ms, [](TWorld* ptWorld) {
      Lens_PowerCut(&ptWorld->tLens, World_Now_us(ptWorld));
      Clock_End(CLOCK_END_CUT, nullptr);
    }));
  }
  std::ranges::stable_sort(atEvents, {}, &TLifeEvent::qwAt_us);
  TLifePlan tPlan;
  tPlan.sRoot = tCamera.sRoot;
  tPlan.qwSeed = tYear.tWeather.qwSeed + tWeek.qwFirst;
  tPlan.atEvents = atEvents;
  if (!tWeek.bCut) tPlan.qwEnd_us = qwLength_ms * 1000;
  const TLifeResult tResult = Life_Run(tPlan);
  return JudgeWeek(tWeek, tYear, atEvents, tResult);
}

std::string LiveYear(const TLensModel& tModel, u64 qwDays, TYear& tYear) {
  const TCamera tCamera(tModel.szName);
  tYear.qwStart_us = NextStart_us(tCamera.sRoot);
  TDraw tDraw(tYear.tWeather.qwSeed);
  for (u64 qwFrom_ms = 0, qwDay = 0; qwDay < qwDays;) {
    const u64 qwNext = std::min(qwDay + qwWeek_days, qwDays);
    TWeek tWeek{.qwFrom_ms = qwFrom_ms, .qwTo_ms = 0, .qwFirst = qwDay, .qwEnd = qwNext, .bCut = qwNext < qwDays};
    std::vector<TLifeEvent> atEvents;
    // The cut comes in the evening after the week's last noon.
    tWeek.qwTo_ms =
        tWeek.bCut ? DrawCut_ms(qwNext * qwDay_ms - 8 * qwHour_ms, tDraw, atEvents, qwFrom_ms) : qwNext * qwDay_ms;
    const std::string sLoss = LiveWeek(tCamera, tModel, tWeek, tDraw, tYear, atEvents);
    if (!sLoss.empty()) return sLoss;
    qwFrom_ms = tWeek.qwTo_ms;
    qwDay = qwNext;
  }
  return "";
}

void PrintRow(const TLensModel& tModel, u64 qwDays, const TYear& tYear, double dTook_s, const std::string& sLoss) {
  const auto [tLeast, tMost] = std::ranges::minmax_element(tYear.atNoons, tYear.atNoons + qwDays, {}, &TNoon::qwHeap);
  std::printf("| %s | %zu | %zu | %zu to %zu | %zu | %.0f | %s |\n", tModel.szName, std::size_t{qwDays},
              std::size_t{(qwDays - 1) / qwWeek_days}, std::size_t{tLeast->qwHeap / 1024},
              std::size_t{tMost->qwHeap / 1024}, std::size_t{tYear.atNoons[0].qwDescriptors}, dTook_s,
              sLoss.empty() ? "all held" : sLoss.c_str());
  std::fflush(stdout);
}

}  // namespace

int main(int iCount, char** apszArgs) {
  TCampaignOptions tOptions;
  u64 qwDays = 365;
  const TNumberOption atOwn[] = {{"--days", &qwDays}};
  if (!Campaign_ReadOptions(iCount, apszArgs, atOwn, &tOptions) || qwDays < 1 || qwDays > dwMaxDays) {
    std::fputs("year_campaign [--only MODEL] [--days 1..366] [--seed S]\n", stderr);
    return 2;
  }
  TYear& tYear = *static_cast<TYear*>(Campaign_Shared(sizeof(TYear)));
  bool bAll = true;
  u32 dwModels = 0;
  std::puts("| model | days | cuts | heap at noon, KiB | descriptors | seconds | |\n|---|---|---|---|---|---|---|");
  for (const char* szModel : {"thermal", "ics"}) {
    if (!Campaign_IsWanted(tOptions, szModel)) continue;
    new (&tYear) TYear{.tWeather = {.dwDays = dwMaxDays, .qwSeed = tOptions.qwSeed}, .atNoons = {}, .qwStart_us = 0};
    const auto tStart = std::chrono::steady_clock::now();
    const std::string sLoss = LiveYear(*Lenses_Find(szModel), qwDays, tYear);
    const std::chrono::duration<double> tTook = std::chrono::steady_clock::now() - tStart;
    PrintRow(*Lenses_Find(szModel), qwDays, tYear, tTook.count(), sLoss);
    bAll = bAll && sLoss.empty();
    dwModels++;
  }
  return bAll && dwModels > 0 ? 0 : 1;
}
