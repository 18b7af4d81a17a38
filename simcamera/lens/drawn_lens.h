// Invented lenses: models drawn from a number, so that the daemon is not tried on the stock models alone.  Each one
// keeps the rules of docs/integration.md for a configuration, often only just.
//
// The name of a drawn lens is "drawn-NUMBER".  Lenses_Find makes the lens from its name, so it can be run by hand like
// any other: simcamera run ROOT --lens drawn-17.  A process has one drawn lens at a time: asking for another one
// replaces it.
#pragma once

#include <string>

#include "lens/lens_model.h"

std::string DrawnLens_Name(u64 qwNumber);  // below 1,000,000,000

// The drawn lens of that name; null for any other name.
const TLensModel* DrawnLens_Find(const char* pszName);

// Describes a lens in a few lines.
std::string DrawnLens_Describe(const TLensModel& tModel);
