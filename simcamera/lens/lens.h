// The true lens of the simulated camera: what motors, gears and glass really do, whatever the daemon believes.
//
// A TLens is plain memory without pointers.  It lies in the mapping of a TWorld and outlives the daemon; the image side
// and the command line see it too.  Callers hold the world's lock (at a speed) or are the only thread that runs (on the
// virtual clock).  Times are microseconds of the camera's own clock and never go back.
//
// A stepper axis.  Rotor and glass are counted in driver steps from the low end stop.  A walk begins with its request
// and takes the step time for each driver step.  To settle a walk to a time means: the rotor moves by the whole steps
// that have passed.  A rotor that reaches an end stop loses the remaining steps.  The glass follows the rotor through
// the gear slack.  Driven forward it stands at the rotor, driven backward by the slack above it; in between the glass
// stays where it is, so that
//     rotor <= glass <= rotor + slack   (a backward walk takes up the slack before the glass moves).
// Position 0 of the daemon's counter is the rotor at iOrigin.  That is 0, the low end stop, for a lens that finds its
// reference by running into the stop; with a PI sensor the first position may lie above the stop.
//
// A stepper driver is open loop: it counts the steps that it sends, whether the rotor follows or not.  A direction
// holds for later walks only.  A new walk ends the one that runs where it is and drops its rest.  The PI sensor tells
// on which side of it the rotor stands.  So MOTOR_SEARCH_PI walks towards the sensor from either side, at most by the
// count, and stops exactly at it; the direction of later walks stays as it was.  MOTOR_CHECK_PI_WALK_STEPS is a
// blocking walk in the set direction that ends early at the sensor, and it powers the sensor by itself.
#pragma once

#include "core/types.h"

constexpr i32 iLensChannels = 4;
enum ELensAxis : u32 { LENS_ZOOM = 0, LENS_FOCUS = 1, LENS_AXES = 2 };
enum ELensDevice : u32 { DEVICE_FOCUS_MOTOR, DEVICE_ZOOM_MOTOR, DEVICE_ICS, DEVICE_I2C };

struct TAxisModel {
  u32 bPresent;
  i32 iTravel;            // driver steps between the end stops; 0..iTravel are the rotor's places
  i32 iOrigin;            // rotor place of the daemon's position 0
  i32 iSlack;             // driver steps of gear slack
  i32 iDriverPerVirtual;  // driver steps in one virtual step, for reports only
  i32 iPI;                // place of the PI sensor, -1 none
  u32 bCheckPIWalk;       // MOTOR_CHECK_PI_WALK_STEPS is supported
  u64 qwStepTime_ns;      // of one driver step
};

constexpr u64 qwFrameTime_us = 33'333;  // frame follows frame, the first begins at time 0

struct TAxisTruth {
  i32 iRotor;        // driver steps, settled to the last request's time
  i32 iGlass;        // driver steps
  u64 qwFrame;       // number of the frame that was under way when the axis was settled last
  i32 iFrameGlass;   // driver steps: the glass at that frame's beginning, the end of the last whole frame
  u32 bForward;      // direction of later walks
  u32 bSticky;       // stall fault: the rotor does not turn while this is set (its walks take their time all the same)
  i32 iSlipOneIn;    // slip fault: one driver step in so many is lost, 0 none
  i32 iSlipCount;    // driver steps since the last lost one
  i32 iSlipNow;      // slip fault: so many of the next driver steps are lost
  i32 iLostToStops;  // driver steps lost so far to an end stop, and to faults; both only grow
  i32 iLostToFaults;
  // The walk under way; iWalkCount 0 none.
  i32 iWalkCount;  // driver steps asked for
  i32 iWalkDone;   // driver steps settled so far
  u32 bWalkForward;
  u64 qwWalkStart_us;
};

