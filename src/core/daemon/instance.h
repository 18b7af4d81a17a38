// Only one daemon may run on a camera.  Two would each count only the steps of their own walks, and neither would know
// where the lens is.  The claim is an advisory lock on a file that only the daemon's user can open.  The file lies
// beside the PID file and not on the flash, which may be full or read-only.  The lock ends with the process, in
// whatever way.
//
// Main thread.
#pragma once

#include "core/context.h"

// Claims the camera.  Call this before anything on the camera is touched.  If another daemon is still finishing its
// move, waits a little longer than its release may take.  Returns 0, or -1 with a line printed if the other daemon
// keeps the camera or this one is to end.  Also returns 0 if the file cannot be made (with a line) or cannot be locked:
// a lens without a daemon would be worse.
i32 Instance_Claim(TVernierLensdInfo* pThis);

// Gives the camera up, as the last step of a release: from now on another daemon may move the lens.
void Instance_Release(TVernierLensdInfo* pThis);
