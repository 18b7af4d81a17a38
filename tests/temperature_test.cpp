// The temperature sensors and the I2C layer below them, judged by what goes over the simulated bus.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>

#include "core/paths.h"
#include "support.h"
#include "temperature/temperature.h"

namespace {

// What a life printed and moved over the bus, in order, each ended by "; ", then what it said on standard error.
// Leaves out a successful choice of slave, since the transfers name the slave.
std::string StoryOf(const TCamera& tCamera, std::function<i32(TWorld*)> fnBody) {
  const TLifeResult tResult = Life_Run({.sRoot = tCamera.sRoot, .qwSeed = FirstSeed(), .fnBody = std::move(fnBody)});
  std::string sStory;
  std::istringstream tLines(tResult.sTranscript);
  for (std::string sLine; std::getline(tLines, sLine);) {
    const std::size_t dwBus = sLine.find(" i2c-2 ");
    const std::size_t dwAt = dwBus != std::string::npos ? dwBus : sLine.find(" print ");
    const bool bChoice = sLine.find(" i2c-2 SLAVE ") != std::string::npos && sLine.ends_with(" = 0");
    if (dwAt != std::string::npos && !bChoice) sStory += sLine.substr(dwAt + 7) + "; ";
  }
  return sStory + (tResult.eEnd == LIFE_EXITED && tResult.iStatus == 0 ? "" : "NOT AS DUE; ") + tResult.sStderr;
}

// Both sensors count in two's complement, one in degrees and one in 128ths: every temperature is coded, and read back.
TEST(Temperature, EveryRawValueIsItsTemperature) {
  TTemperatureValue tReading = {};
  testing::internal::CaptureStdout();
  i32 iWrong = 0;
  for (i32 iCount = -32768; iCount <= 32767; iCount++) {
    const double dDegrees = std::floor(iCount / 128.0);
    const u32 dwCount = static_cast<u32>(iCount);
    LM73_Convert((dwCount >> 8 & 0xFF) + 256 * (dwCount & 0xFF), &tReading);
    if (tReading.iTemperature != dDegrees || tReading.dTemperature != dDegrees) iWrong++;
    if (iCount < -128 || iCount > 127) continue;
    TMP103B_Convert(0x4200u | static_cast<u8>(iCount), &tReading);  // only the low byte counts
    if (tReading.iTemperature != iCount || tReading.dTemperature != iCount) iWrong++;
  }
  EXPECT_TRUE(testing::internal::GetCapturedStdout().starts_with("dwRaw_tmp=8000\ndwRaw_tmp=8001\n"));
  EXPECT_EQ(iWrong, 0);
}

// While it is shut down, the simulated sensor keeps its last reading, which is 0 at power-on.
TEST(Temperature, SensorMeasuresWhileItIsOn) {
  TI2CBus tBus = {};
  I2CBus_PowerOn(&tBus);
  const std::pair<double, u8> atSettings[] = {{30, 0}, {-24.7, 2}, {-24.7, 0}, {30, 0}};
  std::string sReadings;
  for (const auto& [dTemperature_C, byConfiguration] : atSettings) {
    u8 abySet[] = {1, byConfiguration}, byRegister = 0, byReading = 0;
    const TI2CMessage atMessages[] = {
        {false, 0x71, abySet, 2}, {false, 0x71, &byRegister, 1}, {true, 0x71, &byReading, 1}};
    I2CBus_Combined(&tBus, dTemperature_C, atMessages);
    sReadings += std::to_string(byReading) + " ";
  }
  EXPECT_EQ(sReadings, "0 231 231 231 ");
}

constexpr u32 dwTMP103B = 0xE2, dwLM73 = 0x94, dwNobody = 0x1E2;
u8 g_abyData[8194];  // what a call writes and reads; 0xEE where none has filled it
TIICCtrl* g_ptIIC;   // used by the life's child process

i32 Write(u32 dwReg, u32 dwRegLength, u32 dwLength) {
  return IICCtrl_WriteReg(g_ptIIC, dwLM73, dwReg, dwRegLength, g_abyData, dwLength);
}
i32 Read(u32 dwReg, u32 dwRegLength, u32 dwLength, u8* pbyData = g_abyData, u32 dwStopMode = 1) {
  return IICCtrl_ReadReg(g_ptIIC, dwLM73, dwReg, dwRegLength, pbyData, dwLength, dwStopMode);
}

// Each of these makes its calls up to the first whose result is not iDue.  True if there is none.
bool BytesAndWords(i32 iDue) {
  std::uint16_t wWord = 0xEEEE;
  const bool bAsDue = IICCtrl_WriteByte(g_ptIIC, dwTMP103B, 0x102, 0x5A) == iDue &&
                      IICCtrl_ReadByte(g_ptIIC, dwTMP103B, 2, g_abyData) == iDue &&
                      IICCtrl_WriteWord(g_ptIIC, dwLM73, 2, 0x92A4) == iDue &&
                      IICCtrl_ReadWord(g_ptIIC, dwLM73, 2, &wWord) == iDue;
  std::printf("word %04x\n", wWord);
  return bAsDue;
}
bool BytesAndRegisters(i32 iDue) {
  constexpr u8 abyOut[] = {0x03, 0x43};
  return IICCtrl_WriteBytes(g_ptIIC, dwLM73, 3, 2, abyOut) == iDue &&
         IICCtrl_ReadBytes(g_ptIIC, dwLM73, 3, 2, g_abyData) == iDue && Write(0x99030405, 3, 1) == iDue &&
         Read(9, 0, 1, g_abyData + 1) == iDue && Write(9, 0, 1) == iDue && Read(0x04050607, 4, 1) == iDue &&
         IICCtrl_WriteReg16(g_ptIIC, dwTMP103B, 0x0203, 0x77) == iDue &&
         IICCtrl_ReadReg16(g_ptIIC, dwTMP103B, 0x302, g_abyData) == iDue && Write(1, 4, 8188) == iDue &&
         Read(5, 1, 8192, g_abyData + 2) == iDue;
}
bool BadArguments(i32 iDue) {
  return IICCtrl_WriteBytes(g_ptIIC, dwLM73, 3, 3, g_abyData) == iDue && Write(1, 4, 8189) == iDue &&
         Write(1, 1, 0xFFFFFFFF) == iDue && Read(5, 1, 8193) == iDue && Write(1, 5, 1) == iDue &&
         Read(1, 5, 1) == iDue && Read(1, 1, 1, g_abyData, 0) == iDue && Read(1, 1, 1, nullptr) == iDue &&
         IICCtrl_ReadReg16(g_ptIIC, dwLM73, 1, nullptr) == iDue &&
         IICCtrl_WriteReg(g_ptIIC, dwLM73, 1, 1, nullptr, 1) == iDue &&
         IICCtrl_WriteByte(g_ptIIC, dwNobody, 1, 1) == iDue && IICCtrl_WriteWord(g_ptIIC, dwNobody, 1, 1) == iDue;
}

constexpr struct {
  bool (*pfnCalls)(i32 iDue);
  i32 iDue;
  u32 dwMode;
  ESensorFault eFault;
  const char* szStory;
} g_atIICCases[] = {
    {BytesAndWords, 0, 5, SENSOR_GOOD,
     "write 71 w025a = 2; RDWR 71 w02 r5a = 2; write 4a w0292a4 = 3; RDWR 4a w02 r92a4 = 2; word 92a4; 5aee; "},
    {BytesAndWords, 0, 0, SENSOR_GOOD,  // mode 0: a byte is read from where the register pointer stands
     "write 71 w025a = 2; read 71 r5a = 1; write 4a w0292a4 = 3; write 4a w02 = 1; read 4a r92a4 = 2; word 92a4; "
     "5aee; "},
    {BytesAndWords, -1, 0, SENSOR_SHORT,
     "write 71 w02 = 1; i2c write failed.; read 71 r = 0; i2c read failed.; write 4a w0292 = 2; i2c write failed.; "
     "write 4a w = 0; i2c write failed.; word eeee; eeee; "},
    {BytesAndRegisters, 0, 5, SENSOR_GOOD,
     "write 4a w030343 = 3; write 4a w03 = 1; read 4a r0343 = 2; write 4a w03040503 = 4; read 4a r04 = 1; "
     "write 4a w03 = 1; write 4a w04050607 = 4; read 4a r05 = 1; write 71 w020377 = 3; write 71 w0302 = 2; "
     "read 71 r02 = 1; write 4a w000000010204eeee.. = 8192; write 4a w05 = 1; read 4a rffffffffffffffff.. = 8192; "
     "0204; "},
    {BadArguments, -1, 5, SENSOR_GOOD,
     "Invalid dwLength!; Data size is limited to 8188 bytes!; Data size is limited to 8191 bytes!; "
     "Data size is limited to 8192 bytes!; Available length of Reg Address is between 0~4 bytes; "
     "Available length of Reg Address is between 1~4 bytes; Not support \"Combined R/W transfer (one stop only).\" "
     "Use IICCtrl_NoStopReadReg() instead.; Invalid Argument!; No memory allocated for read data!; Invalid Argument!; "
     "SLAVE f1 = -1 EINVAL; SLAVE f1 = -1 EINVAL; eeee; ioctl I2C_SLAVE error!\nioctl I2C_SLAVE_FORCE error!\n"},
};

TEST(IICCtrl, MovesTheseBytesOrRefuses) {
  for (const auto& tCase : g_atIICCases) {
    const std::string sStory = StoryOf(TCamera("focus"), [&](TWorld* ptWorld) {
      const TIICCtrlOption tOption = {0x2000001, tCase.dwMode, 2, 0, nullptr};
      IICCtrl_Initial(&g_ptIIC, &tOption);
      ptWorld->tI2C.eFault = tCase.eFault;
      std::fill(std::begin(g_abyData), std::end(g_abyData), u8{0xEE});
      const bool bAsDue = tCase.pfnCalls(tCase.iDue);
      std::printf("%02x%02x\n", g_abyData[0], g_abyData[1]);
      return IICCtrl_Release(&g_ptIIC) == 0 && g_ptIIC == nullptr && bAsDue ? 0 : 1;
    });
    EXPECT_EQ(sStory, tCase.szStory);
  }
}

TEST(IICCtrl, RefusesBadOptionsAndNoObject) {
  TIICCtrl* ptIIC = nullptr;
  testing::internal::CaptureStdout();
  for (const TIICCtrlOption& tOption : {TIICCtrlOption{0x2000001, 5, 1024, 0, "/dev/null"},
                                        {0x2000002, 5, 1023, 0, "/dev/null"},
                                        {0x2000001, 5, 1023, 0, "/dev/null/x"}}) {
    EXPECT_EQ(IICCtrl_Initial(&ptIIC, &tOption), -1);
  }
  EXPECT_TRUE(BytesAndWords(-1));  // the parent has no object
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Invalid Argument!\nVersion Mismatch!\nopen /dev/null/x error!\n"
            "Invalid Handle!\nInvalid Handle!\nInvalid Handle!\nInvalid Handle!\nword eeee\n");
}

