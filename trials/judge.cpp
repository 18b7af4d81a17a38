#include "judge.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "core/paths.h"

std::string Judge_Order(const TLifeResult& tResult) {
  if (tResult.eEnd != LIFE_EXITED) return "life ended with " + std::to_string(tResult.eEnd) + " " + tResult.sStderr;
  if (tResult.iStatus != 0) return "exit status " + std::to_string(tResult.iStatus) + " " + tResult.sStderr;
  const std::string sPrinted = Printed(tResult);
  const bool bReleased = sPrinted.find("[vernierlensd] : Release resources...") != sPrinted.npos;
  return bReleased && sPrinted.ends_with("OK\n") ? "" : "no orderly release";
}

std::string Judge_Idle(const std::string& sStatus, ELensAxis eAxis) {
  if (sStatus.empty()) return "no reply about the " + Judge_Name(eAxis);
  const i32 iFunction = StatusValue(sStatus, Judge_Name(eAxis) + "_enable");
  return iFunction == 0 ? "" : Judge_Name(eAxis) + " not at rest, function " + std::to_string(iFunction);
}

std::string Judge_Belief(const std::string& sStatus, ELensAxis eAxis, double dTruth) {
  const i32 iBelieved = StatusValue(sStatus, Judge_Name(eAxis) + "_motor");
  if (iBelieved == dTruth) return "";
  return Judge_Name(eAxis) + " believed " + std::to_string(iBelieved) + ", true " + std::to_string(dTruth);
}

std::string Judge_Channels(const TCamera& tCamera, const TLensModel& tModel, i32 iChannels,
                           const TLifeResult& tResult) {
  const std::size_t dwAll = static_cast<std::size_t>(tModel.iChannels);
  if (tResult.asReplies.size() < dwAll) return "no reply";
  for (i32 i = 0; i < iChannels; i++) {
    const std::string& sStatus = tResult.asReplies[tResult.asReplies.size() - dwAll + static_cast<std::size_t>(i)];
    for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
      if (!Model_HasAxis(tModel, eAxis)) continue;
      std::string sWhy = Judge_Idle(sStatus, eAxis);
      if (sWhy.empty()) sWhy = Judge_Belief(sStatus, eAxis, tCamera.Truth(eAxis, i));
      if (!sWhy.empty()) return "channel " + std::to_string(i) + ": " + sWhy;
    }
  }
  return "";
}

std::string Judge_Sharpness(const TCamera& tCamera, double dMore) {
  TWorld* ptWorld = World_Map(tCamera.sRoot.c_str());
  const double dOff = Lens_GlassVirtual(&ptWorld->tLens, 0, LENS_FOCUS) - World_SharpFocus(ptWorld, 0);
  const double dAllowed = World_DepthOfFocus(ptWorld, 0) + dMore;
  World_Unmap(ptWorld);
  return std::fabs(dOff) <= dAllowed ? "" : "the focus is " + std::to_string(dOff) + " steps from sharp";
}

bool Judge_HasLog(const TCamera& tCamera, ELensAxis eAxis) {
  return access(tCamera.Path(eAxis == LENS_ZOOM ? szZoomLogPath : szFocusLogPath).c_str(), F_OK) == 0;
}

u32 Judge_Published(const TCamera& tCamera, EBlockWord eWord, i32 iChannel) {
  u32 adwBlock[BLOCK_WORDS] = {};
  const std::string sBlock = tCamera.Read("/shm/" + std::to_string(iChannel));
  std::memcpy(adwBlock, sBlock.data(), std::min(sBlock.size(), sizeof adwBlock));
  return adwBlock[eWord];
}
