// A lens model: what the maker of a camera knows about it and its lens.  Each model is one plain record, built in,
// drawn or read from a file (world/model_file.h).  Both the true lens and the camera's configuration files are made
// from the record, so that every number stands once.  The record has no pointers: a world keeps a copy for all its
// processes.
#pragma once

#include <type_traits>

#include "core/context.h"
#include "lens/lens.h"

// One axis.  For a model without the axis all is 0, but iPI is -1.
struct TAxisSheet {
  u32 dwStart, dwEnd;       // virtual steps: the usable range
  u32 dwTotalStep;          // virtual steps
  u32 dwOneStep;            // driver steps in one virtual step
  u32 dwPositioningStep;    // driver steps: a walk that reaches the stop from anywhere
  u32 dwOneStepTime_us;     // time that the daemon allows for a virtual step
  u32 dwAdjustStep;         // virtual steps: how far the daemon goes to take up slack
  u32 bReverseCalibration;  // focus only: the reference is the end of the range
  u32 bPISupport;           // the configuration tells the daemon to use the PI sensor
  u32 dwPISearchStep;       // driver steps
  u32 dwFirstPosition;      // virtual steps: where a new camera stands; a zoom lens has its focus on the pan focus
  i32 iTravel, iSlack, iOrigin, iPI;  // driver steps, as in TAxisModel
  u32 bCheckPIWalk;
  u64 qwStepTime_ns;
  bool operator==(const TAxisSheet&) const = default;
};

struct TSearchSheet {
  i32 iRangeFirst, iRangeSecond, iRangeThird;  // virtual steps
  u32 dwStepFine, dwStepSmall, dwStepLarge;    // virtual steps
  u32 dwOneStepSearchTime_us;                  // long enough for a large step and a few frames
  u32 dwOpenIrisTime_us;
  u32 bFineTuning;
  bool operator==(const TSearchSheet&) const = default;
};

// How the sharp focus position depends on zoom, distance, temperature and light, in virtual steps: Optics_SharpFocus.
struct TOptics {
  double dWide, dTele;    // sharp at infinity, at both ends of the zoom; a lens without zoom stands at the wide end
  double dNearWide;       // an object at 1 m moves it up by this at the wide end
  double dMagnification;  // focal length at the tele end over that at the wide end
  double dPerDegree, dPerDegreeTele;  // each degree Celsius above 25 moves it up by this, at both ends of the zoom
  double dNight;                      // infra-red light moves it up by this at the wide end
  double dPeakWide, dPeakTele;        // width of the focus value's peak at both ends of the zoom
  bool operator==(const TOptics&) const = default;
};

// One axis of an ICS lens, as its driver describes it: positions, and steps a second.
struct TICSSheet {
  i32 iMin, iMax, iPI, iHome, iSpeed;
  bool operator==(const TICSSheet&) const = default;
};

struct TLensModel {
  char szName[16];
  char szDescription[96];
  char szModelName[32];  // of the lens, as the camera's video-in configuration names it
  char szLensType[16];
  i32 iChannels;
  u32 dwCapability;  // ECapability
  u32 bBlockingMode;
  u32 bThermalTable = 0;  // its camera has a table of focus by temperature, and a TMP103B sensor
  TAxisSheet tZoom, tFocus;
  u32 bICS = 0;  // an ICS lens, which atICS describes; else a plain lens
  TICSSheet atICS[LENS_AXES] = {};
  TSearchSheet tSearch;
  TOptics tOptics;
  TAxisSheet tZoomKeys = {}, tFocusKeys = {};  // configuration keys of an axis that the lens does not have
  u32 dwThermalRowsUsed = 8;                   // of the thermal table
  i32 iThermalColumnsUsed = 13;
  u32 bFlangeBack = 0;  // the night offset is used without an LED too
  u32 bFlatStarts = 0;  // searches start at the same place for all zoom positions
  bool operator==(const TLensModel&) const = default;
};

// An axis that the lens does not have.
constexpr TAxisSheet Sheet_NoAxis() {
  TAxisSheet tSheet{};
  tSheet.iPI = -1;
  return tSheet;
}

// The model of that name, or the drawn one (lens/drawn_lens.h); null if there is none.
const TLensModel* Lenses_Find(const char* pszName);

// The model number iIndex, from 0; null after the last.
const TLensModel* Lenses_At(i32 iIndex);

// There are no bytes between the values, so that two worlds of one model are equal byte by byte.
static_assert(sizeof(TLensModel) == 160 + 4 * sizeof(u32) + 4 * sizeof(TAxisSheet) + sizeof(u32) +
                                        LENS_AXES * sizeof(TICSSheet) + sizeof(TSearchSheet) + sizeof(TOptics) +
                                        4 * sizeof(u32));
static_assert(std::has_unique_object_representations_v<TAxisSheet>);

// The optics and curves of an ICS lens are in lens/ics_optics.h; of tOptics it uses only the peaks.
constexpr bool Model_IsICS(const TLensModel& tModel) {
  return tModel.bICS != 0;
}
constexpr bool Model_HasZoom(const TLensModel& tModel) {
  return tModel.dwCapability == CAPABILITY_ZOOM_AND_FOCUS || tModel.dwCapability == CAPABILITY_ZOOM_ONLY;
}
constexpr bool Model_HasFocus(const TLensModel& tModel) {
  return tModel.dwCapability == CAPABILITY_ZOOM_AND_FOCUS || tModel.dwCapability == CAPABILITY_FOCUS_ONLY;
}
constexpr bool Model_HasAxis(const TLensModel& tModel, ELensAxis eAxis) {
  return eAxis == LENS_ZOOM ? Model_HasZoom(tModel) : Model_HasFocus(tModel);
}
constexpr const TAxisSheet& Model_Sheet(const TLensModel& tModel, ELensAxis eAxis) {
  return eAxis == LENS_ZOOM ? tModel.tZoom : tModel.tFocus;
}

// The forward and the backward shift of the configuration, in driver steps: forward from the PI sensor to the reference
// of a positioning, backward from the sensor to position 0.
constexpr i64 Sheet_PIForwardShift(const TAxisSheet& tSheet) {
  if (tSheet.iPI < 0) return 0;
  const i64 llReference = tSheet.bReverseCalibration != 0 ? i64{tSheet.dwEnd} * tSheet.dwOneStep : 0;
  return tSheet.iOrigin + llReference - tSheet.iPI;
}
constexpr i64 Sheet_PIBackwardShift(const TAxisSheet& tSheet) {
  return tSheet.iPI < 0 ? 0 : tSheet.iPI - tSheet.iOrigin;
}
