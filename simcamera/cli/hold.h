// The clock of a run, held by this process: it goes no further than the hold, and the daemon answers at the time at
// which it stands.  What a script does so happens at camera times that no host changes.  A hold ends with its process.
#pragma once

#include <optional>
#include <string>

#include "cli/cli.h"
#include "cli/client.h"

// Lets the clock go on to that camera time (at once if it is past), and waits until it stands there and nothing is
// under way in the camera.  Refuses after two minutes of the host's clock without a sign of that.
void Hold_At(const TOpenCamera& tCamera, u64 qwAt_us);
void Hold_Here(const TOpenCamera& tCamera);  // where it stands; does not wait

// Asks the daemon while the clock is held.  Where the daemon needs camera time for its answer, the hold goes on with
// it, a millisecond at a time.  Returns nothing if there is no answer within a minute of camera time.
std::optional<TReply> Hold_Ask(const TOpenCamera& tCamera, const std::string& sQuery);

// Lets the clock go on until both axes of every channel are idle and nothing turns.  Returns "", or after ten minutes
// of camera time what is still busy.
std::string Hold_UntilRest(const TOpenCamera& tCamera);
