#include "temperature/temperature.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>

#include "core/fail.h"
#include "core/number.h"
#include "core/paths.h"
#include "sxmlparser/sxmlparser.h"

namespace {

constexpr const char* szNullPointer = "Error: NULL pointer";
constexpr i64 llMaxAge_us = 50'000;  // a burst of readings costs one transfer

struct TSensor {
  std::string_view sType;  // how the configured type begins
  i32 (*pfnInit)(TIICCtrl* ptIIC, u8 byAddress);
  i32 (*pfnRead)(TIICCtrl* ptIIC, u8 byAddress, u32* pdwRaw);
  void (*pfnConvert)(u32 dwRaw, TTemperatureValue* ptReading);
  u8 byAddress;  // used if the configuration gives none
};

struct TSetUpWrite {
  u32 dwReg;
  u8 byValue;
  const char* szFailed;
};

// What the configuration says about a sensor, except its bus device.
struct TSensorConfig {
  char szType[64];  // empty: there is none
  bool bAddress;    // byAddress is given
  u8 byAddress;
};

i32 SetUp(TTemperature* pThis, i32 iDevice);
i32 ReadConfig(TTemperature* pThis, TSensorConfig* ptConfig, i32 iDevice);
i32 InitParser(HSXMLParser* phParser);
void TakeConfig(TTemperature* pThis, TSensorConfig* ptConfig, HSXMLParser hParser, i32 iDevice);
i32 TakeSensor(TTemperature* pThis, const TSensorConfig& tConfig);
i32 OpenBus(TTemperature* pThis);
bool IsFresh(const TTemperature& tThis, const timeval& tNow);
i32 ReadRaw(TTemperature* pThis, const timeval& tNow);

i32 TMP103B_Init(TIICCtrl* ptIIC, u8 byAddress);
i32 TMP103B_Read(TIICCtrl* ptIIC, u8 byAddress, u32* pdwRaw);
u8 TMP103B_BusAddress(u8 byAddress);
i32 LM73_Init(TIICCtrl* ptIIC, u8 byAddress);
i32 LM73_Read(TIICCtrl* ptIIC, u8 byAddress, u32* pdwRaw);
i32 WriteSetUp(TIICCtrl* ptIIC, u32 dwBusAddress, std::span<const TSetUpWrite> atWrites, const char* szWritten);

constexpr TSensor g_atSensors[] = {
    {.sType = "TMP103B",
     .pfnInit = TMP103B_Init,
     .pfnRead = TMP103B_Read,
     .pfnConvert = TMP103B_Convert,
     .byAddress = 0x71},
    {.sType = "LM73", .pfnInit = LM73_Init, .pfnRead = LM73_Read, .pfnConvert = LM73_Convert, .byAddress = 0x94},
};

constexpr u32 dwTemperatureRegister = 0;  // of both sensors

// Register 1 is the configuration.
constexpr TSetUpWrite g_atTMP103BWrites[] = {
    {.dwReg = 1, .byValue = 0x00, .szFailed = "Set sensor to Shutdown mode fail"},
    {.dwReg = 1, .byValue = 0x22, .szFailed = "Set sensor to Continuous mode fail"},
};

// Register 1 is the configuration, register 4 is control and status.
constexpr TSetUpWrite g_atLM73Writes[] = {
    {.dwReg = 1, .byValue = 0x48, .szFailed = "Set configuration register fail!"},
    {.dwReg = 4, .byValue = 0x80, .szFailed = "Set configuration register fail!"},
};

}  // namespace

i32 Temperature_Initial(TTemperature** phTemperature, i32 iDevice) {
  if (phTemperature == nullptr) return Fail(szNullPointer);
  auto* pThis = static_cast<TTemperature*>(std::calloc(1, sizeof(TTemperature)));
  if (pThis == nullptr) return Fail("Error: Failed to allocate memory");
  if (SetUp(pThis, iDevice) != 0) {
    std::free(pThis);
    return -1;
  }
  *phTemperature = pThis;
  return 0;
}

