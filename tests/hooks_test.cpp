// Tests the virtual clock, the hooks and the runner of lives by small functions that run in the daemon's place.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <fstream>
#include <set>

#include "life/life.h"

extern "C" [[gnu::weak]] void __tsan_init();

namespace {

const bool bRaceDetector = __tsan_init != nullptr;

using TBody = i32 (*)(TWorld*);

struct Hooks : testing::Test {
  void SetUp() override { m_sRoot = Life_MakeRoot("zoom"); }
  void TearDown() override { Life_RemoveRoot(m_sRoot); }
  TLifePlan Plan(TBody pfnBody, u64 qwSeed = 1) const {
    return {.sRoot = m_sRoot, .qwSeed = qwSeed, .fnBody = pfnBody};
  }
  std::string Read(const char* pszBelow) const {
    std::ifstream tFile(m_sRoot + pszBelow);
    std::string sLine;
    std::getline(tFile, sLine);
    return tFile.is_open() ? sLine : "absent";
  }
  std::string m_sRoot;
};

pthread_mutex_t g_atMutexes[2] = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER};

i32 RunTwice(void* (*pfn)(void*)) {
  pthread_t ahThreads[2];
  for (int i = 0; i < 2; ++i) pthread_create(&ahThreads[i], nullptr, pfn, &g_atMutexes[i]);
  for (pthread_t hThread : ahThreads) pthread_join(hThread, nullptr);
  return 0;
}

int g_iGuarded = 0;

void* CountGuarded(void*) {
  for (int i = 0; i < 50; ++i) {
    pthread_mutex_lock(&g_atMutexes[0]);
    const int iBefore = g_iGuarded;
    usleep(10);
    g_iGuarded = iBefore + 1;
    pthread_mutex_unlock(&g_atMutexes[0]);
  }
  return nullptr;
}

i32 MutexGuards(TWorld*) {
  return RunTwice(&CountGuarded) == 0 && g_iGuarded == 100 ? 0 : 1;
}

