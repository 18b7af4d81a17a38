// What zoom and focus do alike is written once, over a record that describes an axis: where its words are, its requests
// and its texts.  The named operations of each axis are one line over it.
#pragma once

#include <algorithm>
#include <limits>

#include "config/saved_state.h"
#include "core/context.h"
#include "motor/motor_device.h"

struct TAxis {
  // The context's side.
  u32 TVernierLensdInfo::*pbSupport;
  u32 TVernierLensdInfo::*pbWake;
  u32 TVernierLensdInfo::*pbWakeReady;
  i32 (TVernierLensdInfo::*paiWakePair)[2];
  TMotorCommand TVernierLensdInfo::*ptCommand;
  TCommandBox TVernierLensdInfo::*ptBox;
  void* TVernierLensdInfo::*phThread;
  u32 (TVernierLensdInfo::*padwPosition)[iMaxChannels];  // virtual steps, by channel

  // The configuration's side.
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

  const TAxis* ptOther;  // the lens's other axis
  ESaveMode eSaveMode;
  void (*pfnCreateLog)();
  void (*pfnDeleteLog)();
  const char* szDevice;
  EICSRequest eICSSetPosition;
  EICSRequest eICSGetPosition;
  bool bFocusLeads;          // the focus follows each move of this axis and starts ahead of it
  bool bReferenceHasTarget;  // the walk to the reference ends at a position that is given, not at the reference
  bool bStartNeedsZoom;      // dwStart is the configuration's only on a lens with zoom, else 0
  const char* szWakeFailed;  // no wake-up could be sent to the axis's thread
  const char* szInitDev;     // one %d: channel that the PI pass begins
  const char* szPassName;    // of the PI pass's searches
  const char* szWaitOther;   // the rendezvous waits for the other axis
  const char* szRemaining;   // one %d: driver steps left
  const char* szICSMoved;    // two numbers: present position, target
};

// In place of szWakeFailed where the focus has been sent to a position.
constexpr const char* szFocusWakeFailed = "[vernierlensd] : Waking up focus thread failed.";

extern const TAxis g_tZoomAxis;
extern const TAxis g_tFocusAxis;

inline TMotorCommand& Axis_Command(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  return pThis->*tAxis.ptCommand;
}
inline TCommandBox& Axis_Box(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  return pThis->*tAxis.ptBox;
}

// Position of the channel that the running command is for.  Owner thread; shared, so through Word_Load and Word_Store.
inline u32& Axis_Position(TVernierLensdInfo* pThis, const TAxis& tAxis) {
  return (pThis->*tAxis.padwPosition)[Axis_Box(pThis, tAxis).iRunningChannel];
}

// Driver steps of a count of steps of the given size, limited to what a request can carry.
inline i32 Steps_ToDriver(u32 dwSteps, u32 dwOneStep) {
  return static_cast<i32>(std::min<u64>(u64{dwSteps} * dwOneStep, std::numeric_limits<i32>::max()));
}

inline u32 Axis_Config(u32 TVernierLensdConfigInfo::*pdwField) {
  return g_tVernierLensdConfigInfo.*pdwField;
}