i32 Temperature_ReadValue(TTemperature* pThis, TTemperatureValue* ptReading) {
  if (pThis == nullptr || ptReading == nullptr) return Fail(szNullPointer);
  timeval tNow = {};
  gettimeofday(&tNow, nullptr);
  if (!IsFresh(*pThis, tNow) && ReadRaw(pThis, tNow) != 0) return Fail("Read data fail");
  ptReading->byRaw = static_cast<u8>(pThis->dwLastRaw);
  pThis->pfnConvert(pThis->dwLastRaw, ptReading);
  std::printf("Raw: (%d), T: %d, %f\n", static_cast<i32>(pThis->dwLastRaw), ptReading->iTemperature,
              ptReading->dTemperature);
  return 0;
}

i32 Temperature_Release(TTemperature** phTemperature) {
  if (phTemperature == nullptr || *phTemperature == nullptr) return Fail(szNullPointer);
  if (IICCtrl_Release(&(*phTemperature)->ptIIC) != 0) return Fail("Release I2C object fail");
  std::free(*phTemperature);
  *phTemperature = nullptr;
  return 0;
}

void TMP103B_Convert(u32 dwRaw, TTemperatureValue* ptReading) {
  const i32 iByte = static_cast<i32>(dwRaw & 0xFF);
  ptReading->iTemperature = iByte < 0x80 ? iByte : iByte - 0x100;
  ptReading->dTemperature = ptReading->iTemperature;
}

void LM73_Convert(u32 dwRaw, TTemperatureValue* ptReading) {
  const u32 dwWord = (dwRaw >> 8 & 0xFF) | (dwRaw << 8 & 0xFF00);
  std::printf("dwRaw_tmp=%x\n", dwWord);
  ptReading->iTemperature = static_cast<std::int16_t>(dwWord) >> 7;  // keeps the sign, so it rounds down
  ptReading->dTemperature = ptReading->iTemperature;
}

