// Lens models as files: what is printed, what is refused, and the camera that is laid out.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "lens/drawn_lens.h"
#include "lens/model_rules.h"
#include "whole_lives.h"
#include "world/model_file.h"
#include "world/world_image.h"

namespace {

using TJson = nlohmann::ordered_json;

TJson Model(const char* szName) {
  return TJson::parse(ModelFile_Print(*Lenses_Find(szName)));
}

std::vector<std::string> Complaints(const TJson& tJson) {
  TLensModel tModel{};
  const auto asComplaints = ModelFile_Read(tJson.dump(), tModel);
  EXPECT_EQ(tModel == TLensModel{}, !asComplaints.empty()) << "a refused text changes nothing";
  return asComplaints;
}

// Replaces the camera by one that has just been laid out.
void LayOutAgain(const TCamera& tCamera, const TLayOut& tLayOut) {
  std::filesystem::remove_all(tCamera.sRoot);
  ASSERT_EQ(World_LayOutModel(tCamera.sRoot.c_str(), tLayOut), 0);
}

std::map<std::string, std::string> Files(const TCamera& tCamera) {
  std::map<std::string, std::string> mapFiles;
  for (const auto& tEntry : std::filesystem::recursive_directory_iterator(tCamera.sRoot)) {
    const std::string sBelow = tEntry.path().string().substr(tCamera.sRoot.size());
    mapFiles[sBelow] = tEntry.is_regular_file() ? tCamera.Read(sBelow) : "";
  }
  return mapFiles;
}

TEST(ModelFiles, LayOutTheSameCameraAsTheName) {
  std::vector<std::string> asNames;
  for (i32 i = 0; const TLensModel* ptModel = Lenses_At(i); ++i) asNames.emplace_back(ptModel->szName);
  for (u64 qw = 0; qw < 10; ++qw) asNames.push_back(DrawnLens_Name(FirstSeed() + qw));
  const TCamera tOther("fixed");
  for (const std::string& sName : asNames) {
    SCOPED_TRACE(sName);
    const TCamera tByName(sName.c_str());
    TLensModel tModel{};
    EXPECT_EQ(ModelFile_Read(ModelFile_Print(*Lenses_Find(sName.c_str())), tModel), std::vector<std::string>());
    LayOutAgain(tOther, {.ptModel = &tModel});
    EXPECT_EQ(Files(tByName), Files(tOther));
  }
}

TEST(ModelFiles, NeedEachKeyAndNoOther) {
  for (const char* szModel : {"zoom", "ics", "fixed"}) {
    const TJson tModel = Model(szModel);
    const TJson tValues = tModel.flatten();
    for (const auto& tItem : tValues.items()) {
      const TJson::json_pointer tKey(tItem.key());
      std::string sKey = tItem.key().substr(1);
      std::replace(sKey.begin(), sKey.end(), '/', '.');
      TJson tWrong = tModel;
      TJson& tParent = tWrong[tKey.parent_pointer()];
      tParent.erase(tKey.back());
      EXPECT_EQ(Complaints(tWrong), std::vector{sKey + ": missing"});
      tParent[tKey.back()] = tItem.value();
      tParent[tKey.back() + "\x1b"] = 1;
      EXPECT_EQ(Complaints(tWrong).size(), 1U);
      EXPECT_NE(Complaints(tWrong)[0].find("\\u001b\": unknown key"), std::string::npos) << Complaints(tWrong)[0];
    }
  }
}

TEST(ModelFiles, NameEachBadValue) {
  const struct {
    const char *szModel, *szKey, *szValue, *szComplaint;
  } atCases[] = {
      {"zoom", "/focus/slack_steps", "-5", "focus.slack_steps: -5 is below 0"},
      {"zoom", "/zoom/steps_per_vstep", "0", "zoom.steps_per_vstep: 0 is below 1"},
      {"zoom", "/zoom/step_time_ns", "18446744073709551615",
       "zoom.step_time_ns: 18446744073709551615 is above 1000000000"},
      {"quad", "/focus/pi_sensor_at_steps", "-1", "focus.pi_sensor_at_steps: -1 is below 0"},
      {"zoom", "/channels", "5", "channels: 5 is above 4"},
      {"zoom", "/channels", "1.5", "channels: 1.5 is no whole number"},
      {"zoom", "/channels", "\"1\"", "channels: \"1\" is no number"},
      {"zoom", "/blocking_mode", "1", "blocking_mode: 1 is neither true nor false"},
      {"zoom", "/name", "\"\"", "name: empty"},
      {"zoom", "/name", "\"0123456789abcdef\"", "name: longer than 15 characters"},
      {"zoom", "/model_name", "\"<\"", "model_name: \"<\" has more than letters, digits, '-', '_' and '.'"},
      {"zoom", "/description", "\"\\n\"", "description: \"\\n\" has more than printable ASCII characters"},
      {"zoom", "/optics/peak_width_tele_vsteps", "0", "optics.peak_width_tele_vsteps: 0 is below 0.01"},
      {"ics", "/optics/night_wide_vsteps", "3", "optics.night_wide_vsteps: unknown key"},
      {"ics", "/ics/zoom", "null", "ics.zoom: null is no object"},
      {"zoom", "/zoom", "7", "zoom: 7 is no object"},
  };
  for (const auto& tCase : atCases) {
    TJson tModel = Model(tCase.szModel);
    tModel[TJson::json_pointer(tCase.szKey)] = TJson::parse(tCase.szValue);
    EXPECT_EQ(Complaints(tModel), std::vector<std::string>{tCase.szComplaint});
  }
  TLensModel tModel{};
  EXPECT_EQ(ModelFile_Read("[]", tModel), std::vector<std::string>{"no JSON object"});
  EXPECT_EQ(ModelFile_Read("{\n\"a\": 1,", tModel)[0].find("parse error at line 2, "), 0U);
  const std::string sTwice =
      Replaced(ModelFile_Print(*Lenses_Find("zoom")), "\"travel_steps\"", "\"slack_steps\": 1, $&");
  EXPECT_EQ(ModelFile_Read(sTwice, tModel)[0], "slack_steps: stands twice");
}

// Each row breaks one rule, and the rows together break them all.
TEST(ModelFiles, NameEachBrokenRule) {
  const std::string sAxis = Model("zoom")["zoom"].dump();
  const struct {
    const char* szModel;
    std::vector<std::pair<const char*, std::string>> atChanges;
  } atCases[] = {
      {"zoom", {{"/zoom/range_start_vsteps", "201"}}},
      {"zoom", {{"/zoom/first_position_vsteps", "801"}}},
      {"zoom", {{"/zoom/total_vsteps", "799"}}},
      {"zoom", {{"/zoom/travel_steps", "6399"}}},
      {"zoom", {{"/zoom/total_vsteps", "1000000"}}},
      {"zoom", {{"/focus/slack_steps", "65"}}},
      {"zoom", {{"/zoom/positioning_steps", "6423"}}},
      {"quad", {{"/zoom/pi_sensor_at_steps", "1641"}}},
      {"quad", {{"/zoom/pi_sensor_at_steps", "null"}}},
      {"quad", {{"/zoom/pi_search_steps", "1639"}}},
      {"quad", {{"/zoom/pi_sensor_at_steps", "23"}}},
      {"zoom", {{"/zoom/step_time_ns", "625000"}}},
      {"ics", {{"/focus/steps_per_vstep", "2"}}},
      {"ics", {{"/zoom/range_end_vsteps", "2101"}}},
      {"ics", {{"/zoom/first_position_vsteps", "99"}}},
      {"ics", {{"/ics/zoom/pi_sensor_steps", "99"}}},
      {"ics", {{"/ics/focus/home_steps", "49"}}},
      {"zoom", {{"/model_name", "\"Q31\""}}},
      {"zoomonly", {{"/model_name", "\"Q31\""}, {"/thermal_table", "true"}}},
      {"zoom", {{"/lens_type", "\"ics\""}}},
      {"ics", {{"/zoom", "null"}}},
      {"zoom", {{"/search", "null"}}},
      {"zoom", {{"/optics", "null"}}},
      {"zoom", {{"/zoom_keys", sAxis}}},
      {"quad", {{"/focus/pi_sensor_at_steps", "41"}}},
      {"zoom", {{"/search/step_time_us", "95999"}}},
  };
  std::set<std::string> asTold, asRules;
  for (const auto& tCase : atCases) {
    SCOPED_TRACE(std::string(tCase.szModel) + tCase.atChanges[0].first);
    TJson tModel = Model(tCase.szModel);
    for (const auto& [szKey, sValue] : tCase.atChanges) tModel[TJson::json_pointer(szKey)] = TJson::parse(sValue);
    const auto asComplaints = Complaints(tModel);
    ASSERT_EQ(asComplaints.size(), 1U);
    asTold.insert(Replaced(asComplaints[0], "^(zoom|focus): ", ""));
  }
  for (const auto& tRule : g_atAxisRules) asRules.insert(tRule.szBroken);
  for (const auto& tRule : g_atICSRules) asRules.insert(tRule.szBroken);
  // The bounds of "channels" are the first rule: no file gets that far.
  for (const auto& tRule : std::span(g_atModelRules).subspan(1)) asRules.insert(tRule.szBroken);
  EXPECT_EQ(asTold, asRules);
}

// A lens that has no name here, with a configuration of somebody's own: both reach the daemon and the image side.
TEST(ModelFiles, ALensOfAFileLives) {
  const TCamera tCamera("zoom"), tFolder("fixed");
  std::filesystem::create_directories(tFolder.sRoot + "/own/vernierlensd");
  const std::string sConfig = tCamera.Read(szConfigPath);
  const std::string sOwn = Replaced(sConfig, "<blockingmode>0", "<blockingmode>1");
  ASSERT_NE(sConfig, sOwn);
  tFolder.Write("/own/vernierlensd/config_vernierlensd.xml", sOwn);
  std::filesystem::permissions(tFolder.sRoot + "/own/vernierlensd/config_vernierlensd.xml",
                               std::filesystem::perms(0444));
  TJson tJson = Model("zoom");
  tJson["name"] = "mine";
  tJson["optics"]["sharp_wide_vsteps"] = 190;
  TLensModel tModel{};
  ASSERT_EQ(ModelFile_Read(tJson.dump(), tModel), std::vector<std::string>());
  const std::string sEtc = tFolder.sRoot + "/own/";
  LayOutAgain(tCamera, {.ptModel = &tModel, .pszModelFile = "kept", .pszEtc = sEtc.c_str()});
  EXPECT_EQ(tCamera.Read("/sim/model.json"), "kept");
  EXPECT_EQ(tCamera.Read(szConfigPath), sOwn);
  const TLifeResult tResult = Live(tCamera, {Ask(500, "function=auto")}, 60'000);
  EXPECT_NE(tResult.sTranscript.find("MOTOR_WALK_STEPS_BLOCK"), std::string::npos) << Tale(tResult);
  ChangeWorld(tCamera, [&](const TWorld& tWorld) {
    EXPECT_STREQ(tWorld.tModel.szName, "mine");
    EXPECT_GT(World_SharpFocus(&tWorld, 0), 505) << "485 for the lens of the name";
    EXPECT_NEAR(tCamera.Truth(LENS_FOCUS), World_SharpFocus(&tWorld, 0), World_DepthOfFocus(&tWorld, 0));
  });
  for (const char* szMissing : {"/nowhere", "/dev/null"}) {
    EXPECT_FALSE(World_LayOutModel((tFolder.sRoot + "/new").c_str(), {.ptModel = &tModel, .pszEtc = szMissing}) == 0);
    EXPECT_FALSE(std::filesystem::exists(tFolder.sRoot + "/new/sim/world"));
    std::filesystem::remove_all(tFolder.sRoot + "/new");
  }
}

}  // namespace
