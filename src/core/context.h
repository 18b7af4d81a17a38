// The records that the whole daemon shares: its context, its configuration, the command records, and the globals.
//
// There is one TVernierLensdInfo.  VernierLensd_Main keeps it in its stack frame, zeroes it before anything else, and
// hands a pointer to every operation and to both motor threads.  Arrays by channel have iMaxChannels entries; channel
// numbers run from 0 to iMaxDevNum - 1.  A position counts virtual steps.  Times are microseconds unless a field says
// otherwise.
//
// Who touches what: a field marked "shared" is touched by more than one thread and goes through Word_Load, Word_Store,
// Word_Take and Word_Publish only.  A field without the mark is written before the thread that reads it is started, or
// belongs to the main thread.
#pragma once

#include <pthread.h>
#include <semaphore.h>
#include <sys/select.h>

#include <atomic>
#include <cstddef>
#include <ctime>

#include "core/types.h"

struct TCurveRow;
struct TSXMLParser;
struct TTemperature;

constexpr i32 iMaxChannels = 4;

// Values of dwRestoreStatus: the action that the status file asks for at this start.
enum ERestoreStatus : u32 { STATUS_RESTORE = 0, STATUS_BACKUP = 1, STATUS_NORMAL = 2 };

// Values of TMotorCommand::dwFunction.  There is no 10.
enum EFunction : u32 {
  FUNCTION_IDLE = 0,
  FUNCTION_ZOOM = 1,
  FUNCTION_FOCUS = 2,
  FUNCTION_AUTO = 3,
  FUNCTION_SCAN = 4,
  FUNCTION_POSITIONING = 5,
  FUNCTION_MOTORRESET = 6,
  FUNCTION_GETSTATUS = 7,
  FUNCTION_GETPARAM = 8,
  FUNCTION_STOP = 9,
  FUNCTION_IRISOPEN = 11,
  FUNCTION_IRISENABLE = 12,
  FUNCTION_RESETFOCUS = 13,
  FUNCTION_GETFOCUSDEFAULT = 14,
  FUNCTION_SETFOCUSDEFAULT = 15,
};

enum EDirection : u32 { DIRECTION_FORWARD = 0, DIRECTION_BACKWARD = 1, DIRECTION_DIRECT = 2 };

enum ECapability : u32 {
  CAPABILITY_NONE = 0,
  CAPABILITY_ZOOM_AND_FOCUS = 1,
  CAPABILITY_ZOOM_ONLY = 2,
  CAPABILITY_FOCUS_ONLY = 4,
};

enum ELensKind : u32 { LENS_KIND_ICS = 0, LENS_KIND_THERMAL = 1, LENS_KIND_OTHER = 2 };

// One command, as parsed from a client's request, or in the block of a motor thread, where all words are shared.
struct TMotorCommand {
  u32 dwFunction;         // EFunction; in a block: pending or running, 0 when the axis is idle
  u32 dwDirection;        // EDirection
  u32 dwSteps;            // virtual steps of a forward or backward move
  u32 dwPosition;         // target of a direct move; in a getparam request the index into the focus value table
  u32 dwDefaultPosition;  // new default focus position (setfocusdefault)
  u32 dwStart;            // first position of the axis's usable range; for focus the lower bound of a search
  u32 dwEnd;              // last position of that range
  u32 bIris;              // open the iris for the focus search
  u32 bZoomContinuous;    // zoom block only: the zoom button is held and the zoom thread repeats its move
};
static_assert(sizeof(TMotorCommand) == 36 && offsetof(TMotorCommand, dwDefaultPosition) == 16 &&
              offsetof(TMotorCommand, bZoomContinuous) == 32);

// A parsed request, in the stack frame of the client handler, which zeroes it first.
struct TClientRequest {
  i32 fdRequest;  // the requester's connection; every reply ends by closing it
  i32 iChannel;   // channel named by the query, 0 if none
  TMotorCommand atCommand[iMaxChannels];
};

