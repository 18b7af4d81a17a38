#include "day/day_plot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

using FValue = double (*)(const TDaySample& tSample);
double Temperature(const TDaySample& tSample) {
  return tSample.dTemperature_C;
}
double Focus(const TDaySample& tSample) {
  return tSample.dFocus;
}
double Sharp(const TDaySample& tSample) {
  return tSample.dSharp;
}
double Allowed(const TDaySample& tSample) {
  return tSample.dAllowed;
}
double NotAllowed(const TDaySample& tSample) {
  return -tSample.dAllowed;
}
double Zero(const TDaySample&) {
  return 0;
}

struct TRange {
  double dLow, dHigh;
};

// The scales of both pictures.
struct TScales {
  TRange tTemperature_C, tSteps, tError, tHours;
};

TRange RangeOf(const TDayReport& tReport, std::initializer_list<FValue> apfnValues) {
  TRange tRange{INFINITY, -INFINITY};
  for (const TDaySample& tSample : tReport.atSamples) {
    for (const FValue pfnValue : apfnValues) {
      tRange.dLow = std::min(tRange.dLow, pfnValue(tSample));
      tRange.dHigh = std::max(tRange.dHigh, pfnValue(tSample));
    }
  }
  if (tRange.dHigh - tRange.dLow < 1) tRange.dHigh = tRange.dLow + 1;
  return tRange;
}

TScales ScalesOf(const TDayReport& tReport) {
  constexpr double dDay_h = 24, dHour_min = 60;
  return {.tTemperature_C = RangeOf(tReport, {Temperature}),
          .tSteps = RangeOf(tReport, {Focus, Sharp}),
          .tError = RangeOf(tReport, {Sample_Error, Allowed, NotAllowed}),
          .tHours = {0, std::ceil(tReport.atSamples.back().dwMinute / (dDay_h * dHour_min)) * dDay_h}};
}

double Hour(const TDaySample& tSample) {
  return tSample.dwMinute / 60.0;
}

double ShareOf(const TRange& tRange, double dValue) {
  return (dValue - tRange.dLow) / (tRange.dHigh - tRange.dLow);
}
double ValueAt(const TRange& tRange, double dShare) {
  return tRange.dLow + (tRange.dHigh - tRange.dLow) * dShare;
}

constexpr i32 iColumns = 80;
constexpr i32 iPlotRows = 19, iErrorRows = 9;

// Rows of a text picture, the lowest first.
struct TGrid {
  std::vector<std::string> asRows;
  TRange tHours;
};

i32 ColumnOf(const TRange& tHours, const TDaySample& tSample) {
  return std::clamp(static_cast<i32>(ShareOf(tHours, Hour(tSample)) * iColumns), 0, iColumns - 1);
}

// Draws a curve over the earlier ones.  Where it meets the curve with the mark cOther, it writes cBoth.
void Draw(TGrid& tGrid, const TDayReport& tReport, const TRange& tRange, FValue pfnValue, char cMark, char cOther = 0,
          char cBoth = 0) {
  const i32 iTop = static_cast<i32>(tGrid.asRows.size()) - 1;
  for (const TDaySample& tSample : tReport.atSamples) {
    const i32 iRow = static_cast<i32>(std::lround(ShareOf(tRange, pfnValue(tSample)) * iTop));
    char& cCell =
        tGrid.asRows[static_cast<std::size_t>(iRow)][static_cast<std::size_t>(ColumnOf(tGrid.tHours, tSample))];
    cCell = cOther != 0 && (cCell == cOther || cCell == cBoth) ? cBoth : cMark;
  }
}

TGrid NewGrid(i32 iRows, const TRange& tHours) {
  return {.asRows = std::vector<std::string>(static_cast<std::size_t>(iRows), std::string(iColumns, ' ')),
          .tHours = tHours};
}

// Prints the rows.  Every second one has its value on the left, and on the right if there is a right scale.
void PrintGrid(const TGrid& tGrid, const TRange& tLeft, const TRange* ptRight) {
  const i32 iTop = static_cast<i32>(tGrid.asRows.size()) - 1;
  for (i32 iRow = iTop; iRow >= 0; --iRow) {
    const double dShare = static_cast<double>(iRow) / iTop;
    const char* szRow = tGrid.asRows[static_cast<std::size_t>(iRow)].c_str();
    if (iRow % 2 != 0) {
      std::printf("%7s |%s|\n", "", szRow);
    } else if (ptRight == nullptr) {
      std::printf("%7.1f |%s|\n", ValueAt(tLeft, dShare), szRow);
    } else {
      std::printf("%7.1f |%s|%6.1f\n", ValueAt(tLeft, dShare), szRow, ValueAt(*ptRight, dShare));
    }
  }
}

void PrintHours(const TRange& tHours) {
  constexpr i32 iParts = 4;
  constexpr i32 iPart = iColumns / iParts;
  std::string sLine(9, ' '), sTicks = "        +";
  for (i32 i = 0; i < iParts; ++i) {
    char szHour[iPart + 1];
    std::snprintf(szHour, sizeof szHour, "%-*.0f", iPart, ValueAt(tHours, static_cast<double>(i) / iParts));
    sLine += szHour;
    sTicks += (i == 0 ? "-" : "+") + std::string(iPart - 1, '-');
  }
  std::printf("%s+\n%s%.0f h\n", sTicks.c_str(), sLine.c_str(), tHours.dHigh);
}

