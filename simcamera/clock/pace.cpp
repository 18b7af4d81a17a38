#include "clock/pace.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

#include "clock/tasks.h"

namespace {
constexpr i32 iFirstOwnFd = 960;        // above the daemon's own, below what a select can hold
constexpr u64 qwCredit_us = 100'000;    // of real time: so late a camera may make up for it, later it has been slower
constexpr u64 qwSettle_us = 1'000'000;  // of real time: so long a foreign thread is waited for
constexpr u64 qwFollow_us = 1'000;      // of real time: a second daemon looks at the first one's clock so often
constexpr u64 qwLong_us = 1'000;        // of real time
constexpr u32 dwMaxAtOneTime = 8;       // things that come in at one camera time
constexpr i32 iMaxForeign = 8;

struct TForeign {
  std::atomic<u32> bUsed;
  std::atomic<i32> fdEpoll;  // the descriptor of the wait in which it sits; -1: at work
};
constinit TForeign g_atForeign[iMaxForeign]{};
constinit thread_local i32 t_iForeign = -1;

constinit TWorld* g_ptWorld = nullptr;
constinit i32 g_fdBell = -1;
constinit i32 g_fdSignals = -1;
constinit i32 g_fdSettled = -1;  // a foreign thread has written to its other end, the next number
constinit std::atomic<u32> g_bAwaitsSettled{0};
constinit sigset_t g_tSignals{};
constinit bool g_bPinned = false;
constinit cpu_set_t g_tCpus{};
constinit u64 g_qwTakenAt_us = qwNever_us;
constinit u32 g_dwTaken = 0;

// What one turn of the wait goes by, as the world's words say at its beginning.
struct TTurn {
  u64 qwTo_us;   // the deadline, or the hold before it
  bool bHeld;    // it is a hold
  bool bSteps;   // the clock is held, and one step takes it to the deadline all the same
  bool bStrict;  // nothing may be under way in a foreign thread when the clock moves
  bool bAsap;    // at dSpeedMax
  bool bStands;  // until something comes in
};

enum ETurnEnd { TURN_DUE, TURN_CAME_IN, TURN_AGAIN };

// The poll's first places, before those of the tasks and of the foreign threads.
enum EPlace { PLACE_BELL, PLACE_SIGNALS, PLACE_TASKS };
}  // namespace

static i32 High(i32 fd);
static bool OwnsClock();
static u64 Follow(u64 qwNow_us, u64 qwNext_us, const TPolled& tTasks);
static TTurn TurnOf(u64 qwNow_us, u64 qwNext_us);
static u64 RealWait_ns(u64 qwTo_us);
static TPolled Gather(const TPolled& tTasks);
static ETurnEnd WaitOnce(const TTurn& tTurn, TPolled& tPolled);
static bool TakeIn(const TTurn& tTurn, const TPolled& tPolled);
static void Publish(u64 qwNow_us);
static void AddForeign(TPolled& tPolled);
static bool AllSit(i32 iPolled);
static void LetSettle();
static void SayQuiet(u32 dwTicket);
static void TakeSignals();
static void Pin(bool bPin);

