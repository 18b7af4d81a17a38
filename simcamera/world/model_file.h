// Lens models as text: a JSON object with the values of a TLensModel, their units in the names of the keys.
// docs/simcamera.md explains the keys.
#pragma once

#include <string>
#include <vector>

#include "lens/lens_model.h"

// The text of a model.  ModelFile_Read makes the same record of it again.
std::string ModelFile_Print(const TLensModel& tModel);

// Reads a text from outside.  Returns the complaints, each with the key that it is about ("focus.slack_steps:
// missing"): values that are missing, unknown or out of bounds, or else the broken rules of lens/model_rules.h. Without
// complaints tModel is a sound model; otherwise it is not changed.
std::vector<std::string> ModelFile_Read(const std::string& sText, TLensModel& tModel);
