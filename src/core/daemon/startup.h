// Start-up, in its fixed order: the configuration decides which threads exist, and the focus thread starts before the
// later tables and before the wake-up pairs.  Main thread, once.
#pragma once

#include "core/context.h"

// 0, or -1 at the first step that failed, with its line printed; what exists by then is VernierLensd_Release's.
i32 VernierLensd_Init(TVernierLensdInfo* pThis);

// Makes the XML reader with its options.  0, or -1: a null slot, without a line, or no memory.
i32 VernierLensd_InitSXMLParser(TSXMLParser** phParser);

// Makes the Expat parser for the message library.  0 or -1.
i32 VernierLensd_InitXMLParser(TVernierLensdInfo* pThis);

// Sets the temperature sensor up.  0, or -1: no sensor, hTemperature stays null.
i32 VernierLensd_InitTemperatureSensor(TVernierLensdInfo* pThis);

// Writes the process id, at most 7 digits, no line end.  0, or -1 when the file cannot be made, without a line.
i32 VernierLensd_WritePidFile();
