// The simulation under the daemon: the virtual clock, its hooks and the harness of a life, by small bodies in a life.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <sstream>

#include "gatelink.h"
#include "life/life.h"
#include "motor/motor_device.h"

namespace {

#if defined(__SANITIZE_THREAD__)
constexpr bool bRaceDetector = true;
#elif defined(__has_feature)
constexpr bool bRaceDetector = __has_feature(thread_sanitizer);
#else
constexpr bool bRaceDetector = false;
#endif

using TBody = i32 (*)(TWorld*);

class Hooks : public testing::Test {
 protected:
  void SetUp() override { m_sRoot = Life_MakeRoot("zoom"); }
  void TearDown() override { Life_RemoveRoot(m_sRoot); }
  TLifePlan Plan(TBody pfnBody, u64 qwSeed = 1) const {
    return {.sRoot = m_sRoot, .qwSeed = qwSeed, .fnBody = pfnBody};
  }
  std::string Read(const char* pszBelow) const {
    std::ifstream tFile(m_sRoot + pszBelow);
    std::stringstream tText;
    tText << tFile.rdbuf();
    return tFile ? tText.str() : "absent";
  }
  std::string m_sRoot;
};

pthread_mutex_t g_mutexA = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t g_mutexB = PTHREAD_MUTEX_INITIALIZER;
sem_t g_sem;
int g_afdPair[2];

void* Thread(void* (*pfn)(void*), void* pv, pthread_t* pThread) {
  return pthread_create(pThread, nullptr, pfn, pv) == 0 ? pThread : nullptr;
}

void* SleepAndSay(void* pv) {
  const long iDuration_us = *static_cast<long*>(pv);
  usleep(static_cast<useconds_t>(iDuration_us));
  printf("slept %ld\n", iDuration_us);
  return nullptr;
}

i32 ThreeSleepers(TWorld*) {
  static long aiTimes[3] = {300'000, 100'000, 200'000};
  pthread_t aThreads[3];
  for (int i = 0; i < 3; ++i) Thread(&SleepAndSay, &aiTimes[i], &aThreads[i]);
  for (pthread_t thread : aThreads) pthread_join(thread, nullptr);
  return 0;
}

// A sleep lasts as long as it says, up to 200 us more.
i32 SleepsOnTime(TWorld* ptWorld) {
  for (useconds_t dw : {0u, 1u, 5'000u, 3'000'000u}) {
    const u64 qwBefore_us = World_Now_us(ptWorld);
    usleep(dw);
    const u64 qwOver_us = World_Now_us(ptWorld) - qwBefore_us - dw;
    if (qwOver_us > 200) return 1;
  }
  return 0;
}

i32 SelectTimesOut(TWorld*) {
  timeval tBefore, tAfter, tTime{3, 0};
  gettimeofday(&tBefore, nullptr);
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, g_afdPair) != 0) return 1;
  fd_set tSet;
  FD_ZERO(&tSet);
  FD_SET(g_afdPair[1], &tSet);
  if (select(g_afdPair[1] + 1, &tSet, nullptr, nullptr, &tTime) != 0 || FD_ISSET(g_afdPair[1], &tSet)) return 2;
  gettimeofday(&tAfter, nullptr);
  const i64 iTook_us = (tAfter.tv_sec - tBefore.tv_sec) * 1'000'000 + tAfter.tv_usec - tBefore.tv_usec;
  return iTook_us >= 3'000'000 && iTook_us < 3'001'000 ? 0 : 3;
}

void* SendLater(void*) {
  usleep(50'000);
  return send(g_afdPair[0], "wake", 4, MSG_DONTWAIT) == 4 ? nullptr : &g_sem;
}

i32 SendWakesSelect(TWorld* ptWorld) {
  const u64 qwStart_us = World_Now_us(ptWorld);
  pthread_t thread;
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, g_afdPair) != 0) return 1;
  Thread(&SendLater, nullptr, &thread);
  fd_set tSet;
  FD_ZERO(&tSet);
  FD_SET(g_afdPair[1], &tSet);
  timeval tTime{3, 0};
  char ac[4];
  if (select(g_afdPair[1] + 1, &tSet, nullptr, nullptr, &tTime) != 1) return 2;
  if (read(g_afdPair[1], ac, 4) != 4 || memcmp(ac, "wake", 4) != 0) return 3;
  pthread_join(thread, nullptr);
  return World_Now_us(ptWorld) - qwStart_us < 60'000 ? 0 : 4;
}

