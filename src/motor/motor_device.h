// Requests of the lens drivers, which lie in the camera's kernel.
//
// "/dev/focusmotor" and "/dev/zoommotor" are stepper drivers, opened write-only, one descriptor per motor thread.
// "/dev/icsdriver" is an ICS lens, opened read-write: one descriptor (fdICS) for both axes and both threads.  A request
// is an ioctl with at most one integer, passed by value; its result is the ioctl's return value.  Steps are driver
// steps.  PI is the photo interrupter, the sensor at the reference.
//
// MOTOR_SELECT_DEVICE goes first, to whichever device the thread holds, and its result is ignored.  A direction goes
// before a walk.  Every ICS request but ICS_CHECK_DETACHED is made holding gICSMutex.
#pragma once

#include <sys/ioctl.h>

#include "core/types.h"

enum EMotorRequest : u32 {
  MOTOR_SET_FORWARD = 0x4D00,              // no argument; direction of later walks
  MOTOR_SET_BACKWARD = 0x4D01,             // no argument; direction of later walks
  MOTOR_WALK_STEPS = 0x40044D03,           // steps; returns at once, the walk runs on and the caller times it
  MOTOR_STOP_WALK = 0x4D04,                // no argument; stops the walk; result: driver steps not walked
  MOTOR_WALK_STEPS_BLOCK = 0x40044D06,     // steps; returns when the walk is done
  MOTOR_SEARCH_PI = 0x40044D08,            // steps; walks to the PI sensor; result 0: found, else failed
  MOTOR_CHECK_PI_WALK_STEPS = 0x40044D0A,  // steps; a walk that watches the PI sensor; negative result: not supported
  MOTOR_SELECT_DEVICE = 0x40044D0D,        // channel that later requests address
  MOTOR_SET_PI_POWER_ON = 0x4D0E,          // no argument
  MOTOR_SET_PI_POWER_OFF = 0x4D0F,         // no argument
};

// A GET takes no argument and returns the value.
enum EICSRequest : u32 {
  ICS_GET_FOCUS_PI_POSITION = 0x40045801,  // reference position
  ICS_GET_ZOOM_PI_POSITION = 0x40045802,
  ICS_GET_FOCUS_POSITION = 0x40045804,  // present position
  ICS_GET_ZOOM_POSITION = 0x40045807,
  ICS_GET_ZOOM_MIN = 0x40045808,
  ICS_GET_ZOOM_MAX = 0x40045809,
  ICS_GET_FOCUS_SPEED = 0x4004580F,  // steps per second
  ICS_GET_ZOOM_SPEED = 0x40045812,
  ICS_GET_FOCUS_HOME = 0x40045817,  // position taken at start
  ICS_GET_ZOOM_HOME = 0x4004581A,
  ICS_INIT_STEP_A = 0x4004581F,  // no argument, result ignored
  ICS_INIT_STEP_B = 0x40045820,
  ICS_SET_FOCUS_POSITION = 0x40045822,  // target; starts the move; negative result: lens detached
  ICS_SET_ZOOM_POSITION = 0x40045823,
  ICS_SET_FOCUS_SPEED = 0x40045825,  // steps per second
  ICS_SET_ZOOM_SPEED = 0x40045826,
  ICS_GET_AD_VALUE = 0x4004582B,  // temperature reading; negative result: lens detached
  ICS_GET_MIN_AD = 0x4004582C,
  ICS_GET_MAX_AD = 0x4004582D,
  ICS_GET_FOCUS_MIN = 0x4004582E,
  ICS_GET_FOCUS_MAX = 0x4004582F,
  ICS_CHECK_DETACHED = 0x40045830,  // argument 1; result 1: lens detached
};

// One request to a driver.  The argument goes through ioctl's variable arguments, where the kernel reads a long.
inline i32 Motor_Request(i32 fd, u32 dwRequest) {
  return ioctl(fd, dwRequest);
}
inline i32 Motor_Request(i32 fd, u32 dwRequest, i32 iArgument) {
  return ioctl(fd, dwRequest, static_cast<long>(iArgument));
}
