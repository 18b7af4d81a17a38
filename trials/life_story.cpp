#include "life_story.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <span>

#include "core/paths.h"
#include "hooks/hooks.h"
#include "judge.h"
#include "motor/motor_device.h"

namespace {

constexpr u64 qwMoment_ms = 6000;
constexpr u64 qwMaxFault_ms = 60'000;  // longest fault of those that end by themselves

std::string Number(u64 qw) {
  return std::to_string(qw);
}

std::string OddQuery(TDraw& tDraw) {
  const std::string asQueries[] = {"",
                                   "&&&",
                                   "function=",
                                   "function=nothing",
                                   "channel=&function=stop",
                                   "channel=-1&function=stop",
                                   "channel=9&function=zoom&steps=3",
                                   "function=zoom&channel=0",
                                   "function=zoom&direction=sideways&steps=3",
                                   "function=zoom&direction=direct&position=99999999999",
                                   "function=focus&direction=direct&position=-5",
                                   "function=focus&direction=direct&position=4294967295",
                                   "function=focus&direction=forward&steps=-2147483648",
                                   "function=zoom&direction=direct",
                                   "function=getparam&position=-1",
                                   "function=setfocusdefault&defaultposition=%n%s",
                                   "function=stop&" + std::string(9000, 'x')};
  return asQueries[tDraw.Below(std::size(asQueries))];
}

// Half of the queries come soon after the one before, or soon after the start if they are the first.
void AddQueries(const TLensModel& tModel, TDraw& tDraw, u32 dwQueries, TStory& tStory) {
  u64 qwAt_ms = 0;
  for (u32 dw = 0; dw < dwQueries; dw++) {
    const u64 qwGap_ms = tDraw.Below(u64{1} << tDraw.Below(10));
    qwAt_ms = tDraw.OneIn(2) ? std::min(qwAt_ms + qwGap_ms, tStory.qwBusy_ms) : tStory.DrawTime_ms(tDraw);
    if (dw == 0 && tDraw.OneIn(4)) qwAt_ms = 0;  // before a recovery has begun
    const u64 qwChannel = tDraw.Below(static_cast<u64>(tModel.iChannels) + 1);
    const std::string sChannel = tDraw.OneIn(2) ? "channel=" + Number(qwChannel) + "&" : "";
    TLifeEvent tAsk = Ask(qwAt_ms, tDraw.OneIn(5) ? OddQuery(tDraw) : sChannel + Story_DrawQuery(tModel, tDraw));
    if (tDraw.OneIn(2)) tAsk.qwAt_us += tDraw.Below(1000);
    if (tDraw.OneIn(5)) tAsk.sMethod = "POST";
    tStory.atEvents.push_back(tAsk);
    if (!tDraw.OneIn(5)) continue;
    const u64 qwStop_ms = qwAt_ms + tDraw.Below(u64{1} << tDraw.Below(9));
    tStory.atEvents.push_back(Ask(std::min(qwStop_ms, tStory.qwBusy_ms), sChannel + "function=stop"));
  }
}

// Writes bytes into the FIFO, if the daemon has it open.
TLifeEvent Bytes(u64 qwAt_ms, const TCamera& tCamera, std::string sBytes) {
  return Call(qwAt_ms, [sPath = tCamera.Path(szFIFOPath), sBytes = std::move(sBytes)](TWorld*) {
    const int fd = open(sPath.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return;
    if (write(fd, sBytes.data(), sBytes.size()) < 0) std::abort();
    close(fd);
  });
}

std::string Button(const std::string& sChannel, const std::string& sButton, const std::string& sText) {
  return EventFrame("<message>" + sChannel + "<" + sButton + ">" + sText + "</" + sButton + "></message>");
}

// A focus reset selects no channel: on a focus lens of several channels it moves the motor that was selected last.
bool ResetsAnyChannel(const TLensModel& tModel) {
  return tModel.iChannels > 1 && tModel.dwCapability == CAPABILITY_FOCUS_ONLY;
}

std::string OddBytes(TDraw& tDraw) {
  using std::string_literals::operator""s;
  const std::string asBytes[] = {"\x01\x01\x00\x20"s,
                                 "\x01\x01\x00\x20<message>"s,
                                 "\x01"s,
                                 "\x02\x01\x00\x02<>"s,
                                 "\x01\x01\x04\x00"s + std::string(1024, '<'),
                                 EventFrame(""),
                                 EventFrame("no xml"),
                                 EventFrame("<message><zoominbutton>hit</zoominbutton></message>"),
                                 EventFrame("<message><door>open</door></message>"),
                                 EventFrame("<message><channel>7</channel><afbutton>pressed</afbutton></message>")};
  return asBytes[tDraw.Below(std::size(asBytes))];
}

// One use of a button: pressed, sometimes pressed again or another one pressed too, and released.
void AddPress(const TCamera& tCamera, const TLensModel& tModel, TDraw& tDraw, TStory& tStory) {
  constexpr u64 aqwHeld_ms[] = {1, 150, 900, 2500, 6000};
  const char* const aszButtons[] = {"zoominbutton", "zoomoutbutton",
                                    ResetsAnyChannel(tModel) ? "zoominbutton" : "afbutton"};
  const u64 qwAt_ms = tStory.DrawTime_ms(tDraw);
  const u64 qwHeld_ms = aqwHeld_ms[tDraw.Below(std::size(aqwHeld_ms))];
  const std::string sButton = aszButtons[tDraw.Below(std::size(aszButtons))];
  const u64 qwChannel = tDraw.Below(static_cast<u64>(tModel.iChannels));
  const std::string sChannel = tDraw.OneIn(2) ? "<channel>" + Number(qwChannel) + "</channel>" : "";
  tStory.atEvents.push_back(Bytes(qwAt_ms, tCamera, Button(sChannel, sButton, "pressed")));
  if (tDraw.OneIn(3)) {
    const std::string sSecond = aszButtons[tDraw.Below(std::size(aszButtons))];
    tStory.atEvents.push_back(Bytes(qwAt_ms + qwHeld_ms / 2, tCamera, Button(sChannel, sSecond, "pressed")));
  }
  if (tDraw.OneIn(8)) return;  // released only at the end of the story
  tStory.atEvents.push_back(Bytes(qwAt_ms + qwHeld_ms, tCamera, Button(sChannel, sButton, "released")));
}

void AddFrames(const TCamera& tCamera, const TLensModel& tModel, TDraw& tDraw, TStory& tStory) {
  for (u64 qw = tDraw.Below(4); qw > 0; qw--) AddPress(tCamera, tModel, tDraw, tStory);
  for (u64 qw = tDraw.Below(3); qw > 0; qw--) {
    const std::string sBytes = OddBytes(tDraw);
    tStory.atEvents.push_back(Bytes(tStory.DrawTime_ms(tDraw), tCamera, sBytes));
  }
  if (tDraw.OneIn(6)) {
    tStory.atEvents.push_back(Bytes(tStory.DrawTime_ms(tDraw), tCamera, Button("", "autofocus", "rising")));
  }
  if (tDraw.OneIn(10) && !ResetsAnyChannel(tModel)) {
    tStory.atEvents.push_back(Bytes(tStory.DrawTime_ms(tDraw), tCamera, Button("", "autofocus", "falling")));
    tStory.dwSpoiled |= SPOILS_ANSWERS;
  }
  // Twice: bytes that wait in the FIFO are lost if the daemon makes it anew.
  for (const u64 qwAfter_ms : {u64{0}, Story_Quiet_ms(tModel) / 2}) {
    tStory.atEvents.push_back(Bytes(tStory.qwBusy_ms + qwAfter_ms, tCamera, Button("", "zoominbutton", "released")));
  }
}

void AddScene(TDraw& tDraw, TStory& tStory) {
  for (u64 qw = tDraw.Below(3); qw > 0; qw--) {
    tStory.atEvents.push_back(
        Call(tStory.DrawTime_ms(tDraw), [](TWorld* ptWorld) { ptWorld->bNight = 1 - ptWorld->bNight; }));
    const double dTemperature_C = static_cast<double>(tDraw.Below(60)) - 10;
    tStory.atEvents.push_back(SetTemperature(tStory.DrawTime_ms(tDraw), dTemperature_C));
  }
  if (tDraw.OneIn(4)) tStory.atEvents.push_back(Signal(1 + tStory.DrawTime_ms(tDraw), SIGPIPE));
}

// Switches a fault on or off; qwDraw chooses its details, as the axis.
using FSwitch = void (*)(TWorld* ptWorld, const std::string& sRoot, bool bOn, u64 qwDraw);

template <u32 TWorld::*pbSwitch>
void SwitchWord(TWorld* ptWorld, const std::string&, bool bOn, u64) {
  ptWorld->*pbSwitch = bOn ? 1 : 0;
}

TAxisTruth& DrawnAxis(TWorld* ptWorld, u64 qwDraw) {
  const u64 qwChannels = static_cast<u64>(ptWorld->tModel.iChannels);
  return ptWorld->tLens.atAxis[qwDraw / LENS_AXES % qwChannels][qwDraw % LENS_AXES];
}

void SwitchStall(TWorld* ptWorld, const std::string&, bool bOn, u64 qwDraw) {
  DrawnAxis(ptWorld, qwDraw).bSticky = bOn ? 1 : 0;
}

void SwitchSlip(TWorld* ptWorld, const std::string&, bool bOn, u64 qwDraw) {
  DrawnAxis(ptWorld, qwDraw).iSlipOneIn = bOn ? 10 + static_cast<i32>(qwDraw % 200) : 0;
}

void SwitchSensor(TWorld* ptWorld, const std::string&, bool bOn, u64 qwDraw) {
  ptWorld->tI2C.eFault = bOn ? static_cast<ESensorFault>(SENSOR_ABSENT + qwDraw % SENSOR_BAD_ONCE) : SENSOR_GOOD;
}

// A driver fails once, at one of its next requests: it does nothing, or returns an impossible value.
void SpoilDriver(TWorld* ptWorld, const std::string&, bool bOn, u64 qwDraw) {
  constexpr u32 adwRequests[] = {MOTOR_WALK_STEPS, MOTOR_WALK_STEPS_BLOCK, MOTOR_STOP_WALK, MOTOR_SEARCH_PI};
  constexpr i32 iTooHigh = 100'000;
  const u32 dwRequest = adwRequests[qwDraw / LENS_AXES % std::size(adwRequests)];
  const bool bAnswers = dwRequest == MOTOR_STOP_WALK && qwDraw % 3 != 0;
  ptWorld->tLens.atFault[qwDraw % LENS_AXES] = {.dwRequest = dwRequest,
                                                .iPassed = static_cast<i32>(qwDraw / 32 % 4),
                                                .iTimes = bOn ? 1 : 0,
                                                .iAdded = bAnswers ? iTooHigh : 0};
}

void SwitchDetached(TWorld* ptWorld, const std::string&, bool bOn, u64) {
  Lens_SetDetached(&ptWorld->tLens, bOn, World_Now_us(ptWorld));
}

void SpoilIRCutFile(TWorld*, const std::string& sRoot, bool bOn, u64 qwDraw) {
  const std::string sPath = sRoot + "/" + szIRCutFile;
  std::error_code tError;
  if (!bOn) World_WriteIRCutFile(sRoot.c_str());
  if (bOn && qwDraw % 2 == 0) unlink(sPath.c_str());
  if (bOn && qwDraw % 2 == 1) std::filesystem::resize_file(sPath, 40, tError);
}

enum ELenses : u32 { PLAIN_LENS = 1, ICS_LENS = 2, ANY_LENS = 3 };

struct TFault {
  const char* szName;
  FSwitch pfnSwitch;
  ELenses eLenses;
  u32 dwSpoils;
};

constexpr TFault g_atFaults[] = {
    {"silent peer", SwitchWord<&TWorld::bImageSideSilent>, ANY_LENS, SPOILS_NOTHING},
    {"values of 0", SwitchWord<&TWorld::bImageSideZero>, ANY_LENS, SPOILS_NOTHING},
    {"values backwards", SwitchWord<&TWorld::bImageSideBackwards>, ANY_LENS, SPOILS_NOTHING},
    {"flash full", SwitchWord<&TWorld::bFlashFull>, ANY_LENS, SPOILS_NOTHING},
    {"flash read-only", SwitchWord<&TWorld::bFlashReadOnly>, ANY_LENS, SPOILS_FLASH},
    {"stall", SwitchStall, PLAIN_LENS, SPOILS_TRUTH},
    {"slip", SwitchSlip, PLAIN_LENS, SPOILS_TRUTH},
    {"driver", SpoilDriver, PLAIN_LENS, SPOILS_DRIVER},
    {"sensor", SwitchSensor, PLAIN_LENS, SPOILS_NOTHING},
    {"IR-cut file", SpoilIRCutFile, ANY_LENS, SPOILS_NOTHING},
    {"detached", SwitchDetached, ICS_LENS, SPOILS_TRUTH | SPOILS_WORD},
};

// Adds a fault.  One in three lasts to the end of the life.
void AddFault(const TCamera& tCamera, const TFault& tFault, TDraw& tDraw, TStory& tStory) {
  const u64 qwDraw = tDraw.Below(1000);
  const auto Switch = [&](u64 qwAt_ms, bool bOn) {
    tStory.atEvents.push_back(Call(qwAt_ms, [=, &tFault, sRoot = tCamera.sRoot](TWorld* ptWorld) {
      Transcript_Note("fault %s %s", tFault.szName, bOn ? "on" : "off");
      tFault.pfnSwitch(ptWorld, sRoot, bOn, qwDraw);
    }));
  };
  const u64 qwAt_ms = tStory.DrawTime_ms(tDraw);
  Switch(qwAt_ms, true);
  if (!tDraw.OneIn(3)) Switch(std::min(qwAt_ms + tDraw.Below(qwMaxFault_ms), tStory.qwBusy_ms), false);
  tStory.dwSpoiled |= tFault.dwSpoils;
}

}  // namespace

bool Story_IsShared(const TLensModel& tModel) {
  return Model_IsICS(tModel) && tModel.iChannels > 1;
}

bool Story_StartFindsAll(const TLensModel& tModel) {
  return Model_IsICS(tModel) || ((!Model_HasZoom(tModel) || tModel.tZoom.bPISupport != 0) &&
                                 (!Model_HasFocus(tModel) || tModel.tFocus.bPISupport != 0));
}

u64 Story_Walk_us(const TLensModel& tModel, ELensAxis eAxis) {
  constexpr u64 qwBegin_us = 300'000;
  if (!Model_HasAxis(tModel, eAxis)) return 0;
  if (Model_IsICS(tModel)) {
    const TICSSheet& tSheet = tModel.atICS[eAxis];
    return static_cast<u64>(tSheet.iMax - tSheet.iMin) * 1'000'000 / static_cast<u64>(tSheet.iSpeed) + qwBegin_us;
  }
  const TAxisSheet& tSheet = Model_Sheet(tModel, eAxis);
  const u64 qwSteps =
      std::max(tSheet.dwPositioningStep, tSheet.dwPISearchStep) + 2 * tSheet.dwAdjustStep * tSheet.dwOneStep + 100;
  const u64 qwStep_ns = std::max<u64>(tSheet.qwStepTime_ns, u64{tSheet.dwOneStepTime_us} * 1000 / tSheet.dwOneStep);
  return qwSteps * qwStep_ns / 1000 + qwBegin_us;
}

u64 Story_Search_us(const TLensModel& tModel, bool bScan) {
  if (!Model_HasFocus(tModel)) return 0;
  u64 qwStep_us = 570'000;  // of an ICS lens
  u64 qwRange = tModel.tFocus.dwTotalStep;
  u64 qwSteps = (bScan ? qwRange / 20 : qwRange / 100) + qwRange / 160 + qwRange / 512;
  if (!Model_IsICS(tModel)) {
    const TSearchSheet& tSearch = tModel.tSearch;
    qwStep_us = 2 * u64{tSearch.dwOneStepSearchTime_us};
    qwRange = tModel.tFocus.dwEnd;
    const u64 qwFirst = std::min<u64>(qwRange, static_cast<u64>(tSearch.iRangeFirst)) / tSearch.dwStepLarge;
    qwSteps = (bScan ? qwRange / tSearch.dwStepSmall : qwFirst) +
              static_cast<u64>(tSearch.iRangeSecond) / tSearch.dwStepSmall +
              static_cast<u64>(tSearch.iRangeThird) / tSearch.dwStepFine;
  }
  const u64 qwZoom_us = bScan ? 3 * Story_Walk_us(tModel, LENS_ZOOM) : 0;
  return qwSteps * qwStep_us + 3'000'000 + 7 * Story_Walk_us(tModel, LENS_FOCUS) + qwZoom_us;
}

std::string Story_Direct(ELensAxis eAxis, u64 qwPosition) {
  return "function=" + Judge_Name(eAxis) + "&direction=direct&position=" + Number(qwPosition);
}

u32 Story_DrawPlace(TDraw& tDraw, const TAxisSheet& tSheet) {
  return tSheet.dwStart + static_cast<u32>(tDraw.Below(tSheet.dwEnd - tSheet.dwStart + 1));
}

u64 Story_Quiet_ms(const TLensModel& tModel) {
  const u64 qwWalks_us = Story_Walk_us(tModel, LENS_ZOOM) + Story_Walk_us(tModel, LENS_FOCUS);
  const u64 qwAll_us = static_cast<u64>(tModel.iChannels) * (8 * qwWalks_us + 2 * Story_Search_us(tModel, true));
  return std::max<u64>(300'000, 60'000 + qwAll_us / 1000);
}

std::string Story_DrawQuery(const TLensModel& tModel, TDraw& tDraw) {
  const std::string sAxis = tDraw.OneIn(2) ? "zoom" : "focus";
  const u64 qwEnd = std::max(tModel.tZoom.dwEnd, tModel.tFocus.dwEnd);
  const std::string sPosition = Number(tDraw.Below(qwEnd * 6 / 5 + 1));
  const std::string asQueries[] = {"function=" + sAxis + "&direction=direct&position=" + sPosition,
                                   "function=" + sAxis + "&direction=direct&position=" + sPosition,
                                   "function=" + sAxis + "&direction=forward&steps=" + Number(tDraw.Below(40)),
                                   "function=" + sAxis + "&direction=backward&steps=" + Number(tDraw.Below(40)),
                                   "function=auto",
                                   "function=auto&iris",
                                   "function=scan",
                                   "function=positioning",
                                   "function=motorreset",
                                   "function=stop",
                                   "function=getstatus",
                                   "function=getparam&position=" + sPosition,
                                   "function=irisopen",
                                   "function=irisenable",
                                   ResetsAnyChannel(tModel) ? "function=stop" : "function=resetfocus",
                                   "function=getfocusdefault",
                                   "function=setfocusdefault&defaultposition=" + sPosition};
  return asQueries[tDraw.Below(std::size(asQueries))];
}

u64 TStory::DrawTime_ms(TDraw& tDraw) const {
  if (tDraw.OneIn(3)) return tDraw.Below(qwBusy_ms);
  const u64 qwMoment = tDraw.Below(std::size(aqwMoments_ms));
  return std::min(aqwMoments_ms[qwMoment] + tDraw.Below(qwMoment_ms), qwBusy_ms);
}

TStory Story_Draw(const TCamera& tCamera, const TLensModel& tModel, TDraw& tDraw, u64 qwBusy_ms, u32 dwQueries,
                  bool bFaults) {
  TStory tStory;
  tStory.qwBusy_ms = qwBusy_ms;
  for (u64& qwMoment : tStory.aqwMoments_ms) {
    if (&qwMoment != tStory.aqwMoments_ms) qwMoment = tDraw.Below(qwBusy_ms);
  }
  AddQueries(tModel, tDraw, dwQueries, tStory);
  AddFrames(tCamera, tModel, tDraw, tStory);
  AddScene(tDraw, tStory);
  for (u64 qw = bFaults ? tDraw.Below(4) : 0; qw > 0; qw--) {
    tStory.bFaults = true;
    const TFault& tFault = g_atFaults[tDraw.Below(std::size(g_atFaults))];
    const ELenses eLens = Model_IsICS(tModel) ? ICS_LENS : PLAIN_LENS;
    if ((tFault.eLenses & eLens) != 0) AddFault(tCamera, tFault, tDraw, tStory);
  }
  return tStory;
}

namespace {

i64 InRange(const TLensModel& tModel, ELensAxis eAxis, u32 dwPosition) {
  const TAxisSheet& tSheet = Model_Sheet(tModel, eAxis);
  if (!Model_HasAxis(tModel, eAxis)) return -1;
  return std::clamp(dwPosition, Model_IsICS(tModel) ? tSheet.dwStart : 0, tSheet.dwEnd);
}

// A focus command comes after a zoom command.  The zoom's follow-up for the focus must not undo it.
void AddZoomThenFocus(const TLensModel& tModel, TDraw& tDraw, u64 qwAt_ms, TStory& tStory) {
  const u32 dwZoom = Story_DrawPlace(tDraw, tModel.tZoom);
  const u32 dwFocus = Story_DrawPlace(tDraw, tModel.tFocus);
  const u64 qwGap_ms = tDraw.Below(u64{1} << tDraw.Below(10));
  tStory.atEvents.push_back(Ask(qwAt_ms, Story_Direct(LENS_ZOOM, dwZoom)));
  tStory.atEvents.push_back(Ask(qwAt_ms + qwGap_ms, Story_Direct(LENS_FOCUS, dwFocus)));
  tStory.tPromise = {.szWhat = "a focus command after a zoom's", .llZoom = dwZoom, .llFocus = dwFocus};
}

// A stop comes after a zoom command, on a lens whose walks can be stopped.
void AddZoomThenStop(const TLensModel& tModel, TDraw& tDraw, u64 qwAt_ms, TStory& tStory) {
  constexpr u64 qwToStop_ms = 1500;  // enough for a sync of each axis and two steps of any lens
  const u64 qwGap_ms = tDraw.Below(u64{1} << tDraw.Below(12));
  tStory.atEvents.push_back(Ask(qwAt_ms, Story_Direct(LENS_ZOOM, Story_DrawPlace(tDraw, tModel.tZoom))));
  tStory.atEvents.push_back(Ask(qwAt_ms + qwGap_ms, "function=stop"));
  tStory.tPromise = {.szWhat = "a stop after a zoom", .qwNoWalkAfter_us = (qwAt_ms + qwGap_ms + qwToStop_ms) * 1000};
}

// A command that does not walk comes while the focus moves, and another move of the focus after it.
void AddIdleCommand(const TLensModel& tModel, TDraw& tDraw, u64 qwAt_ms, TStory& tStory) {
  const char* const aszFunctions[] = {"irisopen", "irisenable", "setfocusdefault"};
  const std::string sFunction = aszFunctions[tDraw.Below(std::size(aszFunctions))];
  const u32 dwDefault = Story_DrawPlace(tDraw, tModel.tFocus);
  const u32 dwFocus = Story_DrawPlace(tDraw, tModel.tFocus);
  const u64 qwFirst_ms = qwAt_ms + 1 + tDraw.Below(100);
  const bool bDefault = sFunction == "setfocusdefault";
  const std::string sNumber = bDefault ? "&defaultposition=" + Number(dwDefault) : "";
  tStory.atEvents.push_back(Ask(qwAt_ms, Story_Direct(LENS_FOCUS, Story_DrawPlace(tDraw, tModel.tFocus))));
  tStory.atEvents.push_back(Ask(qwFirst_ms, "function=" + sFunction + sNumber));
  tStory.atEvents.push_back(Ask(qwFirst_ms + tDraw.Below(30), Story_Direct(LENS_FOCUS, dwFocus)));
  const bool bStores = tModel.dwCapability == CAPABILITY_FOCUS_ONLY;
  tStory.tPromise = {.szWhat = "a command that does not walk, while the focus does",
                     .llFocus = dwFocus,
                     .llDefault = bDefault && bStores ? i64{dwDefault} : -1};
}

// A search that gets no temperature as its reference.  The first reading after it must not move the sharp lens.
void AddBlindSearch(TDraw& tDraw, u64 qwAt_ms, u64 qwHealed_ms, TStory& tStory) {
  const double dTemperature_C = static_cast<double>(tDraw.Below(50)) - 5;
  tStory.atEvents.push_back(Call(qwAt_ms, [=](TWorld* ptWorld) {
    ptWorld->dTemperature_C = dTemperature_C;
    ptWorld->tI2C.eFault = SENSOR_SILENT;
  }));
  tStory.atEvents.push_back(Ask(qwAt_ms + 1, "function=auto"));
  tStory.atEvents.push_back(Call(qwHealed_ms, [](TWorld* ptWorld) { ptWorld->tI2C.eFault = SENSOR_GOOD; }));
  tStory.tPromise = {.szWhat = "a search while the temperature sensor is silent", .bSharp = true};
}

}  // namespace

void Story_AddLastAct(const TCamera& tCamera, const TLensModel& tModel, TDraw& tDraw, TStory& tStory) {
  const u64 qwQuiet_ms = Story_Quiet_ms(tModel);
  const u64 qwAt_ms = tStory.qwBusy_ms + qwQuiet_ms;
  const bool bZoom = Model_HasZoom(tModel);
  const bool bBoth = bZoom && Model_HasFocus(tModel);
  enum EAct : u64 { ZOOM_THEN_FOCUS, ZOOM_THEN_STOP, IDLE_COMMAND, BACKUP_EVENT, BLIND_SEARCH, ACTS };
  const u64 qwAct = tDraw.Below(ACTS);
  if (tStory.bFaults || tStory.dwSpoiled != SPOILS_NOTHING || tModel.dwCapability == CAPABILITY_NONE) return;
  tStory.qwBusy_ms = qwAt_ms;
  if (qwAct == ZOOM_THEN_FOCUS && bBoth) AddZoomThenFocus(tModel, tDraw, qwAt_ms, tStory);
  if (qwAct == ZOOM_THEN_STOP && bZoom && tModel.bBlockingMode == 0 && !Model_IsICS(tModel)) {
    AddZoomThenStop(tModel, tDraw, qwAt_ms, tStory);
  }
  if (qwAct == IDLE_COMMAND && Model_HasFocus(tModel)) AddIdleCommand(tModel, tDraw, qwAt_ms, tStory);
  if (qwAct == BLIND_SEARCH && tModel.bThermalTable != 0) {
    AddBlindSearch(tDraw, qwAt_ms, qwAt_ms + Story_Search_us(tModel, false) / 1000, tStory);
  }
  if (qwAct == BACKUP_EVENT) {
    tStory.atEvents.push_back(Bytes(qwAt_ms, tCamera, Button("", "autofocus", "rising")));
    tStory.tPromise = {.szWhat = "a backup event",
                       .llZoom = InRange(tModel, LENS_ZOOM, dwBackupZoom),
                       .llFocus = InRange(tModel, LENS_FOCUS, dwBackupFocus)};
  }
}

void Story_DamageSaved(const TCamera& tCamera, const TLensModel& tModel, TDraw& tDraw) {
  using std::string_literals::operator""s;
  const char* szPath = Model_IsICS(tModel) ? szICSPositionsPath : szPositionsPath;
  const char* szKey = !Model_HasZoom(tModel)                      ? "focus_motor="
                      : !Model_HasFocus(tModel) || tDraw.OneIn(2) ? "zoom_motor="
                                                                  : "focus_motor=";
  std::string sSaved = tCamera.Read(szPath);
  const std::size_t dwAt = sSaved.find(szKey);
  if (dwAt == std::string::npos) return;
  const std::size_t dwEnd = std::min(sSaved.find('\n', dwAt), sSaved.size());
  const std::string asLines[] = {""s, szKey + ""s, szKey + "abc"s};
  const u64 qwHow = tDraw.Below(std::size(asLines) + 2);
  if (qwHow < std::size(asLines)) {
    sSaved.replace(dwAt, dwEnd - dwAt, asLines[qwHow]);
  } else {
    sSaved = qwHow == std::size(asLines) ? ""s : std::string(sSaved.size(), '\0');
  }
  tCamera.Write(szPath, sSaved);
}

void Story_HealFaults(const std::string& sRoot) {
  TWorld* ptWorld = World_Map(sRoot.c_str());
  for (u64 qwAxis = 0; qwAxis < iLensChannels * LENS_AXES; qwAxis++) {
    for (const TFault& tFault : g_atFaults) tFault.pfnSwitch(ptWorld, sRoot, false, qwAxis);
  }
  World_Unmap(ptWorld);
}
