// The daemon's first promise: the position that it reports is the true one, also after a power cut.  This page lists
// the words that bear the promise, and then shows how a start finds the lens again.
//
//   Word                  Set                              Cleared                        While it is set
//   --------------------  -------------------------------  -----------------------------  -------------------------
//   working log of an     before each walk of the axis;    after the walk, if the result  nothing in this life; the
//   axis, a file on       at a start that makes            is saved, no channel of the    next start finds a power
//   flash                 references LOST because of the   axis is LOST or FAILED, and    loss
//                         status file or of wrong saved    (focus log) no recovery is
//                         positions                        unfinished
//
//   dwRestoreStatus       at each start, from the status   never; the file says "normal"  "restore", "backup": an
//                         file; no file means "restore"    at the latest when the event   event is queued, and this
//                                                          is queued                      start makes no PI pass
//
//   bPowerLost            at a start that finds a working  never                          both axes are sent to
//                         log or wrong saved positions,                                   their reference; such a
//                         or has loaded none                                              command also finds the
//                                                                                         other LOST channels
//
//   bPowerLossChecked     before the first input is        never                          corrections may move the
//                         served, after a recovery that                                   focus; before, none does
//                         is due has been sent
//
//   aeReference LOST, by  at a start after a power loss;   a walk to the reference:       the next move or search
//   axis and channel      at a start with a restore due,   KNOWN, or FAILED if it was     first walks to the
//                         or a backup of several           not found                      reference; the log stays
//                         channels; by a driver's answer
//                         that leaves the position open;
//                         if the search for the sensor
//                         could not begin
//
//   aeReference FAILED    a walk to the reference, or the  a later walk to the reference  the log stays
//                         PI pass, has not found it        finds it
//
//   aeReference DOUBTED   at a start with several          as LOST                        the next move or search
//                         channels, if the axis has no                                    first walks to the
//                         sensor                                                          reference
//
//   bReferenceDue, by     with the recovery's command to   the axis's thread takes a      after a stop or a wish in
//   axis                  walk to the reference            command that walks             its place, that walk is
//                                                                                         sent once more
//
//   tRecovery.aeMissing,  NEEDS_REFERENCE: with the        a search has found focus, or   the focus log stays;
//   by channel of the     recovery's command.              a move that is no correction   after a wish, the missing
//   focus                 NEEDS_SEARCH: after the walk to  has reached its target         part is sent again
//                         the reference; see
//                         abNightModeUnknown
//
//   tRecovery.bOvertaken  the focus thread takes a newer   a positioning or a search      the missing part is not
//                         command than the recovery's      takes the recovery over        sent again
//
//   abNightModeUnknown,   at a start that makes            a search has found focus; its  a positioning, and a
//   by channel            references LOST; also on an ICS  day/night mode becomes the     motor reset in a
//                         lens                             saved one                      recovery, leave a search
//                                                                                         to be made
//
// A wish is a command of the focus that walks nothing (iris, focus default).  No reference of an ICS lens is ever LOST,
// FAILED or DOUBTED: its driver knows where it stands.  core/context.h names the threads that may touch the words;
// see also motor/focus_recovery.h and motor/reference.h.
//
// Example: the power was cut 2.9 s into a zoom from 200 to 700.  The lens has zoom and focus.  Seconds after the start:
//    0.0  Both logs are found, so every channel of both axes is LOST.  The rest of the start follows.  Before the first
//         client is served, both axes are sent to their reference.
//    4.2  The zoom is at 0 and saved.  Its log is removed.
//    6.2  The focus is at 0 and saved.  Its search begins.  Its log stays until the search has found focus.
//   25.1  The focus is sharp and saved.  Its log is removed.
#pragma once

#include "core/context.h"

// Looks for working logs that the last life has left, and sets bPowerLost if there is one.  After a power loss every
// reference becomes LOST.  Start-up, after the saved positions are read, and before anything makes a log.
void Recovery_LookAtLogs(TVernierLensdInfo* pThis);

// Makes every reference of both axes LOST, and brings both logs to flash first: if the power is cut before the lens is
// found, the next start sees a power loss.  Start-up, before the threads.
void Recovery_LoseReferences(TVernierLensdInfo* pThis);

// After a power loss, sends both axes to their reference, with a command for channel 0.  Main thread, once, before the
// first input is served.
void VernierLensd_CheckPowerLoss(TVernierLensdInfo* pThis);
