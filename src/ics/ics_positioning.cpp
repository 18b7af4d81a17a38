#include "ics/ics_positioning.h"

#include <algorithm>
#include <cstdio>

#include "core/wait.h"
#include "ics/ics_driver.h"

namespace {

// Sends an axis to a position and waits for the time of the move.  Returns the position that the driver then reports.
i32 GoTo(const TAxis& tAxis, i32 fd, i32 iFrom, i32 iTo) {
  Motor_Request(fd, tAxis.eICSSetPosition, iTo);
  Delay_us(ICS_TravelTime_us(tAxis, iFrom, iTo));
  return Motor_Request(fd, tAxis.eICSGetPosition);
}

// The driver stops at the ends of its range, so the position must not lie beyond them.
i32 LimitToRange(i32 iZoom) {
  const i32 iLowest = static_cast<i32>(g_tVernierLensdConfigInfo.dwZoomVirtualStart);
  const i32 iHighest = std::max(iLowest, static_cast<i32>(g_tVernierLensdConfigInfo.dwZoomVirtualEnd));
  return std::clamp(iZoom, iLowest, iHighest);
}

// szReached is printed with two numbers: the reference, and the position that the driver then reports.
void GoToFocusReference(TVernierLensdInfo* pThis, i32 fd, const char* szReached) {
  u32& dwPosition = Axis_Position(pThis, g_tFocusAxis);
  pthread_mutex_lock(&gICSMutex);
  const i32 iReference = Motor_Request(fd, ICS_GET_FOCUS_PI_POSITION);
  const bool bAttached = iReference >= 0;
  const i32 iReached = bAttached ? GoTo(g_tFocusAxis, fd, static_cast<i32>(Word_Load(dwPosition)), iReference) : -1;
  pthread_mutex_unlock(&gICSMutex);
  if (!bAttached) {
    ICS_SetDetached(pThis);
    return;
  }
  std::printf(szReached, iReference, iReached);
  Word_Store(dwPosition, static_cast<u32>(iReference));
}

}  // namespace

void ICS_ZoomMotorPositioning(TVernierLensdInfo* pThis, const TMotorCommand* ptCommand, i32 fd) {
  u32& dwPosition = Axis_Position(pThis, g_tZoomAxis);
  pthread_mutex_lock(&gICSMutex);
  const i32 iReference = Motor_Request(fd, ICS_GET_ZOOM_PI_POSITION);
  if (iReference < 0) {
    pthread_mutex_unlock(&gICSMutex);
    ICS_SetDetached(pThis);
    return;
  }
  std::printf("[ZoomMotorPositioning]ICS PI dwZoomPiPos=%d\n", iReference);
  const i32 iAtReference = GoTo(g_tZoomAxis, fd, static_cast<i32>(Word_Load(dwPosition)), iReference);
  std::printf("[ZoomMotorPositioning][zoom]ICS PI set pos = %d  getpipos= %d \n", iReference, iAtReference);
  const i32 iTarget = LimitToRange(static_cast<i32>(ptCommand->dwPosition));
  std::printf("[ZoomMotorPositioning]ICS go to dwZoomPos=%d\n", iTarget);
  const i32 iReached = GoTo(g_tZoomAxis, fd, iReference, iTarget);
  pthread_mutex_unlock(&gICSMutex);
  std::printf("[ZoomMotorPositioning]ICS go to set pos = %d  getpipos= %d \n", iTarget, iReached);
  Word_Store(dwPosition, static_cast<u32>(iTarget));
}

void ICS_FocusMotorPositioning(TVernierLensdInfo* pThis, i32 fd) {
  GoToFocusReference(pThis, fd, "[FocusMotorPositioning]set=%d  get=%d\n");
}

void ICS_FocusMotorReset(TVernierLensdInfo* pThis, i32 fd) {
  GoToFocusReference(pThis, fd, "[Focus MotorReset]ICS PI set pos = %d  getpipos= %d \n");
}

void ICS_FocusScanReference(TVernierLensdInfo* pThis, i32 fd) {
  GoToFocusReference(pThis, fd, "[focus positioning]set=%d  get=%d\n");
}
