#include "life/life.h"

#include <errno.h>
#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hooks/flash.h"
#include "hooks/hooks.h"
#include "life/gatelink_script.h"
#include "life/life_record.h"
#include "world/world_image.h"

// From the daemon's objects, if the test program has them.
[[gnu::weak]] i32 VernierLensd_Main(i32 iCount, char** apszArgs);

// From a sanitizer and a coverage counter, if they are there: these have work to do at exit.
extern "C" {
[[gnu::weak]] void __sanitizer_print_stack_trace();
[[gnu::weak]] void __gcov_dump();
}

namespace {
constexpr i32 iWatchdog_ms = 10'000;  // real time without an event

struct TScriptedEvent {
  const TLifeEvent* ptEvent;
  u32 dwRequest;  // number of the request, from 0
};

const TLifePlan* g_ptPlan = nullptr;  // of the life that this process is
TLifeRecord* g_ptRecord = nullptr;    // of the life that this process is
std::vector<TScriptedEvent> g_atScripted;
}  // namespace

static TLifeRecord* FreshRecord();
static void KeepLine(const char* pcLine, size_t dwLine);
[[noreturn]] static void Live(const TLifePlan& tPlan, TWorld* ptWorld, TLifeRecord* ptRecord, i32 fdStderr);
static void Arrange(TWorld* ptWorld);
static void RunEvent(void* pvScripted);
static void EndByTerm(void* pv);
static void TakeOutput();
static void LeaveLife(i32 iStatus, void* pv);
static i32 RunBody(const TLifePlan& tPlan, TWorld* ptWorld);
static bool WaitForEnd(pid_t pid, const TLifeRecord& tRecord, i32* piStatus);
static void Collect(TLifeResult& tResult, const TLifeRecord& tRecord, i32 iStatus);
static std::string ReadAll(i32 fd);

TLifeResult Life_Run(const TLifePlan& tPlan) {
  TLifeResult tResult;
  static const bool bHooked = Hooks_SelfTest() == 0;
  TWorld* ptWorld = bHooked ? World_Map(tPlan.sRoot.c_str()) : nullptr;
  if (ptWorld == nullptr) {
    tResult.sStderr = bHooked ? "simcamera: no world below " + tPlan.sRoot + "\n" : "simcamera: names are not hooked\n";
    return tResult;
  }
  ptWorld->bRun = 0;
  TLifeRecord* ptRecord = FreshRecord();
  const i32 fdStderr = memfd_create("stderr", MFD_CLOEXEC);
  fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) Live(tPlan, ptWorld, ptRecord, fdStderr);

  i32 iStatus = 0;
  const bool bEnded = pid > 0 && WaitForEnd(pid, *ptRecord, &iStatus);
  tResult.sStderr = ReadAll(fdStderr);
  close(fdStderr);
  if (pid > 0) Collect(tResult, *ptRecord, iStatus);
  if (pid > 0 && !bEnded) {
    tResult.sStderr += std::string("simcamera: no event for 10 seconds, the token is with ") +
                       ptRecord->tTally.szHolder + ", last call " +
                       (ptRecord->tTally.szCall != nullptr ? ptRecord->tTally.szCall : "none") + "\n";
  }
  if (tResult.eEnd == LIFE_CUT && Flash_PowerCut(tPlan.sRoot.c_str(), tPlan.qwSeed * 31 + tResult.qwEvents) != 0) {
    tResult.eEnd = LIFE_CRASHED;
    tResult.sStderr += "simcamera: the flash could not be laid out after the cut\n";
  }
  World_Unmap(ptWorld);
  return tResult;
}

