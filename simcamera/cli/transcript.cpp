// Prints the transcript as it is, or as a picture: the places of the motors of channel 0 over time, worked out from the
// requests to the drivers.  A driver line is "SECONDS THREAD DEVICE REQUEST [ARGUMENT] = RESULT rotor PLACE", with the
// time at which the request returned.
#include <algorithm>
#include <cmath>
#include <fstream>
#include <iostream>
#include <sstream>

#include "cli/cli.h"

namespace {

constexpr i32 iColumns = 100;
constexpr i32 iRows = 16;
constexpr i32 iSamplesPerColumn = 24;

struct TCorner {
  double dTime_s;
  double dPlace;  // driver steps
};

struct TDriverLine {
  double dTime_s;
  std::string sDevice, sRequest;
  i64 llArgument;
  i64 llRotor;
};

std::optional<TDriverLine> ParseLine(const std::string& sLine) {
  std::istringstream tIn(sLine);
  TDriverLine tLine{};
  std::string sThread, sWord, sResult, sRotor;
  if (!(tIn >> tLine.dTime_s >> sThread >> tLine.sDevice >> tLine.sRequest >> sWord)) return std::nullopt;
  if (tLine.sDevice != "zoommotor" && tLine.sDevice != "focusmotor") return std::nullopt;
  if (sWord != "=") {
    tLine.llArgument = std::atoll(sWord.c_str());
    if (!(tIn >> sWord) || sWord != "=") return std::nullopt;
  }
  if (!(tIn >> sResult >> sRotor >> tLine.llRotor) || sRotor != "rotor") return std::nullopt;
  return tLine;
}

// The course of one motor: corners, between which it moved at an even speed.
class TCourse {
 public:
  explicit TCourse(const TAxisModel& tModel) : m_tModel(tModel) {}

  void Take(const TDriverLine& tLine) {
    if (tLine.sRequest == "MOTOR_SELECT_DEVICE") m_llChannel = tLine.llArgument;
    if (m_llChannel != 0) return;
    const double dPlace = static_cast<double>(tLine.llRotor);
    const double dSteps = static_cast<double>(std::max<i64>(tLine.llArgument, 0));
    const double dWalk_s = dSteps * static_cast<double>(m_tModel.qwStepTime_ns) / 1e9;
    const bool bBlocking = IsBlocking(tLine.sRequest);
    // A line is written when its request returns: a blocking walk has ended by then.
    if (bBlocking && !m_atCorners.empty()) EndWalk(tLine.dTime_s - dWalk_s, m_atCorners.back().dPlace);
    EndWalk(tLine.dTime_s, dPlace);
    if (tLine.sRequest == "MOTOR_SET_FORWARD") m_iSense = 1;
    if (tLine.sRequest == "MOTOR_SET_BACKWARD") m_iSense = -1;
    if (tLine.sRequest != "MOTOR_WALK_STEPS" || dSteps <= 0) return;
    m_dWalkEnd_s = tLine.dTime_s + dWalk_s;
    m_dWalkPlace = std::clamp(dPlace + m_iSense * dSteps, 0.0, static_cast<double>(m_tModel.iTravel));
    m_bWalks = true;
  }

  // Lets the last walk go to its end.
  void Finish() {
    if (m_bWalks && !m_atCorners.empty()) m_atCorners.push_back({m_dWalkEnd_s, m_dWalkPlace});
    m_bWalks = false;
  }

  const std::vector<TCorner>& Corners() const { return m_atCorners; }
  double Virtual(double dPlace) const { return (dPlace - m_tModel.iOrigin) / m_tModel.iDriverPerVirtual; }

  double PlaceAt(double dTime_s) const {
    const auto itNext = std::find_if(m_atCorners.begin(), m_atCorners.end(),
                                     [dTime_s](const TCorner& tCorner) { return tCorner.dTime_s >= dTime_s; });
    if (itNext == m_atCorners.begin()) return m_atCorners.front().dPlace;
    if (itNext == m_atCorners.end()) return m_atCorners.back().dPlace;
    const TCorner& tBefore = itNext[-1];
    const double dShare = (dTime_s - tBefore.dTime_s) / (itNext->dTime_s - tBefore.dTime_s);
    return tBefore.dPlace + dShare * (itNext->dPlace - tBefore.dPlace);
  }

 private:
  static bool IsBlocking(const std::string& sRequest) {
    return sRequest == "MOTOR_WALK_STEPS_BLOCK" || sRequest == "MOTOR_CHECK_PI_WALK_STEPS" ||
           sRequest == "MOTOR_SEARCH_PI";
  }

