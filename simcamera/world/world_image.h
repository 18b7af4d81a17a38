// The image side of the camera: what the process that owns the image puts into the focus statistics blocks and takes
// from them.  A block is eight 32-bit words in memory that the daemon shares, the file ROOT/shm/N of channel N.
#pragma once

#include "world/world.h"

enum EBlockWord : u32 {
  BLOCK_FOCUS_VALUE_WANTED,
  BLOCK_FOCUS_VALUE,
  BLOCK_IRIS_PENDING,
  BLOCK_IRIS_REQUEST,
  BLOCK_DAY_NIGHT_MODE,
  BLOCK_AUTO_FOCUS_BUSY,
  BLOCK_ZOOM_POSITION,
  BLOCK_FOCUS_POSITION,
  BLOCK_WORDS
};

// One look of the image side at a channel's block, at the present time: answers an iris request, sets the day/night
// mode, and while values are wanted works the focus value out from where the glass truly stood at the end of the last
// whole frame.  All looks within one frame see the same value, whatever moved since.  Does nothing while the image side
// is silenced.  Takes the world's lock.
void World_ImageFrame(TWorld* ptWorld, i32 iChannel, u32* pdwBlock);

// Where the focus of a channel would be sharp now, for the true zoom, and by how much it may miss that: see
// Optics_DepthOfFocus.  Virtual steps; 0 for a lens without focus.  The caller holds the lock and has settled the lens.
double World_SharpFocus(const TWorld* ptWorld, i32 iChannel);
double World_DepthOfFocus(const TWorld* ptWorld, i32 iChannel);
