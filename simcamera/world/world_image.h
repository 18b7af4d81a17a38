// The image side of the camera, as the process that owns the image: it writes and reads the focus statistics blocks.  A
// block is eight 32-bit words of memory that is shared with the daemon: the file ROOT/shm/N for channel N.
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

// One look of the image side at a channel's block, at the present time.  It answers an iris request and sets the
// day/night mode.  While focus values are wanted, it computes one from the true place of the glass at the end of the
// last whole frame: all looks within one frame see the same value.  Does nothing while the image side is silent.  Takes
// the world's lock.
void World_ImageFrame(TWorld* ptWorld, i32 iChannel, u32* pdwBlock);

// Where the focus of a channel would be sharp now, at the true zoom, and how far from there it is still sharp: see
// Optics_DepthOfFocus.  Virtual steps; 0 for a lens without focus.  The caller holds the lock and has settled the lens.
double World_SharpFocus(const TWorld* ptWorld, i32 iChannel);
double World_DepthOfFocus(const TWorld* ptWorld, i32 iChannel);

// What the image of a channel depends on now.  Values in even light and without noise.
struct TImageView {
  double dPeakWidth;   // virtual steps
  double dValueNow;    // focus value with the glass where it is
  double dValueBest;   // focus value with the focus at its sharp position
  double dBrightness;  // factor by which the light makes focus values larger or smaller
};
// For a lens with focus, of which all of the above is true too.
TImageView World_ImageView(const TWorld* ptWorld, i32 iChannel);