void* LockBoth(void* pvFirst) {
  pthread_mutex_lock(static_cast<pthread_mutex_t*>(pvFirst));
  usleep(1'000);
  return reinterpret_cast<void*>(pthread_mutex_lock(pvFirst == &g_atMutexes[0] ? &g_atMutexes[1] : &g_atMutexes[0]));
}

bool NoRoom(FILE* pFile, int fd) {
  if (fputs("more", pFile) < 0 || fclose(pFile) != -1 || errno != ENOSPC) return false;
  errno = 0;
  return write(fd, "more", 4) == -1 && errno == ENOSPC && close(fd) == 0;
}

// A full flash takes nothing more, not even through files that were opened before.
i32 FillsFlash(TWorld* ptWorld) {
  FILE* pFile = fopen("/mnt/flash/before", "w");
  const int fd = open("/etc/conf.d/before", O_WRONLY | O_CREAT, 0644);
  ptWorld->bFlashFull = 1;
  if (fopen("/mnt/flash/before", "r+") != nullptr || errno != ENOSPC || !NoRoom(pFile, fd)) return 1;
  pFile = fopen("/mnt/flash/.VernierlensStatus", "w");
  if (!NoRoom(pFile, open("/mnt/flash/after", O_WRONLY | O_CREAT, 0644))) return 2;
  ptWorld->bFlashReadOnly = 1;
  if (open("/mnt/flash/after", O_WRONLY) != -1 || errno != EROFS || unlink("/mnt/flash/after") != -1) return 3;
  if (fopen("/mnt/flash/none", "a") != nullptr || rename("/mnt/flash/after", "/mnt/flash/none") != -1) return 4;
  return access("/mnt/flash/after", R_OK);
}

bool WriteNewer(const char* pszPath, bool bSafely) {
  const int fd = open(pszPath, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  return write(fd, "newer", 5) == 5 && (!bSafely || fsync(fd) == 0) && close(fd) == 0;
}

i32 WritesFlashUnsynced(TWorld*) {
  if (!WriteNewer("/mnt/flash/state", false) || unlink("/mnt/flash/log") != 0) return 1;
  return usleep(1);
}

i32 WritesFlashSafely(TWorld*) {
  if (!WriteNewer("/mnt/flash/state.new", true) || rename("/mnt/flash/state.new", "/mnt/flash/state") != 0) return 1;
  const int fdFolder = open("/mnt/flash", O_RDONLY | O_DIRECTORY);
  if (fsync(fdFolder) != 0 || close(fdFolder) != 0 || unlink("/mnt/flash/log") != 0) return 2;
  sync();
  return 0;
}

int g_iRaced = 0;
void* Race(void*) {
  usleep(1'000);
  g_iRaced = g_iRaced + 1;
  return nullptr;
}

TEST_F(Hooks, BodiesRunAsUnderTheKernel) {
  constexpr struct {
    const char* szRule;
    TBody pfnBody;
    const char* szInTranscript;
  } atRows[] = {
      {"a mutex keeps others out over a sleep", &MutexGuards, ""},
      {"a full flash takes no writes, a read-only one nothing", &FillsFlash, "write /mnt/flash/after = -1 EROFS\n"},
  };
  for (const auto& tRow : atRows) {
    const TLifeResult tResult = Life_Run(Plan(tRow.pfnBody));
    SCOPED_TRACE(tRow.szRule + ("\n" + tResult.sTranscript + tResult.sStderr));
    EXPECT_EQ(tResult.iStatus, 0);
    EXPECT_NE(tResult.sTranscript.find(tRow.szInTranscript), std::string::npos);
  }
  EXPECT_EQ(Read("/mnt/flash/.VernierlensStatus"), "") << "emptied, then the flash was full";
  EXPECT_EQ(Life_ResetRoot(m_sRoot), 0);
  EXPECT_EQ(Read("/mnt/flash/after") + Read("/mnt/flash/.VernierlensStatus"), "absentnormal");
}

TEST_F(Hooks, WhatCannotGoOnIsEndedAndNamed) {
  const TLifeResult tDeadlock = Life_Run(Plan([](TWorld*) { return RunTwice(&LockBoth); }));
  EXPECT_EQ(tDeadlock.eEnd, LIFE_DEADLOCK);
  EXPECT_NE(tDeadlock.sStderr.find("t1 waits in pthread_mutex_lock; t2 waits in pthread_mutex_lock"),
            std::string::npos);
  const TBody pfnSpins = [](TWorld*) -> i32 {
    for (;;) access("/var/run/none", F_OK);
  };
  EXPECT_EQ(Life_Run(Plan(pfnSpins)).eEnd, LIFE_STOOD_STILL);
}

// The power is cut at each event in turn.  Without syncs every mixture of the two files comes up.  With syncs the log
// never goes before the newer state is there.
TEST_F(Hooks, CutLeavesWhatTheFlashHolds) {
  std::set<std::string> atSeen[2];
  for (int iBody = 0; iBody < 2; ++iBody) {
    for (u64 qwSeed = 1; qwSeed <= 15; ++qwSeed) {
      for (u64 qwCut = 1;; ++qwCut) {
        std::ofstream(m_sRoot + "/mnt/flash/state") << "older";
        std::ofstream(m_sRoot + "/mnt/flash/log") << "log";
        TLifePlan tPlan = Plan(iBody == 0 ? &WritesFlashUnsynced : &WritesFlashSafely, qwSeed);
        tPlan.qwCutAtEvent = qwCut;
        const TLifeResult tResult = Life_Run(tPlan);
        if (tResult.eEnd == LIFE_EXITED) break;
        ASSERT_EQ(tResult.eEnd, LIFE_CUT) << tResult.sStderr;
        atSeen[iBody].insert(Read("/mnt/flash/state") + " " + Read("/mnt/flash/log"));
      }
    }
  }
  for (const char* pszState : {"older log", "newer log", "newer absent", "older absent", " log"}) {
    EXPECT_EQ(atSeen[0].count(pszState), 1u) << pszState;
  }
  EXPECT_GT(atSeen[0].size(), 6u);
  EXPECT_EQ(atSeen[1], (std::set<std::string>{"older log", "newer log", "newer absent"}));
}

TEST_F(Hooks, RaceDetectorSeesTheDaemonsRaces) {
  const TLifeResult tRaced = Life_Run(Plan([](TWorld*) { return RunTwice(&Race); }));
  EXPECT_EQ(tRaced.iStatus, bRaceDetector ? 66 : 0);
  EXPECT_EQ(tRaced.sStderr.find("data race") != std::string::npos, bRaceDetector) << tRaced.sStderr;
  EXPECT_EQ(Life_Run(Plan(&MutexGuards)).sStderr, "");
}

}  // namespace