const std::string sPath = "IICCtrl Device path : /dev/i2c-2; ";
const std::string sNothingElse = "Parse devpath fail, use default setting; Parse devaddr fail, use default setting; ";
const std::string sDefaults = sNothingElse + sPath;
const std::string sNotSetUp = "Error: Initial Temperature sensor object fail; ";
const std::string sLong(90, 'y'), sCut(31, 'y');
const std::string sTMP103B = "<dev0><sensortype>TMP103B</sensortype></dev0>";
const std::string sLM73 = "<dev0><sensortype>LM73</sensortype></dev0>";
const struct {
  std::string sElements;  // below tsensor
  i32 iDevice;
  double dTemperature_C;
  ESensorFault eFault;
  std::string sStory;  // of set-up and one reading
} g_atSensorCases[] = {
    {"<dev0/><dev-3><sensortype>TMP103Bx</sensortype><devpath></devpath><devaddr>369</devaddr></dev-3>", -3, -24.7,
     SENSOR_GOOD,
     sPath + "write 71 w0100 = 2; write 71 w0122 = 2; RDWR 71 w00 re7 = 2; Raw: (231), T: -25, -25.000000; "},
    {sLM73, 0, -0.25, SENSOR_GOOD,
     sDefaults + "write 4a w0148 = 2; Set configuration register successfully!; write 4a w0480 = 2; "
                 "Set configuration register successfully!; write 4a w00 = 1; read 4a rffe0 = 2; Read raw data=e0ff; "
                 "dwRaw_tmp=ffe0; Raw: (57599), T: -1, -1.000000; "},
    {"<dev0><sensortype>TMP103B</sensortype><devpath>/dev/i2c-2</devpath><devaddr>0</devaddr></dev0>", 0, 0,
     SENSOR_GOOD,
     sPath + "write 00 w0100 = -1 ENXIO; i2c write failed.; Set sensor to Shutdown mode fail; " + sNotSetUp},
    {"<dev0><sensortype>LM73" + sLong + "</sensortype><devpath>" + sLong + "</devpath><devaddr/></dev0>", 0, 0,
     SENSOR_GOOD, "IICCtrl Device path : " + sCut + "; open " + sCut + " error!; Error: Initial I2C object fail; "},
    {sLM73, 0, 0, SENSOR_SHORT,
     sDefaults + "write 4a w01 = 1; i2c write failed.; Set configuration register fail!; " + sNotSetUp},
    {"<dev0><sensortype>LM75</sensortype></dev0>", 0, 0, SENSOR_GOOD, sNothingElse + "Un-support sensor type fail; "},
    {"<dev0><devaddr>113</devaddr></dev0>", 0, 0, SENSOR_GOOD, "Un-support sensor type fail; "},
    {"<dev2147><sensortype>LM73</sensortype></dev2147>", 2147483647, 0, SENSOR_GOOD, "Un-support sensor type fail; "},
    {"<dev0>", 0, 0, SENSOR_GOOD, "SXMLParser_Process fail!; "},
};

