// Sends an ICS lens to its reference.  The driver knows the reference, and goes there by itself.  Call these on the
// axis's thread, for the channel of its running command, and never for a detached lens.  Each holds gICSMutex through
// its waits.  If the driver gives no reference, the lens counts as detached, and the position stays as it was.
#pragma once

#include "core/context.h"

// Goes to the zoom's reference, then to the position of ptCommand, the running command.
void ICS_ZoomMotorPositioning(TVernierLensdInfo* pThis, const TMotorCommand* ptCommand, i32 fd);

// Go to the focus's reference and stay there.  These three differ only in the line that they print.
void ICS_FocusMotorPositioning(TVernierLensdInfo* pThis, i32 fd);
void ICS_FocusMotorReset(TVernierLensdInfo* pThis, i32 fd);
void ICS_FocusScanReference(TVernierLensdInfo* pThis, i32 fd);
