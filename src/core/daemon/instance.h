// One daemon on one camera.  Two would each count the steps of their own walks only, and neither would know where the
// lens is.  The claim is an advisory lock on a file of its own, which nobody else can open and so lock.  It lies with
// the PID file and not on the flash, which may be full or read-only, and it ends with the process, however that ends.
//
// Main thread.
#pragma once

#include "core/context.h"

// Claims the camera before anything on it is touched.  A predecessor that is still finishing its move is waited for, a
// little longer than its release may take.  0; -1, with a line printed: another daemon keeps the camera, or this one is
// to end.  Where the file cannot be made, which costs a line, or cannot be locked, the answer is 0: a lens without a
// daemon is worse.
i32 Instance_Claim(TVernierLensdInfo* pThis);

// The last act of a release: from here on a successor may move the lens.
void Instance_Release(TVernierLensdInfo* pThis);
