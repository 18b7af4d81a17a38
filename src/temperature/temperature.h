// The temperature sensor of the lens, a TMP103B or an LM73 on the I2C bus, as config_temperature.xml names it.
//
// An object belongs to one thread at a time, nothing here locks.  0; -1 with lines printed.  Pointers are borrowed for
// the call; a null one is refused.
#pragma once

#include <sys/time.h>

#include <cstddef>

#include "core/types.h"
#include "temperature/iic_ctrl.h"

struct TTemperatureValue {
  u8 byRaw;             // low byte of the raw value
  i32 iTemperature;     // whole degrees Celsius
  double dTemperature;  // the same
};
static_assert(offsetof(TTemperatureValue, iTemperature) == 4 && offsetof(TTemperatureValue, dTemperature) == 8);

struct TTemperature {
  TIICCtrl* ptIIC;  // owned
  i32 (*pfnInit)(TIICCtrl* ptIIC, u8 byAddress);
  i32 (*pfnRead)(TIICCtrl* ptIIC, u8 byAddress, u32* pdwRaw);
  void (*pfnConvert)(u32 dwRaw, TTemperatureValue* ptReading);
  u32 dwLastRaw;        // of the last good read
  timeval tLastRead;    // wall clock at the last read, good or failed; all zero before the first
  u8 byAddress;         // in the sensor's own form: of a TMP103B the 7-bit one, of an LM73 the 8-bit bus form
  u32 bLastReadFailed;  // the next reading goes to the bus whatever the age
  char szDevPath[32];   // bus device; empty: szIICPath
};
static_assert(offsetof(TTemperature, pfnInit) == sizeof(void*) &&
              offsetof(TTemperature, dwLastRaw) == 4 * sizeof(void*));

// Reads which sensor device iDevice is, opens its bus, sets the sensor up and fills the slot, to be given back by
// Temperature_Release.  A slot is written on success only.  Blocks for the file and the bus.
i32 Temperature_Initial(TTemperature** phTemperature, i32 iDevice);

// The temperature, at most 50,000 us old by the wall clock.  Blocks while it goes to the bus: when the last value is
// older, was not to be had, or comes from a time that the clock has not reached.  A failed read leaves ptReading alone.
i32 Temperature_ReadValue(TTemperature* pThis, TTemperatureValue* ptReading);

// Closes the bus, frees, clears the slot.  -1: nothing there, or no bus object in it, which keeps the object.
i32 Temperature_Release(TTemperature** phTemperature);

// Raw value to degrees.  Leave byRaw alone.  Any thread.
// TMP103B: the low 8 bits are whole degrees in two's complement.
void TMP103B_Convert(u32 dwRaw, TTemperatureValue* ptReading);
// LM73: the register's first byte is bits 0 to 7, its second bits 8 to 15; as a word, first byte on top, it counts
// 1/128 degrees in two's complement.  Rounds down.  Prints the word.
void LM73_Convert(u32 dwRaw, TTemperatureValue* ptReading);