void PrintNights(const TDayReport& tReport, const TRange& tHours) {
  std::string sLine(iColumns, ' ');
  for (const TDaySample& tSample : tReport.atSamples) {
    if (tSample.bNight != 0) sLine[static_cast<std::size_t>(ColumnOf(tHours, tSample))] = '=';
  }
  std::printf("  night |%s|\n", sLine.c_str());
}

}  // namespace

void DayPlot_Print(const TDayReport& tReport) {
  const TScales tScales = ScalesOf(tReport);
  std::puts("  focus * and sharp position o, # where they agree: steps, left;  temperature : in C, right");
  TGrid tGrid = NewGrid(iPlotRows, tScales.tHours);
  Draw(tGrid, tReport, tScales.tTemperature_C, Temperature, ':');
  Draw(tGrid, tReport, tScales.tSteps, Sharp, 'o');
  Draw(tGrid, tReport, tScales.tSteps, Focus, '*', 'o', '#');
  PrintGrid(tGrid, tScales.tSteps, &tScales.tTemperature_C);
  PrintNights(tReport, tScales.tHours);
  PrintHours(tScales.tHours);
  std::puts("  error *, focus less sharp position, and what is allowed -: steps");
  tGrid = NewGrid(iErrorRows, tScales.tHours);
  Draw(tGrid, tReport, tScales.tError, Zero, '.');
  Draw(tGrid, tReport, tScales.tError, Allowed, '-');
  Draw(tGrid, tReport, tScales.tError, NotAllowed, '-');
  Draw(tGrid, tReport, tScales.tError, Sample_Error, '*');
  PrintGrid(tGrid, tScales.tError, nullptr);
  PrintHours(tScales.tHours);
}

