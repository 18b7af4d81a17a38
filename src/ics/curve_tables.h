// The curve files of an ICS lens, and the two tables that are worked out from them once at start-up.
//
// A curve file holds hexadecimal tokens separated by white space: one that is skipped, two integers, then c0 to c10 as
// the bits of single-precision numbers, then a word without a use.  Reading ends at the end of the file, behind the
// 15th token, or at one that is no 32-bit hexadecimal number.  A file that ends before c10 gives no row: where a row is
// wanted stands null, with nothing printed, and no curve is ever evaluated on half of its coefficients.
//
// Counts come from the configuration: a negative one is 0, one above dwMaxTableEntries makes the load fail.
//
// Loads: start-up, main thread.  Each frees first what an earlier call of it left, so that of several channels the last
// one's tables stand.  0; -1: a file cannot be opened, or there is no table, with a line printed; rows read until then
// stay.  The focus thread reads the first three loads' tables from its start on.  It is running already during
// ICS_LoadIRValue, but does not look at that table before bFocusWakeReady is published.
#pragma once

#include "core/context.h"
#include "ics/curve.h"

// Tracking curves: zoom position to focus position, a curve for each object distance.
i32 ICS_LoadTrackCurve(TVernierLensdInfo* pThis);

// AD curve: sensor reading to temperature.  Asks the driver for the range of readings and tabulates the curve over it.
// Of several files the last one's coefficients stand.  0 without a table if that file is not whole or if the range is
// none: a reading that the driver did not give, the ends the wrong way round, or more than dwMaxTableEntries of them.
i32 ICS_LoadADValue(TVernierLensdInfo* pThis);

// Temperature curves: change of temperature to focus shift, a curve for each zoom position.
i32 ICS_LoadTempCurve(TVernierLensdInfo* pThis);

// IR curve: zoom position to night focus shift, tabulated over the zoom range.  Takes the last file with wave length
// code 1, or file 0.  Also -1 if the chosen file is not whole: there is no night shift then, and the caller switches
// the correction off.  0 without a table if the zoom range is empty.
i32 ICS_LoadIRValue(TVernierLensdInfo* pThis);

// The curve of a row, or null: no such row, or it did not load whole.  Any thread, behind the loads.
const TCurveRow* ICS_TrackingCurve(i32 iRow);
const TCurveRow* ICS_TempCurve(i32 iRow);

// Whole degrees Celsius of a sensor reading; one outside the table takes its nearer end, a negative one the last entry.
// 0 for every reading if there is no table.  Any thread, behind the loads.
i32 ICS_ADToTemperature(i32 iAD);

// Frees every table of the ICS lens, and leaves null behind.  No other thread runs any more.  Harmless twice.
void ICSTables_Release();
