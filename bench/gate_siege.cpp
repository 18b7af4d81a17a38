// Loads the daemon of a simulated camera in real time: a million requests from 64 clients while the lens moves; stops,
// which must come within one step time under that load; and attacks, during which a quiet client must not wait long.
//
//   gate_siege [--only load|stop|attack] [--requests N] [--stops N] [--rounds N] [--seed N]
//
// Starts the simcamera of this program's folder with a new root below /tmp.  Prints tables; exits 0 only if all held.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include "campaign.h"
#include "gate_attacks.h"
#include "gate_client.h"
#include "world/world.h"

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

constexpr std::size_t dwLoadClients = 64, dwQuietAsks = 500;
constexpr u64 qwWarmUp = 40'000;        // requests; then every buffer of the gateway has been used
constexpr double dMaxGrowth_KiB = 128;  // of resident memory, under load
constexpr double dNever_us = 1e9;
constexpr std::string_view sOKHead =
    "HTTP/1.1 200 OK\r\nContent-type: text/plain\r\nCache-control: no-cache\r\nPragma: no-cache\r\nContent-length: ";
const std::string sOK = std::string(sOKHead) + "2\r\n\r\nOK";

struct TLine {
  std::string_view sKey;
  i64 llLow, llHigh;
};
constexpr TLine g_atStatus[] = {
    {"zoom_motor_max", 800, 800},
    {"focus_motor_max", 1500, 1500},
    {"zoom_motor_start", 0, 0},
    {"zoom_motor_end", 800, 800},
    {"focus_motor_start", 20, 1480},
    {"focus_motor_end", 1480, 1480},
    {"zoom_motor", 0, 800},
    {"focus_motor", 0, 1480},
    {"zoom_enable", 0, 15},
    {"focus_enable", 0, 15},
    {"iris_open", 0, 1},
};
constexpr TLine g_atFocusValue[] = {{"focus_value", 0, 200'000}, {"focus_enable", 0, 15}};
using TStatus = std::vector<i64>;  // one number for each line of g_atStatus

struct TKind {
  u32 dwShare;  // of the load, in 100,000
  std::string sRequest;
  std::string sAnswer;                 // the whole answer, unless
  std::span<const TLine> atBody = {};  // the answer is a body of these lines
};

struct TAxisOfStop {
  const char* pszName;
  ELensAxis eAxis;
  std::size_t dwKey;  // index of its position in g_atStatus
  double dStep_us;    // onesteptime of its configuration
  i64 llLow, llHigh;  // the moves go from end to end
};
constexpr TAxisOfStop g_atStopAxes[] = {{"focus", LENS_FOCUS, 7, 4000, 40, 1480}, {"zoom", LENS_ZOOM, 6, 5000, 0, 800}};

struct TSiege {
  u64 qwSeed;
  std::string sRoot, sSocket;
  pid_t iRun, iDaemon;
  TServer tBare;
  TWorld* ptWorld;
};

// Prints a row of a table.  Returns bHeld.
bool PrintRow(const char* pszName, std::initializer_list<double> adValues, bool bHeld) {
  std::printf("| %s |", pszName);
  for (const double dValue : adValues) std::printf(std::abs(dValue) < 100 ? " %.3g |" : " %.0f |", dValue);
  std::printf(" %s |\n", bHeld ? "yes" : "NO");
  std::fflush(stdout);
  return bHeld;
}

// Reads the numbers of a correct answer, in the order of its lines.  Returns none if a single byte of the answer
// differs from what the daemon would write for these numbers.
std::vector<i64> ReadNumbers(std::span<const TLine> atBody, const std::string& sAnswer) {
  std::vector<i64> allNumbers;
  std::string sBody;
  std::size_t dwAt = 0;
  for (const TLine& tLine : atBody) {
    dwAt = sAnswer.find("='", dwAt);
    if (dwAt == std::string::npos) return {};
    dwAt += 2;
    const i64 llNumber = allNumbers.emplace_back(std::atoll(sAnswer.c_str() + dwAt));
    if (llNumber < tLine.llLow || llNumber > tLine.llHigh) return {};
    sBody.append("vernier_lens_").append(tLine.sKey).append("='" + std::to_string(llNumber) + "'\r\n");
  }
  if (sAnswer != std::string(sOKHead) + std::to_string(sBody.size()) + "\r\n\r\n" + sBody) return {};
  return allNumbers;
}

TStatus AskStatus(const TSiege& tSiege) {
  TStatus allStatus = ReadNumbers(g_atStatus, AskOnce(tSiege.sSocket, sStatusRequest));
  if (allStatus.empty()) Die("no right answer to a status request");
  return allStatus;
}

std::string Get(const std::string& sQuery) {
  return "GET /?" + sQuery + " HTTP/1.1\r\n\r\n";
}

void Command(const TSiege& tSiege, const std::string& sQuery) {
  if (AskOnce(tSiege.sSocket, Get(sQuery)) != sOK) Die(("no right OK to " + sQuery).c_str());
}

void Move(const TSiege& tSiege, const char* pszAxis, i64 llTo) {
  Command(tSiege, std::string("function=") + pszAxis + "&direction=direct&position=" + std::to_string(llTo));
}

TStatus AwaitStatus(const TSiege& tSiege, const std::function<bool(const TStatus&)>& fnDone) {
  for (const auto tEnd = TClock::now() + 90s; TClock::now() < tEnd; std::this_thread::sleep_for(5ms)) {
    const TStatus allStatus = AskStatus(tSiege);
    if (fnDone(allStatus)) return allStatus;
  }
  Die("the lens does not do as it was told");
}

TStatus AwaitIdle(const TSiege& tSiege) {
  return AwaitStatus(tSiege, [](const TStatus& allStatus) { return allStatus[8] == 0 && allStatus[9] == 0; });
}

pid_t DaemonOf(const std::string& sRoot) {
  pid_t iDaemon = 0;
  std::ifstream(sRoot + "/sim/daemon.pid") >> iDaemon;
  return iDaemon;
}

TSiege StartSiege(u64 qwSeed) {
  char szFolder[] = "/tmp/gatesiegeXXXXXX";
  if (mkdtemp(szFolder) == nullptr) Die("mkdtemp");
  const std::string sRoot = szFolder + std::string("/root"), sSocket = sRoot + "/tmp/VernierLens";
  const pid_t iRun = Fork();
  if (iRun == 0) {
    const std::string sCamera = fs::read_symlink("/proc/self/exe").parent_path() / "simcamera";
    if (std::freopen("/dev/null", "w", stdout) == nullptr) Die("/dev/null");
    execl(sCamera.c_str(), "simcamera", "run", sRoot.c_str(), "--lens", "zoom", nullptr);
    Die(sCamera.c_str());
  }
  std::string sStatus;
  for (int i = 0; i < 300 && (sStatus = AskOnce(sSocket, sStatusRequest)).empty(); ++i) usleep(100'000);
  TWorld* ptWorld = World_Map(sRoot.c_str());
  if (sStatus.empty() || ptWorld == nullptr) Die("no camera");
  return {qwSeed, sRoot, sSocket, iRun, DaemonOf(sRoot), StartBare(szFolder, sStatus), ptWorld};
}

// Ends the camera.  True if the lens rests where it is believed, and one daemon ran from the start to an orderly end.
bool EndSiege(const TSiege& tSiege) {
  bool bHeld = true;
  Command(tSiege, "function=stop");
  const TStatus allStatus = AwaitIdle(tSiege);
  std::printf("\n| axis | believed | true | held |\n|---|---|---|---|\n");
  World_Lock(tSiege.ptWorld);
  Lens_Settle(&tSiege.ptWorld->tLens, World_Now_us(tSiege.ptWorld));
  for (const TAxisOfStop& tAxis : g_atStopAxes) {
    const double dTrue = Lens_TrueVirtual(&tSiege.ptWorld->tLens, 0, tAxis.eAxis);
    const double dBelieved = static_cast<double>(allStatus[tAxis.dwKey]);
    bHeld = PrintRow(tAxis.pszName, {dBelieved, dTrue}, std::abs(dTrue - dBelieved) < 1e-6) && bHeld;
  }
  World_Unlock(tSiege.ptWorld);
  kill(tSiege.iRun, SIGTERM);
  int iStatus = -1;
  waitpid(tSiege.iRun, &iStatus, 0);
  bHeld = bHeld && iStatus == 0 && DaemonOf(tSiege.sRoot) == tSiege.iDaemon;
  Kill(tSiege.tBare.iProcess);
  fs::remove_all(fs::path(tSiege.sRoot).parent_path());
  return bHeld;
}

// Sends random requests, each kind with its share, until fnMore returns false, and judges each answer.
struct TLoad {
  TResult tRate = {};
  u64 qwAsked = 0, qwAnswered = 0, qwWrong = 0;
};
TLoad RunLoad(const TSiege& tSiege, u32 dwCommands, const std::function<bool(u64 qwAsked)>& fnMore) {
  const std::string sBare = "HTTP/1.1 400 Bad Request\r\n\r\n";
  const std::string sRefusal = "\r\nContent-length: 0\r\nConnection: close\r\n\r\n";
  std::vector<TKind> atKinds = {
      {70'000, std::string(sStatusRequest), "", g_atStatus},
      {5000, "POST / HTTP/1.1\r\nContent-length: 18\r\n\r\nfunction=getstatus", "", g_atStatus},
      {10'000, Get("function=getparam&position=7"), "", g_atFocusValue},
      {1000, "nonsense\r\n\r\n", "HTTP/1.1 400 Bad Request" + sRefusal},
      {1000, "POST / HTTP/1.1\r\nContent-length: 4097\r\n\r\n", "HTTP/1.1 413 Payload Too Large" + sRefusal},
      {1000, Get(std::string(8192, 'x')), "HTTP/1.1 431 Request Header Fields Too Large" + sRefusal},
      {dwCommands, Get("function=zoom&direction=forward&steps=3"), sOK},
      {dwCommands, Get("function=focus&direction=backward&steps=30"), sOK},
  };
  for (const auto sOdd : g_asOddRequests) atKinds.push_back({2000, std::string(sOdd), sBare});
  std::vector<u32> adwShares;
  for (const TKind& tKind : atKinds) adwShares.push_back(tKind.dwShare);
  std::mt19937_64 fnDraw(tSiege.qwSeed);
  std::discrete_distribution<std::size_t> tDraw(adwShares.begin(), adwShares.end());
  TLoad tLoad;
  const auto Next = [&] {
    if (!fnMore(tLoad.qwAsked)) return std::string_view();
    ++tLoad.qwAsked;
    return std::string_view(atKinds[tDraw(fnDraw)].sRequest);
  };
  const auto Judge = [&](std::string_view sRequest, const std::string& sAnswer) {
    const auto IsOf = [&](const TKind& tKind) { return tKind.sRequest.data() == sRequest.data(); };
    const TKind& tKind = *std::find_if(atKinds.begin(), atKinds.end(), IsOf);
    ++tLoad.qwAnswered;
    if (tKind.atBody.empty() ? sAnswer == tKind.sAnswer : !ReadNumbers(tKind.atBody, sAnswer).empty()) return;
    if (tLoad.qwWrong++ < 5) std::printf("\"%.80s\" was answered with \"%s\"\n", sRequest.data(), sAnswer.c_str());
  };
  tLoad.tRate = Clients_Run({tSiege.sSocket, dwLoadClients, Next, Judge});
  return tLoad;
}

// Resident KiB and descriptors of the daemon.
std::pair<double, double> Footprint(const TSiege& tSiege) {
  const std::string sProcess = "/proc/" + std::to_string(tSiege.iDaemon);
  double dResident_KiB = 0;
  std::ifstream tStatus(sProcess + "/status");
  for (std::string sWord; tStatus >> sWord;) {
    if (sWord == "VmRSS:") tStatus >> dResident_KiB;
  }
  return {dResident_KiB, static_cast<double>(std::distance(fs::directory_iterator(sProcess + "/fd"), {}))};
}

bool PlayLoad(const TSiege& tSiege, u64 qwRequests) {
  std::atomic<bool> bEnd = false;
  std::thread tDriver([&] {  // keeps the lens moving and searching focus
    for (std::mt19937 fnDraw(1); !bEnd;) {
      Move(tSiege, "zoom", static_cast<i64>(fnDraw() % 801));
      std::this_thread::sleep_for(1500ms);
      Move(tSiege, "focus", static_cast<i64>(fnDraw() % 1481));
      std::this_thread::sleep_for(1s);
      Command(tSiege, "function=auto");
      std::this_thread::sleep_for(3s);
      Command(tSiege, "function=stop");
    }
  });
  RunLoad(tSiege, 10, [](u64 qwAsked) { return qwAsked < qwWarmUp; });
  const auto [dBefore_KiB, dBeforeOpen] = Footprint(tSiege);
  const TLoad tLoad = RunLoad(tSiege, 10, [&](u64 qwAsked) { return qwAsked < qwRequests; });
  const auto [dAfter_KiB, dAfterOpen] = Footprint(tSiege);
  bEnd = true;
  tDriver.join();
  std::printf(
      "| | asked | answered | wrong | a second | p50, us | p99, us | resident before, KiB | after | descriptors before "
      "| after | held |\n"
      "|---|---|---|---|---|---|---|---|---|---|---|---|\n");
  return PrintRow("load",
                  {static_cast<double>(qwRequests), static_cast<double>(tLoad.qwAnswered),
                   static_cast<double>(tLoad.qwWrong), tLoad.tRate.dPerSecond, tLoad.tRate.dMedian_us,
                   tLoad.tRate.dP99_us, dBefore_KiB, dAfter_KiB, dBeforeOpen, dAfterOpen},
                  tLoad.qwAnswered == qwRequests && tLoad.qwWrong == 0 && dAfterOpen <= dBeforeOpen &&
                      dAfter_KiB <= dBefore_KiB + dMaxGrowth_KiB);
}

// Camera time of the axis's first MOTOR_STOP_WALK at dFrom_us or later; far in the future if there is none.
double StopWalk_us(const TSiege& tSiege, const TAxisOfStop& tAxis, double dFrom_us) {
  std::ifstream tTranscript(tSiege.sRoot + "/sim/transcript");
  const std::string sEvent = tAxis.pszName + std::string("motor MOTOR_STOP_WALK");
  for (std::string sLine; std::getline(tTranscript, sLine);) {
    const double dAt_us = std::strtod(sLine.c_str(), nullptr) * 1e6;
    if (dAt_us >= dFrom_us && sLine.find(sEvent) != std::string::npos) return dAt_us;
  }
  return dFrom_us + dNever_us;
}

// Stops a long move in the middle.  Returns how long after the request the motor stopped, and how long after the OK.
std::pair<double, double> StopOnce(const TSiege& tSiege, const TAxisOfStop& tAxis, std::chrono::microseconds tExtra) {
  const i64 llFrom = AwaitIdle(tSiege)[tAxis.dwKey];
  Move(tSiege, tAxis.pszName, llFrom > tAxis.llHigh / 2 ? tAxis.llLow : tAxis.llHigh);
  AwaitStatus(tSiege, [&](const TStatus& allStatus) { return allStatus[tAxis.dwKey] != llFrom; });
  std::this_thread::sleep_for(tExtra);
  const double dSent_us = static_cast<double>(World_Now_us(tSiege.ptWorld));
  Command(tSiege, "function=stop");
  const double dAnswered_us = static_cast<double>(World_Now_us(tSiege.ptWorld));
  AwaitIdle(tSiege);
  const double dStopped_us = StopWalk_us(tSiege, tAxis, dSent_us);
  return {dStopped_us - dSent_us, dStopped_us - dAnswered_us};
}

bool PlayStops(const TSiege& tSiege, u64 qwStops) {
  std::atomic<bool> bEnd = false;
  std::thread tLoad([&] { RunLoad(tSiege, 0, [&](u64) { return !bEnd; }); });
  std::vector<double> adOverrun_us;  // how much too long a thread sleeps that only sleeps, as a walk does
  std::thread tSleeper([&] {
    while (!bEnd) {
      const auto tStart = TClock::now();
      std::this_thread::sleep_for(4ms);
      adOverrun_us.push_back(Microseconds(TClock::now() - tStart - 4ms));
    }
  });
  std::vector<double> aadSent_us[2], aadAnswered_us[2];
  std::mt19937 fnDraw(1);
  for (u64 qw = 0; qw < qwStops; ++qw) {
    const auto [dSent_us, dAnswered_us] =
        StopOnce(tSiege, g_atStopAxes[qw % 2], std::chrono::microseconds(fnDraw() % 50'000));
    aadSent_us[qw % 2].push_back(dSent_us);
    aadAnswered_us[qw % 2].push_back(dAnswered_us);
  }
  bEnd = true;
  tLoad.join();
  tSleeper.join();
  std::printf(
      "\n| axis | stops | step, us | OK to stop, p50 | p99 | max | request to stop, p50 | p99 | max | overrun of a "
      "bare sleep, p99 | held |\n"
      "|---|---|---|---|---|---|---|---|---|---|---|\n");
  bool bHeld = true;
  for (std::size_t dw = 0; dw < 2; ++dw) {
    std::vector<double>*padSent = &aadSent_us[dw], *padAnswered = &aadAnswered_us[dw];
    const double dStep_us = g_atStopAxes[dw].dStep_us, dOverrun_us = Quantile(&adOverrun_us, 0.99);
    const double dP50_us = Quantile(padAnswered, 0.5), dP99_us = Quantile(padAnswered, 0.99);
    bHeld = PrintRow(g_atStopAxes[dw].pszName,
                     {static_cast<double>(padSent->size()), dStep_us, dP50_us, dP99_us, Quantile(padAnswered, 1),
                      Quantile(padSent, 0.5), Quantile(padSent, 0.99), Quantile(padSent, 1), dOverrun_us},
                     dP50_us <= dStep_us && dP99_us <= dStep_us + dOverrun_us) &&
            bHeld;
  }
  return bHeld;
}

// p99 of a client that asks now and then.  The best round counts, since other processes of the machine only add time.
double QuietP99_us(const std::string& sSocket, u64 qwRounds) {
  double dBest_us = dNever_us;
  for (u64 qw = 0; qw < qwRounds; ++qw) {
    std::vector<double> adWait_us;
    for (const auto tEnd = TClock::now() + 2s; adWait_us.size() < dwQuietAsks && TClock::now() < tEnd; usleep(500)) {
      const auto tStart = TClock::now();
      const bool bAnswered = !AskOnce(sSocket, sStatusRequest).empty();
      adWait_us.push_back(bAnswered ? Microseconds(TClock::now() - tStart) : dNever_us);
    }
    dBest_us = std::min(dBest_us, Quantile(&adWait_us, 0.99));
  }
  return dBest_us;
}

bool PlayAttacks(const TSiege& tSiege, u64 qwRounds) {
  std::printf(
      "\n| attack | p99 quiet, us | attacked | ratio | at most | bare loop: quiet | attacked | ratio | held |\n"
      "|---|---|---|---|---|---|---|---|---|\n");
  bool bHeld = true;
  for (const TAttack& tAttack : Attacks()) {
    double adQuiet_us[2], adAttacked_us[2], adRatio[2];
    for (std::size_t dw = 0; dw < 2; ++dw) {
      const std::string& sAsked = dw == 0 ? tSiege.sSocket : tSiege.tBare.sPath;
      adQuiet_us[dw] = QuietP99_us(sAsked, qwRounds);
      const pid_t iAttacker = Fork();
      if (iAttacker == 0) tAttack.fnAttack(tAttack.bBareToo ? sAsked : tSiege.sSocket);
      std::this_thread::sleep_for(1s);
      adAttacked_us[dw] = QuietP99_us(sAsked, qwRounds);
      adRatio[dw] = adAttacked_us[dw] / adQuiet_us[dw];
      Kill(iAttacker);
      AskStatus(tSiege);
    }
    bHeld = PrintRow(tAttack.pszName,
                     {adQuiet_us[0], adAttacked_us[0], adRatio[0], tAttack.dMaxRatio, adQuiet_us[1], adAttacked_us[1],
                      adRatio[1]},
                     adRatio[0] <= tAttack.dMaxRatio) &&
            bHeld;
  }
  return bHeld;
}

}  // namespace

int main(int iCount, char** apszArgs) {
  signal(SIGPIPE, SIG_IGN);
  TCampaignOptions tOptions;
  u64 qwRequests = 1'000'000, qwStops = 200, qwRounds = 5;
  const TNumberOption atOwn[] = {{"--requests", &qwRequests}, {"--stops", &qwStops}, {"--rounds", &qwRounds}};
  if (!Campaign_ReadOptions(iCount, apszArgs, atOwn, &tOptions)) {
    std::fprintf(stderr, "gate_siege [--only load|stop|attack] [--requests N] [--stops N] [--rounds N] [--seed N]\n");
    return 2;
  }
  const TSiege tSiege = StartSiege(tOptions.qwSeed);
  bool bHeld = true;
  if (Campaign_IsWanted(tOptions, "load")) bHeld = PlayLoad(tSiege, qwRequests) && bHeld;
  if (Campaign_IsWanted(tOptions, "stop")) bHeld = PlayStops(tSiege, qwStops) && bHeld;
  if (Campaign_IsWanted(tOptions, "attack")) bHeld = PlayAttacks(tSiege, qwRounds) && bHeld;
  return EndSiege(tSiege) && bHeld ? 0 : 1;
}
