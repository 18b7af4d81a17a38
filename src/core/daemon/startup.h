// Start-up, in its fixed order: the configuration decides which threads exist, and the focus thread starts before the
// later tables and before the wake-up pairs.  Main thread, once.
#pragma once

#include "core/context.h"

// Runs start-up.  Returns 0, or -1 at the first step that failed, with its line printed.  VernierLensd_Release then
// releases what exists.
i32 VernierLensd_Init(TVernierLensdInfo* pThis);

// Makes the XML reader with its options.  Returns 0, or -1 if phParser is null (without a line) or memory is short.
i32 VernierLensd_InitSXMLParser(TSXMLParser** phParser);

// Makes the Expat parser for the message library.  Returns 0, or -1 with a line printed.
i32 VernierLensd_InitXMLParser(TVernierLensdInfo* pThis);

// Sets up the temperature sensor.  Returns 0, or -1 if there is no sensor; hTemperature then stays null.
i32 VernierLensd_InitTemperatureSensor(TVernierLensdInfo* pThis);

// Writes the process id into the PID file: at most 7 digits, no line end.  Returns 0, or -1 without a line if the file
// cannot be made.
i32 VernierLensd_WritePidFile();
