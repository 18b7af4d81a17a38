#include <algorithm>
#include <cstring>

#include "lens/drawn_lens.h"
#include "lens/lens_model.h"
#include "lens/model_rules.h"

namespace {

// The stepped lens: the daemon times every step by sleeping.  So the driver is a little faster than the time allowed:
// 600 microseconds for a driver step, where the daemon counts 625.  No sensor: the reference is the low end stop.
constexpr TLensModel g_tZoomModel{
    .szName = "zoom",
    .szDescription = "zoom and focus, stepped walks, no PI sensor",
    .szModelName = "V0880M",
    .szLensType = "motorized",
    .iChannels = 1,
    .dwCapability = CAPABILITY_ZOOM_AND_FOCUS,
    .bBlockingMode = 0,
    .tZoom = {.dwStart = 0,
              .dwEnd = 800,
              .dwTotalStep = 800,
              .dwOneStep = 8,
              .dwPositioningStep = 6600,
              .dwOneStepTime_us = 5000,
              .dwAdjustStep = 6,
              .bReverseCalibration = 0,
              .bPISupport = 0,
              .dwPISearchStep = 0,
              .dwFirstPosition = 200,
              .iTravel = 6424,
              .iSlack = 41,
              .iOrigin = 0,
              .iPI = -1,
              .bCheckPIWalk = 0,
              .qwStepTime_ns = 600'000},
    .tFocus = {.dwStart = 20,
               .dwEnd = 1480,
               .dwTotalStep = 1500,
               .dwOneStep = 8,
               .dwPositioningStep = 12200,
               .dwOneStepTime_us = 4000,
               .dwAdjustStep = 8,
               .bReverseCalibration = 0,
               .bPISupport = 0,
               .dwPISearchStep = 0,
               .dwFirstPosition = 485,
               .iTravel = 12040,
               .iSlack = 57,
               .iOrigin = 0,
               .iPI = -1,
               .bCheckPIWalk = 0,
               .qwStepTime_ns = 480'000},
    .tSearch = {.iRangeFirst = 600,
                .iRangeSecond = 120,
                .iRangeThird = 24,
                .dwStepFine = 2,
                .dwStepSmall = 10,
                .dwStepLarge = 25,
                .dwOneStepSearchTime_us = 300'000,
                .dwOpenIrisTime_us = 500'000,
                .bFineTuning = 1},
    .tOptics = {.dWide = 150,
                .dTele = 1050,
                .dNearWide = 20,
                .dMagnification = 3,
                .dPerDegree = -0.3,
                .dPerDegreeTele = -0.3,
                .dNight = 12,
                .dPeakWide = 30,
                .dPeakTele = 22},
};

// A fixed focal length; the driver times its walks.  The sensor is at the far end of the range, at the high stop, and
// the range is counted down from there (reverse calibration).
constexpr TLensModel g_tFocusModel{
    .szName = "focus",
    .szDescription = "focus only, blocking walks, PI sensor at the far end, reverse calibration",
    .szModelName = "F1000R",
    .szLensType = "motorized",
    .iChannels = 1,
    .dwCapability = CAPABILITY_FOCUS_ONLY,
    .bBlockingMode = 1,
    .tZoom = Sheet_NoAxis(),
    .tFocus = {.dwStart = 0,
               .dwEnd = 1000,
               .dwTotalStep = 1000,
               .dwOneStep = 4,
               .dwPositioningStep = 4200,
               .dwOneStepTime_us = 2000,
               .dwAdjustStep = 10,
               .bReverseCalibration = 1,
               .bPISupport = 1,
               .dwPISearchStep = 4200,
               .dwFirstPosition = 520,
               .iTravel = 4032,
               .iSlack = 37,
               .iOrigin = 32,
               .iPI = 4032,
               .bCheckPIWalk = 1,
               .qwStepTime_ns = 450'000},
    .tSearch = {.iRangeFirst = 1000,  // the whole range: without a zoom there is no pan focus in the middle of a part
                .iRangeSecond = 100,
                .iRangeThird = 20,
                .dwStepFine = 1,
                .dwStepSmall = 5,
                .dwStepLarge = 25,
                .dwOneStepSearchTime_us = 120'000,
                .dwOpenIrisTime_us = 500'000,
                .bFineTuning = 1},
    .tOptics = {.dWide = 380,
                .dTele = 380,
                .dNearWide = 90,
                .dMagnification = 1,
                .dPerDegree = -0.4,
                .dPerDegreeTele = -0.4,
                .dNight = 14,
                .dPeakWide = 24,
                .dPeakTele = 24},
};

constexpr TLensModel g_tZoomOnlyModel{
    .szName = "zoomonly",
    .szDescription = "zoom only, blocking walks, no PI sensor",
    .szModelName = "Z0320P",
    .szLensType = "motorized",
    .iChannels = 1,
    .dwCapability = CAPABILITY_ZOOM_ONLY,
    .bBlockingMode = 1,
    .tZoom = {.dwStart = 0,
              .dwEnd = 320,
              .dwTotalStep = 320,
              .dwOneStep = 6,
              .dwPositioningStep = 2100,
              .dwOneStepTime_us = 3000,
              .dwAdjustStep = 5,
              .bReverseCalibration = 0,
              .bPISupport = 0,
              .dwPISearchStep = 0,
              .dwFirstPosition = 40,
              .iTravel = 1950,
              .iSlack = 26,
              .iOrigin = 0,
              .iPI = -1,
              .bCheckPIWalk = 0,
              .qwStepTime_ns = 470'000},
    .tFocus = Sheet_NoAxis(),
    .tSearch = {},
    .tOptics = {},
};

constexpr TLensModel g_tFixedModel{
    .szName = "fixed",
    .szDescription = "no motor at all",
    .szModelName = "S0001X",
    .szLensType = "fixed",
    .iChannels = 1,
    .dwCapability = CAPABILITY_NONE,
    .bBlockingMode = 0,
    .tZoom = Sheet_NoAxis(),
    .tFocus = Sheet_NoAxis(),
    .tSearch = {},
    .tOptics = {},
};

// Four heads in one housing.  There is only one saved position, so at a start each head must find its position by the
// sensors of both axes.  Position 0 lies above the low stop: at the focus sensor, and 80 driver steps below the zoom
// sensor.
constexpr TLensModel g_tQuadModel{
    .szName = "quad",
    .szDescription = "four channels of a zoom lens, stepped walks, PI sensors on both axes",
    .szModelName = "V0440Q",
    .szLensType = "motorized",
    .iChannels = 4,
    .dwCapability = CAPABILITY_ZOOM_AND_FOCUS,
    .bBlockingMode = 0,
    .tZoom = {.dwStart = 0,
              .dwEnd = 400,
              .dwTotalStep = 400,
              .dwOneStep = 4,
              .dwPositioningStep = 1800,
              .dwOneStepTime_us = 2000,
              .dwAdjustStep = 4,
              .bReverseCalibration = 0,
              .bPISupport = 1,
              .dwPISearchStep = 1700,
              .dwFirstPosition = 100,
              .iTravel = 1640,
              .iSlack = 13,
              .iOrigin = 24,
              .iPI = 104,
              .bCheckPIWalk = 0,
              .qwStepTime_ns = 480'000},
    .tFocus = {.dwStart = 10,
               .dwEnd = 590,
               .dwTotalStep = 600,
               .dwOneStep = 4,
               .dwPositioningStep = 2600,
               .dwOneStepTime_us = 2000,
               .dwAdjustStep = 5,
               .bReverseCalibration = 0,
               .bPISupport = 1,
               .dwPISearchStep = 2600,
               .dwFirstPosition = 188,
               .iTravel = 2460,
               .iSlack = 18,
               .iOrigin = 40,
               .iPI = 40,
               .bCheckPIWalk = 0,
               .qwStepTime_ns = 475'000},
    .tSearch = {.iRangeFirst = 300,
                .iRangeSecond = 60,
                .iRangeThird = 16,
                .dwStepFine = 1,
                .dwStepSmall = 5,
                .dwStepLarge = 20,
                .dwOneStepSearchTime_us = 160'000,
                .dwOpenIrisTime_us = 500'000,
                .bFineTuning = 1},
    .tOptics = {.dWide = 60,
                .dTele = 400,
                .dNearWide = 10,
                .dMagnification = 3,
                .dPerDegree = -0.15,
                .dPerDegreeTele = -0.15,
                .dNight = 6,
                .dPeakWide = 15,
                .dPeakTele = 11},
};

// The sharp position drifts with temperature, most at the tele end.  So the camera has a thermal table; the daemon
// knows that by the lens's model name.  The driver times its walks.
constexpr TLensModel g_tThermalModel{
    .szName = "thermal",
    .szDescription = "zoom and focus, blocking walks, no PI sensor, temperature sensor and thermal table",
    .szModelName = "Q310T",
    .szLensType = "motorized",
    .iChannels = 1,
    .dwCapability = CAPABILITY_ZOOM_AND_FOCUS,
    .bBlockingMode = 1,
    .bThermalTable = 1,
    .tZoom = {.dwStart = 0,
              .dwEnd = 640,
              .dwTotalStep = 640,
              .dwOneStep = 4,
              .dwPositioningStep = 2700,
              .dwOneStepTime_us = 2000,
              .dwAdjustStep = 6,
              .bReverseCalibration = 0,
              .bPISupport = 0,
              .dwPISearchStep = 0,
              .dwFirstPosition = 160,
              .iTravel = 2590,
              .iSlack = 21,
              .iOrigin = 0,
              .iPI = -1,
              .bCheckPIWalk = 0,
              .qwStepTime_ns = 450'000},
    .tFocus = {.dwStart = 20,
               .dwEnd = 1780,
               .dwTotalStep = 1800,
               .dwOneStep = 4,
               .dwPositioningStep = 7400,
               .dwOneStepTime_us = 2000,
               .dwAdjustStep = 8,
               .bReverseCalibration = 0,
               .bPISupport = 0,
               .dwPISearchStep = 0,
               .dwFirstPosition = 699,
               .iTravel = 7250,
               .iSlack = 27,
               .iOrigin = 0,
               .iPI = -1,
               .bCheckPIWalk = 0,
               .qwStepTime_ns = 450'000},
    .tSearch = {.iRangeFirst = 600,
                .iRangeSecond = 120,
                .iRangeThird = 24,
                .dwStepFine = 2,
                .dwStepSmall = 10,
                .dwStepLarge = 25,
                .dwOneStepSearchTime_us = 160'000,
                .dwOpenIrisTime_us = 500'000,
                .bFineTuning = 1},
    .tOptics = {.dWide = 350,
                .dTele = 1300,
                .dNearWide = 15,
                .dMagnification = 2,
                .dPerDegree = -2.7,
                .dPerDegreeTele = -3.9,
                .dNight = 20,
                .dPeakWide = 36,
                .dPeakTele = 28},
};

// A lens with a driver of its own, which goes to positions by itself.  The sheets give its ranges and where a new
// camera stands.  The focus motor of the configuration parks once at each start and moves no glass.
constexpr TAxisSheet ICSAxis(u32 dwStart, u32 dwEnd, u32 dwFirst, u32 dwPositioning) {
  TAxisSheet tSheet{};
  tSheet.dwStart = dwStart;
  tSheet.dwEnd = dwEnd;
  tSheet.dwTotalStep = dwEnd - dwStart;
  tSheet.dwOneStep = 1;
  tSheet.dwPositioningStep = dwPositioning;
  tSheet.dwOneStepTime_us = 500;
  tSheet.dwFirstPosition = dwFirst;
  tSheet.iTravel = static_cast<i32>(dwEnd);
  tSheet.iPI = -1;
  tSheet.qwStepTime_ns = 450'000;
  return tSheet;
}

constexpr TLensModel g_tICSModel{
    .szName = "ics",
    .szDescription = "ICS lens: zoom and focus behind a driver of its own, with curves and a sensor",
    .szModelName = "I2000C",
    .szLensType = "ics",
    .iChannels = 1,
    .dwCapability = CAPABILITY_ZOOM_AND_FOCUS,
    .bBlockingMode = 1,
    .tZoom = ICSAxis(100, 2100, 600, 0),
    .tFocus = ICSAxis(100, 3000, 1215, 600),
    .bICS = 1,
    .atICS = {{.iMin = 100, .iMax = 2100, .iPI = 300, .iHome = 100, .iSpeed = 2000},
              {.iMin = 50, .iMax = 3050, .iPI = 400, .iHome = 1500, .iSpeed = 2500}},
    .tSearch = {},
    .tOptics = {.dWide = 0,
                .dTele = 0,
                .dNearWide = 0,
                .dMagnification = 0,
                .dPerDegree = 0,
                .dPerDegreeTele = 0,
                .dNight = 0,
                .dPeakWide = 60,
                .dPeakTele = 45},
};

constexpr const TLensModel* g_aptModels[] = {&g_tZoomModel, &g_tFocusModel,   &g_tZoomOnlyModel, &g_tFixedModel,
                                             &g_tQuadModel, &g_tThermalModel, &g_tICSModel};
constexpr i32 iModels = static_cast<i32>(sizeof(g_aptModels) / sizeof(g_aptModels[0]));

static_assert(std::ranges::all_of(g_aptModels, [](const TLensModel* ptModel) { return Model_IsSound(*ptModel); }),
              "a model breaks a rule of lens/model_rules.h");

}  // namespace

const TLensModel* Lenses_Find(const char* pszName) {
  for (const TLensModel* ptModel : g_aptModels) {
    if (std::strcmp(ptModel->szName, pszName) == 0) return ptModel;
  }
  return DrawnLens_Find(pszName);
}

const TLensModel* Lenses_At(i32 iIndex) {
  return iIndex >= 0 && iIndex < iModels ? g_aptModels[iIndex] : nullptr;
}
