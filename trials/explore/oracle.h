// Watches the command boxes of a life from outside: who writes which command over what.  It goes by the order of the
// commands and by who runs, never by times, so it cannot guess wrong.
//
//   - A command that a motor thread writes for its own (a follow-up) is as new as that one, and never stands over a
//     newer command.
//   - What a thread takes is what was written last.
//   - At rest no command is left that nobody has taken.
//
// A command is written when the axis's wake flag is set, and taken when the flag is cleared.  The stores themselves are
// watched, and the commands counted here, so the oracle needs no function, parameter or number of the daemon's.
#pragma once

// A shared word has been stored.  Any task.
void Oracle_Stored(const volatile void* pvWord);

// The life is at rest, as a scripted event finds it.
void Oracle_AtRest();
