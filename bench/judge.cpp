#include "judge.h"

#include <algorithm>
#include <cstring>

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

u32 Judge_Published(const TCamera& tCamera, EBlockWord eWord, i32 iChannel) {
  u32 adwBlock[BLOCK_WORDS] = {};
  const std::string sBlock = tCamera.Read("/shm/" + std::to_string(iChannel));
  std::memcpy(adwBlock, sBlock.data(), std::min(sBlock.size(), sizeof adwBlock));
  return adwBlock[eWord];
}
