// The rows by which the table-driven reader fills g_tVernierLensdConfigInfo.  Each table ends with a row of zeroes.
#pragma once

#include <span>

#include "treereader.h"

extern const TTreeRow g_atICSCurveRows[5];      // "/etc/conf.d/config_ics.xml"
extern const TTreeRow g_atConfigRows[39];       // "/etc/conf.d/vernierlensd/config_vernierlensd.xml"
extern const TTreeRow g_atChannelCountRows[2];  // "/etc/conf.d/config_capability.xml"
extern const TTreeRow g_atCapabilityRows[2];    // "/etc/conf.d/config_imagefeature.xml"
