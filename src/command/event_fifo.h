// Frames of the event FIFO, turned into events by the message library.  Main thread.
#pragma once

#include "core/context.h"

// Reads what there is of a frame, without waiting, and handles the frame once it is whole.  Returns 0, also while the
// rest of the frame is still to come; -1 if the frame was refused: its message is dropped and the FIFO is left alone;
// iFIFOUnreadable as EventFrame_Read does (event_frame.h).
i32 VernierLensd_FIFOCommandHandler(TVernierLensdInfo* pThis);

// Handles the payload of a frame.  Returns 0, or -1 with a line printed.  pszPayload is NUL-terminated after dwLength
// bytes.
i32 VernierLensd_ParseFIFOCmd(TVernierLensdInfo* pThis, const char* pszPayload, u32 dwLength, u32 dwType);
