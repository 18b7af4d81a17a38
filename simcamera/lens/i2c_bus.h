// The simulated camera's I2C bus, "/dev/i2c-2", with its temperature sensors: their registers in plain memory, and the
// transfers that read and write them.
//
// Two slaves are always there, whichever of them the camera's configuration names.  A register is one or two bytes, the
// high one first:
//
//     slave           0 temperature           1 configuration            2, 3 limits   4 control   power-on
//     0x71 TMP103B    1 byte, whole degrees   bit 1 set: it measures     1 byte each   none        shut down, 0 degrees
//     0x4A LM73       2 bytes, 1/128 degree   bit 7 clear: it measures   2 bytes each  1 byte      measures
//
// Temperatures are two's complement, rounded down: those of the LM73 to 1/4 degree, or to as little as 1/32 by bits 5
// and 6 of its control register.  A slave that does not measure keeps the last temperature.
//
// The first byte of a write sets the register pointer.  Further bytes go into that register and the next ones.  A read
// starts at the register that the pointer names.  The pointer stays where it was set.  Bytes written to register 0 or
// after the last register are ignored; bytes read after the last register are 0xFF.  A transfer takes no time.
//
// Callers hold the world's lock (at a speed) or are the only thread that runs (on the virtual clock).
#pragma once

#include <span>

#include "core/types.h"

constexpr u32 dwTMP103BAddress = 0x71, dwLM73Address = 0x4A;  // 7 bits

enum EI2CSlave : u32 { I2C_TMP103B, I2C_LM73, I2C_SLAVES };

// What is wrong with all sensors.
enum ESensorFault : u32 {
  SENSOR_GOOD,
  SENSOR_ABSENT,   // there is no bus: its device cannot be opened, and nothing answers on one that is open
  SENSOR_SILENT,   // no slave answers
  SENSOR_SHORT,    // reads and writes move one byte too few, combined transfers fail
  SENSOR_BAD_ONCE  // the next transfer that reads fails; the fault ends with it
};

constexpr i32 iI2CRegisters = 8;

struct TI2CSlave {
  u32 dwPointer;                       // register
  u8 aabyRegisters[iI2CRegisters][2];  // high byte first
};

struct TI2CBus {
  TI2CSlave atSlaves[I2C_SLAVES];
  ESensorFault eFault;
};

struct TI2CMessage {
  bool bRead;
  u32 dwAddress;  // 7 bits
  u8* pbyData;    // filled by a read, not changed by a write
  u32 dwLength;
};

// Sets the registers of every slave to those after power-on.  A fault stays.
void I2CBus_PowerOn(TI2CBus* ptBus);

// One message by itself, as by read(2) or write(2) of the device.  Returns the number of bytes moved, or -errno.
i32 I2CBus_Message(TI2CBus* ptBus, double dTemperature_C, const TI2CMessage& tMessage);

// Messages joined by repeated starts.  Returns their number, or -errno; then no read has filled anything.
i32 I2CBus_Combined(TI2CBus* ptBus, double dTemperature_C, std::span<const TI2CMessage> atMessages);
