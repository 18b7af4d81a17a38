// The record that describes an axis: where its words are, its requests and its texts.  What zoom and focus do alike is
// written once, over this record; the named operations of each axis are one line over it.
#pragma once

#include <algorithm>
#include <limits>

#include "config/saved_state.h"
#include "core/context.h"
#include "motor/motor_device.h"

struct TAxis {
  // Members of the context.
  u32 TVernierLensdInfo::*pbSupport;
  u32 TVernierLensdInfo::*pbWake;
  u32 TVernierLensdInfo::*pbWakeReady;
  i32 (TVernierLensdInfo::*paiWakePair)[2];
  TMotorCommand TVernierLensdInfo::*ptCommand;
  TCommandBox TVernierLensdInfo::*ptBox;
  void* TVernierLensdInfo::*phThread;
  u32 (TVernierLensdInfo::*padwPosition)[iMaxChannels];  // virtual steps, by channel

  // Members of the configuration.
  u32 TVernierLensdConfigInfo::*pdwVirtualStart;    // lowest target
  u32 TVernierLensdConfigInfo::*pdwVirtualEnd;      // highest target
  u32 TVernierLensdConfigInfo::*pdwVirtualOneStep;  // driver steps in one virtual step
  u32 TVernierLensdConfigInfo::*pdwOneStepTime;     // us for one virtual step
  u32 TVernierLensdConfigInfo::*pdwAdjustStep;      // backlash, virtual steps

  u32 TVernierLensdConfigInfo::*pbPISupport;
  u32 TVernierLensdConfigInfo::*pdwPIDev;         // shared: channel that the axis's PI pass has reached
  u32 TVernierLensdConfigInfo::*pbPIDone;         // shared
  u32 TVernierLensdConfigInfo::*pdwPISearchStep;  // driver steps, as the next one
  u32 TVernierLensdConfigInfo::*pdwPIBackwardShift;

  const TAxis* ptOther;  // the other axis of the lens
  ESaveMode eSaveMode;
  void (*pfnCreateLog)();
  void (*pfnDeleteLog)();
  const char* szDevice;
  EICSRequest eICSSetPosition;
  EICSRequest eICSGetPosition;
  bool bFocusLeads;          // zoom only: the focus follows each move and starts first
  bool bReferenceHasTarget;  // zoom only: the walk to the reference goes on to a given position
  bool bStartNeedsZoom;      // focus only: dwStart stays 0 on a lens without zoom
  const char* szWakeFailed;  // the axis's thread could not be woken
  const char* szInitDev;     // one %d: channel that the PI pass searches next
  const char* szPassName;    // the PI pass's name for its searches
  const char* szWaitOther;   // the PI pass waits for the other axis
  const char* szRemaining;   // one %d: driver steps left of a stopped walk
  const char* szICSMoved;    // two numbers: present position, target
};

// Replaces szWakeFailed for a client's focus move, and for what follows a zoom, a positioning or a focus reset.
constexpr const char* szFocusWakeFailed = "[vernierlensd] : Waking up focus thread failed.";

extern const TAxis g_tZoomAxis;
extern const TAxis g_tFocusAxis;

inline TMotorCommand& Axis_Command(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  return pThis->*tAxis.ptCommand;
}
inline TCommandBox& Axis_Box(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  return pThis->*tAxis.ptBox;
}

// Position of the running command's channel.  Owner thread; shared, so use Word_Load and Word_Store.
inline u32& Axis_Position(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  return (pThis->*tAxis.padwPosition)[Axis_Box(pThis, tAxis).iRunningChannel];
}

// Driver steps of dwSteps steps that have dwOneStep each, limited to what a request can carry.
inline i32 Steps_ToDriver(u32 dwSteps, u32 dwOneStep) {
  return static_cast<i32>(std::min<u64>(u64{dwSteps} * dwOneStep, std::numeric_limits<i32>::max()));
}

inline u32 Axis_Config(u32 TVernierLensdConfigInfo::*pdwField) {
  return g_tVernierLensdConfigInfo.*pdwField;
}
