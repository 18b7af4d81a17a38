// The power-cut campaign: what a camera is doing, the cut at any event of it, and the judgement.  Shared by the program
// that tries every event and by the test that tries a sample.
//
// One try is three lives on one ROOT: one that is cut, one that finds the lens again, and a clean one after it.
#pragma once

#include <string>
#include <vector>

#include "support.h"

struct TCutOptions {
  const char* pszStatus = "normal\n";   // status file at the start of the life that is cut, null none
  u64 qwEvery = 1;                      // sensible sample: one event in so many
  const char* pszNextStatus = nullptr;  // status file at the start after the cut; null: what the cut has left
  bool bDisplaced = false;              // the lens stands elsewhere than the saved state says, as a new camera's may
  bool bSharp = false;                  // channel 0 ends sharp in the light of the end
};

struct TCutRow {
  const char* szName;
  const char* szModel;
  std::vector<TLifeEvent> atEvents;  // of the life that is cut
  u64 qwEnd_ms;                      // of that life, should it not be cut
  TCutOptions tOptions = {};
};

const std::vector<TCutRow>& Cuts_Rows();

// The row's start, on a ROOT brought back to what was laid out.
void Cuts_SetScene(const TCamera& tCamera, const TCutRow& tRow);

// A moment of a life.  Most of the time no hooked call is made: only a time falls into a walk that blocks.
struct TCutMoment {
  u64 qwEvent = 0;    // from 1; 0: at a time
  u64 qwTime_us = 0;  // camera time since the start of the life
  u64 qwAgain = 0;    // event of the next start at which the power is cut again, 0 never
};

// The row's life without a cut: it must end in order, with every axis where the daemon says, and leave no log.  A
// channel that a backup of several channels has not sent may be elsewhere exactly while the log of that axis stands;
// one further start must then find every channel.
struct TUncut {
  u64 qwEvents = 0;         // of the whole life
  u64 qwStartUpEvents = 0;  // of them before the row's first event, or in the first moments of a row that has none
  std::string sLoss = {};
};
TUncut Cuts_LiveUncut(const TCamera& tCamera, const TCutRow& tRow, u64 qwSeed);

// A sample of moments that leaves no phase to chance: the start-up, what follows it, a drawn time; and where the start
// after a cut recovers, a second cut in each phase of that: ahead of its first walk, in its walks to the references,
// between those and its search, and in the search.
std::vector<TCutMoment> Cuts_DrawMoments(const TCamera& tCamera, const TCutRow& tRow, const TUncut& tUncut, u64 qwSeed);

struct TCutOutcome {
  bool bSurvived = false;
  std::string sLoss;  // what was lost, one line; "" if survived
  std::string sTale;  // last lines of the three transcripts; "" if survived
};

// Cuts the row's life and judges what the next two starts make of it: each comes to rest, ends in order, and believes
// of every axis and channel what is true; no working log stands at the end, and where a start has recovered from the
// cut the lens is sharp.  The seed decides the threads' turns and
// the flash's fate.
TCutOutcome Cuts_Try(const TCamera& tCamera, const TCutRow& tRow, const TCutMoment& tMoment, u64 qwSeed);
