// The curve files of an ICS lens: what is read, printed, tabulated, and refused.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#include "ics/curve_tables.h"
#include "support.h"

namespace {

TVernierLensdInfo g_tInfo;

using TFiles = std::vector<std::pair<std::string, std::string>>;  // name and text

struct TCurveCase {
  const char* szName;
  void (*pfnLoad)(TLens&, const TCurveCase&);
  i32 iFiles;
  i32 iFrom, iTo;  // lowest and highest reading, or zoom start and total step
  TFiles asFiles;
  std::string sPrinted;  // what the output ends with
};

void LoadNight(TLens&, const TCurveCase& tCase) {
  g_tVernierLensdConfigInfo.iIRCurveCount = tCase.iFiles;
  g_tVernierLensdConfigInfo.dwZoomVirtualStart = static_cast<u32>(tCase.iFrom);
  g_tVernierLensdConfigInfo.dwZoomVirtualTotalStep = static_cast<u32>(tCase.iTo);
  std::printf("%d:", ICS_LoadIRValue(&g_tInfo));
  const i32* piTable = g_pdwtabICSNightFocusShiftTable;
  for (i32 i = 0; piTable != nullptr && i < tCase.iTo; i++) std::printf(" %d", piTable[i]);
  std::printf("\n");
}

void LoadAD(TLens& tLens, const TCurveCase& tCase) {
  g_tVernierLensdConfigInfo.iADCurveCount = tCase.iFiles;
  tLens.iMaxAD = tCase.iFrom;
  tLens.iMinAD = tCase.iTo;
  std::printf("%d:", ICS_LoadADValue(&g_tInfo));
  for (i32 iAD : {950, 900, 899, 500, 101, 100, -5}) std::printf(" %d", ICS_ADToTemperature(iAD));
  std::printf(" of %d\n", static_cast<i32>(g_tVernierLensdConfigInfo.dwTotalAD));
}

void LoadTemp(TLens&, const TCurveCase& tCase) {
  g_tVernierLensdConfigInfo.iTempCurveCount = tCase.iFiles;
  std::printf("%d:", ICS_LoadTempCurve(&g_tInfo));
  for (i32 i = -1; i < 9; i++) std::printf("%c", ICS_TempCurve(i) == nullptr ? '-' : '+');
  std::printf("\n");
}

void LoadTrack(TLens&, const TCurveCase& tCase) {
  g_tVernierLensdConfigInfo.iTrackCurveCount = tCase.iFiles;
  std::printf("%d:", ICS_LoadTrackCurve(&g_tInfo));
  for (i32 i = -1; i < 4; i++) std::printf("%c", ICS_TrackingCurve(i) == nullptr ? '-' : '+');
  std::printf(" %u %u %u\n", g_pdwtabObjDistTable[0], g_pdwtabObjDistTable[1], g_pdwtabObjDistTable[2]);
}

// A whole file: sFront holds the tokens up to c1, the others are 0.
std::string File(const std::string& sFront) {
  return sFront + " 0 0 0 0 0 0 0 0 0";
}
const TFiles g_asAD = {{"ad_curve_y0", File("0 0 0 7f800000 0")}, {"ad_curve_y1", File("0 0 0 42c60000 42c80000")}};
const TFiles g_asKelvin = {{"ad_curve_y0", File("0 0 0 46e8efcd 0")}};  // 298.159 at any reading
const TFiles g_asHalf = {{"ad_curve_y0", File("0 0 0 0 0")}, {"ad_curve_y1", "0 0 0 42c60000"}};
const TFiles g_asNight = {{"ir_curve_y0", File("0 2 0 40e00000 0")}, {"ir_curve_y1", "0 2"}};
const TFiles g_asNightCodes = {{"ir_curve_y0", "0 2"},
                               {"ir_curve_y1", "0 1"},
                               {"ir_curve_y2", "0 3"},
                               {"ir_curve_y3", File("0 1 0 c2c90000 3f800000") + " 7f800000 3f800000"}};
const TFiles g_asTrack = {{"tracking_curve_y0", "0 1f"}, {"tracking_curve_y1", File("0 0 0 0 0")}};
const TFiles g_asTemp = {{"temp_curve_y0", File("0 1 0 0 0") + " ffffffff more"},
                         {"temp_curve_y1", File("0 1 0 1003f8000 0")},                // nine digits
                         {"temp_curve_y2", File("0 1 0 0 3f8000.0")},                 // no hexadecimal number
                         {"temp_curve_y3", "0 1 0 0 0 0 0 0 0 0 0 0 0"},              // without c10
                         {"temp_curve_y4", File("0 1 0 0000000000000003f800000 1")},  // long by its zeros
                         {"temp_curve_y5", File("\n0\t-5 0x10 0x3F800000 0")}};

std::string NoCurve(const std::string& sFile) {
  return "[vernierlensd] : /etc/conf.d/vernierlensd/" + sFile + " holds no whole curve and is not used.\n";
}

const TCurveCase g_atCases[] = {
    {"IR: no code 1 is file 0", LoadNight, 2, 100, 1, g_asNight, "\n0.000000\n=====\n0: 7\n"},
    {"IR: half a curve",
     LoadNight,
     1,
     100,
     3,
     {{"ir_curve_y0", "0 1 0 40e00000"}},
     "_y0\n7.000000\n" + NoCurve("ir_curve_y0") + "-1:\n"},
    {"IR: count 0 is file 0", LoadNight, 0, 100, 3, {}, "ir_curve_y0\n[vernierlensd] : fopen failed!\n-1:\n"},
    {"IR: zoom ends below its start", LoadNight, -1, 100, -9, g_asNight, "\n0.000000\n=====\n0:\n"},
    {"IR: huge zoom", LoadNight, 0, 100, 2'000'000'000, g_asNight, "lensd] : Create ICS curve table failed.\n-1:\n"},
    {"IR: the last code 1, cut toward zero", LoadNight, 4, 100, 3, g_asNightCodes,
     "==load DNS IR value===\nWave length table [0] 2 \nWave length table [1] 1 \nWave length table [2] 3 \n"
     "Wave length table [3] 1 \nchoose /etc/conf.d/vernierlensd/ir_curve_y3\n-100.500000\n1.000000\n0.000000\n"
     "0.000000\n0.000000\n0.000000\n0.000000\n0.000000\n0.000000\n0.000000\n0.000000\ninf\n=====\n0: 0 0 1\n"},
    {"AD: nearer end, last file", LoadAD, 2, 100, 900, g_asAD, "=====\n0: 627 627 626 227 -172 -173 -173 of 801\n"},
    {"AD: whole degrees", LoadAD, 1, 900, 900, g_asKelvin, "=====\n0: 25 25 25 25 25 25 25 of 1\n"},
    {"AD: ends the wrong way round", LoadAD, 1, 900, 100, g_asKelvin, "=====\n0: 0 0 0 0 0 0 0 of -799\n"},
    {"AD: no answer", LoadAD, 1, -1, -1, g_asKelvin, "=====\n0: 0 0 0 0 0 0 0 of 1\n"},
    {"AD: no sensor", LoadAD, 1, 0, 2'000'000'000, g_asKelvin, "=====\n0: 0 0 0 0 0 0 0 of 2000000001\n"},
    {"AD: half a curve", LoadAD, 2, 100, 900, g_asHalf,
     "\n99.000000\n" + NoCurve("ad_curve_y1") + "=====\n0: 0 0 0 0 0 0 0 of 801\n"},
    {"temperature: huge count", LoadTemp, 2'000'000'000, 0, 0, {}, "Create ICS curve table failed.\n-1:----------\n"},
    {"tracking: a missing file ends it", LoadTrack, 3, 0, 0, g_asTrack,
     "==load Track curve===\n" + NoCurve("tracking_curve_y0") +
         "=====\n=====\n[vernierlensd] : fopen failed!\n-1:--+-- 31 0 0\n"},
    {"temperature: rows of whole files only", LoadTemp, 7, 0, 0, g_asTemp,
     "=====\nzoom table[5] -5 \nbase tempature table [5] 16 \n1.000000\n0.000000\n0.000000\n0.000000\n0.000000\n"
     "0.000000\n0.000000\n0.000000\n0.000000\n0.000000\n0.000000\n=====\n[vernierlensd] : fopen failed!\n"
     "-1:-+---++---\n"},
};

// Each case loads twice, as two channels do.  Under a sanitizer a leak fails the life.
TEST(Curve, OnlyWholeFilesGiveTables) {
  const TCamera tCamera("zoom");
  for (const TCurveCase& tCase : g_atCases) {
    ASSERT_EQ(Life_ResetRoot(tCamera.sRoot), 0);
    for (const auto& [sName, sText] : tCase.asFiles) tCamera.Write("/etc/conf.d/vernierlensd/" + sName, sText);
    TLifePlan tPlan{.sRoot = tCamera.sRoot};
    tPlan.fnBody = [&](TWorld* ptWorld) {
      ptWorld->tLens.bICS = 1;
      g_tInfo.fdICS = open("/dev/icsdriver", O_RDWR);
      for (i32 i = 0; i < 2; i++) tCase.pfnLoad(ptWorld->tLens, tCase);
      close(g_tInfo.fdICS);
      ICSTables_Release();
      return ICS_TempCurve(0) != nullptr || ICS_ADToTemperature(500) != 0 || g_pdwtabICSNightFocusShiftTable != nullptr;
    };
    const TLifeResult tResult = Life_Run(tPlan);
    EXPECT_TRUE(Printed(tResult).ends_with(tCase.sPrinted) && tResult.iStatus == 0) << tCase.szName << Tale(tResult);
  }
}

}  // namespace
