// Draws the transcript: the places of both axes of channel 0 over time, worked out from the requests to the drivers.
#include <algorithm>
#include <cmath>
#include <fstream>

#include "cli/commands.h"
#include "cli/transcript_line.h"

namespace {

constexpr i32 iColumns = 100;
constexpr i32 iRows = 16;
constexpr i32 iSamplesPerColumn = 24;

struct TCorner {
  double dTime_s;
  double dPlace;  // driver steps
};

// The course of one motor: corners, between which it moved at an even speed.
class TCourse {
 public:
  explicit TCourse(const TAxisModel& tModel) : m_tModel(tModel) {}

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

  // From the last corner on the motor walks there.
  void Walk(double dEnd_s, double dPlace) {
    m_dWalkEnd_s = dEnd_s;
    m_dWalkPlace = dPlace;
    m_bWalks = true;
  }

  // At this time the motor is at this place: its walk has ended before, or it is on the way.
  void EndWalk(double dTime_s, double dPlace) {
    if (m_bWalks && m_dWalkEnd_s < dTime_s) m_atCorners.push_back({m_dWalkEnd_s, dPlace});
    m_bWalks = false;
    if (!m_atCorners.empty()) dTime_s = std::max(dTime_s, m_atCorners.back().dTime_s);
    m_atCorners.push_back({dTime_s, dPlace});
  }

  // Where the motor is at a time from the last corner on.
  double PlaceNow(double dTime_s) const {
    const TCorner& tLast = m_atCorners.back();
    if (!m_bWalks) return tLast.dPlace;
    if (dTime_s >= m_dWalkEnd_s) return m_dWalkPlace;
    return tLast.dPlace + (m_dWalkPlace - tLast.dPlace) * (dTime_s - tLast.dTime_s) / (m_dWalkEnd_s - tLast.dTime_s);
  }

  // The motor stops on its way.
  void Stop(double dTime_s) {
    if (m_bWalks) EndWalk(dTime_s, PlaceNow(dTime_s));
  }

  // Lets the last walk go to its end.
  void Finish() {
    if (m_bWalks && !m_atCorners.empty()) m_atCorners.push_back({m_dWalkEnd_s, m_dWalkPlace});
    m_bWalks = false;
  }

 private:
  TAxisModel m_tModel;
  std::vector<TCorner> m_atCorners;
  bool m_bWalks = false;
  double m_dWalkEnd_s = 0, m_dWalkPlace = 0;
};

// A stepper tells its true place with each request.
class TStepper {
 public:
  TStepper(const TLens& tLens, ELensAxis eAxis)
      : m_tModel(tLens.atModel[eAxis]),
        m_sDevice(eAxis == LENS_ZOOM ? "zoommotor" : "focusmotor"),
        m_tCourse(tLens.atModel[eAxis]) {}
  TCourse& Course() { return m_tCourse; }

  void Take(double dTime_s, const TDriverLine& tLine) {
    if (tLine.sDevice != m_sDevice) return;
    const i64 llArgument = tLine.llArgument.value_or(0);
    if (tLine.sRequest == "MOTOR_SELECT_DEVICE") m_llChannel = llArgument;
    if (m_llChannel != 0 || !tLine.llRotor) return;
    const double dPlace = static_cast<double>(*tLine.llRotor);
    const double dSteps = static_cast<double>(std::max<i64>(llArgument, 0));
    const double dWalk_s = dSteps * static_cast<double>(m_tModel.qwStepTime_ns) / 1e9;
    const std::vector<TCorner>& atCorners = m_tCourse.Corners();
    // A line is written when its request returns: a blocking walk has ended by then.
    if (IsBlocking(tLine.sRequest) && !atCorners.empty()) {
      m_tCourse.EndWalk(dTime_s - dWalk_s, m_tCourse.PlaceNow(dTime_s - dWalk_s));
    }
    m_tCourse.EndWalk(dTime_s, dPlace);
    if (tLine.sRequest == "MOTOR_SET_FORWARD") m_iSense = 1;
    if (tLine.sRequest == "MOTOR_SET_BACKWARD") m_iSense = -1;
    if (tLine.sRequest != "MOTOR_WALK_STEPS" || dSteps <= 0) return;
    const double dTravel = static_cast<double>(m_tModel.iTravel);
    m_tCourse.Walk(dTime_s + dWalk_s, std::clamp(dPlace + m_iSense * dSteps, 0.0, dTravel));
  }

  // The power was cut: the driver begins anew.
  void Stop(double dTime_s) {
    m_tCourse.Stop(dTime_s);
    m_llChannel = 0;
    m_iSense = 1;
  }

 private:
  static bool IsBlocking(const std::string& sRequest) {
    return sRequest == "MOTOR_WALK_STEPS_BLOCK" || sRequest == "MOTOR_CHECK_PI_WALK_STEPS" ||
           sRequest == "MOTOR_SEARCH_PI";
  }

