// The temperature sensor of the lens, a TMP103B or an LM73 on the I2C bus, as config_temperature.xml names it.
//
// An object belongs to one thread at a time; nothing here locks.  Operations return 0, or -1 with lines printed.
// Pointers are borrowed for the call; a null one is refused.
#pragma once

#include <sys/time.h>

#include <cstddef>

#include "core/types.h"
#include "temperature/iic_ctrl.h"

struct TTemperatureValue {
  u8 byRaw;             // low byte of the raw value
  i32 iTemperature;     // whole degrees Celsius
  double dTemperature;  // the same value
};
static_assert(offsetof(TTemperatureValue, iTemperature) == 4 && offsetof(TTemperatureValue, dTemperature) == 8);

struct TTemperature {
  TIICCtrl* ptIIC;  // owned
  i32 (*pfnInit)(TIICCtrl* ptIIC, u8 byAddress);
  i32 (*pfnRead)(TIICCtrl* ptIIC, u8 byAddress, u32* pdwRaw);
  void (*pfnConvert)(u32 dwRaw, TTemperatureValue* ptReading);
  u32 dwLastRaw;        // raw value of the last good read
  timeval tLastRead;    // wall clock at the last read, good or failed; all zero before the first
  u8 byAddress;         // form depends on the sensor: 7-bit address for a TMP103B, 8-bit bus form for an LM73
  u32 bLastReadFailed;  // 1: the next reading goes to the bus, however new the last value is
  char szDevPath[32];   // bus device; empty: szIICPath
};
static_assert(offsetof(TTemperature, pfnInit) == sizeof(void*) &&
              offsetof(TTemperature, dwLastRaw) == 4 * sizeof(void*));

// Reads from the configuration which sensor iDevice is, opens its bus, sets the sensor up and puts a new object into
// the slot, which is written on success only.  Temperature_Release frees the object.  Blocks for the file and the bus.
i32 Temperature_Initial(TTemperature** phTemperature, i32 iDevice);

// Gives the temperature, at most 50,000 us old by the wall clock.  Reads from the bus, and blocks meanwhile, if the
// last value is older or missing, or if the clock was set back.  A failed read leaves ptReading unchanged.
i32 Temperature_ReadValue(TTemperature* pThis, TTemperatureValue* ptReading);

// Closes the bus, frees the object and clears the slot.  Returns -1 if there is no object, or if the object has no bus;
// the object is then kept.
i32 Temperature_Release(TTemperature** phTemperature);

// Convert a raw value to degrees, and leave byRaw as it is.  Any thread.
// TMP103B: the low 8 bits are whole degrees in two's complement.
void TMP103B_Convert(u32 dwRaw, TTemperatureValue* ptReading);
// LM73: bits 0 to 7 are the register's first byte, bits 8 to 15 its second.  The word with the first byte on top counts
// 1/128 degrees in two's complement.  Rounds down to whole degrees, and prints the word.
void LM73_Convert(u32 dwRaw, TTemperatureValue* ptReading);
