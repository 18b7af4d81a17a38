// What the campaigns hold of every life.  Each gives what does not hold, in words; "" it does.
#pragma once

#include "camera/world_image.h"
#include "support.h"

// The life was let go to its end, and the daemon released everything.
std::string Judge_Order(const TLifeResult& tResult);

// By a status reply: no function is under way on the axis; what it says of the place is true (virtual steps).
std::string Judge_Idle(const std::string& sStatus, ELensAxis eAxis);
std::string Judge_Belief(const std::string& sStatus, ELensAxis eAxis, double dTruth);

// What the daemon has told the image side last, between two lives; and where it has told that an axis stands.
u32 Judge_Published(const TCamera& tCamera, EBlockWord eWord, i32 iChannel);
inline u32 Judge_PublishedPlace(const TCamera& tCamera, ELensAxis eAxis, i32 iChannel) {
  return Judge_Published(tCamera, eAxis == LENS_ZOOM ? BLOCK_ZOOM_POSITION : BLOCK_FOCUS_POSITION, iChannel);
}

inline std::string Judge_Name(ELensAxis eAxis) {
  return eAxis == LENS_ZOOM ? "zoom" : "focus";
}
