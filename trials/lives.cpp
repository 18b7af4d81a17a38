#include "lives.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <map>

#include "clock/clock.h"
#include "core/daemon/entry.h"
#include "core/paths.h"
#include "judge.h"
#include "world/world_image.h"

namespace {

constexpr u64 qwAnswer_us = 1'000'000 + 10'000;  // the daemon waits a second for the rest of a frame
constexpr u32 dwSlowestSync_us = 200'000;
constexpr u64 qwToExit_us = 5'000'000;
constexpr u64 qwHang_ms = 700'000;  // after SIGTERM: longer than the daemon itself waits for its threads
constexpr i32 iDescriptorsLeft = 97;

u32 OpenDescriptors() {
  constexpr i32 iHighest = 1024;
  u32 dwOpen = 0;
  for (i32 fd = 0; fd < iHighest; fd++) dwOpen += syscall(SYS_fcntl, fd, F_GETFD) >= 0 ? 1 : 0;
  return dwOpen;
}

i32 LiveAndCount(TWorld*) {
  char szName[] = "vernierlensd";
  char* apszArgs[] = {szName, nullptr};
  const u32 dwBefore = OpenDescriptors();
  const i32 iStatus = VernierLensd_Main(1, apszArgs);
  return iStatus == 0 && OpenDescriptors() != dwBefore ? iDescriptorsLeft : iStatus;
}

i32 LiveUnread(TWorld* ptWorld) {
  FillLog();
  return LiveAndCount(ptWorld);
}

// Whether clients have left a recovery undone, so that its mark stands until the next start.  A stop and a motor reset
// do so, and so does an interrupted move.  A command that was overwritten before its thread took it does not.
struct TRecoveryLeft {
  bool bLeft = false, bLeftBefore = false;  // now; before the last command
  bool bMoves = false;                      // the last command moves, without a search
  bool bMayBreak = false;                   // a command that does not walk came soon after it
  u64 qwLast_us = 0;                        // time of the last command

