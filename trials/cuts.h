// The power-cut campaign.  A row says what a camera is doing.  The power is cut at any event of that, and the next
// starts are judged.  Shared by the program that tries every event and by the test that tries a sample.
//
// One try is three lives on one ROOT: one that is cut, one that finds the lens again, and a clean one after it.
#pragma once

#include <string>
#include <vector>

#include "support.h"

struct TCutOptions {
  const char* pszStatus = "normal\n";   // status file at the start of the life that is cut; null: there is none
  u64 qwEvery = 1;                      // for a sample one event in so many is enough
  const char* pszNextStatus = nullptr;  // status file at the start after the cut; null: what the cut has left
  bool bDisplaced = false;              // the lens is not where the saved state says, as on a new camera
  bool bSharp = false;                  // at the end channel 0 must be sharp, in the light that there is then
};

struct TCutRow {
  const char* szName;
  const char* szModel;
  std::vector<TLifeEvent> atEvents;  // of the life that is cut
  u64 qwEnd_ms;                      // end of that life if it is not cut
  TCutOptions tOptions = {};
};

const std::vector<TCutRow>& Cuts_Rows();

// Brings the ROOT back to the new camera, then sets up what the row starts from.
void Cuts_SetScene(const TCamera& tCamera, const TCutRow& tRow);

// When the power is cut: at an event or at a time.  During a blocking walk there is no event, so only a time cuts it.
struct TCutMoment {
  u64 qwEvent = 0;    // from 1; 0: at a time
  u64 qwTime_us = 0;  // camera time since the start of the life
  u64 qwAgain = 0;    // event of the next start at which the power is cut again, 0 never
};

// Runs the row's life without a cut.  It must end in order, with every axis where the daemon says, and leave no working
// log.  One exception: a backup moves only one of several channels.  Another one may then be elsewhere as long as the
// working log of that axis stands, and one further start must find every channel.
struct TUncut {
  u64 qwEvents = 0;         // of the whole life
  u64 qwStartUpEvents = 0;  // of these, before the row's first request or change; if it has none, in the first moments
  std::string sLoss = {};   // what did not hold; "" all did
};
TUncut Cuts_LiveUncut(const TCamera& tCamera, const TCutRow& tRow, u64 qwSeed);

// Draws moments so that every phase has its cut: the start-up, what follows it, and a drawn time.  If the start after
// a cut recovers, the power is cut again in each phase of the recovery: before its first walk, in its walks to the
// references, between these and its search, and in the search.
std::vector<TCutMoment> Cuts_DrawMoments(const TCamera& tCamera, const TCutRow& tRow, const TUncut& tUncut, u64 qwSeed);

struct TCutOutcome {
  bool bSurvived = false;
  std::string sLoss;  // what was lost, one line; "" if survived
  std::string sTale;  // last lines of the three transcripts; "" if survived
};

// Cuts the row's life and judges the next two starts.  Each must come to rest, end in order, and believe the true place
// of every axis and channel.  At the end no working log may stand, and after a recovery the lens must be sharp.  The
// seed decides in which order the threads run, and which unsynced writes the flash keeps.
TCutOutcome Cuts_Try(const TCamera& tCamera, const TCutRow& tRow, const TCutMoment& tMoment, u64 qwSeed);