// All lives of the process use one mapping.  The memory of a long transcript is given back.
static TLifeRecord* FreshRecord() {
  static TLifeRecord* ptRecord = nullptr;
  if (ptRecord == nullptr) {
    void* pv =
        mmap(nullptr, sizeof(TLifeRecord), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (pv == MAP_FAILED) abort();
    ptRecord = static_cast<TLifeRecord*>(pv);
  }
  constexpr u32 dwKeep = 1 << 20;
  if (ptRecord->dwTranscript > dwKeep) madvise(ptRecord, sizeof(TLifeRecord), MADV_REMOVE);
  memset(ptRecord, 0, offsetof(TLifeRecord, acReplies));
  return ptRecord;
}

static void Live(const TLifePlan& tPlan, TWorld* ptWorld, TLifeRecord* ptRecord, i32 fdStderr) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  cpu_set_t tCpus;
  CPU_ZERO(&tCpus);
  CPU_SET(static_cast<size_t>(sched_getcpu()), &tCpus);
  sched_setaffinity(0, sizeof tCpus, &tCpus);
  const i32 fdNull = open("/dev/null", O_RDWR);
  dup2(fdNull, 0);
  dup2(fdNull, 1);
  dup2(fdStderr, 2);
  close(fdNull);
  signal(SIGPIPE, SIG_IGN);
  TakeOutput();
  on_exit(&LeaveLife, nullptr);
  mallopt(M_ARENA_MAX, 1);  // one thread runs at a time, and a heap for each of them costs much time
  g_ptPlan = &tPlan;
  Hooks_SetRoot(tPlan.sRoot.c_str());
  if (Flash_Open(tPlan.sRoot.c_str()) != 0) _exit(1);
  Arrange(ptWorld);
  g_ptRecord = ptRecord;
  Transcript_Begin(&KeepLine, true);
  Clock_Start({.qwSeed = tPlan.qwSeed,
               .qwCutAtEvent = tPlan.qwCutAtEvent,
               .ptWorld = ptWorld,
               .ptTally = &ptRecord->tTally,
               .pfnTimeMoved = tPlan.bImageSide ? &Memory_ImageSide : nullptr,
               .pvTimeMoved = ptWorld});
  exit(RunBody(tPlan, ptWorld));
}

static void Arrange(TWorld* ptWorld) {
  const u64 qwStart_us = ptWorld->qwBase_us;
  u32 dwRequests = 0;
  for (const TLifeEvent& tEvent : g_ptPlan->atEvents) {
    g_atScripted.push_back({&tEvent, tEvent.eKind == TLifeEvent::REQUEST ? dwRequests++ : 0});
  }
  for (TScriptedEvent& tScripted : g_atScripted)
    Clock_At(qwStart_us + tScripted.ptEvent->qwAt_us, &RunEvent, &tScripted);
  if (g_ptPlan->qwEnd_us != 0) Clock_At(qwStart_us + g_ptPlan->qwEnd_us, &EndByTerm, nullptr);
}

static void RunEvent(void* pvScripted) {
  const TScriptedEvent& tScripted = *static_cast<TScriptedEvent*>(pvScripted);
  const TLifeEvent& tEvent = *tScripted.ptEvent;
  switch (tEvent.eKind) {
    case TLifeEvent::REQUEST:
      GatelinkScript_Request(tScripted.dwRequest, tEvent.sMethod.c_str(), tEvent.sQuery.c_str());
      break;
    case TLifeEvent::SIGNAL:
      Transcript_Note("signal %d", tEvent.iSignal);
      Clock_Signal(tEvent.iSignal);
      break;
    case TLifeEvent::CALL:
      tEvent.fnCall(Clock_World());
      break;
  }
}

static void EndByTerm(void*) {
  Transcript_Note("signal %d", SIGTERM);
  Clock_Signal(SIGTERM);
}

TLifeRecord& Life_Record() {
  return *g_ptRecord;
}

static void KeepLine(const char* pcLine, size_t dwLine) {
  TLifeRecord& tRecord = *g_ptRecord;
  if (tRecord.dwTranscript + dwLine > sizeof tRecord.acTranscript) {
    tRecord.bTranscriptFull = 1;
    return;
  }
  memcpy(tRecord.acTranscript + tRecord.dwTranscript, pcLine, dwLine);
  tRecord.dwTranscript += static_cast<u32>(dwLine);
}

// Runs under the stream's lock: no other task may run meanwhile.
static ssize_t PrintedToTranscript(void*, const char* pcText, size_t dwLength) {
  Transcript_Printed(pcText, dwLength);
  return static_cast<ssize_t>(dwLength);
}

static void TakeOutput() {
  FILE* pFile =
      fopencookie(nullptr, "w", {.read = nullptr, .write = &PrintedToTranscript, .seek = nullptr, .close = nullptr});
  if (pFile == nullptr) _exit(1);
  setvbuf(pFile, nullptr, _IOLBF, 1024);
  stdout = pFile;
}