  // Takes in a line of the log.
  void Read(const TLensModel& tModel, u64 qwAt_us, std::string_view sLine);
};

bool HasOneOf(std::string_view sLine, std::initializer_list<const char*> aszWords) {
  return std::ranges::any_of(aszWords,
                             [&](const char* szWord) { return sLine.find(szWord) != std::string_view::npos; });
}

void TRecoveryLeft::Read(const TLensModel& tModel, u64 qwAt_us, std::string_view sLine) {
  if (bMayBreak && HasOneOf(sLine, {"Operation interrupted!"})) bLeft = true;
  if (!HasOneOf(sLine, {"Command string: ", "Receive FIFO command: "})) return;
  if (HasOneOf(sLine, {"<channel>7<", "<afbutton>pressed"})) return;  // the first is refused, the second only noted
  const u64 qwLongest_us = 2 * Story_Walk_us(tModel, LENS_ZOOM) + 3 * Story_Walk_us(tModel, LENS_FOCUS) + 5'000'000;
  const bool bClose = qwAt_us < qwLast_us + qwLongest_us;
  const bool bZoomReleased = HasOneOf(sLine, {"<zoominbutton>released", "<zoomoutbutton>released"});
  if (bZoomReleased || HasOneOf(sLine, {"=irisopen", "=irisenable", "=setfocusdefault"})) {
    bLeft = bLeft || (bClose && bLeftBefore);
    bMayBreak = bClose && bMoves && !bZoomReleased;
    return;
  }
  const bool bStops = HasOneOf(sLine, {"=stop", "=motorreset"});
  // On a lens without zoom the button and the restore may be a reset, which moves to the default position.
  const bool bEvent = HasOneOf(sLine, {"<afbutton>released", ">falling<"});
  const bool bSearches = HasOneOf(sLine, {"=auto", "=scan", "=positioning"}) || (bEvent && Model_HasZoom(tModel));
  const bool bZooms = Model_HasZoom(tModel) && HasOneOf(sLine, {"=zoom", "button>pressed<"});
  const bool bWalks = bZooms || bEvent || HasOneOf(sLine, {"=focus", "=resetfocus", ">rising<"});
  if (!bStops && !bSearches && !bWalks) return;
  bLeftBefore = bLeft || (bClose && bLeftBefore);
  bLeft = bStops;
  bMoves = bWalks && !bSearches;
  bMayBreak = false;
  qwLast_us = qwAt_us;
}

// What a transcript tells.  Times are of the camera's clock, qwNever_us for what did not happen.
struct TTold {
  std::map<u32, u64> mapAsked_us, mapAnswered_us;  // by number of the request
  u64 qwLoop_us = qwNever_us;                      // the main loop is seen to run
  u64 qwSignal_us = qwNever_us;                    // the first SIGTERM or SIGINT
  u64 qwSensors_us = qwNever_us;                   // all channels have been at their sensors
  u64 aqwBusy_us[LENS_AXES] = {};                  // the last request to a driver; the end of the walk, if it is one
  bool abWaits[LENS_AXES] = {};                    // the axis waits for its turn at the sensors
  bool bNotSaved = false;                          // a save failed, or a sensor was not found
  bool bRecovers = false;                          // it recovers from a power loss
  u64 qwLastWalk_us = 0;                           // the last request to a motor to walk
  u64 aqwLongest[LENS_AXES] = {};                  // driver steps of the longest walk asked for
  TRecoveryLeft tRecoveryLeft;
  bool abToReference[LENS_AXES] = {};  // the last walk asked for goes to the reference
};

// A walk is taken to last as long as the daemon allows for it.
void ReadRequest(const TLensModel& tModel, ELensAxis eAxis, u64 qwAt_us, std::string_view sRequest, TTold& tTold) {
  constexpr std::string_view sWalk = "MOTOR_WALK_STEPS ", sWatchingWalk = "MOTOR_CHECK_PI_WALK_STEPS ";
  const TAxisSheet& tSheet = Model_Sheet(tModel, eAxis);
  u64 qwUntil_us = qwAt_us;
  if (sRequest.starts_with("MOTOR_WALK_STEPS") || sRequest.starts_with(sWatchingWalk)) {
    tTold.qwLastWalk_us = qwAt_us;
    const u64 qwAsked = std::strtoull(sRequest.data() + sRequest.find(' '), nullptr, 10);
    tTold.aqwLongest[eAxis] = std::max(tTold.aqwLongest[eAxis], qwAsked);
    if (qwAsked != 0) tTold.abToReference[eAxis] = qwAsked == tSheet.dwPositioningStep;
  }
  if (sRequest.starts_with(sWalk) && tSheet.dwOneStep != 0) {
    constexpr u32 dwMeanOverrun_us = 100;  // of the sleep for each virtual step
    const u64 qwSteps = std::strtoull(sRequest.data() + sWalk.size(), nullptr, 10);
    qwUntil_us += qwSteps * (tSheet.dwOneStepTime_us + dwMeanOverrun_us) / tSheet.dwOneStep;
  }
  const bool bStopped = sRequest.starts_with("MOTOR_STOP_WALK");
  tTold.aqwBusy_us[eAxis] = bStopped ? qwAt_us : std::max(qwUntil_us, tTold.aqwBusy_us[eAxis]);
}

void ReadEvent(const TLensModel& tModel, u64 qwAt_us, bool bMain, std::string_view sEvent, TTold& tTold) {
  const auto Begins = [&](std::string_view sWord) { return sEvent.starts_with(sWord); };
  const auto Has = [&](std::string_view sWord) { return sEvent.find(sWord) != std::string_view::npos; };
  const auto Argument = [&] { return std::strtoul(sEvent.data() + sEvent.find(' '), nullptr, 10); };
  if (Begins("request ")) tTold.mapAsked_us[static_cast<u32>(Argument())] = qwAt_us;
  if (Begins("reply ")) tTold.mapAnswered_us[static_cast<u32>(Argument())] = qwAt_us;
  if (bMain && (Begins("select ") || Has("select timeout"))) tTold.qwLoop_us = std::min(tTold.qwLoop_us, qwAt_us);
  if (Begins("signal ") && (Argument() == SIGTERM || Argument() == SIGINT)) {
    tTold.qwSignal_us = std::min(tTold.qwSignal_us, qwAt_us);
  }
  if (Has("MOTOR_SET_PI_POWER_OFF!")) tTold.qwSensors_us = std::min(tTold.qwSensors_us, qwAt_us);
  if (HasOneOf(sEvent, {"SaveConfigFile failed", "LogFile failed", "search PI fail", "waiting too long"}))
    tTold.bNotSaved = true;
  if (Has("Power loss unexpectedly!")) tTold.bRecovers = true;
  tTold.tRecoveryLeft.Read(tModel, qwAt_us, sEvent);
  // An axis that waited for its turn until the end has not begun its search.
  const ELensAxis eSearching = Has("Zoom") ? LENS_ZOOM : LENS_FOCUS;
  if (Has(" waiting for search PI.")) tTold.abWaits[eSearching] = true;
  if (Has(" searching PI.")) tTold.abWaits[eSearching] = false;
  constexpr std::string_view asDevices[LENS_AXES] = {"zoommotor ", "focusmotor "};
  for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
    if (Begins(asDevices[eAxis])) ReadRequest(tModel, eAxis, qwAt_us, sEvent.substr(asDevices[eAxis].size()), tTold);
  }
  if (Begins("icsdriver ")) tTold.aqwBusy_us[LENS_ZOOM] = qwAt_us;
}