// How far the position counter of an axis can be trusted, by channel.  While a channel is LOST or FAILED, the axis's
// working log stays, so that the next start finds the lens again.
enum EReference : u32 {
  REFERENCE_KNOWN = 0,
  REFERENCE_LOST = 1,    // the next move first walks to the reference
  REFERENCE_FAILED = 2,  // the walk did not find the reference; moves go on from the counter as it is
  // All channels took the one saved position at the start.  The next move first walks to the reference here too, but no
  // log stays: the next start will be in doubt anyway, and an orderly restart is no power loss.
  REFERENCE_DOUBTED = 3,
};

// Names a command by channel and number.  Both axes share one count of commands: a newer command has a higher number.
// Numbers wrap, so only differences count.  What one request or event asks of both axes at once has one number.
struct TCommandId {
  i32 iChannel;
  u32 dwNumber;
};

// Wishes: commands of the focus that walk nothing and have not been carried out yet.  The last one of each kind counts.
enum EIrisWish : u32 { IRIS_NO_WISH = 0, IRIS_GIVE_BACK = 1, IRIS_OPEN = 2 };
struct TFocusWishes {
  u32 aeIris[iMaxChannels];  // EIrisWish
  u32 bDefaultPosition;      // dwDefaultPosition is to become the default focus position
  u32 dwDefaultPosition;
};

// What a power cut, or a restore at the start, leaves to be done for the focus (motor/focus_recovery.h).
struct TRecovery {
  TCommandId tGoesOn;           // the command that the recovery is part of
  u32 bOvertaken;               // a newer command has been taken: the recovery sends nothing by itself
  u32 aeMissing[iMaxChannels];  // ERecovery: what is still to be done
};

// How far a pass of the daemon's own focus corrections has come (compensation/periodic.h).  A pass claims a move, waits
// until the dispatcher has run that move, and goes on.
enum ECorrection : u32 {
  CORRECTION_NONE = 0,  // no pass is under way
  CORRECTION_DAY_NIGHT = 1,
  CORRECTION_TEMPERATURE = 2,
  CORRECTION_OVER = 3,  // the pass ends after the move that it claimed last
};

// Indices of a thermal check into its table.  They carry over from channel to channel: a lookup that finds nothing
// leaves the index of the channel before.
struct TTableIndices {
  i32 iZoomPositionIndex;
  i32 iCurrTempIndex;
  i32 iRefTempIndex;
};

struct TCorrections {
  u32 eCorrection;    // ECorrection
  i32 iChannel;       // the channel that the pass has reached; -1: none so far
  i32 iTemperature;   // thermal: degrees Celsius of this pass
  i32 iMinute;        // thermal: minute of this pass
  TTableIndices tAt;  // thermal
  u32 dwTravel_us;    // thermal: duration of the move that was claimed last
};

// What a motor thread's block needs beside its own words (motor/command_box.h).  The lock is held only while a few
// words are read or written, never during a wait or a driver request.
struct TCommandBox {
  pthread_mutex_t mutex;          // held while block, channel and wake flag are written or taken, or the block set idle
  i32 iChannel;                   // under the lock: channel of the command in the block
  TMotorCommand tRunning;         // owner thread; writes dwFunction under the lock, where others may read that word
  i32 iRunningChannel;            // owner thread only: channel of tRunning
  u32 dwNumber;                   // under the lock: number of the command in the block (TCommandId)
  u32 dwRunningNumber;            // owner thread only: number of tRunning
  u32 bStop;                      // under the lock: that command is a stop; a wish may have been written over it
  u32 bRunningStop;               // owner thread only: bStop as it was when tRunning was taken
  u32 dwFollowOwed;               // focus only, under the lock: number of a zoom that the focus has not begun to follow
  TFocusWishes tWishes;           // under the lock; focus only
  TRecovery tRecovery;            // focus only: main thread before the first command, then focus thread
  u32 bStarted;                   // main thread only: the motor thread runs or has run
  u32 bReferenceDue;              // under the lock: a recovery was sent, and no command that walks has been taken since
  u32 bClaimed;                   // owner thread only: tRunning is a correction of the daemon's own
  u32 bEnded;                     // shared: the motor thread has left its loop and touches nothing any more
  u32 bBusy;                      // under the lock: the motor thread is inside its dispatcher
  u32 aeReference[iMaxChannels];  // shared: EReference by channel; start-up and the owner thread write
};

