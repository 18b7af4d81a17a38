// The optics of a lens model: where the focus is sharp, and the focus value of an image.  Pure functions of their
// arguments.  They use only exact operations (no pow, no exp), so every compiler and processor gets the same bits.
#pragma once

#include "lens/lens_model.h"
#include "lens/scene.h"

// The sharp focus position in virtual steps, with fractions, not limited to the lens's travel.  dZoom is the true zoom
// position in virtual steps (not used for a lens without zoom), dDistance_m the distance of the object, above 0.
double Optics_SharpFocus(const TLensModel& tModel, double dZoom, double dDistance_m, double dTemperature_C,
                         bool bNight);

// The focus value of an image in even light, without noise: the zoom stands at dZoom, the focus at dFocus, and the
// focus would be sharp at dSharp.
double Optics_FocusValue(const TLensModel& tModel, const TScene& tScene, double dZoom, double dFocus, double dSharp);

// The width of the focus value's peak at a zoom, as the lens and the scene make it; virtual steps.
double Optics_PeakWidth(const TLensModel& tModel, const TScene& tScene, double dZoom);

// How far the focus may be off at a zoom before the peak has lost 5 percent; virtual steps.
double Optics_DepthOfFocus(const TLensModel& tModel, const TScene& tScene, double dZoom);

// The pan table's focus for a zoom position from 1: sharp at the distance of the table, by day, at 25 degrees.
u32 Optics_PanFocus(const TLensModel& tModel, u32 dwZoom);

// The lowest position at which a search makes sense at a zoom position: nothing is sharp below it.
u32 Optics_SearchStart(const TLensModel& tModel, u32 dwZoom);

constexpr double dPanDistance_m = 5;
constexpr double dPanTemperature_C = 25;