// A line is "seconds.micros thread event".
TTold Read(const TLensModel& tModel, const std::string& sTranscript) {
  constexpr std::size_t dwThreadColumn = 7;  // characters, its blanks among them
  TTold tTold;
  for (std::size_t dwAt = 0; dwAt < sTranscript.size();) {
    const std::size_t dwEnd = std::min(sTranscript.find('\n', dwAt), sTranscript.size());
    char* pc = nullptr;
    const u64 qwSeconds = std::strtoull(sTranscript.c_str() + dwAt, &pc, 10);
    const u64 qwMicros = std::strtoull(pc + 1, &pc, 10);
    const bool bMain = std::strncmp(pc, " main ", 6) == 0;
    const std::size_t dwEvent = static_cast<std::size_t>(pc - sTranscript.c_str()) + dwThreadColumn;
    const std::string_view sLine = std::string_view(sTranscript).substr(0, dwEnd);
    if (dwEvent < dwEnd) ReadEvent(tModel, qwSeconds * 1'000'000 + qwMicros, bMain, sLine.substr(dwEvent), tTold);
    dwAt = dwEnd + 1;
  }
  return tTold;
}

struct TLived {
  const TCamera& tCamera;
  const TLensModel& tModel;
  TStory tStory = {};
  bool bRests = false;            // it ends only when all is at rest
  bool bDamaged = false;          // its saved positions were damaged before the start
  bool bUnread = false;           // its log is not read
  std::size_t dwFirstStatus = 0;  // number of the request for channel 0's status at rest
  TLifeResult tResult = {};
  u64 qwStarted_us = 0, qwEnded_us = 0;  // camera's clock
  TTold tTold = {};
};

std::string WhyNotOrderly(const TLived& tLived) {
  const TLifeResult& tResult = tLived.tResult;
  if (tResult.eEnd == LIFE_CUT) return "";
  if (tResult.eEnd == LIFE_EXITED && tResult.iStatus == iDescriptorsLeft) return "descriptors are left open";
  return tResult.bTranscriptWhole ? Judge_Order(tResult) : "the transcript is not whole";
}