// The focus statistics block: 32 bytes of System V shared memory per channel, between the daemon and the camera's image
// side, its peer.  There is no lock: both touch each word through Word_* only.  Each comment names the writer first.
struct TFocusBlock {
  u32 bFocusValueWanted;  // daemon: 1 while a sweep is reading values
  u32 dwFocusValue;       // peer: sharpness of the present image; higher is sharper
  u32 bIrisPending;       // daemon sets it after dwIrisRequest, peer clears it
  u32 dwIrisRequest;      // daemon: 1 open the iris fully, 0 give it back; the peer may change it
  u32 dwDayNightMode;     // peer: 0 day, else night
  u32 bAutoFocusBusy;     // daemon: 1 while auto focus or focus scan runs
  u32 dwZoomPosition;     // daemon: virtual steps
  u32 dwFocusPosition;    // daemon: virtual steps
};
static_assert(sizeof(TFocusBlock) == 32 && offsetof(TFocusBlock, dwDayNightMode) == 16 &&
              offsetof(TFocusBlock, dwFocusPosition) == 28);

constexpr u32 dwMaxEventFrame = 1023;  // bytes of header and payload

// The bytes of an event FIFO frame that have been read so far.  Main thread.
struct TEventFrame {
  u8 abBytes[dwMaxEventFrame + 1];  // followed by a NUL
  u32 dwHave;                       // bytes read; 0: no frame has begun
  u32 dwTotal;                      // bytes of the whole frame
  u32 dwType;
  u32 dwHeaderLength;
  u32 dwBegun_ms;  // Clock_Milliseconds when the header was read
};

struct TVernierLensdInfo {
  u32 dwPid;
  i32 iCurChannel;   // shared: channel that clients and events chose last; the main thread writes
  u32 dwLensKind;    // ELensKind
  void* hXMLParser;  // Expat parser, handed to the message library
  TSXMLParser* hSXMLParser;
  TTemperature* hTemperature;
  void* hGateLink;        // null while the gateway is closed
  i32 iMaxFd;             // highest descriptor ever entered in fdsRead; only rises
  i32 fdGateLink;         // -1 none
  i32 fdFIFO;             // -1 none
  i32 fdICS;              // -1 none
  i32 fdInstance;         // lock file that claims the camera; -1 none
  fd_set fdsRead;         // what the main loop watches
  u32 dwButtonPressTime;  // shared; ms of the wall clock, wraps: only differences count; the main thread writes
  u32 adwFocusValue[iMaxChannels];
  void* hFocusThread;
  u32 bFocusWake;                           // shared: a new command stands in tFocusCommand
  u32 bThermalRecheck;                      // shared
  u32 adwFocusMotorPosition[iMaxChannels];  // shared; virtual steps
  u32 adwPanFocus[iMaxChannels];            // shared
  TMotorCommand tFocusCommand;              // shared
  void* hZoomThread;
  u32 bZoomWake;                             // shared: a new command stands in tZoomCommand
  u32 dwChainedFocusCommand;                 // search to start after a zoom; nothing sets it
  u32 adwZoomMotorPosition[iMaxChannels];    // shared; virtual steps
  TMotorCommand tZoomCommand;                // shared
  TFocusBlock* aptFocusBlock[iMaxChannels];  // null: not attached
  i32 iShmId;
  sem_t semConfigFile;     // orders the writers of the state files
  i32 aiFocusWakePair[2];  // socket pair: senders write to [0], the focus thread reads [1]; -1 none
  i32 aiZoomWakePair[2];   // the same for the zoom thread
  u32 bFocusWakeReady;     // shared: aiFocusWakePair exists; published after it
  u32 bZoomWakeReady;      // shared: the same for aiZoomWakePair
  u32 bSupportZoom;
  u32 bSupportFocus;
  u32 bSupportICS;
  u32 bICSDetached;    // shared: the ICS lens has stopped answering
  u32 dwICSZoomSpeed;  // steps per second
  u32 dwICSFocusSpeed;
  i32 iTrackingCurveIndex;             // shared: the curve in use, one for all channels
  i32 aiNightMode[iMaxChannels];       // shared: day/night mode that the focus was moved for last
  u32 bDayNightCorrection;             // shared
  u32 bThermalShift;                   // shared
  struct tm* ptTime;                   // of the last temperature check
  i32 iInitTime;                       // tm_min of the last check that ran
  i32 aiRefTemperature[iMaxChannels];  // degrees Celsius at which the focus position is right
  i32 iMin;                            // ends of the temperature band of an ICS lens, degrees Celsius
  i32 iMax;
  i32 iThermalTempCount;   // columns
  i32* piThermalTemp;      // degrees Celsius, ascending
  i32 iThermalZoomCount;   // rows
  i32* piThermalZoom;      // zoom positions, ascending
  i32** ppiThermalOffset;  // rows of focus positions by column