  // At this time the motor is at this place: its walk has ended before, or it is on the way.
  void EndWalk(double dTime_s, double dPlace) {
    if (m_bWalks && m_dWalkEnd_s < dTime_s) m_atCorners.push_back({m_dWalkEnd_s, dPlace});
    m_bWalks = false;
    if (!m_atCorners.empty()) dTime_s = std::max(dTime_s, m_atCorners.back().dTime_s);
    m_atCorners.push_back({dTime_s, dPlace});
  }

  TAxisModel m_tModel;
  std::vector<TCorner> m_atCorners;
  i64 m_llChannel = 0;
  i32 m_iSense = 1;
  bool m_bWalks = false;
  double m_dWalkEnd_s = 0, m_dWalkPlace = 0;
};

void Draw(const char* pszName, const TCourse& tCourse, double dFrom_s, double dTo_s) {
  if (tCourse.Corners().empty()) return;
  const auto Less = [](const TCorner& tA, const TCorner& tB) { return tA.dPlace < tB.dPlace; };
  const auto [itLow, itHigh] = std::minmax_element(tCourse.Corners().begin(), tCourse.Corners().end(), Less);
  const double dLow = itLow->dPlace, dSpan = std::max(itHigh->dPlace - dLow, 1.0);
  std::vector<std::string> asRows(iRows, std::string(iColumns, ' '));
  const auto RowAt = [&](i32 iSample) {
    const double dTime_s = dFrom_s + (dTo_s - dFrom_s) * iSample / (iColumns * iSamplesPerColumn);
    return static_cast<i32>(std::lround((tCourse.PlaceAt(dTime_s) - dLow) / dSpan * (iRows - 1)));
  };
  for (i32 iSample = 0; iSample < iColumns * iSamplesPerColumn; ++iSample) {
    const auto [iBottom, iTop] = std::minmax({RowAt(iSample), RowAt(iSample + 1)});
    for (i32 iRow = iBottom; iRow <= iTop; ++iRow) {
      asRows[static_cast<size_t>(iRow)][static_cast<size_t>(iSample / iSamplesPerColumn)] = '*';
    }
  }
  std::printf("%s, virtual steps\n", pszName);
  for (i32 iRow = iRows - 1; iRow >= 0; --iRow) {
    const double dPlace = tCourse.Virtual(dLow + dSpan * iRow / (iRows - 1));
    std::printf("%8.1f |%s\n", dPlace, asRows[static_cast<size_t>(iRow)].c_str());
  }
  std::printf("%8s +%s\n%8s  %-*.3f%*.3f s\n\n", "", std::string(iColumns, '-').c_str(), "", iColumns / 2, dFrom_s,
              iColumns - iColumns / 2, dTo_s);
}

void DrawPicture(const TOpenCamera& tCamera, std::istream& tIn) {
  TCourse tZoom(tCamera.ptWorld->tLens.atModel[LENS_ZOOM]);
  TCourse tFocus(tCamera.ptWorld->tLens.atModel[LENS_FOCUS]);
  for (std::string sLine; std::getline(tIn, sLine);) {
    if (const auto tLine = ParseLine(sLine)) (tLine->sDevice == "zoommotor" ? tZoom : tFocus).Take(*tLine);
  }
  double dFrom_s = INFINITY, dTo_s = -INFINITY;
  for (TCourse* ptCourse : {&tZoom, &tFocus}) {
    ptCourse->Finish();
    if (ptCourse->Corners().empty()) continue;
    dFrom_s = std::min(dFrom_s, ptCourse->Corners().front().dTime_s);
    dTo_s = std::max(dTo_s, ptCourse->Corners().back().dTime_s);
  }
  if (!(dTo_s > dFrom_s)) {
    std::printf("no motor has been asked for anything\n");
    return;
  }
  Draw("zoom", tZoom, dFrom_s, dTo_s);
  Draw("focus", tFocus, dFrom_s, dTo_s);
}

}  // namespace

i32 Cli_Transcript(TArguments asArgs) {
  const bool bPicture = Arguments_TakeFlag(asArgs, "--picture");
  Arguments_Expect(asArgs, 1, 1, "transcript ROOT [--picture]");
  const TOpenCamera tCamera = Camera_Open(asArgs[0]);
  std::ifstream tIn(tCamera.sRoot + "/sim/transcript");
  if (!tIn) Cli_Fail(tCamera.sRoot + "/sim/transcript cannot be read");
  if (bPicture) {
    DrawPicture(tCamera, tIn);
  } else if (tIn.peek() != std::ifstream::traits_type::eof()) {
    std::cout << tIn.rdbuf();
  }
  return 0;
}
