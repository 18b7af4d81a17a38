#include "lens/i2c_bus.h"

#include <cerrno>
#include <cmath>
#include <cstring>

namespace {

constexpr u32 dwTemperature = 0, dwConfiguration = 1, dwControl = 4;

struct TSlaveSheet {
  EI2CSlave eSlave;
  u32 dwAddress;                // 7 bits
  u32 adwBytes[iI2CRegisters];  // of each register; 0: there is no such register
  u8 byConfiguration;           // after power-on
  u8 byMeasures;                // configuration bit that tells whether it measures
  bool bMeasuresIfSet;
};

constexpr TSlaveSheet g_atSheets[I2C_SLAVES] = {
    {.eSlave = I2C_TMP103B,
     .dwAddress = dwTMP103BAddress,
     .adwBytes = {1, 1, 1, 1},
     .byConfiguration = 0x00,
     .byMeasures = 0x02,
     .bMeasuresIfSet = true},
    {.eSlave = I2C_LM73,
     .dwAddress = dwLM73Address,
     .adwBytes = {2, 1, 2, 2, 1},
     .byConfiguration = 0x40,
     .byMeasures = 0x80,
     .bMeasuresIfSet = false},
};
static_assert(g_atSheets[I2C_TMP103B].eSlave == I2C_TMP103B && g_atSheets[I2C_LM73].eSlave == I2C_LM73);

const TSlaveSheet* FindSlave(u32 dwAddress) {
  for (const TSlaveSheet& tSheet : g_atSheets) {
    if (tSheet.dwAddress == dwAddress) return &tSheet;
  }
  return nullptr;
}

i32 Clamp(double dValue, i32 iLeast, i32 iMost) {
  return dValue < iLeast ? iLeast : dValue > iMost ? iMost : static_cast<i32>(dValue);
}

// Writes the present temperature into its register, if the slave measures.
void Measure(const TSlaveSheet& tSheet, TI2CSlave& tSlave, double dTemperature_C) {
  const bool bSet = (tSlave.aabyRegisters[dwConfiguration][0] & tSheet.byMeasures) != 0;
  if (bSet != tSheet.bMeasuresIfSet) return;
  u8(&abyRegister)[2] = tSlave.aabyRegisters[dwTemperature];
  if (tSheet.eSlave == I2C_TMP103B) {
    abyRegister[0] = static_cast<u8>(Clamp(std::floor(dTemperature_C), -128, 127));
    return;
  }
  const i32 iStep = 32 >> ((tSlave.aabyRegisters[dwControl][0] >> 5) & 3);  // 1/128 degree
  const i32 iValue = Clamp(std::floor(dTemperature_C * 128 / iStep) * iStep, -0x8000, 0x7FFF);
  abyRegister[0] = static_cast<u8>(iValue >> 8);
  abyRegister[1] = static_cast<u8>(iValue);
}

// The place of one byte within a transfer, from the pointer on; after the last register there is none.
struct TPlace {
  u32 dwRegister, dwByte;
};

bool Place_Exists(const TSlaveSheet& tSheet, const TPlace& tPlace) {
  return tPlace.dwRegister < iI2CRegisters && tPlace.dwByte < tSheet.adwBytes[tPlace.dwRegister];
}

void Place_Advance(const TSlaveSheet& tSheet, TPlace& tPlace) {
  if (!Place_Exists(tSheet, tPlace)) return;
  if (++tPlace.dwByte < tSheet.adwBytes[tPlace.dwRegister]) return;
  ++tPlace.dwRegister;
  tPlace.dwByte = 0;
}

void Read(const TSlaveSheet& tSheet, const TI2CSlave& tSlave, u8* pbyData, u32 dwLength) {
  TPlace tPlace{.dwRegister = tSlave.dwPointer, .dwByte = 0};
  for (u32 i = 0; i < dwLength; ++i, Place_Advance(tSheet, tPlace)) {
    pbyData[i] = Place_Exists(tSheet, tPlace) ? tSlave.aabyRegisters[tPlace.dwRegister][tPlace.dwByte] : u8{0xFF};
  }
}

void Write(const TSlaveSheet& tSheet, TI2CSlave& tSlave, const u8* pbyData, u32 dwLength) {
  if (dwLength == 0) return;
  tSlave.dwPointer = pbyData[0];
  TPlace tPlace{.dwRegister = tSlave.dwPointer, .dwByte = 0};
  for (u32 i = 1; i < dwLength; ++i, Place_Advance(tSheet, tPlace)) {
    if (!Place_Exists(tSheet, tPlace) || tPlace.dwRegister == dwTemperature) continue;
    tSlave.aabyRegisters[tPlace.dwRegister][tPlace.dwByte] = pbyData[i];
  }
}

// Returns 0, or -errno if the transfer cannot be made.
i32 Refusal(TI2CBus& tBus, std::span<const TI2CMessage> atMessages) {
  if (tBus.eFault == SENSOR_ABSENT || tBus.eFault == SENSOR_SILENT) return -ENXIO;
  bool bReads = false;
  for (const TI2CMessage& tMessage : atMessages) {
    if (FindSlave(tMessage.dwAddress) == nullptr) return -ENXIO;
    if (tMessage.bRead) bReads = true;
  }
  if (tBus.eFault != SENSOR_BAD_ONCE || !bReads) return 0;
  tBus.eFault = SENSOR_GOOD;
  return -EIO;
}

void Move(TI2CBus& tBus, double dTemperature_C, const TI2CMessage& tMessage, u32 dwLength) {
  const TSlaveSheet& tSheet = *FindSlave(tMessage.dwAddress);
  TI2CSlave& tSlave = tBus.atSlaves[tSheet.eSlave];
  // Measure before a write too: if it stops the measuring, the slave keeps the present temperature.
  Measure(tSheet, tSlave, dTemperature_C);
  if (tMessage.bRead)
    Read(tSheet, tSlave, tMessage.pbyData, dwLength);
  else
    Write(tSheet, tSlave, tMessage.pbyData, dwLength);
}

}  // namespace

void I2CBus_PowerOn(TI2CBus* ptBus) {
  for (const TSlaveSheet& tSheet : g_atSheets) {
    TI2CSlave& tSlave = ptBus->atSlaves[tSheet.eSlave];
    tSlave = {};
    tSlave.aabyRegisters[dwConfiguration][0] = tSheet.byConfiguration;
  }
}

i32 I2CBus_Message(TI2CBus* ptBus, double dTemperature_C, const TI2CMessage& tMessage) {
  const i32 iRefusal = Refusal(*ptBus, {&tMessage, 1});
  if (iRefusal != 0) return iRefusal;
  const u32 dwMissing = ptBus->eFault == SENSOR_SHORT && tMessage.dwLength > 0 ? 1 : 0;
  Move(*ptBus, dTemperature_C, tMessage, tMessage.dwLength - dwMissing);
  return static_cast<i32>(tMessage.dwLength - dwMissing);
}

i32 I2CBus_Combined(TI2CBus* ptBus, double dTemperature_C, std::span<const TI2CMessage> atMessages) {
  const i32 iRefusal = Refusal(*ptBus, atMessages);
  if (iRefusal != 0) return iRefusal;
  if (ptBus->eFault == SENSOR_SHORT) return -EIO;
  for (const TI2CMessage& tMessage : atMessages) Move(*ptBus, dTemperature_C, tMessage, tMessage.dwLength);
  return static_cast<i32>(atMessages.size());
}