  // Command boxes, recovery, corrections, and the bytes of the event FIFO.
  TCommandBox tFocusBox;
  TCommandBox tZoomBox;
  u32 bConfigSemaphore;                  // semConfigFile exists
  u32 bPidFile;                          // the PID file is ours
  u32 bPowerLost;                        // the last life left a working log, or impossible positions; start-up writes
  u32 bPowerLossChecked;                 // shared: a recovery that is due has been sent, and periodic work may begin
  i32 aiSavedNightMode[iMaxChannels];    // shared: the mode that belongs to the focus position saved last
  u32 abNightModeUnknown[iMaxChannels];  // start-up, then focus thread: the saved mode may not belong to the focus
                                         // position, until a search has found focus
  u32 abRefTemperature[iMaxChannels];    // start-up, then focus thread: aiRefTemperature is from a good reading
  u32 adwSearchStart[iMaxChannels];      // shared: the lower bound of a search at this channel's zoom;
                                         // tFocusCommand.dwStart is the one for the zoom that moved last
  TCorrections tCorrections;             // focus thread
  TEventFrame tEventFrame;
  u64 qwFIFORead;                  // main thread: bytes read from the FIFO
  u64 qwFIFORestored;              // main thread: the last restore serves all restore frames up to this byte
  pthread_mutex_t mutexXMLParser;  // held from a file's parse with hSXMLParser to the last lookup in it
};

struct TVernierLensdConfigInfo {
  i32 iMaxDevNum;  // channels, at most iMaxChannels once loaded
  u32 dwZoomVirtualStart;
  u32 dwZoomVirtualEnd;
  u32 dwZoomVirtualOneStep;  // driver steps in one virtual step
  u32 dwZoomVirtualTotalStep;
  u32 dwZoomMotorTotalStep;
  u32 dwZoomMotorPositioningStep;  // driver steps
  u32 dwZoomOneStepTime;           // us for one virtual step
  u32 dwZoomAdjustStep;            // backlash, virtual steps
  u32 bZoomPISupport;
  u32 dwZoomPISearchStep;  // driver steps, as the next two
  u32 dwZoomPIForwardShift;
  u32 dwZoomPIBackwardShift;
  u32 dwZoomPIDev;  // shared: channel that the zoom thread's PI pass has reached
  u32 bZoomPIDone;  // shared
  u32 dwFocusVirtualStart;
  u32 dwFocusVirtualEnd;
  u32 dwFocusVirtualOneStep;
  u32 dwFocusVirtualTotalStep;
  u32 dwFocusMotorTotalStep;
  u32 dwFocusMotorPositioningStep;
  u32 dwFocusMotorReverseCalibration;  // the reference stop is at the end of the range, not at 0
  u32 dwFocusOneStepTime;
  u32 dwFocusAdjustStep;
  u32 bFocusPISupport;
  u32 dwFocusPISearchStep;
  u32 dwFocusPIForwardShift;
  u32 dwFocusPIBackwardShift;
  u32 dwFocusPIDev;  // shared
  u32 bFocusPIDone;  // shared
  u32 dwFlangeBackCompensation;
  i32 iSearchRangeFirstLevel;  // virtual steps, as the next five
  i32 iSearchRangeSecondLevel;
  i32 iSearchRangeThirdLevel;
  u32 dwSearchStepFineTune;
  u32 dwSearchStepSmall;
  u32 dwSearchStepLarge;
  char szFocusStartTable[128];  // comma-separated numbers; the parser overwrites it
  u32 dwOneStepSearchTime;      // us
  u32 dwOpenIrisTime;           // us
  u32 bBlockingMode;            // a move is one blocking request, else the daemon times it step by step
  u32 bFineTuning;
  u32 dwCapability;  // ECapability
  i32 iTrackCurveCount;
  i32 iTempCurveCount;
  i32 iIRCurveCount;
  i32 iADCurveCount;
  u32 dwMinAD;
  u32 dwMaxAD;
  u32 dwTotalAD;
  i32 iFocusValueTableSize;   // entries in a channel's row of the focus value table
  i32 iZoomPositionInterval;  // virtual steps; 0 for a range below 16 of them: divide by at least 1
  u32 dwRestoreStatus;        // ERestoreStatus
};
static_assert(offsetof(TVernierLensdConfigInfo, dwFocusVirtualStart) == 15 * sizeof(u32) &&
              offsetof(TVernierLensdConfigInfo, szFocusStartTable) == 37 * sizeof(u32) &&
              sizeof(TVernierLensdConfigInfo) == (37 + 32 + 15) * sizeof(u32));

