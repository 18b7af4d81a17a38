// Short forms for tests of whole lives: queries in a row, a life that comes to rest, a life for each of many seeds.
#pragma once

#include "whole_lives.h"

// Queries in short, as in "100 zoom=300, 6000 channel=2&focus-20, 9000 stop": each is a time in ms and what follows
// "function=".  zoom=300 goes to a position, zoom+3 and zoom-3 make steps.
inline std::vector<TLifeEvent> Asks(const std::string& sShort) {
  std::vector<TLifeEvent> atEvents;
  const char* szForm = "([0-9]+) (channel=[0-9]+&)?(?:(zoom|focus)([=+-])(-?[0-9]+))?([^,]*)";
  for (const auto& asAsk : Matches(sShort, szForm)) {
    std::string sQuery = asAsk[2] + "function=" + asAsk[3];
    if (asAsk[4] == "=") sQuery += "&direction=direct&position=" + asAsk[5];
    if (asAsk[4] == "+") sQuery += "&direction=forward&steps=" + asAsk[5];
    if (asAsk[4] == "-") sQuery += "&direction=backward&steps=" + asAsk[5];
    atEvents.push_back(Ask(std::stoull(asAsk[1]), sQuery + asAsk[6]));
  }
  return atEvents;
}

// A life with all these events, the queries first.
inline std::vector<TLifeEvent> Asks(const std::string& sShort, std::initializer_list<TLifeEvent> atOthers) {
  std::vector<TLifeEvent> atEvents = Asks(sShort);
  atEvents.insert(atEvents.end(), atOthers);
  return atEvents;
}

// Adds the question for the status, which is the last reply, and ends the life half a second later.  The lens is then
// at rest, and the daemon knows where.
inline TLifeResult LiveToRest(const TCamera& tCamera, std::vector<TLifeEvent> atEvents, u64 qwRest_ms,
                              u64 qwSeed = FirstSeed()) {
  atEvents.push_back(Ask(qwRest_ms, szStatus));
  TLifeResult tResult = Live(tCamera, std::move(atEvents), qwRest_ms + 500, qwSeed);
  ExpectRest(tCamera, tResult);
  return tResult;
}

// Calls fnTry with one seed after another, up to the first that fails.  A sanitizer's run tries fewer.
template <typename TTry>
void ForSeeds(u64 qwSeeds, TTry fnTry) {
  for (u64 qw = 0; qw < Lives(qwSeeds) && !testing::Test::HasFailure(); qw++) {
    SCOPED_TRACE("seed " + std::to_string(FirstSeed() + qw));
    fnTry(FirstSeed() + qw);
  }
}