void* PostLater(void*) {
  usleep(10'000);
  sem_post(&g_sem);
  return nullptr;
}

i32 SemaphoreWaits(TWorld* ptWorld) {
  const u64 qwStart_us = World_Now_us(ptWorld);
  sem_init(&g_sem, 0, 0);
  pthread_t thread;
  Thread(&PostLater, nullptr, &thread);
  if (sem_wait(&g_sem) != 0 || World_Now_us(ptWorld) - qwStart_us < 10'000) return 1;
  pthread_join(thread, nullptr);
  timespec tUntil;
  clock_gettime(CLOCK_REALTIME, &tUntil);
  tUntil.tv_sec += 2;
  if (sem_timedwait(&g_sem, &tUntil) != -1 || errno != ETIMEDOUT) return 2;
  return sem_destroy(&g_sem);
}

int g_iGuarded = 0;

void* CountGuarded(void*) {
  for (int i = 0; i < 50; ++i) {
    pthread_mutex_lock(&g_mutexA);
    const int iBefore = g_iGuarded;
    usleep(10);
    g_iGuarded = iBefore + 1;
    pthread_mutex_unlock(&g_mutexA);
  }
  return nullptr;
}

i32 MutexGuards(TWorld*) {
  pthread_t aThreads[2];
  for (pthread_t& thread : aThreads) Thread(&CountGuarded, nullptr, &thread);
  for (pthread_t thread : aThreads) pthread_join(thread, nullptr);
  return g_iGuarded == 100 ? 0 : 1;
}

void* LockBA(void*) {
  pthread_mutex_lock(&g_mutexB);
  usleep(1'000);
  pthread_mutex_lock(&g_mutexA);
  return nullptr;
}

i32 LockABWhileBA(TWorld*) {
  pthread_t thread;
  Thread(&LockBA, nullptr, &thread);
  pthread_mutex_lock(&g_mutexA);
  usleep(1'000);
  pthread_mutex_lock(&g_mutexB);
  return 0;
}

i32 SpinsForEver(TWorld*) {
  for (;;) getpid(), access("/var/run/none", F_OK);
}

i32 UsesPaths(TWorld*) {
  FILE* pFile = fopen("/var/run/hooks.txt", "w");
  if (pFile == nullptr || fputs("below\n", pFile) < 0 || fclose(pFile) != 0) return 1;
  const int fd = open("/mnt/flash/hooks.txt", O_WRONLY | O_CREAT, 0644);
  if (fd < 0 || write(fd, "flash", 5) != 5 || close(fd) != 0) return 2;
  if (access("/tmp/VernierLensFIFO", F_OK) == 0 || mkfifo("/tmp/VernierLensFIFO", 0777) != 0) return 3;
  return rename("/mnt/flash/hooks.txt", "/mnt/flash/renamed.txt");
}

i32 AsksDriver(TWorld*) {
  const int fd = open("/dev/zoommotor", O_WRONLY);
  if (fd < 0) return 1;
  ioctl(fd, MOTOR_SELECT_DEVICE, 0);
  ioctl(fd, MOTOR_SET_FORWARD);
  if (ioctl(fd, MOTOR_WALK_STEPS_BLOCK, 40) != 0) return 2;
  if (ioctl(fd, 0x1234) != -1 || errno != ENOTTY) return 3;
  return close(fd);
}

volatile sig_atomic_t g_bTerm = 0;
void OnTerm(int) {
  g_bTerm = 1;
  if (write(1, "term\n", 5) != 5) g_bTerm = 2;
}

i32 WaitsForTerm(TWorld*) {
  struct sigaction tAction {};
  tAction.sa_handler = &OnTerm;
  tAction.sa_flags = SA_RESTART;
  sigaction(SIGTERM, &tAction, nullptr);
  const int iResult = select(0, nullptr, nullptr, nullptr, nullptr);
  return iResult == -1 && errno == EINTR && g_bTerm == 1 ? 0 : 1;
}

i32 ServesRequests(TWorld*) {
  HGateLink hGateLink;
  if (GATELINK_init(&hGateLink, "/tmp/VernierLens") != 0) return 1;
  for (std::string sQuery; sQuery != "end";) {
    const int fdReady = GATELINK_GetSocketFd(hGateLink);
    fd_set tSet;
    FD_ZERO(&tSet);
    FD_SET(fdReady, &tSet);
    if (select(fdReady + 1, &tSet, nullptr, nullptr, nullptr) != 1) return 2;
    char* pszQuery = nullptr;
    int32_t fd = -1;
    if (GATELINK_read(hGateLink, &pszQuery, &fd) != 0) return 3;
    sQuery = pszQuery;
    const std::string sReply = std::string(GATELINK_GetMethod(hGateLink)) + " got " + sQuery;
    if (write(fd, sReply.data(), sReply.size()) < 0 || close(fd) != 0) return 4;
  }
  GATELINK_close(hGateLink);
  return 0;
}

i32 WritesFlashUnsynced(TWorld*) {
  const int fd = open("/mnt/flash/state", O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (write(fd, "newer", 5) != 5) return 1;
  close(fd);
  unlink("/mnt/flash/log");
  usleep(1);
  return 0;
}

i32 WritesFlashSafely(TWorld*) {
  const int fd = open("/mnt/flash/state.new", O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (write(fd, "newer", 5) != 5) return 1;
  fsync(fd);
  close(fd);
  rename("/mnt/flash/state.new", "/mnt/flash/state");
  const int fdFolder = open("/mnt/flash", O_RDONLY | O_DIRECTORY);
  fsync(fdFolder);
  close(fdFolder);
  unlink("/mnt/flash/log");
  sync();
  return 0;
}

int g_iRaced = 0;
void* Race(void*) {
  usleep(1'000);
  g_iRaced = g_iRaced + 1;
  return nullptr;
}

i32 TwoThreadsOneInt(TWorld*) {
  pthread_t aThreads[2];
  for (pthread_t& thread : aThreads) Thread(&Race, nullptr, &thread);
  for (pthread_t thread : aThreads) pthread_join(thread, nullptr);
  return 0;
}

TEST_F(Hooks, BodiesRunAsUnderTheKernel) {
  constexpr struct {
    const char* szRule;
    TBody pfnBody;
    const char* szInTranscript;
  } atRows[] = {
      {"sleepers wake in order of their time", &ThreeSleepers, "print slept 100000"},
      {"a sleep lasts its time", &SleepsOnTime, "sleep 3000000"},
      {"select times out", &SelectTimesOut, ""},
      {"a send wakes select", &SendWakesSelect, "main  select 1 ready"},
      {"a post wakes a waiter, a timed wait ends", &SemaphoreWaits, ""},
      {"a mutex keeps others out over a sleep", &MutexGuards, ""},
      {"paths lie below the root", &UsesPaths, "main  create /mnt/flash/hooks.txt\n"},
      {"a driver answers and its blocking walk takes time", &AsksDriver,
       "zoommotor MOTOR_WALK_STEPS_BLOCK 40 = 0 rotor "},
  };
  for (const auto& tRow : atRows) {
    const TLifeResult tResult = Life_Run(Plan(tRow.pfnBody));
    EXPECT_EQ(tResult.eEnd, LIFE_EXITED) << tRow.szRule << "\n" << tResult.sStderr;
    EXPECT_EQ(tResult.iStatus, 0) << tRow.szRule << "\n" << tResult.sTranscript << tResult.sStderr;
    EXPECT_NE(tResult.sTranscript.find(tRow.szInTranscript), std::string::npos) << tRow.szRule << "\n"
                                                                                << tResult.sTranscript;
  }
  EXPECT_EQ(Read("/var/run/hooks.txt"), "below\n");
  EXPECT_EQ(Read("/mnt/flash/renamed.txt"), "flash");
}

TEST_F(Hooks, SleepersSayInOrder) {
  const std::string s = Life_Run(Plan(&ThreeSleepers)).sTranscript;
  EXPECT_LT(s.find("slept 100000"), s.find("slept 200000"));
  EXPECT_LT(s.find("slept 200000"), s.find("slept 300000"));
}

TEST_F(Hooks, WhatCannotGoOnIsEndedAndNamed) {
  const TLifeResult tDeadlock = Life_Run(Plan(&LockABWhileBA));
  EXPECT_EQ(tDeadlock.eEnd, LIFE_DEADLOCK);
  EXPECT_NE(tDeadlock.sStderr.find("main waits in pthread_mutex_lock; t1 waits in pthread_mutex_lock"),
            std::string::npos)
      << tDeadlock.sStderr;
  EXPECT_EQ(Life_Run(Plan(&SpinsForEver)).eEnd, LIFE_STOOD_STILL);
}

TEST_F(Hooks, SeedMakesTheLife) {
  std::set<std::string> atDistinct;
  for (u64 qwSeed = 1; qwSeed <= 20; ++qwSeed) {
    std::string asTranscripts[2];
    for (std::string& s : asTranscripts) {
      const std::string sRoot = Life_MakeRoot("zoom");
      TLifePlan tPlan = Plan(&MutexGuards, qwSeed);
      tPlan.sRoot = sRoot;
      s = Life_Run(tPlan).sTranscript;
      Life_RemoveRoot(sRoot);
    }
    EXPECT_EQ(asTranscripts[0], asTranscripts[1]) << "seed " << qwSeed;
    atDistinct.insert(asTranscripts[0]);
  }
  EXPECT_EQ(atDistinct.size(), 20u);
}

TEST_F(Hooks, SignalEndsSelect) {
  TLifePlan tPlan = Plan(&WaitsForTerm);
  tPlan.qwEnd_us = 7'000'000;
  const TLifeResult tResult = Life_Run(tPlan);
  EXPECT_EQ(tResult.iStatus, 0) << tResult.sTranscript;
  EXPECT_NE(tResult.sTranscript.find("7.000000 main  print term"), std::string::npos) << tResult.sTranscript;
}

TEST_F(Hooks, GatewayHandsInAndCollects) {
  TLifePlan tPlan = Plan(&ServesRequests);
  tPlan.atEvents = {{.qwAt_us = 0, .sQuery = "zoom=1"},
                    {.qwAt_us = 5'000'000, .sQuery = "focus", .sMethod = "POST"},
                    {.qwAt_us = 5'000'000, .sQuery = "end"}};
  const TLifeResult tResult = Life_Run(tPlan);
  EXPECT_EQ(tResult.iStatus, 0) << tResult.sTranscript << tResult.sStderr;
  EXPECT_EQ(tResult.asReplies, (std::vector<std::string>{"GET got zoom=1", "POST got focus", "GET got end"}));
}

// At each event in turn the power goes: without a sync every mixture comes up, with one state goes before log.
TEST_F(Hooks, CutLeavesWhatTheFlashHolds) {
  std::set<std::string> atSeen[2];
  const TBody apfnBodies[2] = {&WritesFlashUnsynced, &WritesFlashSafely};
  for (int iBody = 0; iBody < 2; ++iBody) {
    for (u64 qwSeed = 1; qwSeed <= 15; ++qwSeed) {
      for (u64 qwCut = 1;; ++qwCut) {
        std::ofstream(m_sRoot + "/mnt/flash/state") << "older";
        std::ofstream(m_sRoot + "/mnt/flash/log") << "log";
        TLifePlan tPlan = Plan(apfnBodies[iBody], qwSeed);
        tPlan.qwCutAtEvent = qwCut;
        const TLifeResult tResult = Life_Run(tPlan);
        if (tResult.eEnd == LIFE_EXITED) break;
        ASSERT_EQ(tResult.eEnd, LIFE_CUT) << tResult.sStderr;
        EXPECT_EQ(tResult.qwEvents, qwCut);
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
  if (!bRaceDetector) GTEST_SKIP() << "built without ThreadSanitizer";
  const TLifeResult tRaced = Life_Run(Plan(&TwoThreadsOneInt));
  EXPECT_EQ(tRaced.iStatus, 66);
  EXPECT_NE(tRaced.sStderr.find("data race"), std::string::npos) << tRaced.sStderr;
  EXPECT_EQ(Life_Run(Plan(&MutexGuards)).sStderr, "");
}

}  // namespace