namespace {

// A panel of the SVG: points of the document.
struct TPanel {
  double dTop, dHeight;
};
constexpr double dSvgWidth = 900, dSvgHeight = 560, dSvgLeft = 60, dSvgRight = 840;
constexpr TPanel g_tUpper{.dTop = 50, .dHeight = 290}, g_tLower{.dTop = 390, .dHeight = 120};
constexpr std::size_t dwSvgPoints = 480;  // a curve has at most so many

// How a curve is drawn: each has its own line style, so that they can be told apart without colour.
struct TPen {
  const char* szName;
  const char* szStroke;  // attributes
};
constexpr TPen g_tTemperaturePen{"temperature, °C (right)", "stroke='#c0392b' stroke-dasharray='2 3'"};
constexpr TPen g_tSharpPen{"sharp position, steps", "stroke='#555' stroke-dasharray='7 3'"};
constexpr TPen g_tFocusPen{"focus, steps", "stroke='#1f5fa8' stroke-width='1.6'"};
constexpr TPen g_tErrorPen{"error", "stroke='#1f5fa8' stroke-width='1.2'"};
constexpr TPen g_tAllowedPen{"allowed", "stroke='#555' stroke-dasharray='7 3'"};

double SvgX(const TScales& tScales, double dHour) {
  return ValueAt({dSvgLeft, dSvgRight}, ShareOf(tScales.tHours, dHour));
}
double SvgY(const TPanel& tPanel, const TRange& tRange, double dValue) {
  return tPanel.dTop + tPanel.dHeight * (1 - ShareOf(tRange, dValue));
}

void SvgText(FILE* pFile, double dX, double dY, const char* szAnchor, const char* szText) {
  std::fprintf(pFile, "<text x='%.1f' y='%.1f' text-anchor='%s'>%s</text>\n", dX, dY, szAnchor, szText);
}
void SvgNumber(FILE* pFile, double dX, double dY, const char* szAnchor, double dNumber) {
  char szNumber[32];
  std::snprintf(szNumber, sizeof szNumber, "%.0f", dNumber);
  SvgText(pFile, dX, dY, szAnchor, szNumber);
}

void SvgNights(FILE* pFile, const TDayReport& tReport, const TScales& tScales, const TPanel& tPanel) {
  const std::vector<TDaySample>& atSamples = tReport.atSamples;
  for (std::size_t dwFrom = 0, dwTo = 0; dwFrom < atSamples.size(); dwFrom = dwTo) {
    while (dwTo < atSamples.size() && atSamples[dwTo].bNight == atSamples[dwFrom].bNight) ++dwTo;
    if (atSamples[dwFrom].bNight == 0) continue;
    const double dFrom = SvgX(tScales, Hour(atSamples[dwFrom]));
    std::fprintf(pFile, "<rect x='%.1f' y='%.1f' width='%.1f' height='%.1f' fill='#eceef2'/>\n", dFrom, tPanel.dTop,
                 SvgX(tScales, Hour(atSamples[dwTo - 1])) - dFrom, tPanel.dHeight);
  }
}

// Draws the frame with the hours below and a scale on the left.  If ptRight is given, one on the right too.
void SvgFrame(FILE* pFile, const TScales& tScales, const TPanel& tPanel, const TRange& tLeft, const TRange* ptRight) {
  constexpr i32 iHours = 8, iValues = 4;
  const double dBottom = tPanel.dTop + tPanel.dHeight;
  std::fprintf(pFile, "<rect x='%.1f' y='%.1f' width='%.1f' height='%.1f' fill='none' stroke='#999'/>\n", dSvgLeft,
               tPanel.dTop, dSvgRight - dSvgLeft, tPanel.dHeight);
  for (i32 i = 0; i <= iHours; ++i) {
    const double dHour = ValueAt(tScales.tHours, static_cast<double>(i) / iHours);
    const double dX = SvgX(tScales, dHour);
    std::fprintf(pFile, "<path d='M%.1f %.1fv5' stroke='#999'/>\n", dX, dBottom);
    SvgNumber(pFile, dX, dBottom + 18, "middle", dHour);
  }
  SvgText(pFile, dSvgRight + 24, dBottom + 18, "middle", "h");
  for (i32 i = 0; i <= iValues; ++i) {
    const double dShare = static_cast<double>(i) / iValues;
    const double dY = dBottom - tPanel.dHeight * dShare;
    std::fprintf(pFile, "<path d='M%.1f %.1fH%.1f' stroke='#ddd'/>\n", dSvgLeft, dY, dSvgRight);
    SvgNumber(pFile, dSvgLeft - 6, dY + 4, "end", ValueAt(tLeft, dShare));
    if (ptRight != nullptr) SvgNumber(pFile, dSvgRight + 6, dY + 4, "start", ValueAt(*ptRight, dShare));
  }
}

void SvgCurve(FILE* pFile, const TDayReport& tReport, const TScales& tScales, const TPanel& tPanel,
              const TRange& tRange, FValue pfnValue, const TPen& tPen) {
  const std::size_t dwStride = (tReport.atSamples.size() + dwSvgPoints - 1) / dwSvgPoints;
  std::fprintf(pFile, "<polyline fill='none' %s points='", tPen.szStroke);
  for (std::size_t dw = 0; dw < tReport.atSamples.size(); dw += dwStride) {
    const TDaySample& tSample = tReport.atSamples[dw];
    std::fprintf(pFile, "%.1f,%.1f ", SvgX(tScales, Hour(tSample)), SvgY(tPanel, tRange, pfnValue(tSample)));
  }
  std::fputs("'/>\n", pFile);
}

void SvgLegend(FILE* pFile, double dY, std::initializer_list<TPen> atPens) {
  double dX = dSvgLeft;
  for (const TPen& tPen : atPens) {
    std::fprintf(pFile, "<path d='M%.1f %.1fh30' fill='none' %s/>\n", dX, dY - 4, tPen.szStroke);
    SvgText(pFile, dX + 36, dY, "start", tPen.szName);
    dX += 220;
  }
}

void SvgDocument(FILE* pFile, const TDayReport& tReport) {
  const TScales tScales = ScalesOf(tReport);
  std::fprintf(pFile,
               "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 %.0f %.0f' font-family='sans-serif' "
               "font-size='12'>\n<rect width='100%%' height='100%%' fill='white'/>\n",
               dSvgWidth, dSvgHeight);
  SvgLegend(pFile, 32, {g_tFocusPen, g_tSharpPen, g_tTemperaturePen});
  SvgNights(pFile, tReport, tScales, g_tUpper);
  SvgFrame(pFile, tScales, g_tUpper, tScales.tSteps, &tScales.tTemperature_C);
  SvgCurve(pFile, tReport, tScales, g_tUpper, tScales.tTemperature_C, Temperature, g_tTemperaturePen);
  SvgCurve(pFile, tReport, tScales, g_tUpper, tScales.tSteps, Sharp, g_tSharpPen);
  SvgCurve(pFile, tReport, tScales, g_tUpper, tScales.tSteps, Focus, g_tFocusPen);
  SvgLegend(pFile, 380, {g_tErrorPen, g_tAllowedPen});
  SvgNights(pFile, tReport, tScales, g_tLower);
  SvgFrame(pFile, tScales, g_tLower, tScales.tError, nullptr);
  SvgCurve(pFile, tReport, tScales, g_tLower, tScales.tError, Allowed, g_tAllowedPen);
  SvgCurve(pFile, tReport, tScales, g_tLower, tScales.tError, NotAllowed, g_tAllowedPen);
  SvgCurve(pFile, tReport, tScales, g_tLower, tScales.tError, Sample_Error, g_tErrorPen);
  std::fputs("</svg>\n", pFile);
}

}  // namespace

i32 DayPlot_WriteSvg(const TDayReport& tReport, const char* pszPath) {
  FILE* pFile = std::fopen(pszPath, "w");
  if (pFile == nullptr) return -1;
  SvgDocument(pFile, tReport);
  const bool bWritten = std::ferror(pFile) == 0;
  return std::fclose(pFile) == 0 && bWritten ? 0 : -1;
}
