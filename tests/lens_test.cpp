// Tests the true lens of the simulated camera, and the files that are laid out for each model.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "lens/lens_model.h"
#include "lens/optics.h"
#include "lens/shift_tables.h"
#include "motor/motor_device.h"
#include "whole_lives.h"

namespace {

// 100 driver steps of travel at 500 us each, 7 of slack, a sensor at 40; both axes alike.
TLens MakeLens(i32 iPlace, i32 iGlass) {
  TLens tLens{};
  for (TAxisModel& tModel : tLens.atModel) tModel = {1, 100, 0, 7, 5, 40, 1, 500'000};
  for (auto& atChannel : tLens.atAxis) {
    for (TAxisTruth& tAxis : atChannel) tAxis.iRotor = iPlace, tAxis.iGlass = iGlass, tAxis.bForward = 1;
  }
  return tLens;
}

struct TDo {
  u64 qwAt_us;
  u32 dwRequest;
  i32 iArgument = 0, iResult = 0;
};

struct TWalkCase {
  const char* pszRule;
  i32 iRotor, iGlass;  // at first
  std::vector<TDo> atDo;
  u64 qwLook_us;
  i32 iRotorThen, iGlassThen, iLostThen;
  i32 TAxisTruth::*piFault = nullptr;
  i32 iFault = 0;
};

constexpr u32 BACKWARD = MOTOR_SET_BACKWARD, WALK = MOTOR_WALK_STEPS, BLOCK = MOTOR_WALK_STEPS_BLOCK;
constexpr u32 STOP = MOTOR_STOP_WALK, SEARCH = MOTOR_SEARCH_PI, CHECK = MOTOR_CHECK_PI_WALK_STEPS;
constexpr TDo BACK{0, MOTOR_SET_BACKWARD}, POWER{0, MOTOR_SET_PI_POWER_ON};

const TWalkCase g_atWalks[] = {
    {"backward takes the slack up first", 10, 10, {BACK, {0, WALK, 5, 0}}, 2500, 5, 10, 0},
    {"backward beyond the slack", 20, 20, {BACK, {0, WALK, 10, 0}}, 5000, 10, 17, 0},
    {"forward after backward leaves the glass in the slack", 20, 27, {{0, WALK, 6, 0}}, 5000, 26, 27, 0},
    {"forward after backward beyond the slack", 20, 27, {{0, WALK, 9, 0}}, 5000, 29, 29, 0},
    {"the high stop takes steps", 97, 97, {{0, WALK, 10, 0}}, 5000, 100, 100, 7},
    {"the low stop takes steps, the glass keeps its slack", 3, 3, {BACK, {0, WALK, 9, 0}}, 5000, 0, 3, 6},
    {"a step is not done a microsecond early", 10, 10, {{0, WALK, 8, 0}, {1499, STOP, 0, 6}}, 9000, 12, 12, 0},
    {"a step is done at its time", 10, 10, {{0, WALK, 8, 0}, {1500, STOP, 0, 5}}, 9000, 13, 13, 0},
    {"a stop before the first step", 10, 10, {{7, WALK, 8, 0}, {506, STOP, 0, 8}}, 9000, 10, 10, 0},
    {"steps into a stop are steps of the driver", 98, 98, {{0, WALK, 8, 0}, {3000, STOP, 0, 2}}, 9000, 100, 100, 4},
    {"a new direction is for later walks", 10, 10, {{0, WALK, 8, 0}, {1000, BACKWARD, 0, 0}}, 9000, 18, 18, 0},
    {"a new walk drops the rest", 20, 20, {{0, WALK, 8, 0}, {9, BACKWARD}, {2000, WALK, 3, 0}}, 9000, 21, 24, 0},
    {"one step in four slips", 10, 10, {{0, WALK, 9, 0}}, 9000, 17, 17, 2, &TAxisTruth::iSlipOneIn, 4},
    {"a search without power fails and stands", 30, 30, {{0, SEARCH, 50, -1}}, 90000, 30, 30, 0},
    {"a search from above, whatever the direction", 60, 60, {POWER, {0, SEARCH, 50, 0}}, 90000, 40, 47, 0},
    {"a search sees a slip", 30, 30, {POWER, {0, SEARCH, 10, -1}}, 90000, 39, 39, 1, &TAxisTruth::iSlipNow, 1},
    {"a checked walk ends at the sensor", 30, 30, {{0, CHECK, 50, 0}}, 90000, 40, 40, 0},
};

TEST(Lens, Walks) {
  for (const auto& [eDevice, eAxis] : {std::pair{DEVICE_ZOOM_MOTOR, LENS_ZOOM}, {DEVICE_FOCUS_MOTOR, LENS_FOCUS}}) {
    for (const TWalkCase& tCase : g_atWalks) {
      SCOPED_TRACE(tCase.pszRule);
      TLens tLens = MakeLens(tCase.iRotor, tCase.iGlass);
      TAxisTruth& tAxis = tLens.atAxis[0][eAxis];
      if (tCase.piFault != nullptr) tAxis.*tCase.piFault = tCase.iFault;
      for (const TDo& tDo : tCase.atDo) {
        EXPECT_EQ(Lens_Request(&tLens, eDevice, tDo.dwRequest, tDo.iArgument, tDo.qwAt_us).iResult, tDo.iResult);
      }
      Lens_Settle(&tLens, tCase.qwLook_us);
      const i32 iToFaults = tCase.piFault != nullptr ? tCase.iLostThen : 0;
      const std::array aiThen{tCase.iRotorThen, tCase.iGlassThen, tCase.iLostThen - iToFaults, iToFaults};
      EXPECT_EQ((std::array{tAxis.iRotor, tAxis.iGlass, tAxis.iLostToStops, tAxis.iLostToFaults}), aiThen);
    }
  }
}

TEST(Lens, BlockingRequestsTellWhenTheyReturn) {
  TLens tLens = MakeLens(30, 30);
  tLens.atModel[LENS_ZOOM].qwStepTime_ns = 500'300;
  TAxisTruth& tAxis = tLens.atAxis[0][LENS_ZOOM];
  const auto Ask = [&tLens](u32 dwRequest, i32 iArgument, u64 qwNow_us) {
    return Lens_Request(&tLens, DEVICE_ZOOM_MOTOR, dwRequest, iArgument, qwNow_us);
  };
  EXPECT_EQ(Ask(BLOCK, 3, 100).qwUntil_us, 1601u) << "rounded up";
  Ask(MOTOR_SET_PI_POWER_ON, 0, 1601);
  EXPECT_EQ(tAxis.iRotor, 33) << "the walk is done when it returns";
  EXPECT_EQ(Ask(SEARCH, 50, 2000).qwUntil_us, 2000u + 3503) << "7 steps, not 50";
  Ask(MOTOR_SET_FORWARD, 0, 9000);
  tAxis.bSticky = 1;
  EXPECT_LE(Ask(WALK, 50, 9000).qwUntil_us, 9000u);
  tLens.atModel[LENS_ZOOM].bCheckPIWalk = 0;
  EXPECT_EQ(Ask(CHECK, 9, 9000).iResult, -1) << "not supported: nothing is done";
  EXPECT_EQ(Ask(STOP, 0, 12000).iResult, 45) << "a stalled walk takes its time";
  EXPECT_EQ(tAxis.iRotor, 40);
}

TEST(Lens, ChannelsAndDevicesAreApart) {
  TLens tLens = MakeLens(10, 10);
  for (const TDo& tDo : {TDo{0, WALK, 5}, TDo{0, MOTOR_SELECT_DEVICE, 2}, BACK, TDo{0, WALK, 4}}) {
    Lens_Request(&tLens, DEVICE_ZOOM_MOTOR, tDo.dwRequest, tDo.iArgument, 0);
  }
  EXPECT_EQ(Lens_Request(&tLens, DEVICE_ZOOM_MOTOR, MOTOR_SELECT_DEVICE, 4, 0).iErrno, EINVAL);
  Lens_Request(&tLens, DEVICE_FOCUS_MOTOR, WALK, 3, 0);
  EXPECT_TRUE(Lens_IsMoving(&tLens, 2499));
  EXPECT_FALSE(Lens_IsMoving(&tLens, 2500));
  Lens_PowerCut(&tLens, 1500);
  Lens_Settle(&tLens, 9000);
  EXPECT_EQ(tLens.atAxis[0][LENS_ZOOM].iRotor, 13) << "cut after three steps";
  EXPECT_EQ(tLens.atAxis[2][LENS_ZOOM].iRotor, 7);
  EXPECT_EQ(tLens.atAxis[0][LENS_FOCUS].iRotor, 13);
}

// What the last whole frame has seen stays, whatever is asked of the axis afterwards.  A power cut stops the axes.
TEST(Lens, ICSAxesMoveByThemselves) {
  TLens tLens = MakeLens(0, 0);
  tLens.bICS = 1;
  tLens.atModel[LENS_ZOOM].iDriverPerVirtual = 1;
  tLens.tParkModel = tLens.atModel[LENS_FOCUS];
  tLens.tParkAxis.bForward = 1;
  tLens.atICS[LENS_ZOOM] = {.iMin = 100,
                            .iMax = 2100,
                            .iPI = 300,
                            .iHome = 100,
                            .iSpeed = 2000,
                            .iFrom = 2100,
                            .iTarget = 2100,
                            .qwMoveStart_us = 0};
  const auto ZoomAt = [&](u64 qwNow_us) {
    Lens_Settle(&tLens, qwNow_us);
    return Lens_TrueVirtual(&tLens, 0, LENS_ZOOM);
  };
  const u64 qwTurn_us = 12 * qwFrameTime_us + 10'000;
  Lens_Request(&tLens, DEVICE_ICS, ICS_SET_ZOOM_POSITION, 0, 0);
  Lens_Request(&tLens, DEVICE_ICS, ICS_SET_ZOOM_POSITION, 9999, qwTurn_us);
  const double dTurn = ZoomAt(qwTurn_us + 5'000) - 10;
  EXPECT_EQ(Lens_FrameGlassVirtual(&tLens, 0, LENS_ZOOM), dTurn + 20) << "10 ms before it turned";
  Lens_Request(&tLens, DEVICE_FOCUS_MOTOR, WALK, 90, qwTurn_us + 5'000);
  Lens_PowerCut(&tLens, qwTurn_us + 10'000);
  EXPECT_EQ(ZoomAt(qwTurn_us * 9), dTurn + 20);
  EXPECT_EQ(tLens.tParkAxis.iRotor, 10);
}

// The index of the last place that is not above llOne.  The places ascend.
template <typename TPlaceOf>
u32 LastUpTo(u32 dwPlaces, i64 llOne, TPlaceOf fnPlaceOf) {
  u32 dwLast = 0;
  for (u32 dw = 0; dw < dwPlaces; ++dw) {
    if (i64{fnPlaceOf(dw)} <= llOne) dwLast = dw;
  }
  return dwLast;
}

// Expects at each zoom position the night offset of its range.
void ExpectNightTable(const TLensModel& tModel) {
  for (i32 iZoom = 1; iZoom <= std::max(1, static_cast<i32>(tModel.tZoom.dwTotalStep)); ++iZoom) {
    const u32 dwRange = LastUpTo(Model_HasZoom(tModel) ? dwNightRanges : 1, iZoom - 1,
                                 [&](u32 dw) { return NightTable_FirstIndex(tModel, dw); });
    const double dDay = Optics_SharpFocus(tModel, iZoom, 2, 9, false);
    EXPECT_NEAR(Optics_SharpFocus(tModel, iZoom, 2, 9, true), dDay + NightTable_Offset(tModel, dwRange), 1.3);
  }
}

// Corrects by the table while the temperature rises and falls, from each start.  The focus is off by at most the
// promised allowance, and not by much less.
void ExpectThermalTable(const TLensModel& tModel) {
  for (i32 iZoom = 0; iZoom <= 640; iZoom += 79) {
    const u32 dwRow = LastUpTo(tModel.dwThermalRowsUsed, iZoom, [&](u32 dw) { return ThermalTable_Zoom(tModel, dw); });
    const auto TableFocus = [&](i32 i_C) {
      const u32 dwColumn = LastUpTo(static_cast<u32>(tModel.iThermalColumnsUsed), i_C,
                                    [](u32 dw) { return ThermalTable_Temperature(static_cast<i32>(dw)); });
      return ThermalTable_Focus(tModel, dwRow, static_cast<i32>(dwColumn));
    };
    const auto Sharp = [&](double d_C) { return Optics_SharpFocus(tModel, iZoom, 2, d_C, false); };
    double dWorst = 0;
    for (double dStart = -10; dStart < 54.9; dStart += 0.9) {
      i32 iReference = static_cast<i32>(std::floor(dStart)), iShift = 0;
      for (i32 i = -648; i <= 648; ++i) {
        const double dNow = 54.9 - std::abs(i) * 0.1;
        const i32 iNow = static_cast<i32>(std::floor(dNow));
        if (std::abs(iNow - iReference) > 1) {
          iShift += TableFocus(iNow) - TableFocus(iReference);
          iReference = iNow;
        }
        dWorst = std::max(dWorst, std::abs(Sharp(dNow) - Sharp(dStart) - iShift));
      }
    }
    EXPECT_LE(dWorst, Optics_ThermalAllowance(tModel, iZoom)) << iZoom;
    EXPECT_GT(dWorst, 0.8 * Optics_ThermalAllowance(tModel, iZoom)) << iZoom;
  }
}

constexpr const char* pszKeys =
    "start end onestep totalstep positioningstep onesteptime adjuststep support searchstep forwardshitf backwardshitf "
    "reversecalibration FlangeBackCompensation firstlevel secondlevel thirdlevel finetune small large focusstart "
    "onestepsearchtime openiristime blockingmode finetunning";

// Lives on each model show that the files agree with the tables.  They do not show that each key is there.
TEST(Lenses, EachModelIsLaidOutConsistently) {
  for (i32 i = 0; const TLensModel* ptModel = Lenses_At(i); ++i) {
    SCOPED_TRACE(ptModel->szName);
    const TCamera tCamera(ptModel->szName);
    const std::string sConfig = tCamera.Read(szConfigPath);
    std::istringstream tKeys(pszKeys);
    for (std::string sKey; tKeys >> sKey;) EXPECT_NE(sConfig.find("<" + sKey + ">"), std::string::npos) << sKey;
    if (Model_HasFocus(*ptModel) && !Model_IsICS(*ptModel)) ExpectNightTable(*ptModel);
    if (ptModel->bThermalTable != 0) ExpectThermalTable(*ptModel);
    EXPECT_EQ(World_LayOut(tCamera.sRoot.c_str(), "fixed", 8), 0);
    ChangeWorld(tCamera, [&](const TWorld& tWorld) {
      if (ptModel->dwCapability == CAPABILITY_ZOOM_AND_FOCUS) {
        EXPECT_NEAR(World_SharpFocus(&tWorld, 0), ptModel->tFocus.dwFirstPosition, 0.5) << "a new camera is sharp";
      }
      EXPECT_STREQ(tWorld.tModel.szName, ptModel->szName) << "a root in use is left alone";
    });
  }
}

// A camera of the zoom model, sharp; one driver step is a virtual step.
TWorld SharpWorld() {
  TWorld tWorld{};
  tWorld.bRun = 0;
  tWorld.dDistance_m = 5;
  tWorld.tModel = *Lenses_Find("zoom");
  tWorld.tLens = MakeLens(0, 0);
  for (TAxisModel& tModel : tWorld.tLens.atModel) tModel.iDriverPerVirtual = 1, tModel.iTravel = 2000;
  TAxisTruth& tFocus = tWorld.tLens.atAxis[0][LENS_FOCUS];
  tFocus.iGlass = tFocus.iRotor = static_cast<i32>(World_SharpFocus(&tWorld, 0) + 0.5);
  return tWorld;
}

// Sorted readings with the glass iAway steps from sharp, over whole periods of flicker and drift.
std::vector<double> Readings(EScene eScene, bool bBusy, i32 iAway) {
  TWorld tWorld = SharpWorld();
  tWorld.eScene = eScene;
  tWorld.tLens.atAxis[0][LENS_FOCUS].iGlass += iAway;
  u32 adwBlock[BLOCK_WORDS] = {1, 0, 0, 0, 0, bBusy};
  std::vector<double> adValues(4800);
  for (double& dValue : adValues) {
    tWorld.qwBase_us += qwFrameTime_us + 1;
    World_ImageFrame(&tWorld, 0, adwBlock);
    dValue = adwBlock[BLOCK_FOCUS_VALUE];
  }
  std::sort(adValues.begin(), adValues.end());
  return adValues;
}

// How far 98 of 100 readings spread, and which share of the sharp value is left some steps away from it.
TEST(Lenses, EachSceneAnswersToTheFocusInItsWay) {
  const std::tuple<EScene, bool, double, i32, double> atCases[] = {
      {SCENE_NORMAL, true, 0.004, 30, 0.375},    {SCENE_NORMAL, false, 0.098, 0, 1},
      {SCENE_TELE, true, 0.004, 30, 0.119},      {SCENE_WIDE, true, 0.004, 30, 0.859},
      {SCENE_NIGHT, true, 0.098, 0, 1},          {SCENE_LOW_CONTRAST, true, 0.004, 300, 0.8},
      {SCENE_TWO_PEAKS, true, 0.004, 300, 0.71}, {SCENE_FLICKER, true, 0.196, 0, 1},
      {SCENE_FLAT, true, 0.004, 300, 1},         {SCENE_OUTLIERS, true, 0.5, 0, 1},
      {SCENE_DRIFT, true, 0.392, 0, 1}};
  for (const auto& [eScene, bBusy, dSpread, iAway, dLeft] : atCases) {
    const auto adSharp = Readings(eScene, bBusy, 0);
    const double dMiddle = adSharp[2400], dSpreadNow = (adSharp[4752] - adSharp[48]) / dMiddle;
    EXPECT_NEAR(dSpreadNow, dSpread, 0.02 * dSpread + 0.002) << g_atScenes[eScene].pszName;
    EXPECT_NEAR(Readings(eScene, bBusy, iAway)[2400] / dMiddle, dLeft, 0.01) << g_atScenes[eScene].pszName;
  }
}

// The value is highest where the glass is sharp, in spite of noise.  A silent image side writes nothing.
TEST(Lenses, TheImageSideSeesTheGlass) {
  TWorld tWorld = SharpWorld();
  const i32 iSharp = static_cast<i32>(World_SharpFocus(&tWorld, 0) + 0.5);
  u32 adwBlock[BLOCK_WORDS] = {1, 0, 1, 1}, dwBest = 0;
  for (i32 iAway : {-200, -40, -10, 0, 10, 40, 200}) {
    tWorld.tLens.atAxis[0][LENS_FOCUS].iGlass = tWorld.tLens.atAxis[0][LENS_FOCUS].iRotor = iSharp + iAway;
    tWorld.qwBase_us += qwFrameTime_us;
    World_ImageFrame(&tWorld, 0, adwBlock);
    EXPECT_EQ(adwBlock[BLOCK_FOCUS_VALUE] > dwBest, iAway <= 0) << iAway;
    dwBest = std::max(dwBest, adwBlock[BLOCK_FOCUS_VALUE]);
  }
  EXPECT_EQ(adwBlock[BLOCK_IRIS_PENDING], 0u) << "answered";
  const u32 dwFrame = adwBlock[BLOCK_FOCUS_VALUE];
  Lens_Request(&tWorld.tLens, DEVICE_FOCUS_MOTOR, WALK, 100, tWorld.qwBase_us);
  for (const u64 qwLater_us : {9'000u, 24'332u, 1u}) {
    tWorld.qwBase_us += qwLater_us;
    Lens_Request(&tWorld.tLens, DEVICE_FOCUS_MOTOR, MOTOR_SET_FORWARD, 0, tWorld.qwBase_us);
    World_ImageFrame(&tWorld, 0, adwBlock);
    EXPECT_EQ(adwBlock[BLOCK_FOCUS_VALUE] == dwFrame, qwLater_us > 1) << "a reading is of the last whole frame";
  }
  tWorld.bImageSideBackwards = 1;
  World_ImageFrame(&tWorld, 0, adwBlock);
  EXPECT_EQ(adwBlock[BLOCK_FOCUS_VALUE], 100'000'000u - 8) << "counted down";
  adwBlock[BLOCK_IRIS_PENDING] = tWorld.bImageSideSilent = tWorld.bNight = 1;
  World_ImageFrame(&tWorld, 0, adwBlock);
  EXPECT_EQ(adwBlock[BLOCK_IRIS_PENDING] + adwBlock[BLOCK_DAY_NIGHT_MODE], 1u) << "silent";
}

}  // namespace
