// A report as a picture.
#pragma once

#include "day/day.h"

// Prints on stdout, 96 columns wide: temperature, focus and sharp position over the days, and the error below.  The
// report must have samples.
void DayPlot_Print(const TDayReport& tReport);

// Writes the same as an SVG document.  Returns 0, or -1 if the file cannot be written.
i32 DayPlot_WriteSvg(const TDayReport& tReport, const char* pszPath);