// For a client that came before the main loop ran, the time counts from the loop's beginning.
std::string WhyUnanswered(const TLived& tLived, TLivesOutcome& tOutcome) {
  const TTold& tTold = tLived.tTold;
  const u64 qwEnd_us = std::min(tTold.qwSignal_us, tLived.qwEnded_us);
  for (const auto& [dwNumber, qwAsked_us] : tTold.mapAsked_us) {
    const auto it = tTold.mapAnswered_us.find(dwNumber);
    const std::string sWho = "client " + std::to_string(dwNumber);
    if (it == tTold.mapAnswered_us.end() && tLived.bRests && tLived.tResult.eEnd == LIFE_EXITED)
      return sWho + " has no answer";
    if (tTold.qwLoop_us == qwNever_us || (tLived.tStory.dwSpoiled & SPOILS_ANSWERS) != 0) continue;
    const u64 qwFrom_us = std::max(qwAsked_us, tTold.qwLoop_us);
    if (qwFrom_us + qwAnswer_us >= qwEnd_us) continue;
    if (it == tTold.mapAnswered_us.end()) return sWho + " has no answer";
    const u64 qwTook_us = it->second - std::min(qwFrom_us, it->second);
    tOutcome.qwAnswers++;
    tOutcome.qwSlowest_us = std::max(tOutcome.qwSlowest_us, qwTook_us);
    if (qwTook_us > qwAnswer_us) return sWho + " was answered after " + std::to_string(qwTook_us) + " us";
  }
  return "";
}

std::string WhyEndedLate(const TLived& tLived, TLivesOutcome& tOutcome) {
  const TTold& tTold = tLived.tTold;
  if (tLived.tResult.eEnd != LIFE_EXITED) return "";
  const u64 qwFrom_us = std::max({tTold.qwSignal_us, tTold.aqwBusy_us[LENS_ZOOM], tTold.aqwBusy_us[LENS_FOCUS]});
  const u64 qwTook_us = tLived.qwEnded_us - std::min(qwFrom_us, tLived.qwEnded_us);
  tOutcome.qwLongestEnd_us = std::max(tOutcome.qwLongestEnd_us, qwTook_us);
  // The driver of an ICS lens finishes a move by itself: the requests do not show how long that takes.
  const bool bICS = Model_IsICS(tLived.tModel);
  const u64 qwMoves_us = Story_Walk_us(tLived.tModel, LENS_ZOOM) + Story_Walk_us(tLived.tModel, LENS_FOCUS);
  const u64 qwMay_us = qwToExit_us + (bICS ? 2 * qwMoves_us : 0);
  return qwTook_us <= qwMay_us ? "" : "ended " + std::to_string(qwTook_us) + " us after the last walk";
}

// No walk may be much longer than the longest one that makes sense on the lens.
std::string WhyRunaway(const TLived& tLived) {
  for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
    const TAxisSheet& tSheet = Model_Sheet(tLived.tModel, eAxis);
    const u64 qwRange = u64{tSheet.dwEnd + 2 * tSheet.dwAdjustStep} * tSheet.dwOneStep;
    const u64 qwMost = 2 * std::max<u64>({qwRange, tSheet.dwPositioningStep, tSheet.dwPISearchStep});
    const u64 qwAsked = tLived.tTold.aqwLongest[eAxis];
    if (Model_IsICS(tLived.tModel) || qwAsked <= qwMost) continue;
    return Judge_Name(eAxis) + " was asked for " + std::to_string(qwAsked) + " driver steps";
  }
  return "";
}

std::string WhyNotAtRest(const TLived& tLived) {
  if (!tLived.bRests || tLived.tResult.eEnd != LIFE_EXITED) return "";
  const u32 dwSpoiled = tLived.tStory.dwSpoiled;
  if (tLived.tTold.qwSignal_us == qwNever_us) return "it ended by itself";
  for (i32 i = 0; i < tLived.tModel.iChannels; i++) {
    const std::string& sStatus = tLived.tResult.asReplies[tLived.dwFirstStatus + static_cast<std::size_t>(i)];
    for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
      if (!Model_HasAxis(tLived.tModel, eAxis)) continue;
      // A search that ends because the driver has refused a walk keeps its function code too.
      const bool bRefused = tLived.tResult.sTranscript.find("is not known any more") != std::string::npos;
      const bool bWord = eAxis == LENS_ZOOM || ((dwSpoiled & SPOILS_WORD) == 0 && !bRefused);
      std::string sWhy = bWord ? Judge_Idle(sStatus, eAxis) : "";
      const bool bTruth = sWhy.empty() && (dwSpoiled & (SPOILS_TRUTH | SPOILS_DRIVER)) == 0;
      if (bTruth) sWhy = Judge_Belief(sStatus, eAxis, tLived.tCamera.Truth(eAxis, i));
      if (!sWhy.empty()) return "channel " + std::to_string(i) + ": " + sWhy;
    }
  }
  return "";
}