namespace {

i32 SetUp(TTemperature* pThis, i32 iDevice) {
  TSensorConfig tConfig = {};
  if (ReadConfig(pThis, &tConfig, iDevice) != 0) return -1;
  if (TakeSensor(pThis, tConfig) != 0) return Fail("Un-support sensor type fail");
  if (OpenBus(pThis) != 0) return Fail("Error: Initial I2C object fail");
  if (pThis->pfnInit(pThis->ptIIC, pThis->byAddress) != 0) {
    IICCtrl_Release(&pThis->ptIIC);
    return Fail("Error: Initial Temperature sensor object fail");
  }
  return 0;
}

i32 ReadConfig(TTemperature* pThis, TSensorConfig* ptConfig, i32 iDevice) {
  HSXMLParser hParser = nullptr;
  if (InitParser(&hParser) != 0) return Fail("Initial parser fail!");
  const i32 iResult = SXMLParser_Process(hParser, szTemperaturePath, SXML_MODE_TREE);
  if (iResult == 0) TakeConfig(pThis, ptConfig, hParser, iDevice);
  SXMLParser_Release(&hParser);
  return iResult == 0 ? 0 : Fail("SXMLParser_Process fail!");
}

i32 InitParser(HSXMLParser* phParser) {
  if (SXMLParser_Initial(phParser) != 0) return Fail("SXMLParser_Initial fail!");
  TSXMLOption tOption = {};
  tOption.dwFlags = SXML_OPTION_MODE | SXML_OPTION_CALLBACKS;
  tOption.dwMode = 1;
  SXMLParser_SetOption(*phParser, &tOption);
  return 0;
}

// Copies the values that are configured, because the text of a lookup belongs to the parser.
void TakeConfig(TTemperature* pThis, TSensorConfig* ptConfig, HSXMLParser hParser, i32 iDevice) {
  char szDevice[8];
  // A device number too long for szDevice has no element.  Cut short, it would name another device.
  if (std::snprintf(szDevice, sizeof szDevice, "dev%d", iDevice) >= static_cast<i32>(sizeof szDevice)) return;
  const auto fnText = [&](const char* szKey) {
    return SXMLParser_GetElementText(hParser, "root", "tsensor", szDevice, szKey, nullptr);
  };
  const char* pszType = fnText("sensortype");
  if (pszType == nullptr) return;
  std::snprintf(ptConfig->szType, sizeof ptConfig->szType, "%s", pszType);

  const char* pszPath = fnText("devpath");
  if (pszPath != nullptr) {
    std::snprintf(pThis->szDevPath, sizeof pThis->szDevPath, "%s", pszPath);
  } else {
    std::puts("Parse devpath fail, use default setting");
  }

  const char* pszAddress = fnText("devaddr");
  if (pszAddress != nullptr) {
    ptConfig->bAddress = true;
    ptConfig->byAddress = static_cast<u8>(Text_ToUnsigned(pszAddress));
  } else {
    std::puts("Parse devaddr fail, use default setting");
  }
}

i32 TakeSensor(TTemperature* pThis, const TSensorConfig& tConfig) {
  for (const TSensor& tSensor : g_atSensors) {
    if (!std::string_view(tConfig.szType).starts_with(tSensor.sType)) continue;
    pThis->pfnInit = tSensor.pfnInit;
    pThis->pfnRead = tSensor.pfnRead;
    pThis->pfnConvert = tSensor.pfnConvert;
    pThis->byAddress = tConfig.bAddress ? tConfig.byAddress : tSensor.byAddress;
    return 0;
  }
  return -1;
}

i32 OpenBus(TTemperature* pThis) {
  const TIICCtrlOption tOption = {.dwVersion = dwIICVersion,
                                  .dwMode = dwIICModeNoStop,
                                  .dwMaxLength = 2,
                                  .dwReserved = 0,
                                  .pszDevice = pThis->szDevPath[0] != '\0' ? pThis->szDevPath : szIICPath};
  std::printf("IICCtrl Device path : %s\n", tOption.pszDevice);
  return IICCtrl_Initial(&pThis->ptIIC, &tOption);
}

// A negative age means that the clock was set back, so the true age of the value is unknown.
bool IsFresh(const TTemperature& tThis, const timeval& tNow) {
  const timeval& tLast = tThis.tLastRead;
  if (tThis.bLastReadFailed == 1 || (tLast.tv_sec == 0 && tLast.tv_usec == 0)) return false;
  const i64 llAge_us = (i64{tNow.tv_sec} - tLast.tv_sec) * 1'000'000 + (i64{tNow.tv_usec} - tLast.tv_usec);
  return llAge_us >= 0 && llAge_us <= llMaxAge_us;
}

// A failed read keeps the last good value, but no caller gets it.
i32 ReadRaw(TTemperature* pThis, const timeval& tNow) {
  u32 dwRaw = 0;
  const i32 iResult = pThis->pfnRead(pThis->ptIIC, pThis->byAddress, &dwRaw);
  pThis->tLastRead = tNow;
  pThis->bLastReadFailed = iResult != 0 ? 1 : 0;
  if (iResult == 0) pThis->dwLastRaw = dwRaw;
  return iResult;
}

i32 TMP103B_Init(TIICCtrl* ptIIC, u8 byAddress) {
  return WriteSetUp(ptIIC, TMP103B_BusAddress(byAddress), g_atTMP103BWrites, nullptr);
}

i32 TMP103B_Read(TIICCtrl* ptIIC, u8 byAddress, u32* pdwRaw) {
  u8 byRaw = 0;
  if (IICCtrl_ReadByte(ptIIC, TMP103B_BusAddress(byAddress), dwTemperatureRegister, &byRaw) != 0) return -1;
  *pdwRaw = byRaw;
  return 0;
}

u8 TMP103B_BusAddress(u8 byAddress) {
  return static_cast<u8>(byAddress << 1);
}

i32 LM73_Init(TIICCtrl* ptIIC, u8 byAddress) {
  return WriteSetUp(ptIIC, byAddress, g_atLM73Writes, "Set configuration register successfully!");
}

i32 LM73_Read(TIICCtrl* ptIIC, u8 byAddress, u32* pdwRaw) {
  u8 abyRaw[2] = {};
  if (IICCtrl_ReadBytes(ptIIC, byAddress, dwTemperatureRegister, sizeof abyRaw, abyRaw) != 0) return -1;
  *pdwRaw = static_cast<u32>(abyRaw[0] | abyRaw[1] << 8);
  std::printf("Read raw data=%x\n", *pdwRaw);
  return 0;
}

// Stops at the first write that fails.  Prints szWritten after each successful write, unless it is null.
i32 WriteSetUp(TIICCtrl* ptIIC, u32 dwBusAddress, std::span<const TSetUpWrite> atWrites, const char* szWritten) {
  for (const TSetUpWrite& tWrite : atWrites) {
    if (IICCtrl_WriteByte(ptIIC, dwBusAddress, tWrite.dwReg, tWrite.byValue) != 0) return Fail(tWrite.szFailed);
    if (szWritten != nullptr) std::puts(szWritten);
  }
  return 0;
}

}  // namespace
