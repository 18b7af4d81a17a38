// The log on standard output.  Its reader may stall, for instance a stopped logger or a serial console that somebody
// holds, but no thread of the daemon waits for the reader.  A line that the reader does not take at once is dropped and
// counted.  When the reader takes lines again, the first one says how many are missing.  The daemon prints with puts
// and printf as usual.
#pragma once

#include <string_view>

// Replaces stdout by a stream of the daemon's own, and finds out how to write to standard output without waiting.  Call
// it at start-up before the first line, and again whenever standard output has become another file.
void Log_Open();

// Writes a whole line.  For a signal handler, on any thread.  Returns 0, or -1 with errno set if the line was not
// taken.
int Log_WriteFromHandler(std::string_view sLine);
