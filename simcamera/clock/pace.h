// Holds the virtual clock of a run to the host's.  Where the clock would jump to its next deadline it first waits in
// one real poll: over the descriptors that the tasks wait on, a bell that commands ring, and the signals of the
// process.  It goes on at the deadline, or at the camera time of the moment at which something has come in.  A busy
// host makes the camera slower, and never different.
//
// Threads that a library of the camera has made for itself live outside the clock, in real time.  Their calls pass
// through.  Where the clock is held, steps, or runs as fast as the host can, it waits until each of them sits in its
// epoll_wait with nothing to take.
//
// The task that holds the token, where nothing else is said.  A life has no pace: Pace_IsOn is false, and nothing here
// is called.
#pragma once

#include <poll.h>

#include "clock/clock.h"

// Start of a run's daemon, before its first thread.  Returns 0, or -1 if the bell cannot be made.
i32 Pace_Open(const char* szRoot, TWorld* ptWorld);
inline bool Pace_IsOn() {  // any thread
  return g_bPaced;
}

// The process has forked itself into the background: the clock is the child's.
void Pace_Forked();

// From now on the signal comes in through the poll, and no handler runs beside the tasks.
void Pace_WatchSignal(i32 iSignal);

// The descriptors that tasks wait on, for the poll.
constexpr i32 iMaxPolled = 64;
struct TPolled {
  pollfd atFds[iMaxPolled];
  i32 iCount;
};

// Waits until the clock may stand at qwNext_us, or something has come in from outside.  Returns the camera time that is
// reached, which is the world's time from then on.
u64 Pace_Wait(u64 qwNow_us, u64 qwNext_us, const TPolled& tTasks);

// True if the wait for that deadline takes long enough that whoever waits on descriptors is to do it: a request then
// needs no other thread to wake it.
bool Pace_IsLong(u64 qwNow_us, u64 qwNext_us);

// Something from outside is handed to a task.  False: so much has come in at this camera time that the task has to
// sleep a little first, or a flood would keep the clock from going on.
bool Pace_TakesMore(u64 qwNow_us);

// Threads outside the clock.  The creator reserves a place (-1: no room); the other four run on the thread itself.
i32 Foreign_New();
void Foreign_Forget(i32 iPlace);  // it was not made
void Foreign_Enter(i32 iPlace);
void Foreign_Leave();
void Foreign_Sits(i32 fdEpoll);  // in epoll_wait
void Foreign_Works();
bool Foreign_IsSelf();  // any thread
