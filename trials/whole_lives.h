// What the tests of whole lives share: the judgement at the end, and events and readers that several of them need.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <sstream>

#include "clock/clock.h"
#include "core/paths.h"
#include "judge.h"
#include "world/world_image.h"

constexpr const char* szStatus = "function=getstatus";
constexpr ELensAxis g_aeAxes[] = {LENS_ZOOM, LENS_FOCUS};

inline bool Exists(const TCamera& tCamera, const char* szPath) {
  return access(tCamera.Path(szPath).c_str(), F_OK) == 0;
}

// Expects that the life ended in order and left no working log.  Its last reply must be a status: by that each axis of
// the channel is at rest, and where it is believed.
inline void ExpectRest(const TCamera& tCamera, const TLifeResult& tResult, i32 iChannel = 0) {
  EXPECT_EQ(Judge_Order(tResult), "") << Tale(tResult);
  ASSERT_FALSE(tResult.asReplies.empty());
  const std::string& sStatus = tResult.asReplies.back();
  for (const ELensAxis eAxis : g_aeAxes) {
    if (StatusValue(sStatus, Judge_Name(eAxis) + "_motor") < 0) continue;
    const std::string sBelief = Judge_Belief(sStatus, eAxis, tCamera.Truth(eAxis, iChannel));
    EXPECT_EQ(Judge_Idle(sStatus, eAxis) + sBelief, "") << Tale(tResult);
  }
  EXPECT_FALSE(Exists(tCamera, szZoomLogPath) || Exists(tCamera, szFocusLogPath)) << Tale(tResult);
}

// Puts a value into an XML file, into the first element with this path.
inline void SetElement(const TCamera& tCamera, const char* szFile, const std::string& sPath,
                       const std::string& sValue) {
  std::string sText = tCamera.Read(szFile);
  std::istringstream tPath(sPath);
  std::size_t dwAt = 0;
  for (std::string sName; std::getline(tPath, sName, '/');) {
    dwAt = sText.find("<" + sName + ">", dwAt);
    ASSERT_NE(dwAt, std::string::npos) << sPath;
    dwAt += sName.size() + 2;
  }
  sText.replace(dwAt, sText.find('<', dwAt) - dwAt, sValue);
  tCamera.Write(szFile, sText);
}

// Puts a value into the daemon's configuration, at a path below vernierlensd.
inline void SetConfig(const TCamera& tCamera, const std::string& sPath, const std::string& sValue) {
  SetElement(tCamera, szConfigPath, "vernierlensd/" + sPath, sValue);
}

inline void ReplaceInConfig(const TCamera& tCamera, const std::string& sPattern, const std::string& sWith) {
  tCamera.Write(szConfigPath, Replaced(tCamera.Read(szConfigPath), sPattern, sWith));
}

// How far the glass stands from sharp, in depths of focus.
inline double DepthsOff(const TCamera& tCamera, i32 iChannel = 0) {
  double dDepths = 0;
  ChangeWorld(tCamera, [&](TWorld& tWorld) {
    const double dOff = Lens_GlassVirtual(&tWorld.tLens, iChannel, LENS_FOCUS) - World_SharpFocus(&tWorld, iChannel);
    dDepths = std::fabs(dOff) / World_DepthOfFocus(&tWorld, iChannel);
  });
  return dDepths;
}

// The frame of a button ("zoomin", "zoomout" or "af"); sEvent is "pressed" or "released".
inline std::string Button(const std::string& sButton, const std::string& sEvent, const std::string& sChannel = "") {
  const std::string sOf = sChannel.empty() ? "" : "<channel>" + sChannel + "</channel>";
  return EventFrame("<message>" + sOf + "<" + sButton + "button>" + sEvent + "</" + sButton + "button></message>");
}

// How often sAll contains sText.
inline std::size_t Count(std::string_view sAll, std::string_view sText) {
  std::size_t dwCount = 0;
  for (std::size_t dw = sAll.find(sText); dw != sAll.npos; dw = sAll.find(sText, dw + 1)) dwCount++;
  return dwCount;
}

// The transcript from the signal on.
inline std::string SinceTerm(const TLifeResult& tResult) {
  const std::size_t dwTerm = tResult.sTranscript.find("Receive TERM");
  EXPECT_NE(dwTerm, std::string::npos) << Tale(tResult);
  return tResult.sTranscript.substr(std::min(dwTerm, tResult.sTranscript.size()));
}

// Camera time of the first line that contains a text.
inline u64 TimeOf_us(const TLifeResult& tResult, std::string_view sText) {
  const u64 qwAt_us = FirstLine_us(tResult, sText);
  EXPECT_NE(qwAt_us, qwNever_us) << sText << Tale(tResult);
  return qwAt_us;
}