// The status and the block must agree about the iris.  Judged on one channel only: the status has one value for all.
// Judged in a first life only: a life that was killed leaves its request in the block.
std::string WhyIrisWrong(const TLived& tLived) {
  const TLensModel& tModel = tLived.tModel;
  if (!tLived.bRests || tLived.tResult.eEnd != LIFE_EXITED || tModel.iChannels > 1) return "";
  if (!Model_HasFocus(tModel)) return "";
  const i32 iSaid = StatusValue(tLived.tResult.asReplies[tLived.dwFirstStatus], "iris_open");
  const u32 dwAsked = Judge_Published(tLived.tCamera, BLOCK_IRIS_REQUEST, 0);
  if (iSaid == static_cast<i32>(dwAsked)) return "";
  return "the status says iris " + std::to_string(iSaid) + ", the image side was asked for " + std::to_string(dwAsked);
}

std::string WhyNotSharp(const TLived& tLived) {
  const TSearchSheet& tSearch = tLived.tModel.tSearch;
  const u32 dwStep = tSearch.bFineTuning != 0 ? tSearch.dwStepFine : tSearch.dwStepSmall;
  const double dSlack = static_cast<double>(tLived.tModel.tFocus.iSlack) / tLived.tModel.tFocus.dwOneStep;
  return Judge_Sharpness(tLived.tCamera, dwStep * 0.75 + 1.5 + dSlack);
}

// The last act's promise must have been kept.
std::string WhyNotKept(const TLived& tLived) {
  const TPromise& tPromise = tLived.tStory.tPromise;
  if (!tLived.bRests || tLived.tResult.eEnd != LIFE_EXITED || tPromise.szWhat[0] == '\0') return "";
  const std::string sAfter = std::string(" after ") + tPromise.szWhat;
  const std::string& sStatus = tLived.tResult.asReplies[tLived.dwFirstStatus];
  for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
    const i64 llWanted = eAxis == LENS_ZOOM ? tPromise.llZoom : tPromise.llFocus;
    const i32 iPosition = StatusValue(sStatus, Judge_Name(eAxis) + "_motor");
    if (llWanted == -1 || llWanted == iPosition) continue;
    return Judge_Name(eAxis) + " at " + std::to_string(iPosition) + sAfter + ", wanted " + std::to_string(llWanted);
  }
  const i32 iDefault = std::atoi(tLived.tCamera.Read(szFocusDefaultPath).c_str());
  if (tPromise.llDefault != -1 && tPromise.llDefault != iDefault) {
    return "focus default " + std::to_string(iDefault) + sAfter + ", wanted " + std::to_string(tPromise.llDefault);
  }
  const u64 qwNoWalk_us = tPromise.qwNoWalkAfter_us;
  if (qwNoWalk_us != 0 && tLived.tTold.qwLastWalk_us > tLived.qwStarted_us + qwNoWalk_us) return "a walk" + sAfter;
  const std::string sWhy = tPromise.bSharp ? WhyNotSharp(tLived) : "";
  return sWhy.empty() ? "" : sWhy + sAfter;
}

