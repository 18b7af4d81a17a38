// The curve files of an ICS lens, and the two tables that are worked out from them once at start-up.
//
// A curve file holds hexadecimal tokens separated by white space: one that is skipped, two integers, then c0 to c10 as
// the bits of single-precision numbers, then an unused word.  Reading ends at the end of the file, after the 15th
// token, or at a token that is no 32-bit hexadecimal number.  A file that ends before c10 gives a null row, with a line
// printed: no curve is ever evaluated with only a part of its coefficients.
//
// The numbers of files come from the configuration.  A negative number counts as 0; one above dwMaxTableEntries makes
// the load fail.
//
// Loads: start-up, main thread.  Each load first frees the tables of its earlier call, so with several channels the
// last channel's tables remain.  It returns 0, or -1 with a line printed if a file cannot be opened or a table cannot
// be allocated; rows that were read before stay.  The focus thread reads the tables of the first three loads from its
// start on.  It already runs during ICS_LoadIRValue, but uses that table only once bFocusWakeReady is published.
#pragma once

#include "core/context.h"
#include "ics/curve.h"

// Tracking curves: zoom position to focus position, a curve for each object distance.
i32 ICS_LoadTrackCurve(TVernierLensdInfo* pThis);

// AD curve: sensor reading to temperature.  Asks the driver for the range of readings and tabulates the curve over it.
// Of several files the last one's coefficients count.  Returns 0 without a table if that file is not whole, or if the
// range is unusable: the driver left out an end, the ends are swapped, or there are more than dwMaxTableEntries.
i32 ICS_LoadADValue(TVernierLensdInfo* pThis);

// Temperature curves: change of temperature to focus shift, a curve for each zoom position.
i32 ICS_LoadTempCurve(TVernierLensdInfo* pThis);

// IR curve: zoom position to night focus shift, tabulated over the zoom range.  Chooses the last file with wave length
// code 1, or else file 0.  Also returns -1 if the chosen file is not whole: there is then no night shift, and the
// caller switches the correction off.  Returns 0 without a table if the zoom range is empty.
i32 ICS_LoadIRValue(TVernierLensdInfo* pThis);

// Returns the curve of a row, or null if there is no such row or it did not load whole.  Any thread, after the loads.
const TCurveRow* ICS_TrackingCurve(i32 iRow);
const TCurveRow* ICS_TempCurve(i32 iRow);

// Returns the whole degrees Celsius of a sensor reading.  A reading outside the table takes the table's nearer end, a
// negative reading the last entry.  Without a table the result is always 0.  Any thread, after the loads.
i32 ICS_ADToTemperature(i32 iAD);

// Frees every table of the ICS lens and clears its pointer.  Idempotent.  No other thread may still be running.
void ICSTables_Release();