struct TICSAxisTruth {
  i32 iMin, iMax, iPI, iHome, iSpeed;  // positions; steps per second
  i32 iFrom, iTarget;                  // the last move, under way or done; at speed 0 the axis stands still
  u64 qwMoveStart_us;
};

// Requests that a stepper driver handles wrongly: after iPassed good ones the next iTimes.
struct TDriverFault {
  u32 dwRequest;  // only requests of this kind; 0: of every kind
  i32 iPassed;
  i32 iTimes;  // 0 none
  i32 iAdded;  // 0: they fail with EIO and do nothing; else they are done, and their answer is too high by this
};

struct TLens {
  TAxisModel atModel[LENS_AXES];
  TAxisTruth atAxis[iLensChannels][LENS_AXES];
  u32 adwSelected[LENS_AXES];      // channel that MOTOR_SELECT_DEVICE chose, by device
  u32 bPIPower;                    // power of the PI sensors: one switch for both axes and all channels
  TICSAxisTruth atICS[LENS_AXES];  // the ICS driver's axes; settling copies their places to atAxis of every channel
  TAxisModel tParkModel;           // of an ICS lens: the parking motor at /dev/focusmotor, which moves no glass
  TAxisTruth tParkAxis;
  TDriverFault atFault[LENS_AXES];
  u32 bICS;          // an ICS lens
  u32 bICSDetached;  // the ICS lens does not answer
  u32 bICSGetsFail;  // its driver has no values: every GET fails, but the lens still moves
  i32 iAD, iMinAD, iMaxAD;
  u64 qwRequests;         // driver requests so far
  u64 qwDetachAtRequest;  // from this request on the ICS lens does not answer; 0 never
};

// A driver's answer to a request.
struct TDriverAnswer {
  i32 iResult;  // the ioctl's return value; below 0 with iErrno set
  i32 iErrno;
  u64 qwUntil_us;  // a blocking request returns at this time; at once if the time has passed
};

// One request to a driver at a time.  Unknown requests give -1 and ENOTTY; a selected channel outside 0..3 or a
// negative count of steps gives -1 and EINVAL.
TDriverAnswer Lens_Request(TLens* ptLens, ELensDevice eDevice, u32 dwRequest, i32 iArgument, u64 qwNow_us);

// Brings every axis to where it stands at the given time.
void Lens_Settle(TLens* ptLens, u64 qwNow_us);

// Detaches the ICS lens: it stops answering, and its axes stay where they are at that time.  Or attaches it again.
void Lens_SetDetached(TLens* ptLens, bool bDetached, u64 qwNow_us);

// Cuts the power: every walk and move ends where it is at that time.
void Lens_PowerCut(TLens* ptLens, u64 qwNow_us);

// True if the request takes an argument.  If it does not, the argument of the ioctl is garbage and must not be used.
bool Lens_RequestHasArgument(ELensDevice eDevice, u32 dwRequest);

// The request's name as in motor/motor_device.h, or null if there is no such request.
const char* Lens_RequestName(ELensDevice eDevice, u32 dwRequest);

// Rotor and glass of an axis in virtual steps, and the glass at the end of the last whole frame.
double Lens_TrueVirtual(const TLens* ptLens, i32 iChannel, ELensAxis eAxis);
double Lens_GlassVirtual(const TLens* ptLens, i32 iChannel, ELensAxis eAxis);
double Lens_FrameGlassVirtual(const TLens* ptLens, i32 iChannel, ELensAxis eAxis);

// An axis that is settled to qwNow_us: a walk is under way, and its rotor turns.  A rotor that stalls or is at its stop
// does not turn, though the walk goes on.
bool Lens_AxisWalks(const TLens* ptLens, i32 iChannel, ELensAxis eAxis, u64 qwNow_us);
bool Lens_AxisTurns(const TLens* ptLens, i32 iChannel, ELensAxis eAxis, u64 qwNow_us);

// True while an axis of any channel is moving at the given time.
bool Lens_IsMoving(const TLens* ptLens, u64 qwNow_us);
