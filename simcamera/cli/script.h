// A script: what happens to a camera, and what must be true of it, at camera times.  One act a line:
//
//   AT COMMAND ...
//
// AT is seconds of camera time since the run's start, +S seconds after the line before, or "rest": as soon as every
// axis is idle and nothing turns.  COMMAND is one of
//
//   ask QUERY                       must be answered with 200
//   press BUTTON [--for MS]
//   set ..., fault ..., show ...    as on the command line, without ROOT
//   expect VALUE [OP] VALUE         OP is ==, !=, <, <=, > or >=, == if there is none
//
// A VALUE is a number, a word, or a place in what `show --json` prints: "time_s", "scene.night"; "focus.true" and the
// like are of channel 0, "2.focus.true" is of channel 2.  "rest" alone only waits.  Empty lines and lines with '#'
// first are comments.
#pragma once

#include <string>
#include <vector>

#include "cli/cli.h"

struct TScriptLine {
  enum EAt { AT_TIME, AT_AFTER, AT_REST };
  i32 iNumber;  // in the file, from 1
  EAt eAt;
  u64 qwAt_us;
  std::vector<std::string> asWords;  // the command and its arguments
};

// Reads a script whole.  Refuses it as wrong usage, with file and line, at its first wrong line.
std::vector<TScriptLine> Script_Read(const std::string& sFile);

// Plays it; this process holds the camera's clock, and has held it since before the daemon started.  The hold ends with
// the process.  With
// bUntilRest it waits for rest at the end.  Returns 0, or 1 with a line on stderr that names the script's line.
i32 Script_Play(const TOpenCamera& tCamera, const std::string& sFile, const std::vector<TScriptLine>& atLines,
                bool bUntilRest);
