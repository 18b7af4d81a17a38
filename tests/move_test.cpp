// The step moves, judged by the driver's requests and the true motor.  Every table runs over both axes.
#include <fcntl.h>
#include <sys/ioctl.h>

#include <cstdio>
#include <limits>

#include "motor/axis_move.h"
#include "motor/command_box.h"
#include "short_lives.h"

namespace {

constexpr u32 dwOneStep = 8;

struct TSetUp {
  bool bBlocking = false;
  u32 dwFrom = 0;
  u32 dwStart = 2;
  u32 dwEnd = 700;
  u32 dwBacklash = 8;
};

TVernierLensdInfo g_tInfo;  // used by the life's child process; zero in the parent

// A context as start-up leaves it, with a plain lens of 8 driver steps a virtual step at the given position.
void SetUpContext(const TAxis& tAxis, const TSetUp& tSetUp) {
  TVernierLensdConfigInfo& tConfig = g_tVernierLensdConfigInfo;
  g_tInfo.bSupportZoom = g_tInfo.bSupportFocus = 1;
  tConfig.bBlockingMode = tSetUp.bBlocking ? 1 : 0;
  tConfig.*tAxis.pdwVirtualStart = tSetUp.dwStart;
  tConfig.*tAxis.pdwVirtualEnd = tSetUp.dwEnd;
  tConfig.*tAxis.pdwVirtualOneStep = dwOneStep;
  tConfig.*tAxis.pdwOneStepTime = 5000;
  tConfig.*tAxis.pdwAdjustStep = tSetUp.dwBacklash;
  Word_Store((g_tInfo.*tAxis.padwPosition)[0], tSetUp.dwFrom);
}

TLifeResult RunMove(const TCamera& tCamera, const TAxis& tAxis, const TSetUp& tSetUp, std::function<i32(i32 fd)> fnMove,
                    std::vector<TLifeEvent> atEvents = {}) {
  tCamera.Place(LensAxisOf(tAxis), tSetUp.dwFrom);
  TLifePlan tPlan = {.sRoot = tCamera.sRoot, .qwSeed = FirstSeed(), .atEvents = std::move(atEvents)};
  tPlan.fnBody = [&](TWorld*) {
    SetUpContext(tAxis, tSetUp);
    const i32 fd = open(tAxis.szDevice, O_WRONLY);
    const i32 iResult = fnMove(fd);
    const TMotorCommand& tBlock = Axis_Command(&g_tInfo, tAxis);
    std::printf("result %d position %u function %u steps %u\n", iResult, (g_tInfo.*tAxis.padwPosition)[0],
                tBlock.dwFunction, tBlock.dwSteps);
    usleep(1'000'000);  // a walk that nobody waits for would end here, not in the next life
    close(fd);
    return 0;
  };
  return Life_Run(tPlan);
}

i32 MoveTo(const TAxis& tAxis, i32 fd, u32 dwTarget) {
  return tAxis.bFocusLeads ? VernierLensd_MoveZoom(&g_tInfo, fd, dwTarget)
                           : VernierLensd_MoveFocus(&g_tInfo, fd, dwTarget);
}

const struct {
  const char* szName;
  TSetUp tSetUp;
  u32 dwTarget;
  const char* szRequests;  // after SELECT 0
  u32 dwAfter;
} g_atMoves[] = {
    {"forward: no take-up", {.dwFrom = 100}, 120, "FORWARD, WALK 160", 120},
    {"backward: slack taken up", {.dwFrom = 120}, 100, "BACKWARD, WALK 160, WALK 64, FORWARD, WALK 64", 100},
    {"in place: a walk of 0", {.dwFrom = 50}, 50, "FORWARD, WALK 0", 50},
    {"at the backlash: taken up", {.dwFrom = 12}, 8, "BACKWARD, WALK 32, WALK 64, FORWARD, WALK 64", 8},
    {"below the backlash: too near 0", {.dwFrom = 12}, 7, "BACKWARD, WALK 40", 7},
    {"above the end: limited", {.dwFrom = 690}, 65535, "FORWARD, WALK 80", 700},
    {"wrapped: lowest target", {.dwFrom = 12}, 0x10000, "BACKWARD, WALK 80", 2},
    {"below the start: not raised", {.dwFrom = 12}, 1, "BACKWARD, WALK 88", 1},
    {"start above the end: the end",
     {.dwFrom = 12, .dwStart = 4294967295, .dwEnd = 10},
     4294967295,
     "BACKWARD, WALK 16, WALK 64, FORWARD, WALK 64",
     10},
    {"blocking, forward", {.bBlocking = true, .dwFrom = 100}, 120, "FORWARD, BLOCK 160", 120},
    {"blocking, backward",
     {.bBlocking = true, .dwFrom = 120},
     100,
     "BACKWARD, BLOCK 160, BLOCK 64, FORWARD, BLOCK 64",
     100},
};

TEST(Move, AsksTheDriverAndArrives) {
  for (const TAxis* ptAxis : {&g_tZoomAxis, &g_tFocusAxis}) {
    for (const auto& tCase : g_atMoves) {
      const TCamera tCamera("zoom");
      const TLifeResult tResult =
          RunMove(tCamera, *ptAxis, tCase.tSetUp, [&](i32 fd) { return MoveTo(*ptAxis, fd, tCase.dwTarget); });
      SCOPED_TRACE(std::string(tCase.szName) + ", " + DeviceOf(*ptAxis) + "\n" + Tale(tResult));
      EXPECT_EQ(Requests(tResult, DeviceOf(*ptAxis)), std::string("SELECT 0, ") + tCase.szRequests);
      EXPECT_TRUE(HasPrinted(tResult, "result 0 position " + std::to_string(tCase.dwAfter) + " function 0 steps 0"));
      EXPECT_EQ(tCamera.Truth(LensAxisOf(*ptAxis)), tCase.dwAfter);
    }
  }
}

// Whatever driver step the walk has reached when the stop comes, the motor ends on a whole virtual step.  The counter
// has the same position.
TEST(Move, StopAtEveryDriverStepLeavesTheCounterTrue) {
  constexpr u32 dwSteps = 30;           // long enough that the driver ends well before the count
  constexpr u64 qwDriverStep_us = 480;  // at most the faster axis's step time
  const TCamera tCamera("zoom");
  for (const TAxis* ptAxis : {&g_tZoomAxis, &g_tFocusAxis}) {
    for (const bool bForward : {true, false}) {
      const TSetUp tSetUp = {.dwFrom = bForward ? 100 : 100 + dwSteps};
      const u64 qwLead_us = ptAxis->bFocusLeads ? 300'000 : 0;
      for (u64 qwStep = 0; qwStep < (dwSteps + 1) * 5000 / qwDriverStep_us; qwStep += 10 / Lives(10)) {
        const auto Stop = [&](TWorld*) { Word_Publish(g_tInfo.*ptAxis->pbWake, 1); };
        const TLifeEvent tStop = At(qwLead_us + qwStep * qwDriverStep_us, Call(0, Stop));
        const TLifeResult tResult =
            RunMove(tCamera, *ptAxis, tSetUp,
                    [&](i32 fd) { return MoveTo(*ptAxis, fd, bForward ? 100 + dwSteps : 100); }, {tStop});
        const double dTruth = tCamera.Truth(LensAxisOf(*ptAxis));
        char szExpected[80];
        const bool bStopped = Printed(tResult).find("result -1") != std::string::npos;
        std::snprintf(szExpected, sizeof szExpected, "result %d position %.3g function 0 steps 0", bStopped ? -1 : 0,
                      dTruth);
        ASSERT_TRUE(HasPrinted(tResult, szExpected))
            << szExpected << "\nstop at driver step " << qwStep << Tale(tResult);
        ASSERT_EQ(bStopped, HasPrinted(tResult, "[vernierlensd] : Operation interrupted!")) << Tale(tResult);
      }
    }
  }
}

const struct {
  const char* szName;
  i32 iWalk;      // driver steps asked for and not walked when the repair comes
  u32 dwOneStep;  // of the configuration
  u32 dwLeft;
  bool bForward;
  u32 dwAfter;  // the move has begun at 100
  const char* szRest;
} g_atRecovers[] = {
    {"37 driver steps left: four virtual steps, and 5 to finish", 37, 8, 4, true, 100, ", WALK 5"},
    {"the driver is ahead of the count", 16, 8, 5, true, 103, ""},
    {"the driver is slower than the count", 40, 8, 3, true, 98, ""},
    {"backward", 16, 8, 5, false, 97, ""},
    {"the driver is done: what is not counted has been walked", 0, 8, 2, true, 102, ""},
    {"a size of 0 has no whole steps", 9, 0, 2, true, 102, ", WALK 9"},
};

TEST(Move, RecoverCorrectsByTheDriver) {
  for (const TAxis* ptAxis : {&g_tZoomAxis, &g_tFocusAxis}) {
    for (const auto& tCase : g_atRecovers) {
      const TCamera tCamera("zoom");
      const TLifeResult tResult = RunMove(tCamera, *ptAxis, {.dwFrom = 100}, [&](i32 fd) {
        g_tVernierLensdConfigInfo.*ptAxis->pdwVirtualOneStep = tCase.dwOneStep;
        ChangeWorld(tCamera, [&](TWorld& tWorld) {
          tWorld.tLens.atModel[LensAxisOf(*ptAxis)].qwStepTime_ns = 1'000'000'000;  // nothing walks before the stop
        });
        Axis_Command(&g_tInfo, *ptAxis) = {};
        EXPECT_EQ(0, ioctl(fd, MOTOR_WALK_STEPS, tCase.iWalk));
        (ptAxis->bFocusLeads ? VernierLensd_RecoverZoomMove : VernierLensd_RecoverFocusMove)(&g_tInfo, fd, tCase.dwLeft,
                                                                                             tCase.bForward ? 1 : 0);
        return 0;
      });
      SCOPED_TRACE(std::string(tCase.szName) + ", " + DeviceOf(*ptAxis) + "\n" + Tale(tResult));
      EXPECT_EQ(Requests(tResult, DeviceOf(*ptAxis)), "WALK " + std::to_string(tCase.iWalk) + ", STOP" + tCase.szRest);
      EXPECT_TRUE(HasPrinted(tResult, "result 0 position " + std::to_string(tCase.dwAfter) + " function 0 steps 0"));
    }
  }
}

const struct {
  u32 dwDirection, dwSteps, dwPosition;
  u32 dwAfter, dwStepsAfter;  // position after a start at 100; steps that the block then holds
} g_atCommands[] = {{DIRECTION_FORWARD, 7, 0, 107, 7},
                    {DIRECTION_FORWARD, 40, 0, 130, 30},  // capped, the cap written back
                    {DIRECTION_BACKWARD, 4294967295, 0, 70, 30},
                    {DIRECTION_DIRECT, 40, 160, 160, 40},
                    {3, 7, 160, 100, 7}};

TEST(Move, CommandTurnsTheBlockIntoATarget) {
  for (const TAxis* ptAxis : {&g_tZoomAxis, &g_tFocusAxis}) {
    for (const auto& tCase : g_atCommands) {
      const TCamera tCamera("zoom");
      const TLifeResult tResult = RunMove(tCamera, *ptAxis, {.dwFrom = 100}, [&](i32 fd) {
        TMotorCommand& tBlock = Axis_Command(&g_tInfo, *ptAxis);
        tBlock.dwFunction = FUNCTION_ZOOM;
        tBlock.dwDirection = tCase.dwDirection;
        tBlock.dwSteps = tCase.dwSteps;
        tBlock.dwPosition = tCase.dwPosition;
        Command_Take(&g_tInfo, *ptAxis, nullptr);
        (ptAxis->bFocusLeads ? VernierLensd_ZoomCommand : VernierLensd_FocusCommand)(&g_tInfo, fd);
        return 0;
      });
      EXPECT_EQ(Count(Printed(tResult), " position " + std::to_string(tCase.dwAfter) + " function 0 steps " +
                                            std::to_string(tCase.dwStepsAfter) + "\n"),
                1U)
          << Tale(tResult);
      EXPECT_EQ(tCamera.Truth(LensAxisOf(*ptAxis)), tCase.dwAfter);
    }
  }
}

const struct {
  const char* szName;
  const char* szModel;
  const char* szQuery;  // after the axis's name if it begins with '='
  TDriverFault tFault;
  bool bStop = false;       // half a second later
  bool bFinds = true;       // the next command of this life finds the lens; else the next start does
  bool bFocusOnly = false;  // no query of the zoom
} g_atDriverFailures[] = {
    {"walk refused", "zoom", "=100", {MOTOR_WALK_STEPS, 0, 1, 0}},
    {"direction refused", "zoom", "=100", {MOTOR_SET_BACKWARD, 0, 1, 0}},
    {"take-up refused", "zoom", "=100", {MOTOR_WALK_STEPS, 1, 1, 0}},
    {"way back refused", "zoom", "=100", {MOTOR_WALK_STEPS, 2, 1, 0}},
    {"blocking walk refused", "thermal", "=100", {MOTOR_WALK_STEPS_BLOCK, 0, 1, 0}},
    {"left above asked", "zoom", "=100", {MOTOR_STOP_WALK, 0, 1, 100'000}, true},
    {"left a little above asked", "zoom", "=100", {MOTOR_STOP_WALK, 0, 1, 2'900}, true},
    {"stop refused", "zoom", "=100", {MOTOR_STOP_WALK, 0, 1, 0}, true},
    {"sweep's step refused", "zoom", "auto", {MOTOR_WALK_STEPS, 9, 1, 0}, false, true, true},
    {"walk to the stop refused", "zoom", "motorreset", {MOTOR_WALK_STEPS, 0, 1, 0}, false, false},
    {"walk from the sensor refused", "quad", "motorreset", {MOTOR_WALK_STEPS_BLOCK, 1, 1, 0}, false, false},
};

// A driver that fails once costs a printed line.  The lens is found before the next move, or by the next start.
TEST(Move, DriverThatFailsOnceLosesNoPosition) {
  for (const TAxis* ptAxis : {&g_tZoomAxis, &g_tFocusAxis}) {
    const ELensAxis eAxis = LensAxisOf(*ptAxis);
    const std::string sAxis = Judge_Name(eAxis);
    for (const auto& tCase : g_atDriverFailures) {
      if (tCase.bFocusOnly && eAxis == LENS_ZOOM) continue;
      for (const bool bLater : {false, true}) {
        if (bLater && !tCase.bFinds) continue;
        SCOPED_TRACE(std::string(tCase.szName) + ", " + sAxis + (bLater ? ", moved later" : ""));
        const TCamera tCamera(tCase.szModel);
        std::string sAsks = "60000 " + (tCase.szQuery[0] == '=' ? sAxis : "") + tCase.szQuery;
        if (tCase.bStop) sAsks += ", 60500 stop";
        if (bLater) sAsks += ", 120000 " + sAxis + "=150";
        std::vector<TLifeEvent> atEvents = Asks(sAsks + ", 180000 getstatus");
        const auto Fault = [&](TWorld* ptWorld) { ptWorld->tLens.atFault[eAxis] = tCase.tFault; };
        atEvents.insert(atEvents.begin(), Call(60'000, Fault));
        const TLifeResult tResult = Live(tCamera, atEvents, 180'500);
        EXPECT_EQ(Count(Printed(tResult), " answered "), 1U) << Tale(tResult);
        if (bLater) {
          ExpectRest(tCamera, tResult);
          EXPECT_EQ(tCamera.Truth(eAxis), 150) << Tale(tResult);
          continue;
        }
        EXPECT_EQ(Judge_Order(tResult), "") << Tale(tResult);
        EXPECT_LT(tResult.qwTime_us, 190'000'000U);
        LiveToRest(tCamera, {}, 300'000);
      }
    }
  }
}

// With dead motors clients are answered, SIGTERM ends the daemon in time, and the log stays short.
TEST(Move, DeadDriverHoldsNobody) {
  for (const char* szModel : {"zoom", "thermal", "quad", "focus"}) {
    const TCamera tCamera(szModel);
    ChangeWorld(tCamera, [](TWorld& tWorld) {
      for (TDriverFault& tFault : tWorld.tLens.atFault) tFault = {0, 0, std::numeric_limits<i32>::max(), 0};
    });
    const TLifeEvent tHold = Frame(50'000, tCamera, Button("zoomin", "pressed"));  // and never released
    const char* szAsks =
        "60000 zoom=100, 120000 stop, 180000 auto, 240000 focus=100, 300000 motorreset, 360000 scan, "
        "420000 stop, 480000 positioning, 540000 resetfocus, 600000 getstatus";
    const TLifeResult tResult = Live(tCamera, Asks(szAsks, {tHold}), 660'000);
    SCOPED_TRACE(szModel + Tale(tResult));
    EXPECT_EQ(Judge_Order(tResult), "");
    EXPECT_LT(tResult.qwTime_us, 665'000'000U);
    EXPECT_LT(Count(Printed(tResult), " answered "), 40U);
    EXPECT_TRUE(Exists(tCamera, szFocusLogPath));
  }
}

}  // namespace
