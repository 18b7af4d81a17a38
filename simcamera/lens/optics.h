// The optics of a lens model: where the focus is sharp, and what the camera's focus statistics say of an image that is
// not. Pure functions of their arguments; only exact steps (no pow, no exp), so every compiler and processor gets the
// same bits.
#pragma once

#include "lens/lens_model.h"
#include "lens/scene.h"

// The sharp focus position in virtual steps, with fractions.  dZoom is the true zoom position in virtual steps (of no
// account to a lens without zoom), the distance that of the object in metres, above 0.  Not limited to the lens's
// travel.
double Optics_SharpFocus(const TLensModel& tModel, double dZoom, double dDistance_m, double dTemperature_C,
                         bool bNight);

// The focus value of an image in even light, without noise, whose zoom stands at dZoom and whose focus at dFocus while
// dSharp would be sharp.
double Optics_FocusValue(const TLensModel& tModel, const TScene& tScene, double dZoom, double dFocus, double dSharp);

// How far the focus may be off at a zoom before the peak has lost one part in twenty; virtual steps.
double Optics_DepthOfFocus(const TLensModel& tModel, const TScene& tScene, double dZoom);

// What the pan table says for a zoom position from 1: sharp at the distance that the table is made for, by day at 25
// degrees.
u32 Optics_PanFocus(const TLensModel& tModel, u32 dwZoom);

// The lowest position at which a search makes sense at a zoom position: below all that is sharp there.
u32 Optics_SearchStart(const TLensModel& tModel, u32 dwZoom);

constexpr double dPanDistance_m = 5;
constexpr double dPanTemperature_C = 25;
