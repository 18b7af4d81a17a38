// The simulation under the daemon: the virtual clock, its hooks and the harness of a life, by small bodies in a life.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <set>

#include "gatelink.h"
#include "life/life.h"
#include "motor/motor_device.h"

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

pthread_mutex_t g_aMutexes[2] = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER};
sem_t g_sem;
int g_afdPair[2];

i32 RunTwice(void* (*pfn)(void*)) {
  pthread_t aThreads[2];
  for (int i = 0; i < 2; ++i) pthread_create(&aThreads[i], nullptr, pfn, &g_aMutexes[i]);
  for (pthread_t thread : aThreads) pthread_join(thread, nullptr);
  return 0;
}

std::atomic<int> g_iWoken{0};

void* SleepAndSay(void* pv) {
  const int iTenths = pv == &g_aMutexes[0] ? 2 : 1;
  usleep(static_cast<useconds_t>(iTenths) * 100'000);
  printf("slept %d\n", iTenths);
  g_iWoken.store(g_iWoken.load(std::memory_order_relaxed) * 10 + iTenths, std::memory_order_relaxed);
  return nullptr;
}

// A sleep lasts as long as it says, up to 200 us more.
i32 SleepersWakeInOrder(TWorld* ptWorld) {
  const u64 qwStart_us = World_Now_us(ptWorld);
  RunTwice(&SleepAndSay);
  return g_iWoken == 12 && World_Now_us(ptWorld) - qwStart_us - 200'000 <= 200 ? 0 : 1;
}

int SelectOn(int fd, int iTime_s) {
  fd_set tSet;
  FD_ZERO(&tSet);
  FD_SET(fd, &tSet);
  timeval tTime{iTime_s, 0};
  return select(fd + 1, &tSet, nullptr, nullptr, &tTime);
}

void* WakeLater(void*) {
  usleep(50'000);
  send(g_afdPair[0], "wake", 4, MSG_DONTWAIT);
  usleep(50'000);
  sem_post(&g_sem);
  return nullptr;
}

i32 WaitsEndByTimeAndByWake(TWorld* ptWorld) {
  const u64 qwStart_us = World_Now_us(ptWorld);
  sem_init(&g_sem, 0, 0);
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, g_afdPair) != 0 || SelectOn(g_afdPair[1], 3) != 0) return 1;
  if (World_Now_us(ptWorld) - qwStart_us - 3'000'000 > 200) return 2;
  timespec tUntil;
  clock_gettime(CLOCK_REALTIME, &tUntil);
  tUntil.tv_sec += 2;
  if (sem_timedwait(&g_sem, &tUntil) != -1 || errno != ETIMEDOUT) return 3;
  pthread_t thread;
  pthread_create(&thread, nullptr, &WakeLater, nullptr);
  char ac[4];
  if (SelectOn(g_afdPair[1], 3) != 1 || read(g_afdPair[1], ac, 4) != 4 || sem_wait(&g_sem) != 0) return 4;
  pthread_join(thread, nullptr);
  return World_Now_us(ptWorld) - qwStart_us - 5'100'000 < 1'000 ? 0 : 5;
}

int g_iGuarded = 0;

void* CountGuarded(void*) {
  for (int i = 0; i < 50; ++i) {
    pthread_mutex_lock(&g_aMutexes[0]);
    const int iBefore = g_iGuarded;
    usleep(10);
    g_iGuarded = iBefore + 1;
    pthread_mutex_unlock(&g_aMutexes[0]);
  }
  return nullptr;
}

i32 MutexGuards(TWorld*) {
  return RunTwice(&CountGuarded) == 0 && g_iGuarded == 100 ? 0 : 1;
}

void* LockBoth(void* pvFirst) {
  pthread_mutex_lock(static_cast<pthread_mutex_t*>(pvFirst));
  usleep(1'000);
  return reinterpret_cast<void*>(pthread_mutex_lock(pvFirst == &g_aMutexes[0] ? &g_aMutexes[1] : &g_aMutexes[0]));
}

i32 UsesPaths(TWorld*) {
  FILE* pFile = fopen("/var/run/hooks.txt", "w");
  if (pFile == nullptr || fputs("below\n", pFile) < 0 || fclose(pFile) != 0) return 1;
  const int fd = open("/mnt/flash/hooks.txt", O_WRONLY | O_CREAT, 0644);
  if (fd < 0 || write(fd, "flash", 5) != 5 || close(fd) != 0) return 2;
  if (access("/tmp/VernierLensFIFO", F_OK) == 0 || mkfifo("/tmp/VernierLensFIFO", 0777) != 0) return 3;
  return rename("/mnt/flash/hooks.txt", "/mnt/flash/renamed.txt");
}

bool NoRoom(FILE* pFile, int fd) {
  if (fputs("more", pFile) < 0 || fclose(pFile) != -1 || errno != ENOSPC) return false;
  errno = 0;
  return write(fd, "more", 4) == -1 && errno == ENOSPC && close(fd) == 0;
}

// Also for what was opened while there was room.
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

i32 AsksDriver(TWorld*) {
  const int fd = open("/dev/zoommotor", O_WRONLY);
  if (fd < 0 || ioctl(fd, MOTOR_SET_FORWARD) != 0 || ioctl(fd, MOTOR_WALK_STEPS_BLOCK, 40) != 0) return 1;
  if (ioctl(fd, 0x1234) != -1 || errno != ENOTTY) return 2;
  return close(fd);
}

// One transfer that names a register and reads it, high byte first; or -errno.
i32 ReadRegister(int fd, std::uint16_t wAddress, u8 byRegister, std::uint16_t wLength) {
  u8 aby[2] = {};
  i2c_msg atMessages[] = {{wAddress, 0, 1, &byRegister}, {wAddress, I2C_M_RD, wLength, aby}};
  i2c_rdwr_ioctl_data tData{atMessages, 2};
  if (ioctl(fd, I2C_RDWR, &tData) != 2) return -errno;
  return wLength == 1 ? aby[0] : aby[0] << 8 | aby[1];
}

i32 AsksSensors(TWorld* ptWorld) {
  ESensorFault& eFault = ptWorld->tI2C.eFault;
  const int fd = open("/dev/i2c-2", O_RDWR);
  ptWorld->dTemperature_C = -24.7;
  if (ReadRegister(fd, 0x71, 0, 1) != 0 || ioctl(fd, I2C_SLAVE_FORCE, 0x71) != 0 || write(fd, "\1\x22", 2) != 2)
    return 1;
  if (ReadRegister(fd, 0x71, 0, 1) != 0xE7 || ReadRegister(fd, 0x4A, 0, 2) != 0xF3A0) return 3;
  ptWorld->dTemperature_C = write(fd, "\1\0", 2) == 2 ? 30 : 0;  // shut down at -24.7
  if (ReadRegister(fd, 0x71, 0, 1) != 0xE7) return 4;
  char ac[2] = {};
  if (write(fd, "\2\x12\x34", 3) != 3 || read(fd, ac, 2) != 2 || ac[0] != 0x12 || ac[1] != 0x34) return 5;
  eFault = SENSOR_SHORT;
  if (write(fd, "\3\x56", 2) != 1 || read(fd, ac, 2) != 1 || ReadRegister(fd, 0x71, 3, 1) != -EIO) return 6;
  eFault = SENSOR_BAD_ONCE;
  if (write(fd, "\3", 1) != 1 || read(fd, ac, 1) != -1 || errno != EIO || ReadRegister(fd, 0x71, 3, 1) != 0x34)
    return 7;
  if (ioctl(fd, I2C_SLAVE_FORCE, 0x50) != 0 || read(fd, ac, 1) != -1 || errno != ENXIO) return 8;
  eFault = SENSOR_SILENT;
  if (ReadRegister(fd, 0x71, 3, 1) != -ENXIO || close(fd) != 0) return 9;
  eFault = SENSOR_ABSENT;
  return open("/dev/i2c-2", O_RDWR) == -1 && errno == ENOENT ? 0 : 10;
}

ssize_t g_iTerm = 0;
void OnTerm(int) {
  g_iTerm = write(1, "term\n", 5);
}

i32 WaitsForTerm(TWorld*) {
  struct sigaction tAction {};
  tAction.sa_handler = &OnTerm;
  tAction.sa_flags = SA_RESTART;
  sigaction(SIGTERM, &tAction, nullptr);
  return select(0, nullptr, nullptr, nullptr, nullptr) == -1 && errno == EINTR && g_iTerm == 5 ? 0 : 1;
}

i32 ServesRequests(TWorld*) {
  HGateLink hGateLink;
  if (GATELINK_init(&hGateLink, "/tmp/VernierLens") != 0) return 1;
  for (std::string sQuery; sQuery != "end";) {
    if (SelectOn(GATELINK_GetSocketFd(hGateLink), 60) != 1) return 2;
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
      {"sleepers wake in order of their time", &SleepersWakeInOrder, "print slept 2\n"},
      {"waits end by time, send and post", &WaitsEndByTimeAndByWake, "main  select 1 ready\n"},
      {"a mutex keeps others out over a sleep", &MutexGuards, ""},
      {"paths lie below the root", &UsesPaths, "main  create /mnt/flash/hooks.txt\n"},
      {"a full flash takes no writes, a read-only one nothing", &FillsFlash, "write /mnt/flash/after = -1 EROFS\n"},
      {"a driver answers and its blocking walk takes time", &AsksDriver,
       "zoommotor MOTOR_WALK_STEPS_BLOCK 40 = 0 rotor "},
      {"sensors answer, and fail as they are told", &AsksSensors, "i2c-2 RDWR 71 w00 re7 = 2\n"},
  };
  for (const auto& tRow : atRows) {
    const TLifeResult tResult = Life_Run(Plan(tRow.pfnBody));
    SCOPED_TRACE(tRow.szRule + ("\n" + tResult.sTranscript + tResult.sStderr));
    EXPECT_EQ(tResult.iStatus, 0);
    EXPECT_NE(tResult.sTranscript.find(tRow.szInTranscript), std::string::npos);
  }
  EXPECT_EQ(Read("/var/run/hooks.txt"), "below");
  EXPECT_EQ(Read("/mnt/flash/renamed.txt"), "flash");
  EXPECT_EQ(Read("/mnt/flash/.VernierlensStatus"), "") << "emptied, then the flash was full";
  EXPECT_EQ(Life_ResetRoot(m_sRoot), 0);
  EXPECT_EQ(Read("/mnt/flash/renamed.txt") + Read("/mnt/flash/.VernierlensStatus"), "absentnormal");
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

TEST_F(Hooks, SeedMakesTheLife) {
  std::set<std::string> atDistinct;
  for (u64 qwSeed = 1; qwSeed <= 20; ++qwSeed) {
    std::string asTranscripts[2];
    for (std::string& s : asTranscripts) {
      ASSERT_EQ(Life_ResetRoot(m_sRoot), 0);
      s = Life_Run(Plan(&MutexGuards, qwSeed)).sTranscript;
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

// At each event in turn the power goes: without a sync every mixture comes up, with them the state never
// goes after the log.
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
