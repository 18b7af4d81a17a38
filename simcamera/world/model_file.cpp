#include "world/model_file.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <set>

#include "lens/model_rules.h"
#include "lens/shift_tables.h"

namespace {

using TJson = nlohmann::ordered_json;

// Which characters a text may have.
enum EText { TEXT_WORD, TEXT_SENTENCE };

// Both sides of a model file have the same functions: for each key one call, in the order of the file.  So the keys and
// the bounds stand once, in the functions ..._Keys below.  A printer only reads the values.
struct TPrinter {
  TJson tJson = TJson::object();

  template <typename TWhole>
  void Whole(const char* szKey, TWhole& value, i64, i64) {
    tJson[szKey] = value;
  }
  void WholeOrNull(const char* szKey, i32& iValue, i64) { tJson[szKey] = iValue < 0 ? TJson() : TJson(iValue); }
  void Real(const char* szKey, double& dValue, double, double) { tJson[szKey] = dValue; }
  void Flag(const char* szKey, u32& bValue) { tJson[szKey] = bValue != 0; }
  template <size_t dwSize>
  void Text(const char* szKey, char (&szValue)[dwSize], EText) {
    tJson[szKey] = szValue;
  }
  template <typename TKeys>
  void Record(const char* szKey, TKeys fnKeys) {
    TPrinter tPrinter;
    fnKeys(tPrinter);
    tJson[szKey] = tPrinter.tJson;
  }
  // Returns whether the record is there.
  template <typename TKeys>
  bool RecordOrNull(const char* szKey, bool bGiven, TKeys fnKeys) {
    tJson[szKey] = TJson();
    if (bGiven) Record(szKey, fnKeys);
    return bGiven;
  }
};

// A value of the file as a message shows it, in printable characters.
std::string Shown(const TJson& tJson) {
  constexpr size_t dwLongest = 60;
  const std::string sText = tJson.dump(-1, ' ', true);
  return sText.size() <= dwLongest ? sText : sText.substr(0, dwLongest) + "...";
}

std::string ShownKey(const std::string& sKey) {
  const std::string sShown = Shown(TJson(sKey));
  return sShown == '"' + sKey + '"' ? sKey : sShown;
}

// Reads one JSON object into a record.  Keys that are missing or bad leave their values as they are.
struct TReader {
  const TJson& tJson;
  std::string sPath;  // of the object: "" or "focus."
  std::vector<std::string>& asComplaints;
  std::set<std::string> sKnown = {};

  void Complain(const char* szKey, const std::string& sWhat) { asComplaints.push_back(sPath + szKey + ": " + sWhat); }

  const TJson* Find(const char* szKey) {
    sKnown.insert(szKey);
    const auto it = tJson.find(szKey);
    if (it != tJson.end()) return &*it;
    Complain(szKey, "missing");
    return nullptr;
  }

  // The bounds are far below 2^53, so that a double holds each whole number between them.
  bool Number(const char* szKey, double dLeast, double dMost, bool bWhole, double& dValue) {
    const TJson* ptJson = Find(szKey);
    if (ptJson == nullptr) return false;
    const auto Refuse = [&](const std::string& sWhy) { return Complain(szKey, Shown(*ptJson) + sWhy), false; };
    if (!ptJson->is_number()) return Refuse(" is no number");
    dValue = ptJson->get<double>();
    char szBound[32];
    std::snprintf(szBound, sizeof szBound, "%.10g", dValue < dLeast ? dLeast : dMost);
    if (dValue < dLeast) return Refuse(std::string(" is below ") + szBound);
    if (dValue > dMost) return Refuse(std::string(" is above ") + szBound);
    if (bWhole && dValue != std::floor(dValue)) return Refuse(" is no whole number");
    return true;
  }

