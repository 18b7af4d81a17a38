// What the campaigns hold of every life.  Each gives what does not hold, in words; "" it does.
#pragma once

#include "lens/lens_model.h"
#include "support.h"
#include "world/world_image.h"

// The life was let go to its end, and the daemon released everything.
std::string Judge_Order(const TLifeResult& tResult);

// By a status reply: no function is under way on the axis; what it says of the place is true (virtual steps).
std::string Judge_Idle(const std::string& sStatus, ELensAxis eAxis);
std::string Judge_Belief(const std::string& sStatus, ELensAxis eAxis, double dTruth);

// The first iChannels channels by the last replies, which are a status of each channel of the lens: both axes idle, and
// believed is true.
std::string Judge_Channels(const TCamera& tCamera, const TLensModel& tModel, i32 iChannels, const TLifeResult& tResult);

// Between two lives: channel 0 is no further from sharp than the depth of focus and dMore (virtual steps).
std::string Judge_Sharpness(const TCamera& tCamera, double dMore = 0);

// A working log stands.
bool Judge_HasLog(const TCamera& tCamera, ELensAxis eAxis);
inline bool Judge_HasLog(const TCamera& tCamera) {
  return Judge_HasLog(tCamera, LENS_ZOOM) || Judge_HasLog(tCamera, LENS_FOCUS);
}

// What the daemon has told the image side last, between two lives; and where it has told that an axis stands.
u32 Judge_Published(const TCamera& tCamera, EBlockWord eWord, i32 iChannel);
inline u32 Judge_PublishedPlace(const TCamera& tCamera, ELensAxis eAxis, i32 iChannel) {
  return Judge_Published(tCamera, eAxis == LENS_ZOOM ? BLOCK_ZOOM_POSITION : BLOCK_FOCUS_POSITION, iChannel);
}

inline std::string Judge_Name(ELensAxis eAxis) {
  return eAxis == LENS_ZOOM ? "zoom" : "focus";
}
