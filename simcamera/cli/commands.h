// The work of the commands, apart from the reading of arguments (command_line.cpp).  Values come as they are parsed; a
// word that a command does not know is refused as wrong usage.  Nobody holds the world's lock.
#pragma once

#include "cli/cli.h"

// One whole command as its words, "press ROOT af": parses it and does it.  Returns the exit status or throws TRefusal.
// For a program that does many, such as a script of a run.
i32 Commands_Do(const std::vector<std::string>& asWords);

void Lenses_Print();

// Prints a built-in or drawn model as JSON.
void Model_Print(const std::string& sName);

// The lens that a command line names, and somebody's own configuration for it.
struct TLensChoice {
  std::optional<std::string> sLens;  // a built-in or drawn model; without a choice "zoom", or what ROOT is laid out for
  std::optional<std::string> sModel;  // a model file
  std::optional<std::string> sEtc;    // a folder to copy over ROOT/etc/conf.d
};

// Lays an empty or absent ROOT out for the lens of the choice.  Refuses a ROOT that is laid out for another lens than
// the one that the choice names.
void Camera_LayOut(const std::string& sRoot, const TLensChoice& tChoice, u64 qwSeed);

// What a run is started with.
struct TRunPlan {
  std::string sRoot;
  TLensChoice tLens = {};
  double dSpeed = 1;                   // camera seconds a second, or dSpeedMax
  std::optional<u64> qwSeed;           // none: 1, or the seed of ROOT
  std::optional<std::string> sScript;  // a file: see script.h
  bool bUntilRest = false;             // the run ends when the script has ended and all is at rest
};
i32 Run_Play(const TRunPlan& tPlan);  // until the run ends; returns its exit status

// Prints the body of the reply.  Fails if it is not 200.
void Client_PrintReply(const TOpenCamera& tCamera, const std::string& sQuery);
// Until every axis is idle and no motor turns; fails if that takes longer, in camera time.
void Client_WaitForRest(const TOpenCamera& tCamera, double dTimeout_s);

// Buttons: af, zoomin, zoomout.  Hold presses, waits for the camera time and releases.
void Button_Press(const TOpenCamera& tCamera, const std::string& sButton);
void Button_Release(const TOpenCamera& tCamera, const std::string& sButton);
void Button_Hold(const TOpenCamera& tCamera, const std::string& sButton, u64 qwFor_us);

// Each setting is KEY=VALUE.  If one is wrong, none is done.
void Scene_Set(const TOpenCamera& tCamera, const std::vector<std::string>& asSettings);

void Show_PrintText(const TOpenCamera& tCamera);
void Show_PrintJson(const TOpenCamera& tCamera);

// Over the zoom range, for the present scene.
void Optics_PrintText(const TOpenCamera& tCamera);
void Optics_PrintJson(const TOpenCamera& tCamera);

void Transcript_Print(const TOpenCamera& tCamera, u64 qwFrom);
void Transcript_PrintJson(const TOpenCamera& tCamera, u64 qwFrom);
void Transcript_DrawPicture(const TOpenCamera& tCamera);

// A speed as the command line names it: 0.01 to 1000, or "max".
double Speed_Parse(const std::string& sText);
void Pace_SetSpeed(const TOpenCamera& tCamera, double dSpeed);
void Pace_Pause(const TOpenCamera& tCamera);
void Pace_Step(const TOpenCamera& tCamera, u32 dwEvents);
void Pace_Go(const TOpenCamera& tCamera);
// The daemon is to end: no pause and no hold keeps it from that, and no pace.
void Pace_LetEnd(const TOpenCamera& tCamera);
