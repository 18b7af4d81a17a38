// One daemon on one camera.  Two would each count the steps of their own walks only, and neither would know where the
// lens is.  The claim is an advisory lock on the configuration's folder: it makes no file, works on a flash that cannot
// be written, and ends with the process, however that ends.
//
// Main thread.
#pragma once

#include "core/context.h"

// Claims the camera before anything on it is touched.  A predecessor that is still finishing its move is waited for, a
// minute at most.  0; -1: another daemon keeps the camera, or this one is to end.  Where the folder cannot be locked at
// all the answer is 0: a lens without a daemon is worse.
i32 Instance_Claim(TVernierLensdInfo* pThis);

// The last act of a release: from here on a successor may move the lens.
void Instance_Release(TVernierLensdInfo* pThis);
