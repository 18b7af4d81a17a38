// The transcript as it stands, or as a picture: where the motors of channel 0 were over time, worked out from what the
// drivers were asked.  A driver line reads "SECONDS THREAD DEVICE REQUEST [ARGUMENT] = RESULT rotor PLACE", with the
// time of the request's return.
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

struct TPoint {
  double dTime_s;
  double dPlace;  // driver steps
};

struct TDriverLine {
  double dTime_s;
  std::string sDevice, sRequest;
  i64 iArgument;
  i64 iRotor;
};

std::optional<TDriverLine> ParseLine(const std::string& sLine) {
  std::istringstream tIn(sLine);
  TDriverLine tLine{};
  std::string sThread, sWord, sResult, sRotor;
  if (!(tIn >> tLine.dTime_s >> sThread >> tLine.sDevice >> tLine.sRequest >> sWord)) return std::nullopt;
  if (tLine.sDevice != "zoommotor" && tLine.sDevice != "focusmotor") return std::nullopt;
  if (sWord != "=") {
    tLine.iArgument = std::atoll(sWord.c_str());
    if (!(tIn >> sWord) || sWord != "=") return std::nullopt;
  }
  if (!(tIn >> sResult >> sRotor >> tLine.iRotor) || sRotor != "rotor") return std::nullopt;
  return tLine;
}

// The course of one motor: corners between which it moved evenly.
class TCourse {
 public:
  explicit TCourse(const TAxisModel& tModel) : m_tModel(tModel) {}

  void Take(const TDriverLine& tLine) {
    if (tLine.sRequest == "MOTOR_SELECT_DEVICE") m_iChannel = tLine.iArgument;
    if (m_iChannel != 0) return;
    const double dPlace = static_cast<double>(tLine.iRotor);
    const double dSteps = static_cast<double>(std::max<i64>(tLine.iArgument, 0));
    const double dWalk_s = dSteps * static_cast<double>(m_tModel.qwStepTime_ns) / 1e9;
    const bool bBlocking = IsBlocking(tLine.sRequest);
    // A line is written when its request returns: a blocking walk is over by then.
    if (bBlocking && !m_atPoints.empty()) EndWalk(tLine.dTime_s - dWalk_s, m_atPoints.back().dPlace);
    EndWalk(tLine.dTime_s, dPlace);
    if (tLine.sRequest == "MOTOR_SET_FORWARD") m_iSense = 1;
    if (tLine.sRequest == "MOTOR_SET_BACKWARD") m_iSense = -1;
    if (tLine.sRequest != "MOTOR_WALK_STEPS" || dSteps <= 0) return;
    m_dWalkEnd_s = tLine.dTime_s + dWalk_s;
    m_dWalkPlace = std::clamp(dPlace + m_iSense * dSteps, 0.0, static_cast<double>(m_tModel.iTravel));
    m_bWalks = true;
  }

  // The last walk goes to its own end.
  void Finish() {
    if (m_bWalks && !m_atPoints.empty()) m_atPoints.push_back({m_dWalkEnd_s, m_dWalkPlace});
    m_bWalks = false;
  }

  const std::vector<TPoint>& Points() const { return m_atPoints; }
  double Virtual(double dPlace) const { return (dPlace - m_tModel.iOrigin) / m_tModel.iDriverPerVirtual; }

  double PlaceAt(double dTime_s) const {
    const auto itNext = std::find_if(m_atPoints.begin(), m_atPoints.end(),
                                     [dTime_s](const TPoint& tPoint) { return tPoint.dTime_s >= dTime_s; });
    if (itNext == m_atPoints.begin()) return m_atPoints.front().dPlace;
    if (itNext == m_atPoints.end()) return m_atPoints.back().dPlace;
    const TPoint& tBefore = itNext[-1];
    const double dShare = (dTime_s - tBefore.dTime_s) / (itNext->dTime_s - tBefore.dTime_s);
    return tBefore.dPlace + dShare * (itNext->dPlace - tBefore.dPlace);
  }

 private:
  static bool IsBlocking(const std::string& sRequest) {
    return sRequest == "MOTOR_WALK_STEPS_BLOCK" || sRequest == "MOTOR_CHECK_PI_WALK_STEPS" ||
           sRequest == "MOTOR_SEARCH_PI";
  }

  // The motor stands at the place at the time; it got there at the end of its walk, or on the way.
  void EndWalk(double dTime_s, double dPlace) {
    if (m_bWalks && m_dWalkEnd_s < dTime_s) m_atPoints.push_back({m_dWalkEnd_s, dPlace});
    m_bWalks = false;
    if (!m_atPoints.empty()) dTime_s = std::max(dTime_s, m_atPoints.back().dTime_s);
    m_atPoints.push_back({dTime_s, dPlace});
  }

  TAxisModel m_tModel;
  std::vector<TPoint> m_atPoints;
  i64 m_iChannel = 0;
  i32 m_iSense = 1;
  bool m_bWalks = false;
  double m_dWalkEnd_s = 0, m_dWalkPlace = 0;
};

void Draw(const char* pszName, const TCourse& tCourse, double dFrom_s, double dTo_s) {
  if (tCourse.Points().empty()) return;
  const auto Less = [](const TPoint& tA, const TPoint& tB) { return tA.dPlace < tB.dPlace; };
  const auto [itLow, itHigh] = std::minmax_element(tCourse.Points().begin(), tCourse.Points().end(), Less);
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

void DrawPicture(const TCamera& tCamera, std::istream& tIn) {
  TCourse tZoom(tCamera.ptWorld->tLens.atModel[LENS_ZOOM]);
  TCourse tFocus(tCamera.ptWorld->tLens.atModel[LENS_FOCUS]);
  for (std::string sLine; std::getline(tIn, sLine);) {
    if (const auto tLine = ParseLine(sLine)) (tLine->sDevice == "zoommotor" ? tZoom : tFocus).Take(*tLine);
  }
  double dFrom_s = INFINITY, dTo_s = -INFINITY;
  for (TCourse* ptCourse : {&tZoom, &tFocus}) {
    ptCourse->Finish();
    if (ptCourse->Points().empty()) continue;
    dFrom_s = std::min(dFrom_s, ptCourse->Points().front().dTime_s);
    dTo_s = std::max(dTo_s, ptCourse->Points().back().dTime_s);
  }
  if (!(dTo_s > dFrom_s)) {
    std::printf("no motor has been asked for anything\n");
    return;
  }
  Draw("zoom", tZoom, dFrom_s, dTo_s);
  Draw("focus", tFocus, dFrom_s, dTo_s);
}

}  // namespace

i32 Command_Transcript(TArguments asArgs) {
  const bool bPicture = Arguments_TakeFlag(asArgs, "--picture");
  Arguments_Expect(asArgs, 1, 1, "transcript ROOT [--picture]");
  const TCamera tCamera = Camera_Open(asArgs[0]);
  std::ifstream tIn(tCamera.sRoot + "/sim/transcript");
  if (!tIn) Fail(tCamera.sRoot + "/sim/transcript cannot be read");
  if (bPicture) {
    DrawPicture(tCamera, tIn);
  } else if (tIn.peek() != std::ifstream::traits_type::eof()) {
    std::cout << tIn.rdbuf();
  }
  return 0;
}
