// The log on standard output.  Whoever reads it may stall, a logger that has stopped or a serial console that somebody
// holds; no thread of the daemon waits for it.  A line that the reader does not take at once is dropped and counted,
// and when the reader takes lines again, the first one says how many are missing.  Printing stays what it is: puts,
// printf.
#pragma once

#include <string_view>

// Puts a stream of the daemon's own in the place of stdout and finds out how standard output is written without
// waiting. Start-up, before the first line; again whenever standard output has become another file.
void Log_Open();

// Writes a whole line.  For a signal handler, on any thread.  0; -1: it was not taken, and errno says why.
int Log_WriteFromHandler(std::string_view sLine);