TEST(Temperature, SensorIsReadAsConfigured) {
  for (const auto& tCase : g_atSensorCases) {
    const TCamera tCamera("focus");
    tCamera.Write(szTemperaturePath, "<root><tsensor>" + tCase.sElements + "</tsensor></root>");
    const std::string sStory = StoryOf(tCamera, [&](TWorld* ptWorld) {
      ptWorld->tI2C.eFault = tCase.eFault;
      ptWorld->dTemperature_C = tCase.dTemperature_C;
      TTemperature* hTemperature = nullptr;
      TTemperatureValue tReading = {};
      if (Temperature_Initial(&hTemperature, tCase.iDevice) != 0) return hTemperature == nullptr ? 0 : 1;
      Temperature_ReadValue(hTemperature, &tReading);
      return Temperature_Release(&hTemperature) == 0 && hTemperature == nullptr ? 0 : 1;
    });
    EXPECT_EQ(sStory, tCase.sStory) << tCase.sElements;
  }
}

// The first reading is taken at 970,000 us of a second.
constexpr struct {
  const char* szName;
  i64 llWall_us;  // how far the clock has gone since the step before
  ESensorFault eFault;
  i32 iBus, iResult, iReading;  // what the sensor would answer; result of the call; reading afterwards
} g_atReadSteps[] = {
    {"nothing known", 0, SENSOR_GOOD, 10, 0, 10},
    {"limit of age, in the next second", 50'000, SENSOR_GOOD, 11, 0, 10},
    {"past the limit", 1, SENSOR_GOOD, 12, 0, 12},
    {"limit of age, in one second", 50'000, SENSOR_GOOD, 14, 0, 12},
    {"clock set back by the least", -50'001, SENSOR_GOOD, 15, 0, 15},
    {"a second and little more", 1'000'001, SENSOR_GOOD, 17, 0, 17},
    {"failed", 60'000, SENSOR_SILENT, 19, -1, 17},
    {"after a failure", 1, SENSOR_SHORT, 20, -1, 17},
    {"failed but once", 1, SENSOR_BAD_ONCE, 21, -1, 17},
    {"after a failure, healed", 1, SENSOR_GOOD, 22, 0, 22},
    {"the failure is forgotten", 1, SENSOR_GOOD, 23, 0, 22},
};

TEST(Temperature, ReadingIsAtMost50MillisecondsOld) {
  for (const std::string& sSensor : {sTMP103B, sLM73}) {
    const TCamera tCamera("focus");
    tCamera.Write(szTemperaturePath, "<root><tsensor>" + sSensor + "</tsensor></root>");
    const std::string sStory = StoryOf(tCamera, [](TWorld* ptWorld) {
      ptWorld->qwWallAtZero_us = 1'700'000'000'970'000 - World_Now_us(ptWorld);
      TTemperature* hTemperature = nullptr;
      TTemperatureValue tReading = {};
      if (Temperature_Initial(&hTemperature, 0) != 0) return 1;
      for (const auto& tStep : g_atReadSteps) {
        ptWorld->qwWallAtZero_us += static_cast<u64>(tStep.llWall_us);
        ptWorld->tI2C.eFault = tStep.eFault;
        ptWorld->dTemperature_C = tStep.iBus;
        const i32 iResult = Temperature_ReadValue(hTemperature, &tReading);
        if (iResult == tStep.iResult && tReading.iTemperature == tStep.iReading) continue;
        std::printf("%s: result %d reading %d\n", tStep.szName, iResult, tReading.iTemperature);
        return 1;
      }
      return Temperature_Release(&hTemperature);
    });
    EXPECT_EQ(sStory.find("NOT AS DUE"), std::string::npos) << sSensor << sStory;
  }
}

}  // namespace