  template <typename TWhole>
  void Whole(const char* szKey, TWhole& value, i64 llLeast, i64 llMost) {
    double dValue = 0;
    if (Number(szKey, static_cast<double>(llLeast), static_cast<double>(llMost), true, dValue)) {
      value = static_cast<TWhole>(dValue);
    }
  }
  void WholeOrNull(const char* szKey, i32& iValue, i64 llMost) {
    const auto it = tJson.find(szKey);
    if (it == tJson.end() || !it->is_null()) return Whole(szKey, iValue, 0, llMost);
    sKnown.insert(szKey);
    iValue = -1;
  }
  void Real(const char* szKey, double& dValue, double dLeast, double dMost) {
    double dRead = 0;
    if (Number(szKey, dLeast, dMost, false, dRead)) dValue = dRead;
  }
  void Flag(const char* szKey, u32& bValue) {
    const TJson* ptJson = Find(szKey);
    if (ptJson == nullptr) return;
    if (!ptJson->is_boolean()) return Complain(szKey, Shown(*ptJson) + " is neither true nor false");
    bValue = ptJson->get<bool>() ? 1 : 0;
  }
  template <size_t dwSize>
  void Text(const char* szKey, char (&szValue)[dwSize], EText eText) {
    const TJson* ptJson = Find(szKey);
    if (ptJson == nullptr) return;
    if (!ptJson->is_string()) return Complain(szKey, Shown(*ptJson) + " is no text");
    const auto& sText = ptJson->get_ref<const std::string&>();
    if (sText.empty()) return Complain(szKey, "empty");
    if (sText.size() >= dwSize) return Complain(szKey, "longer than " + std::to_string(dwSize - 1) + " characters");
    constexpr const char* szWord = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.";
    if (eText == TEXT_WORD && sText.find_first_not_of(szWord) != sText.npos)
      return Complain(szKey, Shown(*ptJson) + " has more than letters, digits, '-', '_' and '.'");
    if (!std::all_of(sText.begin(), sText.end(), [](char c) { return c >= ' ' && c <= '~'; }))
      return Complain(szKey, Shown(*ptJson) + " has more than printable ASCII characters");
    std::memset(szValue, 0, dwSize);
    sText.copy(szValue, dwSize - 1);
  }
  template <typename TKeys>
  void Record(const char* szKey, TKeys fnKeys) {
    const TJson* ptJson = Find(szKey);
    if (ptJson == nullptr) return;
    if (!ptJson->is_object()) return Complain(szKey, Shown(*ptJson) + " is no object");
    TReader tReader{*ptJson, sPath + szKey + ".", asComplaints};
    fnKeys(tReader);
    tReader.RefuseUnknown();
  }
  template <typename TKeys>
  bool RecordOrNull(const char* szKey, bool, TKeys fnKeys) {
    const TJson* ptJson = Find(szKey);
    if (ptJson == nullptr || ptJson->is_null()) return false;
    Record(szKey, fnKeys);
    return true;
  }