// Whether the one set of positions on flash is the true one of this channel.
bool IsSaved(const TLived& tLived, i32 iChannel) {
  const TLensModel& tModel = tLived.tModel;
  const std::string sSaved = tLived.tCamera.Read(Model_IsICS(tModel) ? szICSPositionsPath : szPositionsPath);
  for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
    const std::string sName = eAxis == LENS_ZOOM ? "zoom_motor=" : "focus_motor=";
    const std::size_t dwAt = sSaved.find(sName);
    if (!Model_HasAxis(tModel, eAxis)) continue;
    if (dwAt == std::string::npos) return false;
    if (std::atoi(sSaved.c_str() + dwAt + sName.size()) != tLived.tCamera.Truth(eAxis, iChannel)) return false;
  }
  return true;
}

// On several channels the first move of a channel whose reference is in doubt begins with a walk to the reference.  If
// the signal comes during that walk, the move itself never begins, and the lens stays at the reference.
bool IsLeftAtReference(const TLived& tLived, ELensAxis eAxis) {
  const TTold& tTold = tLived.tTold;
  return tLived.tModel.iChannels > 1 && Model_Sheet(tLived.tModel, eAxis).bPISupport == 0 &&
         tTold.abToReference[eAxis] && tTold.qwSignal_us <= tTold.aqwBusy_us[eAxis];
}

// The saved positions must be true, unless the next start finds the lens by a working log, or by its sensors.
std::string WhySavedWrong(const TLived& tLived) {
  const TCamera& tCamera = tLived.tCamera;
  constexpr u32 dwMayBeFalse = SPOILS_TRUTH | SPOILS_FLASH | SPOILS_DRIVER;
  if (tLived.tResult.eEnd != LIFE_EXITED || (tLived.tStory.dwSpoiled & dwMayBeFalse) != 0) return "";
  for (const char* szLog : {szZoomLogPath, szFocusLogPath}) {
    if (access(tCamera.Path(szLog).c_str(), F_OK) != 0) continue;
    const TTold& tTold = tLived.tTold;
    // A command can come before the recovery has reached all channels: the others are found at their next command.
    const bool bUnfinished = !tLived.bRests || tLived.tModel.iChannels > 1 || tTold.tRecoveryLeft.bLeft;
    const bool bRecovers = tTold.bRecovers && bUnfinished;
    const bool bMayStay = tTold.bNotSaved || bRecovers || tTold.abWaits[LENS_ZOOM] || tTold.abWaits[LENS_FOCUS] ||
                          IsLeftAtReference(tLived, szLog == szZoomLogPath ? LENS_ZOOM : LENS_FOCUS);
    return bMayStay ? "" : "a working log stands";
  }
  if (tLived.tModel.iChannels > 1 && tLived.tTold.qwSensors_us > tLived.tTold.qwSignal_us) return "";
  // The driver of an ICS lens knows the position, so a damaged file does no harm and stays until the next save.
  bool bSaved = tLived.bDamaged && Model_IsICS(tLived.tModel) &&
                tLived.tResult.sTranscript.find(std::string(" ") + szICSPositionsPath + "\n") == std::string::npos;
  for (i32 i = 0; i < tLived.tModel.iChannels; i++) {
    bSaved = bSaved || IsSaved(tLived, i);
    for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
      const u32 dwLeft = Judge_PublishedPlace(tCamera, eAxis, i);
      if (!Model_HasAxis(tLived.tModel, eAxis) || dwLeft == tCamera.Truth(eAxis, i)) continue;
      return Judge_Name(eAxis) + " of channel " + std::to_string(i) + " left at " + std::to_string(dwLeft) + ", true " +
             std::to_string(tCamera.Truth(eAxis, i));
    }
  }
  return bSaved ? "" : "the saved positions are not true";
}

void Judge(TLived& tLived, TLivesOutcome& tOutcome) {
  std::string& sLoss = tOutcome.sLoss;
  sLoss = WhyNotOrderly(tLived);
  if (sLoss.empty()) sLoss = WhyUnanswered(tLived, tOutcome);
  if (sLoss.empty()) sLoss = WhyEndedLate(tLived, tOutcome);
  if (sLoss.empty()) sLoss = WhyRunaway(tLived);
  if (sLoss.empty()) sLoss = WhyNotAtRest(tLived);
  if (sLoss.empty()) sLoss = WhySavedWrong(tLived);
  if (sLoss.empty()) sLoss = WhyNotKept(tLived);
  if (!sLoss.empty()) tOutcome.sTale = tLived.tResult.sTranscript;
}

