// Watches the command boxes of a life from outside: which thread writes which command over which other one.  It uses
// only the order of the commands and the running task, never times, so it needs no guess.
//
//   - A follow-up is as new as the command that it follows from, and is never written over a newer command.
//   - A thread takes the command that was written last.
//   - At rest no command is left that no thread has taken.
//
// A command is written when the axis's wake flag is set, and taken when the flag is cleared.  The stores themselves are
// watched, and the commands are counted here, so the oracle needs no function, parameter or number of the daemon.
#pragma once

// Call this after a shared word has been stored.  Any task.
void Oracle_Stored(const volatile void* pvWord);

// Call this from a scripted event, when the life is at rest.
void Oracle_AtRest();