  TAxisModel m_tModel;
  std::string m_sDevice;
  TCourse m_tCourse;
  i64 m_llChannel = 0;
  i32 m_iSense = 1;
};

// An axis of an ICS lens goes where it is sent, at the speed of its driver.
class TICSAxis {
 public:
  TICSAxis(const TLensModel& tModel, const TLens& tLens, ELensAxis eAxis)
      : m_tSheet(tModel.atICS[eAxis]),
        m_sName(eAxis == LENS_ZOOM ? "ZOOM" : "FOCUS"),
        m_dSpeed(m_tSheet.iSpeed),
        m_dFirst(Model_Sheet(tModel, eAxis).dwFirstPosition),
        m_tCourse(tLens.atModel[eAxis]) {}
  TCourse& Course() { return m_tCourse; }

  void Take(double dTime_s, const TDriverLine& tLine) {
    if (tLine.sDevice != "icsdriver" || tLine.llResult < 0) return;
    const double dArgument = static_cast<double>(tLine.llArgument.value_or(0));
    if (tLine.sRequest == "ICS_GET_" + m_sName + "_POSITION") {
      m_tCourse.EndWalk(dTime_s, static_cast<double>(tLine.llResult));
      GoOn(dTime_s);
    } else if (tLine.sRequest == "ICS_SET_" + m_sName + "_SPEED") {
      m_dSpeed = dArgument;
      Hold(dTime_s);
      GoOn(dTime_s);
    } else if (tLine.sRequest == "ICS_SET_" + m_sName + "_POSITION") {
      m_dTarget = std::clamp<double>(dArgument, m_tSheet.iMin, m_tSheet.iMax);
      Hold(dTime_s);
      GoOn(dTime_s);
    }
  }

  // The power was cut, or the lens is detached.
  void Stop(double dTime_s) {
    if (m_tCourse.Corners().empty()) return;
    m_tCourse.Stop(dTime_s);
    m_dTarget = m_tCourse.PlaceNow(dTime_s);
  }

 private:
  void Hold(double dTime_s) {
    m_tCourse.EndWalk(dTime_s, m_tCourse.Corners().empty() ? m_dFirst : m_tCourse.PlaceNow(dTime_s));
  }

  // From the corner that was just made.
  void GoOn(double dTime_s) {
    if (!m_dTarget || m_dSpeed <= 0) return;
    const double dWay = std::fabs(*m_dTarget - m_tCourse.Corners().back().dPlace);
    if (dWay > 0) m_tCourse.Walk(dTime_s + dWay / m_dSpeed, *m_dTarget);
  }

  TICSSheet m_tSheet;
  std::string m_sName;
  double m_dSpeed;  // positions a second
  double m_dFirst;
  std::optional<double> m_dTarget;
  TCourse m_tCourse;
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

// Gives each line of the transcript to both axes, and draws them.
template <typename TAxis>
void DrawBoth(std::istream& tIn, TAxis tZoom, TAxis tFocus) {
  bool bEnded = false;  // the daemon has ended in order: a walk then goes on, and is not cut
  for (std::string sLine; std::getline(tIn, sLine);) {
    const auto tLine = TranscriptLine_Parse(sLine);
    if (!tLine) continue;
    const bool bStarts = tLine->sEvent.starts_with("start ");
    const bool bStops = (bStarts && !bEnded) || tLine->sEvent == "fault detach";
    if (bStarts || tLine->sEvent == "daemon ends") bEnded = !bStarts;
    for (TAxis* ptAxis : {&tZoom, &tFocus}) {
      if (bStops) ptAxis->Stop(tLine->dTime_s);
      if (tLine->tDriver) ptAxis->Take(tLine->dTime_s, *tLine->tDriver);
    }
  }
  double dFrom_s = INFINITY, dTo_s = -INFINITY;
  for (TCourse* ptCourse : {&tZoom.Course(), &tFocus.Course()}) {
    ptCourse->Finish();
    if (ptCourse->Corners().empty()) continue;
    dFrom_s = std::min(dFrom_s, ptCourse->Corners().front().dTime_s);
    dTo_s = std::max(dTo_s, ptCourse->Corners().back().dTime_s);
  }
  if (!(dTo_s > dFrom_s)) {
    std::printf("no motor has been asked for anything\n");
    return;
  }
  Draw("zoom", tZoom.Course(), dFrom_s, dTo_s);
  Draw("focus", tFocus.Course(), dFrom_s, dTo_s);
}

}  // namespace

void Transcript_DrawPicture(const TOpenCamera& tCamera) {
  std::ifstream tIn(tCamera.sRoot + "/sim/transcript");
  if (!tIn) Cli_Fail(tCamera.sRoot + "/sim/transcript cannot be read");
  const TLens& tLens = tCamera.ptWorld->tLens;
  if (Model_IsICS(*tCamera.ptModel)) {
    DrawBoth(tIn, TICSAxis(*tCamera.ptModel, tLens, LENS_ZOOM), TICSAxis(*tCamera.ptModel, tLens, LENS_FOCUS));
  } else {
    DrawBoth(tIn, TStepper(tLens, LENS_ZOOM), TStepper(tLens, LENS_FOCUS));
  }
}