void Hang(TWorld*) {
  Clock_End(CLOCK_END_STOOD_STILL, "the daemon does not end");
}

// A transcript without the printed lines.
std::string WithoutPrints(const std::string& sTranscript) {
  std::string sRest;
  for (std::size_t dwAt = 0; dwAt < sTranscript.size();) {
    const std::size_t dwEnd = std::min(sTranscript.find('\n', dwAt), sTranscript.size() - 1) + 1;
    const std::string_view sLine = std::string_view(sTranscript).substr(dwAt, dwEnd - dwAt);
    if (sLine.find(" print ") == std::string_view::npos) sRest += sLine;
    dwAt = dwEnd;
  }
  return sRest;
}

// Runs the life until SIGTERM at qwSignal_ms.  With 0 it goes on until all is at rest.
void Live(TLived& tLived, u64 qwSeed, u64 qwSignal_ms, u64 qwCutAtEvent) {
  TLifePlan tPlan{.sRoot = tLived.tCamera.sRoot,
                  .qwSeed = qwSeed,
                  .atEvents = tLived.tStory.atEvents,
                  .qwCutAtEvent = qwCutAtEvent,
                  .fnBody = tLived.bUnread ? LiveUnread : LiveAndCount};
  const u64 qwRest_ms = tLived.tStory.qwBusy_ms + Story_Quiet_ms(tLived.tModel);
  tLived.bRests = qwSignal_ms == 0;
  tLived.dwFirstStatus =
      static_cast<std::size_t>(std::ranges::count(tPlan.atEvents, TLifeEvent::REQUEST, &TLifeEvent::eKind));
  AskEachStatus(tPlan.atEvents, qwRest_ms, tLived.tModel.iChannels);
  const u64 qwEnd_ms = tLived.bRests ? qwRest_ms + 2000 : qwSignal_ms;
  tPlan.qwEnd_us = qwEnd_ms * 1000;
  tPlan.atEvents.push_back(Call(qwEnd_ms + qwHang_ms, Hang));
  tLived.qwStarted_us = NextStart_us(tPlan.sRoot);
  tLived.tResult = Life_Run(tPlan);
  tLived.qwEnded_us = tLived.qwStarted_us + tLived.tResult.qwTime_us;
  tLived.tTold = Read(tLived.tModel, tLived.tResult.sTranscript);
}

void SetSlowestSync(const TCamera& tCamera, u32 dwSlowest_us) {
  ChangeWorld(tCamera, [=](TWorld& tWorld) { tWorld.dwSlowestSync_us = dwSlowest_us; });
}

// Runs the first of two lives.  The second one continues with tDraw.
TLived LiveFirst(const TCamera& tCamera, const TLensModel& tModel, u64 qwSeed, bool bUnread, TDraw& tDraw,
                 ELivesEnd& eEnd) {
  constexpr u64 qwShortest_ms = 60'000, qwLongest_ms = 240'000;
  constexpr u64 qwCutRanges = 10;  // ranges of events: 32, 64, up to 16384
  if (Life_ResetRoot(tCamera.sRoot) != 0) std::abort();
  tCamera.Write(szBackupPath, szBackupText);
  TLived tFirst{.tCamera = tCamera, .tModel = tModel, .bUnread = bUnread};
  const u64 qwBusy_ms = qwShortest_ms + tDraw.Below(qwLongest_ms - qwShortest_ms);
  tFirst.tStory = Story_Draw(tCamera, tModel, tDraw, qwBusy_ms, 5 + static_cast<u32>(tDraw.Below(21)), true);
  eEnd = static_cast<ELivesEnd>(tDraw.Below(LIVES_ENDS));
  if (eEnd == ENDED_AT_REST) Story_AddLastAct(tCamera, tModel, tDraw, tFirst.tStory);
  if (Story_IsShared(tModel)) tFirst.tStory.dwSpoiled |= SPOILS_TRUTH;
  SetSlowestSync(tCamera, tDraw.OneIn(2) ? 0 : dwSlowestSync_us);
  const u64 qwSignal_ms = 1 + tFirst.tStory.DrawTime_ms(tDraw);
  const u64 qwCut = 1 + tDraw.Below(u64{32} << tDraw.Below(qwCutRanges));
  if (eEnd == ENDED_BY_SIGNAL && tDraw.OneIn(4)) {
    tFirst.tStory.atEvents.push_back(Signal(qwSignal_ms + tDraw.Below(300), SIGINT));
  }
  Live(tFirst, qwSeed, eEnd == ENDED_BY_SIGNAL ? qwSignal_ms : 0, eEnd == ENDED_BY_CUT ? qwCut : 0);
  return tFirst;
}

}  // namespace

