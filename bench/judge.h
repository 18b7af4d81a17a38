// What the campaigns hold of every life.  Each gives what does not hold, in words; "" it does.
#pragma once

#include "support.h"

// The life was let go to its end, and the daemon released everything.
std::string Judge_Order(const TLifeResult& tResult);

// By a status reply: no function is under way on the axis; what it says of the place is true (virtual steps).
std::string Judge_Idle(const std::string& sStatus, ELensAxis eAxis);
std::string Judge_Belief(const std::string& sStatus, ELensAxis eAxis, double dTruth);

inline std::string Judge_Name(ELensAxis eAxis) {
  return eAxis == LENS_ZOOM ? "zoom" : "focus";
}
