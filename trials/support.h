// What the tests of the daemon share: cameras, events of a life, and readers of transcripts and replies.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/types.h"
#include "life/life.h"
#include "motor/axis.h"
#include "world/world.h"

// A new simulated camera for one test.  Its files are removed at the end.
struct TCamera {
  explicit TCamera(const char* pszModel);
  ~TCamera();
  TCamera(const TCamera&) = delete;
  TCamera& operator=(const TCamera&) = delete;

  std::string Path(std::string_view sPath) const;  // of a file of the camera
  void Write(std::string_view sPath, std::string_view sText) const;
  std::string Read(std::string_view sPath) const;
  void Place(ELensAxis eAxis, u32 dwVirtual, i32 iChannel = 0) const;  // puts the motor there, gears driven forward
  double Truth(ELensAxis eAxis, i32 iChannel = 0) const;  // where the true motor has come to rest, virtual steps

  std::string sRoot;
};

// Looks at the world between two lives, or changes it.
template <typename TChange>
void ChangeWorld(const TCamera& tCamera, TChange fnChange) {
  TWorld* ptWorld = World_Map(tCamera.sRoot.c_str());
  fnChange(*ptWorld);
  World_Unmap(ptWorld);
}

// The camera time at which the next life on a ROOT begins.
u64 NextStart_us(const std::string& sRoot);

// The first seed of the tests that draw: VERNIER_TEST_SEED, or 1 if that is not set.
u64 FirstSeed();
// How many lives a test runs: qwPlain in a plain build, a tenth of them with a sanitizer or in an emulator.
u64 Lives(u64 qwPlain);

TLifeEvent Ask(u64 qwAt_ms, std::string sQuery);
TLifeEvent Signal(u64 qwAt_ms, i32 iSignal);
TLifeEvent Call(u64 qwAt_ms, std::function<void(TWorld*)> fnCall);
TLifeEvent SetNight(u64 qwAt_ms, bool bNight = true);
TLifeEvent SetTemperature(u64 qwAt_ms, double dTemperature_C);
// The event at another time.
TLifeEvent At(u64 qwAt_us, TLifeEvent tEvent);
// Adds a question for the status of each channel.
void AskEachStatus(std::vector<TLifeEvent>& atEvents, u64 qwAt_ms, i32 iChannels);
// A frame on the camera's event FIFO.
TLifeEvent Frame(u64 qwAt_ms, const TCamera& tCamera, std::string sBytes);
std::string EventFrame(std::string_view sPayload);

// Runs a life of the whole daemon that ends by SIGTERM.
TLifeResult Live(const TCamera& tCamera, std::vector<TLifeEvent> atEvents, u64 qwEnd_ms, u64 qwSeed = FirstSeed());

// In the daemon's place: makes stdout a pipe or socket that is full and that nobody reads.  Returns the end to read.
i32 FillLog(bool bSocket = false);

// The requests to a device in short: "SELECT 0, FORWARD, WALK 160".
std::string Requests(const TLifeResult& tResult, std::string_view sDevice);
// The printed lines, a line each.
std::string Printed(const TLifeResult& tResult);
bool HasPrinted(const TLifeResult& tResult, std::string_view sLine);

// Camera time of the first line that contains a text, or qwNever_us if none does.
u64 FirstLine_us(const TLifeResult& tResult, std::string_view sText);

// The number after "vernier_lens_KEY='" in a status reply, or -1 if it has no such key.
i32 StatusValue(std::string_view sReply, std::string_view sKey);

// Replaced: each match of a pattern is replaced; "$&" is the match.  Matches: each match with its groups, itself first.
std::string Replaced(const std::string& sText, const std::string& sPattern, const std::string& sWith);
std::vector<std::vector<std::string>> Matches(const std::string& sText, const std::string& sPattern);

// What a failed test prints: how the life ended, its messages, the transcript's last lines.
std::string Tale(const TLifeResult& tResult);

inline ELensAxis LensAxisOf(const TAxis& tAxis) {
  return &tAxis == &g_tZoomAxis ? LENS_ZOOM : LENS_FOCUS;
}
inline const char* DeviceOf(const TAxis& tAxis) {
  return &tAxis == &g_tZoomAxis ? "zoommotor" : "focusmotor";
}