TLivesOutcome Lives_Try(const TCamera& tCamera, const TLensModel& tModel, u64 qwSeed) {
  constexpr u64 qwNext_ms = 30'000;
  constexpr u64 qwUnreadIn = 4;  // one seed in so many has an unread log
  TDraw tDraw(qwSeed);
  TLivesOutcome tOutcome;
  std::string sUnread;
  if (qwSeed % qwUnreadIn == 0) {
    TDraw tSameDraw(qwSeed);
    sUnread = LiveFirst(tCamera, tModel, qwSeed, true, tSameDraw, tOutcome.eEnd).tResult.sTranscript;
  }
  TLived tFirst = LiveFirst(tCamera, tModel, qwSeed, false, tDraw, tOutcome.eEnd);
  Judge(tFirst, tOutcome);
  if (tOutcome.sLoss.empty()) tOutcome.sLoss = WhyIrisWrong(tFirst);
  const bool bSame = sUnread.empty() || WithoutPrints(sUnread) == WithoutPrints(tFirst.tResult.sTranscript);
  if (tOutcome.sLoss.empty() && !bSame) {
    tOutcome.sLoss = "another life when nobody reads the log";
    tOutcome.sTale = sUnread + "--- with a log that is read\n" + tFirst.tResult.sTranscript;
  }
  const bool bRestEnds = tOutcome.eEnd == ENDED_AT_REST && (tFirst.tStory.dwSpoiled & SPOILS_DRIVER) == 0;
  if (!tOutcome.sLoss.empty() || bRestEnds) return tOutcome;

  Story_HealFaults(tCamera.sRoot);
  TLived tNext{.tCamera = tCamera, .tModel = tModel};
  tNext.tStory = Story_Draw(tCamera, tModel, tDraw, qwNext_ms, static_cast<u32>(tDraw.Below(8)), false);
  // Only after a signal: a power cut damages files by itself.
  tNext.bDamaged = tOutcome.eEnd == ENDED_BY_SIGNAL && tDraw.OneIn(4);
  if (tNext.bDamaged) Story_DamageSaved(tCamera, tModel, tDraw);
  // One set of positions is saved for all channels: without sensors the next life finds a channel at its first move.
  if (Story_IsShared(tModel) || (tModel.iChannels > 1 && !Story_StartFindsAll(tModel)))
    tNext.tStory.dwSpoiled |= SPOILS_TRUTH;
  const bool bFalse = (tFirst.tStory.dwSpoiled & (SPOILS_TRUTH | SPOILS_FLASH)) != 0;
  if (bFalse && !Story_StartFindsAll(tModel)) tNext.tStory.dwSpoiled |= SPOILS_TRUTH;
  Live(tNext, qwSeed + 1, 0, 0);
  Judge(tNext, tOutcome);
  if (!tOutcome.sLoss.empty()) tOutcome.sLoss = "in the next life: " + tOutcome.sLoss;
  if (!tOutcome.sLoss.empty()) tOutcome.sTale = tFirst.tResult.sTranscript + "--- next life\n" + tOutcome.sTale;
  return tOutcome;
}
