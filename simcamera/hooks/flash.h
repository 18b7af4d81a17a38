// The camera's flash (what lies below ROOT/etc and ROOT/mnt), as treacherous as flash is: what was written since the
// last sync may, after a power cut, be there, be missing or be torn.  The file system below ROOT holds what a running
// camera sees; beside it lies, in ROOT/sim/flash, what the flash holds for certain of each file and name changed since.
//
// A file's content and its name are made safe apart: fsync of a file keeps its content, fsync of its folder the names
// in it, sync everything.  A rename is all or nothing.  Files are small: content above iMaxContent is kept up to there.
#pragma once

#include "core/types.h"

// Any thread at a speed; on the virtual clock the task that holds the token.

// True for a path, as the daemon names it, that lies on the flash.
bool Flash_Holds(const char* szPath);

// Start-up.  0, or -1 with a line on stderr.
i32 Flash_Open(const char* szRoot);

// Before a file is opened for writing, and after that made it; before a name is removed (szTo null) or renamed.
// szPath is the daemon's name, szReal where it lies; names outside the flash are let pass.
void Flash_BeforeWrite(const char* szPath, const char* szReal);
void Flash_AfterCreate(const char* szPath, const char* szReal);
void Flash_BeforeRename(const char* szFrom, const char* szRealFrom, const char* szTo, const char* szRealTo);

void Flash_Sync();
void Flash_SyncOne(i32 fd, const char* szPath);

// The power was cut: leaves below ROOT what the flash holds, as drawn from the seed, and nothing unsure.  Called when
// no daemon runs on ROOT.  0, or -1 with a line on stderr.
i32 Flash_PowerCut(const char* szRoot, u64 qwSeed);
