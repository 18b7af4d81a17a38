#include "motor/axis.h"

#include "core/paths.h"
#include "motor/dispatch.h"
#include "motor/motor_thread.h"

const TAxis g_tZoomAxis = {
    .pbSupport = &TVernierLensdInfo::bSupportZoom,
    .pbWake = &TVernierLensdInfo::bZoomWake,
    .pbWakeReady = &TVernierLensdInfo::bZoomWakeReady,
    .paiWakePair = &TVernierLensdInfo::aiZoomWakePair,
    .ptCommand = &TVernierLensdInfo::tZoomCommand,
    .ptBox = &TVernierLensdInfo::tZoomBox,
    .phThread = &TVernierLensdInfo::hZoomThread,
    .padwPosition = &TVernierLensdInfo::adwZoomMotorPosition,
    .pdwVirtualStart = &TVernierLensdConfigInfo::dwZoomVirtualStart,
    .pdwVirtualEnd = &TVernierLensdConfigInfo::dwZoomVirtualEnd,
    .pdwVirtualOneStep = &TVernierLensdConfigInfo::dwZoomVirtualOneStep,
    .pdwOneStepTime = &TVernierLensdConfigInfo::dwZoomOneStepTime,
    .pdwAdjustStep = &TVernierLensdConfigInfo::dwZoomAdjustStep,
    .pfnThread = VernierLensd_ZoomMotorThread,
    .pfnDispatch = VernierLensd_DispatchZoomCommand,
    .szDevice = szZoomMotorPath,
    .eICSSetPosition = ICS_SET_ZOOM_POSITION,
    .eICSGetPosition = ICS_GET_ZOOM_POSITION,
    .bFocusLeads = true,
    .bStartNeedsZoom = false,
    .szRemaining = "[vernierlensd] : Remaining zoom steps: %d\n",
    .szICSMoved = "[ZOOM]current = %d; set = %d\n",
};

const TAxis g_tFocusAxis = {
    .pbSupport = &TVernierLensdInfo::bSupportFocus,
    .pbWake = &TVernierLensdInfo::bFocusWake,
    .pbWakeReady = &TVernierLensdInfo::bFocusWakeReady,
    .paiWakePair = &TVernierLensdInfo::aiFocusWakePair,
    .ptCommand = &TVernierLensdInfo::tFocusCommand,
    .ptBox = &TVernierLensdInfo::tFocusBox,
    .phThread = &TVernierLensdInfo::hFocusThread,
    .padwPosition = &TVernierLensdInfo::adwFocusMotorPosition,
    .pdwVirtualStart = &TVernierLensdConfigInfo::dwFocusVirtualStart,
    .pdwVirtualEnd = &TVernierLensdConfigInfo::dwFocusVirtualEnd,
    .pdwVirtualOneStep = &TVernierLensdConfigInfo::dwFocusVirtualOneStep,
    .pdwOneStepTime = &TVernierLensdConfigInfo::dwFocusOneStepTime,
    .pdwAdjustStep = &TVernierLensdConfigInfo::dwFocusAdjustStep,
    .pfnThread = VernierLensd_FocusMotorThread,
    .pfnDispatch = VernierLensd_DispatchFocusCommand,
    .szDevice = szFocusMotorPath,
    .eICSSetPosition = ICS_SET_FOCUS_POSITION,
    .eICSGetPosition = ICS_GET_FOCUS_POSITION,
    .bFocusLeads = false,
    .bStartNeedsZoom = true,
    .szRemaining = "[vernierlensd] : Remaining focus steps: %d\n",
    .szICSMoved = "[FOCUS]current = %u; set = %d\n",
};
