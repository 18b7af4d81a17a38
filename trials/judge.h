// What must hold in every life.  Each judge returns what does not hold, in words, or "" if all does.
#pragma once

#include "lens/lens_model.h"
#include "support.h"
#include "world/world_image.h"

// The life ran to its end, and the daemon released everything.
std::string Judge_Order(const TLifeResult& tResult);

// Judge a status reply.  Idle: no function is under way on the axis.  Belief: its position is dTruth (virtual steps).
std::string Judge_Idle(const std::string& sStatus, ELensAxis eAxis);
std::string Judge_Belief(const std::string& sStatus, ELensAxis eAxis, double dTruth);

// Judges the first iChannels channels: both axes are idle, and the believed positions are true.  The last replies must
// be the status of each channel of the lens.
std::string Judge_Channels(const TCamera& tCamera, const TLensModel& tModel, i32 iChannels, const TLifeResult& tResult);

// Between two lives: channel 0 is no further from sharp than the depth of focus plus dMore (virtual steps).
std::string Judge_Sharpness(const TCamera& tCamera, double dMore = 0);

// A working log stands.
bool Judge_HasLog(const TCamera& tCamera, ELensAxis eAxis);
inline bool Judge_HasLog(const TCamera& tCamera) {
  return Judge_HasLog(tCamera, LENS_ZOOM) || Judge_HasLog(tCamera, LENS_FOCUS);
}

// Between two lives: a word of the focus statistics block as the daemon has left it, and the position of an axis there.
u32 Judge_Published(const TCamera& tCamera, EBlockWord eWord, i32 iChannel);
inline u32 Judge_PublishedPlace(const TCamera& tCamera, ELensAxis eAxis, i32 iChannel) {
  return Judge_Published(tCamera, eAxis == LENS_ZOOM ? BLOCK_ZOOM_POSITION : BLOCK_FOCUS_POSITION, iChannel);
}

inline std::string Judge_Name(ELensAxis eAxis) {
  return eAxis == LENS_ZOOM ? "zoom" : "focus";
}
