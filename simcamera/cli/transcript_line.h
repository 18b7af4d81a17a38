// A line of the transcript, "SECONDS THREAD EVENT", taken apart.  A driver request is "DEVICE REQUEST [ARGUMENT] =
// RESULT [rotor PLACE] [locked]", with the time at which the request returned.
#pragma once

#include <optional>
#include <string>

#include "core/types.h"

struct TDriverLine {
  std::string sDevice, sRequest;
  std::optional<i64> llArgument;
  i64 llResult;
  std::optional<i64> llRotor;  // driver steps; of a stepper
  bool bLocked;                // the thread held a mutex
};

struct TTranscriptLine {
  double dTime_s;
  std::string sThread;  // "-": from outside
  std::string sEvent;
  std::optional<TDriverLine> tDriver;
};

std::optional<TTranscriptLine> TranscriptLine_Parse(const std::string& sLine);