static i32 RunBody(const TLifePlan& tPlan, TWorld* ptWorld) {
  if (tPlan.fnBody) return tPlan.fnBody(ptWorld);
  if (VernierLensd_Main == nullptr) return 127;
  static std::vector<std::string> asArgs = tPlan.asArgs;
  static std::vector<char*> apszArgs;
  for (std::string& sArg : asArgs) apszArgs.push_back(sArg.data());
  apszArgs.push_back(nullptr);
  return VernierLensd_Main(static_cast<i32>(asArgs.size()), apszArgs.data());
}

// Runs first at exit: what a sanitizer or a static destructor does after it is no part of the life.  In a plain build
// the process ends here: the destructors of all libraries take longer than a short life.
static void LeaveLife(i32 iStatus, void*) {
  fflush(stdout);
  Transcript_PrintTheRest();
  g_bClockRuns = false;
  if (__sanitizer_print_stack_trace == nullptr && __gcov_dump == nullptr) _exit(iStatus);
}

// Waits until the life has ended.  Returns false if the watchdog had to end it.
static bool WaitForEnd(pid_t pid, const TLifeRecord& tRecord, i32* piStatus) {
  pollfd tEnd{.fd = static_cast<i32>(syscall(SYS_pidfd_open, pid, 0)), .events = POLLIN, .revents = 0};
  bool bEnded = false;
  u64 qwEvents = 0;
  while (!bEnded) {
    const i32 iReady = poll(&tEnd, 1, iWatchdog_ms);
    if (iReady < 0 && errno == EINTR) continue;
    bEnded = iReady != 0;
    const u64 qwNow = std::atomic_ref(const_cast<u64&>(tRecord.tTally.qwEvents)).load(std::memory_order_relaxed);
    if (!bEnded && qwNow == qwEvents) break;
    qwEvents = qwNow;
  }
  if (!bEnded) kill(pid, SIGKILL);
  while (waitpid(pid, piStatus, 0) < 0 && errno == EINTR) {
  }
  if (tEnd.fd >= 0) close(tEnd.fd);
  return bEnded;
}

static void Collect(TLifeResult& tResult, const TLifeRecord& tRecord, i32 iStatus) {
  switch (static_cast<EClockEnd>(tRecord.tTally.eEnd)) {
    case CLOCK_END_NONE:
      tResult.eEnd = WIFEXITED(iStatus) ? LIFE_EXITED : LIFE_CRASHED;
      break;
    case CLOCK_END_CUT:
      tResult.eEnd = LIFE_CUT;
      break;
    case CLOCK_END_DEADLOCK:
      tResult.eEnd = LIFE_DEADLOCK;
      break;
    case CLOCK_END_STOOD_STILL:
      tResult.eEnd = LIFE_STOOD_STILL;
      break;
    case CLOCK_END_ERROR:
      tResult.eEnd = LIFE_CRASHED;
      break;
  }
  tResult.iStatus = WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : 128 + WTERMSIG(iStatus);
  tResult.qwEvents = tRecord.tTally.qwEvents;
  tResult.qwTime_us = tRecord.tTally.qwTime_us;
  tResult.bTranscriptWhole = tRecord.bTranscriptFull == 0;
  tResult.sTranscript.assign(tRecord.acTranscript, tRecord.dwTranscript);
  for (u32 dwAt = 0; dwAt < tRecord.dwReplies;) {
    u32 adwHead[2];
    memcpy(adwHead, tRecord.acReplies + dwAt, sizeof adwHead);
    if (tResult.asReplies.size() <= adwHead[0]) tResult.asReplies.resize(adwHead[0] + 1);
    tResult.asReplies[adwHead[0]].assign(tRecord.acReplies + dwAt + sizeof adwHead, adwHead[1]);
    dwAt += static_cast<u32>(sizeof adwHead) + adwHead[1];
  }
}

static std::string ReadAll(i32 fd) {
  std::string sText;
  char acPart[4096];
  ssize_t iRead = 0;
  while ((iRead = pread(fd, acPart, sizeof acPart, static_cast<off_t>(sText.size()))) > 0) {
    sText.append(acPart, static_cast<size_t>(iRead));
  }
  return sText;
}
