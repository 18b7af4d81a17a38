// The reference of an ICS lens: the driver knows it, and goes there by itself.  Thread of the axis, for the channel of
// its running command; never on a detached lens.  Each holds gICSMutex through its waits.  A driver that gives no
// reference counts as detached, and the position stays.
#pragma once

#include "core/context.h"

// To the reference, then to the command's position.  ptCommand: the running command.
void ICS_ZoomMotorPositioning(TVernierLensdInfo* pThis, const TMotorCommand* ptCommand, i32 fd);

// To the reference, and no farther.
void ICS_FocusMotorPositioning(TVernierLensdInfo* pThis, i32 fd);
void ICS_FocusMotorReset(TVernierLensdInfo* pThis, i32 fd);
void ICS_FocusScanReference(TVernierLensdInfo* pThis, i32 fd);
