// A life with a chosen schedule instead of a drawn one.
//
// By default the running task goes on until it waits; then the ready task with the lowest number runs.  No sleep
// overruns.  What comes from outside comes as late as it may.  Each place where something else could happen is a point,
// numbered in order.  A deviation does something else at one point.  The same deviations give the same life.
//
// Points are numbers of one binary: in another build the same deviations mean another schedule.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "life/life.h"

enum EPoint : u8 {
  POINT_ACCESS,  // a task is about to touch a shared word, a lock or a semaphore
  POINT_ORDER,   // a task waits or has given way, and several others are ready
  POINT_IDLE,    // all tasks wait, and something is still to come from outside
  POINT_SLEEP,   // a sleep begins
};

struct TPoint {
  u64 qwWord;            // ACCESS: address of what is touched
  u64 qwPlace;           // ACCESS: return address in the daemon's code; IDLE: which calls the tasks wait in
  u64 qwTime_us;         // of the life
  std::uint16_t wReady;  // tasks that could go on, by bits
  u8 byTask;             // who runs
  EPoint ePoint;
  bool bWrite;      // ACCESS
  bool bMayArrive;  // something from outside could arrive here, and would make a difference
};

enum EDeviation : u32 {
  DEVIATION_TASK,     // task dwArgument goes on here
  DEVIATION_ARRIVAL,  // the next arrival from outside comes here
  DEVIATION_OVERRUN,  // this sleep takes dwArgument microseconds longer
};

struct TDeviation {
  u32 dwPoint;
  EDeviation eDeviation;
  u32 dwArgument;
};
constexpr u32 dwMaxDeviations = 8;

// Who notices an arrival, and so when it can make a difference.
enum ESeenBy : u32 {
  SEEN_BY_SELECT,  // the main thread, only while it waits for its inputs
  SEEN_BY_ANYONE,  // any thread: a signal
  SEEN_BY_CLOCK,   // the image side, whenever the time moves on
};

// Something from outside that may arrive at any point.  Arrivals come in their order.
struct TArrival {
  u64 qwLatest_us = 0;  // it comes at the latest so long after the one before; the first, after the window has opened
  ESeenBy eSeenBy = SEEN_BY_SELECT;
  std::function<void(TWorld*)> fnHappen = {};
};

struct TSchedule {
  std::vector<TDeviation> atDeviations = {};  // in order of their points
  std::vector<TArrival> atArrivals = {};
  u64 qwOpens_us = 0, qwCloses_us = 0;  // the window, since the start of the life: only in it are there points
};

// Runs one life with the schedule.  tPlan's own events come at their times.
TLifeResult Schedule_Live(const TSchedule& tSchedule, TLifePlan tPlan);

// These tell of the last life.  The points are valid until the next one.
std::span<const TPoint> Schedule_Points();
bool Schedule_IsWhole();       // false: more points than there is room for, or a deviation whose point never came
std::string Schedule_Fault();  // the first fault that Schedule_Blame was given; "" none

// Call this within a life when a task is about to touch something shared: another task may run first.
void Schedule_Access(const volatile void* pvWord, bool bWrite, const void* pvPlace);
// Call this within a life when something is wrong with it.  szFault is noted in its transcript.
void Schedule_Blame(const char* szFault);