  void RefuseUnknown() {
    for (const auto& tItem : tJson.items()) {
      if (!sKnown.contains(tItem.key())) Complain(ShownKey(tItem.key()).c_str(), "unknown key");
    }
  }
};

template <typename TSide>
void Axis_Keys(TSide& tSide, TAxisSheet& t) {
  tSide.Whole("range_start_vsteps", t.dwStart, 0, llMostPosition);
  tSide.Whole("range_end_vsteps", t.dwEnd, 1, llMostPosition);
  tSide.Whole("total_vsteps", t.dwTotalStep, 1, 1'000'000);
  tSide.Whole("first_position_vsteps", t.dwFirstPosition, 0, llMostPosition);
  tSide.Whole("steps_per_vstep", t.dwOneStep, 1, 32'767);
  tSide.Whole("vstep_time_us", t.dwOneStepTime_us, 1, 1'000'000);
  tSide.Whole("adjust_vsteps", t.dwAdjustStep, 0, llMostPosition);
  tSide.Whole("positioning_steps", t.dwPositioningStep, 0, llMostDriverSteps);
  tSide.Flag("reverse_calibration", t.bReverseCalibration);
  tSide.Flag("pi_sensor_used", t.bPISupport);
  tSide.Whole("pi_search_steps", t.dwPISearchStep, 0, llMostDriverSteps);
  tSide.Whole("travel_steps", t.iTravel, 1, llMostTravel);
  tSide.Whole("origin_steps", t.iOrigin, 0, llMostTravel);
  tSide.Whole("slack_steps", t.iSlack, 0, llMostTravel);
  tSide.WholeOrNull("pi_sensor_at_steps", t.iPI, llMostTravel);
  tSide.Flag("pi_walk_supported", t.bCheckPIWalk);
  tSide.Whole("step_time_ns", t.qwStepTime_ns, 1'000, 1'000'000'000);
}

template <typename TSide>
void Search_Keys(TSide& tSide, TSearchSheet& t) {
  tSide.Whole("range_first_vsteps", t.iRangeFirst, 1, 1'000'000);
  tSide.Whole("range_second_vsteps", t.iRangeSecond, 1, 1'000'000);
  tSide.Whole("range_third_vsteps", t.iRangeThird, 1, 1'000'000);
  tSide.Whole("step_large_vsteps", t.dwStepLarge, 1, llMostPosition);
  tSide.Whole("step_small_vsteps", t.dwStepSmall, 1, llMostPosition);
  tSide.Whole("step_fine_vsteps", t.dwStepFine, 1, llMostPosition);
  tSide.Flag("fine_tuning", t.bFineTuning);
  tSide.Whole("step_time_us", t.dwOneStepSearchTime_us, 1, 10'000'000);
  tSide.Whole("open_iris_time_us", t.dwOpenIrisTime_us, 10'000, 30'000'000);
}

// The tables of the configuration are whole numbers made from the optics: with these bounds all fit into 32 bits.
template <typename TSide>
void Optics_Keys(TSide& tSide, TOptics& t, bool bICS) {
  constexpr double dMost = 100'000, dMostRatio = 100, dMostPerDegree = 1000;
  if (!bICS) {
    tSide.Real("sharp_wide_vsteps", t.dWide, -dMost, dMost);
    tSide.Real("sharp_tele_vsteps", t.dTele, -dMost, dMost);
    tSide.Real("near_1m_wide_vsteps", t.dNearWide, 0, dMost);
    tSide.Real("focal_length_ratio", t.dMagnification, 1 / dMostRatio, dMostRatio);
    tSide.Real("warmer_1c_wide_vsteps", t.dPerDegree, -dMostPerDegree, dMostPerDegree);
    tSide.Real("warmer_1c_tele_vsteps", t.dPerDegreeTele, -dMostPerDegree, dMostPerDegree);
    tSide.Real("night_wide_vsteps", t.dNight, -dMost, dMost);
  }
  tSide.Real("peak_width_wide_vsteps", t.dPeakWide, 0.01, dMost);
  tSide.Real("peak_width_tele_vsteps", t.dPeakTele, 0.01, dMost);
}

template <typename TSide>
void ICS_Keys(TSide& tSide, TICSSheet& t) {
  tSide.Whole("min_steps", t.iMin, 0, llMostPosition);
  tSide.Whole("max_steps", t.iMax, 0, llMostPosition);
  tSide.Whole("pi_sensor_steps", t.iPI, 0, llMostPosition);
  tSide.Whole("home_steps", t.iHome, 0, llMostPosition);
  tSide.Whole("speed_steps_per_s", t.iSpeed, 1, 1'000'000);
}

template <typename TSide>
void Model_Keys(TSide& tSide, TLensModel& t) {
  const auto Axis = [&](const char* szKey, bool bGiven, TAxisSheet& tSheet) {
    return tSide.RecordOrNull(szKey, bGiven, [&](auto& tInner) { Axis_Keys(tInner, tSheet); });
  };
  tSide.Text("name", t.szName, TEXT_WORD);
  tSide.Text("description", t.szDescription, TEXT_SENTENCE);
  tSide.Text("model_name", t.szModelName, TEXT_WORD);
  tSide.Text("lens_type", t.szLensType, TEXT_WORD);
  tSide.Whole("channels", t.iChannels, 1, iLensChannels);
  tSide.Flag("blocking_mode", t.bBlockingMode);
  const bool bZoom = Axis("zoom", Model_HasZoom(t), t.tZoom);
  const bool bFocus = Axis("focus", Model_HasFocus(t), t.tFocus);
  t.dwCapability = bZoom && bFocus ? CAPABILITY_ZOOM_AND_FOCUS
                   : bZoom         ? CAPABILITY_ZOOM_ONLY
                   : bFocus        ? CAPABILITY_FOCUS_ONLY
                                   : CAPABILITY_NONE;
  const bool bICS = tSide.RecordOrNull("ics", t.bICS != 0, [&](auto& tICS) {
    tICS.Record("zoom", [&](auto& tInner) { ICS_Keys(tInner, t.atICS[LENS_ZOOM]); });
    tICS.Record("focus", [&](auto& tInner) { ICS_Keys(tInner, t.atICS[LENS_FOCUS]); });
  });
  t.bICS = bICS ? 1 : 0;
  tSide.RecordOrNull("search", t.tSearch != TSearchSheet{}, [&](auto& tInner) { Search_Keys(tInner, t.tSearch); });
  tSide.RecordOrNull("optics", t.tOptics != TOptics{}, [&](auto& tInner) { Optics_Keys(tInner, t.tOptics, bICS); });
  tSide.Flag("thermal_table", t.bThermalTable);
  tSide.Whole("thermal_table_rows", t.dwThermalRowsUsed, 1, dwThermalRows);
  tSide.Whole("thermal_table_columns", t.iThermalColumnsUsed, 1, iThermalColumns);
  tSide.Flag("flange_back_compensation", t.bFlangeBack);
  tSide.Flag("flat_search_starts", t.bFlatStarts);
  Axis("zoom_keys", t.tZoomKeys.dwEnd != 0, t.tZoomKeys);
  Axis("focus_keys", t.tFocusKeys.dwEnd != 0, t.tFocusKeys);
}

// The parser keeps one value of a key that stands twice and says nothing.  This notes such keys.
struct TKeyWatch {
  std::vector<std::set<std::string>> asSeen = {};  // keys of the objects that are open, by depth
  std::vector<std::string> asTwice = {};

  void Note(int iDepth, TJson::parse_event_t eEvent, const TJson& tParsed) {
    const size_t dwDepth = static_cast<size_t>(iDepth);
    if (eEvent == TJson::parse_event_t::object_start) {
      asSeen.resize(dwDepth + 1);
      asSeen.emplace_back();
    }
    if (eEvent != TJson::parse_event_t::key) return;
    const auto& sKey = tParsed.get_ref<const std::string&>();
    if (!asSeen[dwDepth].insert(sKey).second) asTwice.push_back(ShownKey(sKey) + ": stands twice");
  }
};

// The parser's own words without their number.
std::string WhyNoJson(const nlohmann::json::exception& tError) {
  const std::string sWhat = tError.what();
  const size_t dwBracket = sWhat.find("] ");
  return dwBracket == sWhat.npos ? sWhat : sWhat.substr(dwBracket + 2);
}

}  // namespace

std::string ModelFile_Print(const TLensModel& tModel) {
  TLensModel tCopy = tModel;
  TPrinter tPrinter;
  Model_Keys(tPrinter, tCopy);
  return tPrinter.tJson.dump(2) + "\n";
}

std::vector<std::string> ModelFile_Read(const std::string& sText, TLensModel& tModel) {
  TKeyWatch tWatch;
  TJson tJson;
  try {
    tJson = TJson::parse(sText, [&](int iDepth, TJson::parse_event_t eEvent, TJson& tParsed) {
      return tWatch.Note(iDepth, eEvent, tParsed), true;
    });
  } catch (const nlohmann::json::exception& tError) {
    return {WhyNoJson(tError)};
  }
  if (!tJson.is_object()) return {"no JSON object"};
  TLensModel tRead{};
  tRead.tZoom = tRead.tFocus = Sheet_NoAxis();
  std::vector<std::string> asComplaints = std::move(tWatch.asTwice);
  TReader tReader{tJson, "", asComplaints};
  Model_Keys(tReader, tRead);
  tReader.RefuseUnknown();
  if (!asComplaints.empty()) return asComplaints;
  Model_TellBrokenRules(tRead, [&](std::string_view sWhere, const char* szWhat) {
    asComplaints.push_back((sWhere.empty() ? "" : std::string(sWhere) + ": ") + szWhat);
  });
  if (asComplaints.empty()) tModel = tRead;
  return asComplaints;
}
