// The daemon's first promise: a position that it tells is true, also after a power cut.  This page says which words
// bear the promise, and in what order a start finds the lens again.
//
//   word                        set                              cleared                          what it holds up
//   working log of an axis,     before each walk of the axis     when the result is saved and     nothing in this life:
//   found at a file on flash             (dispatch.cpp); by               no channel is lost (dispatch),   a start it
//   is a power loss (core/working_log.h)        Recovery_LoseReferences          no search of the focus missing
//   dwRestoreStatus             the status file, at the start    never; the file says "normal"    "restore", "backup":
//   no search
//                                                                once the event is queued         for the sensors at
//                                                                this start
//   bPowerLost                  start: a log, or a saved         never                            a walk to the
//   reference finds
//                               position that cannot be                                           all channels that are
//                               lost
//   bPowerLossChecked           main thread, once the recovery   never                            until then no
//   correction moves
//                               has been sent, if one is due                                      the focus
//                               (compensation/)
//   aeReference, by axis and    LOST: start, a driver's answer   the walk to the reference:       LOST, DOUBTED: the
//   next move channel                     that cannot be.  DOUBTED: start  KNOWN, or FAILED                 walks to
//   the reference first.
//                               of several channels                                               LOST, FAILED: the log
//                               stays
//   bReferenceDue, by axis      main thread, with the walk of    a command that walks is taken    a stop or wish
//   written over it:
//                               the recovery                                                      the walk is sent once
//                               more
//   tRecovery.aeMissing, by     NEEDS_REFERENCE: main thread.    a search has found focus, or a   the focus log stays,
//   and what channel of the focus        NEEDS_SEARCH: after the walk     client's own place is reached    is missing
//   is sent again tRecovery.bOvertaken        a newer command is taken         the recovery goes on             nothing
//   is sent again abNightModeUnknown,         with aeReference LOST at a       a search has found focus: its    the
//   walk to the reference is by channel                  start                            mode is the saved one
//   followed by a search
//
// The words are described in core/context.h, where each says which thread may touch it.  The focus thread's part of a
// recovery is motor/focus_recovery.h; the references are motor/reference.h.
//
// A cut 2.9 s into a zoom from 200 to 700 on a lens with zoom and focus; seconds after the next start:
//    0.0  both logs are found: every channel of both axes is lost.  The rest of the start goes its way.  Before the
//    first
//         client is served, both axes are sent to their reference.
//    4.2  The zoom is at 0 and saved, and its log goes.
//    6.2  The focus is at 0 and saved.  Its search begins, and its log stays until that has ended.
//   25.1  The focus is sharp and saved, and its log goes.
#pragma once

#include "core/context.h"

// Looks for working logs that the last life has left: bPowerLost.  If the power was lost, every reference is lost.
// Start-up, after the saved positions are read, and before anything makes a log.
void Recovery_LookAtLogs(TVernierLensdInfo* pThis);

// Loses every reference of both axes, and brings both logs to flash first: if the power is cut before the lens is
// found, the next start finds it.  Start-up, before the threads.
void Recovery_LoseReferences(TVernierLensdInfo* pThis);

// After a power loss, sends both axes of channel 0 to positioning.  Main thread, once, before the first input is
// served.
void VernierLensd_CheckPowerLoss(TVernierLensdInfo* pThis);
