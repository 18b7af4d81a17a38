// The faults of a simulated camera, as commands.  Each leaves a line in the transcript.
#pragma once

#include "cli/cli.h"

// An axis as the command line names it: "zoom" or "focus".
struct TAxisName {
  std::string sAxis;
  i32 iChannel;
};

void Fault_CutPower(const TOpenCamera& tCamera);
// The daemon cuts the power by itself, right after the first line of its transcript that matches the extended regular
// expression.
void Fault_CutPowerAt(const TOpenCamera& tCamera, const std::string& sPattern);
void Fault_Detach(const TOpenCamera& tCamera, bool bDetached);
void Fault_Stall(const TOpenCamera& tCamera, const TAxisName& tName, bool bStalled);
// sHowMany: a number of driver steps, or "one-in=N".
void Fault_Slip(const TOpenCamera& tCamera, const TAxisName& tName, const std::string& sHowMany);
void Fault_Sensor(const TOpenCamera& tCamera, const std::string& sHow);
void Fault_SpoilIRCutFile(const TOpenCamera& tCamera, const std::string& sHow);
void Fault_Clear(const TOpenCamera& tCamera);  // all of them

// The faults that are a switch of the world.
struct TFaultSwitch {
  const char* pszName;
  const char* pszHelp;
  u32 TWorld::*pbSwitch;
};
inline constexpr TFaultSwitch g_atFaultSwitches[] = {
    {"silent-peer", "the image side answers nothing", &TWorld::bImageSideSilent},
    {"peer-zero", "the image side's focus values are 0", &TWorld::bImageSideZero},
    {"peer-backwards", "its focus values count down, one each frame", &TWorld::bImageSideBackwards},
    {"flash-full", "what the daemon writes below ROOT/etc and ROOT/mnt fails", &TWorld::bFlashFull},
    {"flash-readonly", "every change below ROOT/etc and ROOT/mnt fails", &TWorld::bFlashReadOnly},
};
void Fault_Switch(const TOpenCamera& tCamera, const TFaultSwitch& tSwitch, bool bOn);

// The active faults, each as the words of its command.  tWorld is the camera's world or a copy of it.
std::vector<std::string> Fault_List(const std::string& sRoot, const TWorld& tWorld);
void Fault_PrintList(const TOpenCamera& tCamera);