extern TVernierLensdConfigInfo g_tVernierLensdConfigInfo;

extern std::atomic<u32> g_bTerminated;           // set by the signal handler, read by the main loop and by long waits
extern std::atomic<u32> g_bRunThread;            // while 1 all three loops run
extern std::atomic<u32> g_bIrisFullyOpenStatus;  // the iris is held fully open by command
extern std::atomic<u32> g_dwFocusDefault;        // default focus position, virtual steps
static_assert(std::atomic<u32>::is_always_lock_free);  // a signal handler stores one

// True once the signal to end has come, or a motor thread has ended.  From then on nothing new is begun, and a move
// under way is finished.  Any thread.
inline bool Daemon_IsEnding() {
  return g_bTerminated.load() != 0 || g_bRunThread.load() == 0;
}

extern pthread_mutex_t gICSMutex;  // held during each sequence of requests to fdICS

// Each table is null or complete, and belongs to the daemon until VernierLensd_Release.
extern u32* g_pdwtabFocusValueTable;     // iMaxDevNum rows of iFocusValueTableSize focus values; words shared
extern u32* g_pdwtabFocusPanTable;       // dwZoomVirtualTotalStep entries, plain lens with zoom only
extern u32* g_pdwtabFocusingStartTable;  // iFocusStartEntries entries, plain lens with zoom only
extern i32* g_pdwtabFocusShiftTable;     // plain lens with focus only; see compensation/focus_shift_table.h

constexpr i32 iFocusStartEntries = 16;

// The curve tables of an ICS lens.  The loads in ics/curve_tables.h fill them at start-up; later they are only read.  A
// row is null if its file was incomplete.
extern TCurveRow** g_pdwtabTrackingCurveTable;  // iTrackCurveCount rows: zoom position to focus position
extern u32* g_pdwtabObjDistTable;               // object distance of each tracking curve
extern TCurveRow** g_pdwtabTempCurveTable;      // iTempCurveCount rows: change of temperature to focus shift
extern i32* g_pdwtabZoomTempTable;              // zoom position of each temperature curve, ascending
extern u32* g_pdwtabBaseTempTable;              // base temperature of each temperature curve
extern TCurveRow* g_pdwtabRawADCurveTable;      // sensor reading to hundredths of a kelvin
extern i32* g_pdwtabADValueTable;               // dwTotalAD whole degrees Celsius, from reading dwMinAD downward
extern TCurveRow* g_pdwtabIRCurveTable;         // zoom position to night focus shift
extern u32* g_pdwtabWaveLenTable;               // wave length code of each of the iIRCurveCount files
extern i32* g_pdwtabICSNightFocusShiftTable;    // dwZoomVirtualTotalStep shifts, from dwZoomVirtualStart upward
