// A report as a picture.
#pragma once

#include "day/day.h"

// On stdout, 96 columns wide: temperature, focus and sharp position over the days, and the error below.  The report has
// samples.
void DayPlot_Print(const TDayReport& tReport);

// The same as an SVG document.  0; -1 if the file cannot be written.
i32 DayPlot_WriteSvg(const TDayReport& tReport, const char* pszPath);