// Past every hook.  Null: without end.
static i32 PollRaw(TPolled& tPolled, const u64* pqwTime_ns) {
  u64 aqwTime[2] = {0, 0};
  timespec tTime{};
  if (pqwTime_ns != nullptr) {
    tTime.tv_sec = static_cast<time_t>(*pqwTime_ns / 1'000'000'000);
    tTime.tv_nsec = static_cast<decltype(tTime.tv_nsec)>(*pqwTime_ns % 1'000'000'000);
    memcpy(aqwTime, &tTime, sizeof tTime);
  }
  return static_cast<i32>(syscall(SYS_ppoll, tPolled.atFds, static_cast<u32>(tPolled.iCount),
                                  pqwTime_ns == nullptr ? nullptr : aqwTime, static_cast<void*>(nullptr), 8));
}
constexpr u64 qwNoTime_ns = 0;

i32 Pace_Open(const char* szRoot, TWorld* ptWorld) {
  char szBell[512];
  if (snprintf(szBell, sizeof szBell, "%s/sim/bell", szRoot) >= static_cast<i32>(sizeof szBell)) return -1;
  if (mkfifo(szBell, 0666) != 0 && errno != EEXIST) return -1;
  const i32 fdBell = static_cast<i32>(syscall(SYS_openat, AT_FDCWD, szBell, O_RDWR | O_NONBLOCK | O_CLOEXEC));
  int aiEnds[2];
  if (fdBell < 0 || syscall(SYS_pipe2, aiEnds, O_NONBLOCK | O_CLOEXEC) != 0) return -1;
  g_fdBell = High(fdBell);
  sigemptyset(&g_tSignals);
  g_fdSignals = High(signalfd(-1, &g_tSignals, SFD_NONBLOCK | SFD_CLOEXEC));
  g_fdSettled = High(aiEnds[0]);
  if (High(aiEnds[1]) != g_fdSettled + 1) return -1;
  signal(SIGPIPE, SIG_IGN);  // the clock raises it
  g_ptWorld = ptWorld;
  g_bPaced = true;
  return 0;
}

static i32 High(i32 fd) {
  const i32 fdHigh = static_cast<i32>(syscall(SYS_fcntl, fd, F_DUPFD_CLOEXEC, iFirstOwnFd));
  syscall(SYS_close, fd);
  return fdHigh;
}

void Pace_Forked() {
  Task_Self().iThread = static_cast<i32>(syscall(SYS_gettid));
}

void Pace_WatchSignal(i32 iSignal) {
  for (const i32 iLeft : {SIGPIPE, SIGKILL, SIGSTOP, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
    if (iSignal == iLeft) return;
  }
  sigaddset(&g_tSignals, iSignal);
  pthread_sigmask(SIG_BLOCK, &g_tSignals, nullptr);
  signalfd(g_fdSignals, &g_tSignals, SFD_NONBLOCK | SFD_CLOEXEC);
}

u64 Pace_Wait(u64 qwNow_us, u64 qwNext_us, const TPolled& tTasks) {
  if (!OwnsClock()) return Follow(qwNow_us, qwNext_us, tTasks);
  if (g_ptWorld->qwBase_us > qwNow_us) qwNow_us = g_ptWorld->qwBase_us;
  for (;;) {
    const TTurn tTurn = TurnOf(qwNow_us, qwNext_us);
    Pin(tTurn.bAsap);
    TPolled tPolled = Gather(tTasks);
    const ETurnEnd eEnd = WaitOnce(tTurn, tPolled);
    if (eEnd == TURN_AGAIN) continue;
    if (eEnd == TURN_CAME_IN) {
      const bool bForTasks = TakeIn(tTurn, tPolled);
      qwNow_us = g_ptWorld->qwBase_us;
      if (bForTasks) return qwNow_us;
      continue;  // words of the pace have changed, or a foreign thread has been at work
    }
    if (tTurn.bSteps) --g_ptWorld->tPace.dwSteps;
    Publish(tTurn.qwTo_us);
    qwNow_us = tTurn.qwTo_us;
    if (!tTurn.bHeld) return qwNow_us;
    // At the hold.  Nothing looks at the time before something comes in.
  }
}

static TTurn TurnOf(u64 qwNow_us, u64 qwNext_us) {
  World_Lock(g_ptWorld);
  const TPace& tPace = g_ptWorld->tPace;
  const u64 qwHold_us = World_HoldAt_us(g_ptWorld);
  TTurn tTurn{};
  tTurn.bAsap = tPace.dSpeed >= dSpeedMax;
  tTurn.bSteps = tPace.dwSteps > 0 && qwHold_us <= qwNow_us && qwNext_us != qwNever_us && qwNext_us > qwNow_us;
  tTurn.bHeld = !tTurn.bSteps && qwHold_us < qwNext_us;
  const u64 qwHold_to_us = qwHold_us > qwNow_us ? qwHold_us : qwNow_us;
  tTurn.qwTo_us = tTurn.bHeld ? qwHold_to_us : qwNext_us;
  tTurn.bStrict = tTurn.bHeld || tTurn.bSteps || tTurn.bAsap;
  tTurn.bStands = (tTurn.bHeld && tTurn.qwTo_us == qwNow_us) || tTurn.qwTo_us == qwNever_us;
  World_Unlock(g_ptWorld);
  return tTurn;
}

// How long until the camera may stand there.  From here on the world's time runs.
static u64 RealWait_ns(u64 qwTo_us) {
  TPace& tPace = g_ptWorld->tPace;
  World_Lock(g_ptWorld);
  const double dSpeed = tPace.dSpeed > 0 ? tPace.dSpeed : 1;  // a daemon without a run
  const u64 qwReal_us = World_RealNow_us();
  const double dCamera_us = static_cast<double>(static_cast<i64>(qwTo_us - tPace.qwAnchor_us));
  const i64 llDue_us = static_cast<i64>(tPace.qwRealAnchor_us) + static_cast<i64>(dCamera_us / dSpeed);
  if (llDue_us + static_cast<i64>(qwCredit_us) < static_cast<i64>(qwReal_us)) {
    // Too late to be made up for: the camera has been slower.
    tPace.qwAnchor_us = qwTo_us;
    tPace.qwRealAnchor_us = qwReal_us - qwCredit_us;
  }
  tPace.qwLimit_us = qwTo_us;
  World_Unlock(g_ptWorld);
  return llDue_us > static_cast<i64>(qwReal_us) ? (static_cast<u64>(llDue_us) - qwReal_us) * 1000 : 0;
}

static TPolled Gather(const TPolled& tTasks) {
  TPolled tPolled{};
  tPolled.atFds[PLACE_BELL] = {.fd = g_fdBell, .events = POLLIN, .revents = 0};
  tPolled.atFds[PLACE_SIGNALS] = {.fd = g_fdSignals, .events = POLLIN, .revents = 0};
  tPolled.iCount = PLACE_TASKS;
  constexpr i32 iRoom = iMaxPolled - iMaxForeign;
  for (i32 i = 0; i < tTasks.iCount && tPolled.iCount < iRoom; ++i) tPolled.atFds[tPolled.iCount++] = tTasks.atFds[i];
  return tPolled;
}

// What is there already comes in before the time moves: whoever sends something and then lifts a hold has sent it at
// the time of the hold.
static ETurnEnd WaitOnce(const TTurn& tTurn, TPolled& tPolled) {
  // The ticket before the poll: whoever has taken one after sending something is not told before that has come in.
  const u32 dwTicket = std::atomic_ref(g_ptWorld->tPace.dwQuietAsked).load(std::memory_order_acquire);
  const i32 iOwn = tPolled.iCount;
  if (tTurn.bStrict) AddForeign(tPolled);
  i32 iReady = PollRaw(tPolled, &qwNoTime_ns);
  if (iReady == 0 && tTurn.bStrict && !AllSit(tPolled.iCount - iOwn)) {
    LetSettle();
    return TURN_AGAIN;
  }
  if (iReady == 0 && tTurn.bStands) {
    SayQuiet(dwTicket);
    iReady = PollRaw(tPolled, nullptr);
  } else if (iReady == 0 && !tTurn.bSteps && !tTurn.bAsap && tTurn.qwTo_us > g_ptWorld->qwBase_us) {
    const u64 qwWait_ns = RealWait_ns(tTurn.qwTo_us);
    if (qwWait_ns > 0) iReady = PollRaw(tPolled, &qwWait_ns);
  }
  if (iReady > 0) return TURN_CAME_IN;
  return iReady < 0 || tTurn.bStands ? TURN_AGAIN : TURN_DUE;
}

// The camera time of this moment is the world's from here on.  True: something is for the tasks.
static bool TakeIn(const TTurn& tTurn, const TPolled& tPolled) {
  World_Lock(g_ptWorld);
  g_ptWorld->qwBase_us = World_Now_us(g_ptWorld);
  g_ptWorld->tPace.qwLimit_us = g_ptWorld->qwBase_us;
  World_Unlock(g_ptWorld);
  if (tTurn.bStrict) LetSettle();
  char acRung[64];
  while (syscall(SYS_read, g_fdBell, acRung, sizeof acRung) > 0) {
  }
  bool bForTasks = tPolled.atFds[PLACE_SIGNALS].revents != 0;
  if (bForTasks) TakeSignals();
  for (i32 i = PLACE_TASKS; i < tPolled.iCount; ++i) bForTasks = bForTasks || tPolled.atFds[i].revents != 0;
  return bForTasks;
}

static void Publish(u64 qwNow_us) {
  World_Lock(g_ptWorld);
  g_ptWorld->qwBase_us = qwNow_us;
  g_ptWorld->tPace.qwLimit_us = qwNow_us;
  World_Unlock(g_ptWorld);
}

bool Pace_IsLong(u64 qwNow_us, u64 qwNext_us) {
  const double dSpeed = g_ptWorld->tPace.dSpeed;
  if (dSpeed <= 0 || dSpeed >= dSpeedMax) return false;
  return static_cast<double>(qwNext_us - qwNow_us) / dSpeed > static_cast<double>(qwLong_us);
}

bool Pace_TakesMore(u64 qwNow_us) {
  if (g_qwTakenAt_us != qwNow_us) g_dwTaken = 0;
  g_qwTakenAt_us = qwNow_us;
  World_Lock(g_ptWorld);
  const bool bHeld = World_HoldAt_us(g_ptWorld) <= qwNow_us;
  World_Unlock(g_ptWorld);
  return bHeld || ++g_dwTaken <= dwMaxAtOneTime;
}

static void SayQuiet(u32 dwTicket) {
  TPace& tPace = g_ptWorld->tPace;
  const std::atomic_ref<u32> tSaid(tPace.dwQuietSaid);
  if (tSaid.load(std::memory_order_relaxed) == dwTicket) return;
  tSaid.store(dwTicket, std::memory_order_release);
  syscall(SYS_futex, &tPace.dwQuietSaid, FUTEX_WAKE, 64, nullptr, nullptr, 0);
}

static void TakeSignals() {
  signalfd_siginfo tInfo;
  while (syscall(SYS_read, g_fdSignals, &tInfo, sizeof tInfo) == static_cast<long>(sizeof tInfo)) {
    Clock_Signal(static_cast<i32>(tInfo.ssi_signo));
  }
}

// Hand-overs within one core are several times as cheap.
static void Pin(bool bPin) {
  if (bPin == g_bPinned) return;
  g_bPinned = bPin;
  cpu_set_t tOne;
  CPU_ZERO(&tOne);
  CPU_SET(static_cast<size_t>(sched_getcpu()), &tOne);
  if (bPin) sched_getaffinity(0, sizeof g_tCpus, &g_tCpus);
  for (const TTask& tTask : g_atTasks) {
    if (tTask.eState != TASK_FREE && tTask.iThread > 0) {
      sched_setaffinity(tTask.iThread, sizeof tOne, bPin ? &tOne : &g_tCpus);
    }
  }
}

static bool OwnsClock() {
  TPace& tPace = g_ptWorld->tPace;
  const i32 iSelf = static_cast<i32>(syscall(SYS_getpid));
  if (tPace.iOwner == iSelf) return true;
  World_Lock(g_ptWorld);
  if (tPace.iOwner <= 0 || (kill(tPace.iOwner, 0) != 0 && errno == ESRCH)) {
    tPace.iOwner = iSelf;
    g_ptWorld->qwBase_us = tPace.qwLimit_us = tPace.qwAnchor_us = World_Now_us(g_ptWorld);
    tPace.qwRealAnchor_us = World_RealNow_us();
    if (tPace.dSpeed <= 0) tPace.dSpeed = 1;
  }
  World_Unlock(g_ptWorld);
  return tPace.iOwner == iSelf;
}

// A second daemon on one camera has a scheduler of its own, and looks at the first one's clock from time to time.
static u64 Follow(u64 qwNow_us, u64 qwNext_us, const TPolled& tTasks) {
  TPolled tPolled = Gather(tTasks);
  tPolled.atFds[PLACE_BELL].fd = -1;
  constexpr u64 qwWait_ns = qwFollow_us * 1000;
  PollRaw(tPolled, &qwWait_ns);
  if (tPolled.atFds[PLACE_SIGNALS].revents != 0) TakeSignals();
  World_Lock(g_ptWorld);
  const u64 qwFirst_us = World_Now_us(g_ptWorld);
  World_Unlock(g_ptWorld);
  const u64 qwReached_us = qwFirst_us > qwNow_us ? qwFirst_us : qwNow_us;
  return qwReached_us < qwNext_us ? qwReached_us : qwNext_us;
}

i32 Foreign_New() {
  for (i32 i = 0; i < iMaxForeign; ++i) {
    u32 bFree = 0;
    if (!g_atForeign[i].bUsed.compare_exchange_strong(bFree, 1)) continue;
    g_atForeign[i].fdEpoll.store(-1);
    return i;
  }
  return -1;
}

void Foreign_Forget(i32 iPlace) {
  g_atForeign[iPlace].bUsed.store(0);
}

void Foreign_Enter(i32 iPlace) {
  t_iForeign = iPlace;
}

static void RingSettled() {
  if (g_bAwaitsSettled.load() != 0) syscall(SYS_write, g_fdSettled + 1, "", 1);
}

void Foreign_Leave() {
  if (t_iForeign < 0) return;
  Foreign_Forget(t_iForeign);
  t_iForeign = -1;
  RingSettled();
}

void Foreign_Sits(i32 fdEpoll) {
  if (t_iForeign < 0) return;
  g_atForeign[t_iForeign].fdEpoll.store(fdEpoll);
  RingSettled();
}

void Foreign_Works() {
  if (t_iForeign >= 0) g_atForeign[t_iForeign].fdEpoll.store(-1);
}

bool Foreign_IsSelf() {
  return Pace_IsOn() && g_tSelf.eKind == THREAD_UNKNOWN;
}

static void AddForeign(TPolled& tPolled) {
  for (const TForeign& tForeign : g_atForeign) {
    const i32 fd = tForeign.bUsed.load() != 0 ? tForeign.fdEpoll.load() : -1;
    if (fd >= 0) tPolled.atFds[tPolled.iCount++] = {.fd = fd, .events = POLLIN, .revents = 0};
  }
}

// After a poll of so many of their descriptors has found nothing.
static bool AllSit(i32 iPolled) {
  i32 iUsed = 0;
  i32 iSitting = 0;
  for (const TForeign& tForeign : g_atForeign) {
    if (tForeign.bUsed.load() == 0) continue;
    ++iUsed;
    if (tForeign.fdEpoll.load() >= 0) ++iSitting;
  }
  return iUsed == iSitting && iSitting == iPolled;
}

// In this order: a thread leaves its mark before it takes what has made its descriptor readable.
static bool IsSettled(const TForeign& tForeign) {
  const i32 fd = tForeign.fdEpoll.load();
  if (fd < 0) return false;
  TPolled tPolled{};
  tPolled.atFds[0] = {.fd = fd, .events = POLLIN, .revents = 0};
  tPolled.iCount = 1;
  return PollRaw(tPolled, &qwNoTime_ns) == 0 && tForeign.fdEpoll.load() == fd;
}

static bool AllSettled() {
  for (const TForeign& tForeign : g_atForeign) {
    if (tForeign.bUsed.load() != 0 && !IsSettled(tForeign)) return false;
  }
  return true;
}

// The clock stands while a library's thread is at work on what has come in.
static void LetSettle() {
  if (AllSettled()) return;
  const u64 qwEnd_us = World_RealNow_us() + qwSettle_us;
  g_bAwaitsSettled.store(1);
  while (!AllSettled() && World_RealNow_us() < qwEnd_us) {
    TPolled tPolled{};
    tPolled.atFds[0] = {.fd = g_fdSettled, .events = POLLIN, .revents = 0};
    tPolled.iCount = 1;
    constexpr u64 qwShort_ns = 1'000'000;
    PollRaw(tPolled, &qwShort_ns);
    char acRung[64];
    syscall(SYS_read, g_fdSettled, acRung, sizeof acRung);
  }
  g_bAwaitsSettled.store(0);
}
