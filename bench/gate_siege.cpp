// The daemon of a simulated camera in real time, under siege: a million requests from 64 clients while the lens moves,
// stops within one step time under that load, and a quiet client's wait while others attack.
//
//   gate_siege [--only load|stop|attack] [--requests N] [--stops N] [--rounds N] [--seed N]
//
// Starts the simcamera beside it with a root of its own below /tmp.  Prints tables; exits 0 only if all held.
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
constexpr u64 qwWarmUp = 40'000;   // requests, until every buffer of the gateway has been touched
constexpr double dFlat_KiB = 128;  // resident memory may grow by, under load
constexpr double dNever_us = 1e9;
constexpr std::string_view szOKHead =
    "HTTP/1.1 200 OK\r\nContent-type: text/plain\r\nCache-control: no-cache\r\nPragma: no-cache\r\nContent-length: ";
const std::string szOK = std::string(szOKHead) + "2\r\n\r\nOK";

struct TLine {
  std::string_view szKey;
  i64 iLow, iHigh;
};
constexpr TLine atStatus[] = {
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
constexpr TLine atFocusValue[] = {{"focus_value", 0, 200'000}, {"focus_enable", 0, 15}};
using TStatus = std::vector<i64>;  // the numbers of atStatus

struct TKind {
  u32 dwShare;  // of the load, in 100,000
  std::string szRequest;
  std::string szAnswer;                // whole, or
  std::span<const TLine> atBody = {};  // a body of these lines
};

struct TAxisOfStop {
  const char* pszName;
  ELensAxis eAxis;
  std::size_t dwKey;  // of atStatus: the position
  double dStep_us;    // onesteptime
  i64 iLow, iHigh;    // the moves go from end to end
};
constexpr TAxisOfStop atStopAxis[] = {{"focus", LENS_FOCUS, 7, 4000, 40, 1480}, {"zoom", LENS_ZOOM, 6, 5000, 0, 800}};

struct TSiege {
  u64 qwSeed;
  std::string szRoot, szSocket;
  pid_t iRun, iDaemon;
  TServer tBare;
  TWorld* ptWorld;
};

// A row of a table; gives back whether it held.
bool Row(const char* pszName, std::initializer_list<double> adValue, bool bHeld) {
  std::printf("| %s |", pszName);
  for (const double dValue : adValue) std::printf(std::abs(dValue) < 100 ? " %.3g |" : " %.0f |", dValue);
  std::printf(" %s |\n", bHeld ? "yes" : "NO");
  std::fflush(stdout);
  return bHeld;
}

// The numbers of a whole and right answer, in the order of its lines; empty if it differs in a single byte from what
// the daemon would write of them.
std::vector<i64> Numbers(std::span<const TLine> atBody, const std::string& szAnswer) {
  std::vector<i64> aiNumber;
  std::string szBody;
  std::size_t dwAt = 0;
  for (const TLine& tLine : atBody) {
    dwAt = szAnswer.find("='", dwAt);
    if (dwAt == std::string::npos) return {};
    dwAt += 2;
    const i64 iNumber = aiNumber.emplace_back(std::atoll(szAnswer.c_str() + dwAt));
    if (iNumber < tLine.iLow || iNumber > tLine.iHigh) return {};
    szBody.append("vernier_lens_").append(tLine.szKey).append("='" + std::to_string(iNumber) + "'\r\n");
  }
  if (szAnswer != std::string(szOKHead) + std::to_string(szBody.size()) + "\r\n\r\n" + szBody) return {};
  return aiNumber;
}

TStatus Status(const TSiege& tSiege) {
  TStatus aiStatus = Numbers(atStatus, AskOnce(tSiege.szSocket, szStatusRequest));
  if (aiStatus.empty()) Die("no right answer to a status request");
  return aiStatus;
}

std::string Get(const std::string& szQuery) {
  return "GET /?" + szQuery + " HTTP/1.1\r\n\r\n";
}

void Command(const TSiege& tSiege, const std::string& szQuery) {
  if (AskOnce(tSiege.szSocket, Get(szQuery)) != szOK) Die(("no right OK to " + szQuery).c_str());
}

void Move(const TSiege& tSiege, const char* pszAxis, i64 iTo) {
  Command(tSiege, std::string("function=") + pszAxis + "&direction=direct&position=" + std::to_string(iTo));
}

TStatus AwaitStatus(const TSiege& tSiege, const std::function<bool(const TStatus&)>& fnDone) {
  for (const auto tEnd = TClock::now() + 90s; TClock::now() < tEnd; std::this_thread::sleep_for(5ms)) {
    const TStatus aiStatus = Status(tSiege);
    if (fnDone(aiStatus)) return aiStatus;
  }
  Die("the lens does not do as it was told");
}

TStatus AwaitIdle(const TSiege& tSiege) {
  return AwaitStatus(tSiege, [](const TStatus& aiStatus) { return aiStatus[8] == 0 && aiStatus[9] == 0; });
}

pid_t DaemonOf(const std::string& szRoot) {
  pid_t iDaemon = 0;
  std::ifstream(szRoot + "/sim/daemon.pid") >> iDaemon;
  return iDaemon;
}

TSiege Start(u64 qwSeed) {
  char szFolder[] = "/tmp/gatesiegeXXXXXX";
  if (mkdtemp(szFolder) == nullptr) Die("mkdtemp");
  const std::string szRoot = szFolder + std::string("/root"), szSocket = szRoot + "/tmp/VernierLens";
  const pid_t iRun = Fork();
  if (iRun == 0) {
    const std::string szCamera = fs::read_symlink("/proc/self/exe").parent_path() / "simcamera";
    if (std::freopen("/dev/null", "w", stdout) == nullptr) Die("/dev/null");
    execl(szCamera.c_str(), "simcamera", "run", szRoot.c_str(), "--lens", "zoom", nullptr);
    Die(szCamera.c_str());
  }
  std::string szStatus;
  for (int i = 0; i < 300 && (szStatus = AskOnce(szSocket, szStatusRequest)).empty(); ++i) usleep(100'000);
  TWorld* ptWorld = World_Map(szRoot.c_str());
  if (szStatus.empty() || ptWorld == nullptr) Die("no camera");
  return {qwSeed, szRoot, szSocket, iRun, DaemonOf(szRoot), StartBare(szFolder, szStatus), ptWorld};
}

// The lens rests where the daemon believes it, and one daemon lived from the start to an orderly end.
bool End(const TSiege& tSiege) {
  bool bHeld = true;
  Command(tSiege, "function=stop");
  const TStatus aiStatus = AwaitIdle(tSiege);
  std::printf("\n| axis | believed | true | held |\n|---|---|---|---|\n");
  World_Lock(tSiege.ptWorld);
  Lens_Settle(&tSiege.ptWorld->tLens, World_Now_us(tSiege.ptWorld));
  for (const TAxisOfStop& tAxis : atStopAxis) {
    const double dTrue = Lens_TrueVirtual(&tSiege.ptWorld->tLens, 0, tAxis.eAxis);
    const double dBelieved = static_cast<double>(aiStatus[tAxis.dwKey]);
    bHeld = Row(tAxis.pszName, {dBelieved, dTrue}, std::abs(dTrue - dBelieved) < 1e-6) && bHeld;
  }
  World_Unlock(tSiege.ptWorld);
  kill(tSiege.iRun, SIGTERM);
  int iStatus = -1;
  waitpid(tSiege.iRun, &iStatus, 0);
  bHeld = bHeld && iStatus == 0 && DaemonOf(tSiege.szRoot) == tSiege.iDaemon;
  Kill(tSiege.tBare.iProcess);
  fs::remove_all(fs::path(tSiege.szRoot).parent_path());
  return bHeld;
}

// Requests of all kinds, as the shares draw them, until fnMore says no; each answer is judged.
struct TLoad {
  TResult tRate = {};
  u64 qwAsked = 0, qwAnswered = 0, qwWrong = 0;
};
TLoad Load(const TSiege& tSiege, u32 dwCommands, const std::function<bool(u64 qwAsked)>& fnMore) {
  const std::string szBare = "HTTP/1.1 400 Bad Request\r\n\r\n";
  const std::string szRefusal = "\r\nContent-length: 0\r\nConnection: close\r\n\r\n";
  std::vector<TKind> atKind = {
      {70'000, std::string(szStatusRequest), "", atStatus},
      {5000, "POST / HTTP/1.1\r\nContent-length: 18\r\n\r\nfunction=getstatus", "", atStatus},
      {10'000, Get("function=getparam&position=7"), "", atFocusValue},
      {1000, "nonsense\r\n\r\n", "HTTP/1.1 400 Bad Request" + szRefusal},
      {1000, "POST / HTTP/1.1\r\nContent-length: 4097\r\n\r\n", "HTTP/1.1 413 Payload Too Large" + szRefusal},
      {1000, Get(std::string(8192, 'x')), "HTTP/1.1 431 Request Header Fields Too Large" + szRefusal},
      {dwCommands, Get("function=zoom&direction=forward&steps=3"), szOK},
      {dwCommands, Get("function=focus&direction=backward&steps=30"), szOK},
  };
  for (const auto szOdd : aszOddRequests) atKind.push_back({2000, std::string(szOdd), szBare});
  std::vector<u32> adwShare;
  for (const TKind& tKind : atKind) adwShare.push_back(tKind.dwShare);
  std::mt19937_64 fnDraw(tSiege.qwSeed);
  std::discrete_distribution<std::size_t> tDraw(adwShare.begin(), adwShare.end());
  TLoad tLoad;
  const auto Next = [&] {
    if (!fnMore(tLoad.qwAsked)) return std::string_view();
    ++tLoad.qwAsked;
    return std::string_view(atKind[tDraw(fnDraw)].szRequest);
  };
  const auto Judge = [&](std::string_view szRequest, const std::string& szAnswer) {
    const auto IsOf = [&](const TKind& tKind) { return tKind.szRequest.data() == szRequest.data(); };
    const TKind& tKind = *std::find_if(atKind.begin(), atKind.end(), IsOf);
    ++tLoad.qwAnswered;
    if (tKind.atBody.empty() ? szAnswer == tKind.szAnswer : !Numbers(tKind.atBody, szAnswer).empty()) return;
    if (tLoad.qwWrong++ < 5) std::printf("\"%.80s\" was answered with \"%s\"\n", szRequest.data(), szAnswer.c_str());
  };
  tLoad.tRate = Clients_Run({tSiege.szSocket, dwLoadClients, Next, Judge});
  return tLoad;
}

// Resident KiB and descriptors of the daemon.
std::pair<double, double> Footprint(const TSiege& tSiege) {
  const std::string szProcess = "/proc/" + std::to_string(tSiege.iDaemon);
  double dResident_KiB = 0;
  std::ifstream tStatus(szProcess + "/status");
  for (std::string szWord; tStatus >> szWord;) {
    if (szWord == "VmRSS:") tStatus >> dResident_KiB;
  }
  return {dResident_KiB, static_cast<double>(std::distance(fs::directory_iterator(szProcess + "/fd"), {}))};
}

bool PlayLoad(const TSiege& tSiege, u64 qwRequests) {
  std::atomic<bool> bEnd = false;
  std::thread tDriver([&] {  // keeps the lens moving and focusing
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
  Load(tSiege, 10, [](u64 qwAsked) { return qwAsked < qwWarmUp; });
  const auto [dBefore_KiB, dBeforeOpen] = Footprint(tSiege);
  const TLoad tLoad = Load(tSiege, 10, [&](u64 qwAsked) { return qwAsked < qwRequests; });
  const auto [dAfter_KiB, dAfterOpen] = Footprint(tSiege);
  bEnd = true;
  tDriver.join();
  std::printf(
      "| | asked | answered | wrong | a second | p50, us | p99, us | resident before, KiB | after | descriptors before "
      "| after | held |\n"
      "|---|---|---|---|---|---|---|---|---|---|---|---|\n");
  return Row("load",
             {static_cast<double>(qwRequests), static_cast<double>(tLoad.qwAnswered),
              static_cast<double>(tLoad.qwWrong), tLoad.tRate.dPerSecond, tLoad.tRate.dMedian_us, tLoad.tRate.dP99_us,
              dBefore_KiB, dAfter_KiB, dBeforeOpen, dAfterOpen},
             tLoad.qwAnswered == qwRequests && tLoad.qwWrong == 0 && dAfterOpen <= dBeforeOpen &&
                 dAfter_KiB <= dBefore_KiB + dFlat_KiB);
}

// Camera time of the first MOTOR_STOP_WALK of an axis from then on; far in the future if there is none.
double StopWalk_us(const TSiege& tSiege, const TAxisOfStop& tAxis, double dFrom_us) {
  std::ifstream tTranscript(tSiege.szRoot + "/sim/transcript");
  const std::string szEvent = tAxis.pszName + std::string("motor MOTOR_STOP_WALK");
  for (std::string szLine; std::getline(tTranscript, szLine);) {
    const double dAt_us = std::strtod(szLine.c_str(), nullptr) * 1e6;
    if (dAt_us >= dFrom_us && szLine.find(szEvent) != std::string::npos) return dAt_us;
  }
  return dFrom_us + dNever_us;
}

// Stops a long move in the middle.  How long after the request was sent, and after its OK, the motor was stopped.
std::pair<double, double> StopOnce(const TSiege& tSiege, const TAxisOfStop& tAxis, std::chrono::microseconds tExtra) {
  const i64 iFrom = AwaitIdle(tSiege)[tAxis.dwKey];
  Move(tSiege, tAxis.pszName, iFrom > tAxis.iHigh / 2 ? tAxis.iLow : tAxis.iHigh);
  AwaitStatus(tSiege, [&](const TStatus& aiStatus) { return aiStatus[tAxis.dwKey] != iFrom; });
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
  std::thread tLoad([&] { Load(tSiege, 0, [&](u64) { return !bEnd; }); });
  std::vector<double> adOverrun_us;  // of a thread that does nothing but sleep, as a walk does
  std::thread tSleeper([&] {
    while (!bEnd) {
      const auto tStart = TClock::now();
      std::this_thread::sleep_for(4ms);
      adOverrun_us.push_back(Microseconds(TClock::now() - tStart - 4ms));
    }
  });
  std::vector<double> aadSent_us[2], aadAnswered_us[2];
  std::mt19937 fnDraw(1);
  for (u64 i = 0; i < qwStops; ++i) {
    const auto [dSent_us, dAnswered_us] =
        StopOnce(tSiege, atStopAxis[i % 2], std::chrono::microseconds(fnDraw() % 50'000));
    aadSent_us[i % 2].push_back(dSent_us);
    aadAnswered_us[i % 2].push_back(dAnswered_us);
  }
  bEnd = true;
  tLoad.join();
  tSleeper.join();
  std::printf(
      "\n| axis | stops | step, us | OK to stop, p50 | p99 | max | request to stop, p50 | p99 | max | overrun of a "
      "bare sleep, p99 | held |\n"
      "|---|---|---|---|---|---|---|---|---|---|---|\n");
  bool bHeld = true;
  for (std::size_t i = 0; i < 2; ++i) {
    std::vector<double>*padSent = &aadSent_us[i], *padAnswered = &aadAnswered_us[i];
    const double dStep_us = atStopAxis[i].dStep_us, dOverrun_us = At(&adOverrun_us, 0.99);
    const double dP50_us = At(padAnswered, 0.5), dP99_us = At(padAnswered, 0.99);
    bHeld = Row(atStopAxis[i].pszName,
                {static_cast<double>(padSent->size()), dStep_us, dP50_us, dP99_us, At(padAnswered, 1), At(padSent, 0.5),
                 At(padSent, 0.99), At(padSent, 1), dOverrun_us},
                dP50_us <= dStep_us && dP99_us <= dStep_us + dOverrun_us) &&
            bHeld;
  }
  return bHeld;
}

// p99 of a client that asks now and then; the best of the rounds, since other processes of the machine only add.
double QuietP99_us(const std::string& szSocket, u64 qwRounds) {
  double dBest_us = dNever_us;
  for (u64 i = 0; i < qwRounds; ++i) {
    std::vector<double> adWait_us;
    for (const auto tEnd = TClock::now() + 2s; adWait_us.size() < dwQuietAsks && TClock::now() < tEnd; usleep(500)) {
      const auto tStart = TClock::now();
      const bool bAnswered = !AskOnce(szSocket, szStatusRequest).empty();
      adWait_us.push_back(bAnswered ? Microseconds(TClock::now() - tStart) : dNever_us);
    }
    dBest_us = std::min(dBest_us, At(&adWait_us, 0.99));
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
    for (std::size_t i = 0; i < 2; ++i) {
      const std::string& szAsked = i == 0 ? tSiege.szSocket : tSiege.tBare.szPath;
      adQuiet_us[i] = QuietP99_us(szAsked, qwRounds);
      const pid_t iAttacker = Fork();
      if (iAttacker == 0) tAttack.fnAttack(tAttack.bBareToo ? szAsked : tSiege.szSocket);
      std::this_thread::sleep_for(1s);
      adAttacked_us[i] = QuietP99_us(szAsked, qwRounds);
      adRatio[i] = adAttacked_us[i] / adQuiet_us[i];
      Kill(iAttacker);
      Status(tSiege);
    }
    bHeld = Row(tAttack.pszName,
                {adQuiet_us[0], adAttacked_us[0], adRatio[0], tAttack.dRatioHeld, adQuiet_us[1], adAttacked_us[1],
                 adRatio[1]},
                adRatio[0] <= tAttack.dRatioHeld) &&
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
  const TSiege tSiege = Start(tOptions.qwSeed);
  bool bHeld = true;
  if (Campaign_IsWanted(tOptions, "load")) bHeld = PlayLoad(tSiege, qwRequests) && bHeld;
  if (Campaign_IsWanted(tOptions, "stop")) bHeld = PlayStops(tSiege, qwStops) && bHeld;
  if (Campaign_IsWanted(tOptions, "attack")) bHeld = PlayAttacks(tSiege, qwRounds) && bHeld;
  return End(tSiege) && bHeld ? 0 : 1;
}
