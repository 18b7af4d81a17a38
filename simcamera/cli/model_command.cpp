// Lens models on the command line: prints one, and lays a ROOT out for the one that was chosen.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "cli/commands.h"
#include "world/model_file.h"

namespace {

const TLensModel& FindModel(const std::string& sName) {
  const TLensModel* ptModel = Lenses_Find(sName.c_str());
  if (ptModel != nullptr) return *ptModel;
  std::string sKnown;
  for (i32 i = 0; const TLensModel* ptKnown = Lenses_At(i); ++i) {
    sKnown += (i == 0 ? "" : ", ") + std::string(ptKnown->szName);
  }
  Cli_RefuseUsage("there is no lens model \"" + sName + "\"; there are " + sKnown);
}

TLensModel ReadModel(const std::string& sPath) {
  constexpr std::streamoff iMostBytes = 1 << 20;
  std::ifstream tFile(sPath, std::ios::binary);
  if (!tFile.is_open()) Cli_Fail(sPath + ": " + std::strerror(errno));
  std::string sText(static_cast<size_t>(iMostBytes) + 1, '\0');
  tFile.read(sText.data(), iMostBytes + 1);
  sText.resize(static_cast<size_t>(tFile.gcount()));
  if (tFile.bad()) Cli_Fail(sPath + ": cannot be read");
  if (!tFile.eof()) Cli_Fail(sPath + ": longer than a lens model can be");
  TLensModel tModel{};
  const auto asComplaints = ModelFile_Read(sText, tModel);
  for (const std::string& sComplaint : asComplaints) {
    std::fprintf(stderr, "simcamera: %s: %s\n", sPath.c_str(), sComplaint.c_str());
  }
  if (!asComplaints.empty()) throw TRefusal{iExitFailed, ""};
  return tModel;
}

// A copy of the folder into a ROOT inside it would copy itself for ever.
void RefuseBadEtc(const std::string& sRoot, const std::string& sEtc) {
  std::error_code tError;
  const auto tEtc = std::filesystem::canonical(sEtc, tError);
  if (tError || !std::filesystem::is_directory(tEtc)) Cli_Fail(sEtc + ": no such folder");
  const auto tRoot = std::filesystem::weakly_canonical(sRoot, tError);
  const auto itPart = std::mismatch(tEtc.begin(), tEtc.end(), tRoot.begin(), tRoot.end()).first;
  if (itPart == tEtc.end()) Cli_Fail(sRoot + ": lies inside " + sEtc);
}

}  // namespace

void Model_Print(const std::string& sName) {
  std::fputs(ModelFile_Print(FindModel(sName)).c_str(), stdout);
}

void Camera_LayOut(const std::string& sRoot, const TLensChoice& tChoice, u64 qwSeed) {
  if (tChoice.sLens && tChoice.sModel) Cli_RefuseUsage("--lens and --model exclude each other");
  const TLensModel tModel =
      tChoice.sModel ? ReadModel(*tChoice.sModel) : TLensModel(FindModel(tChoice.sLens.value_or("zoom")));
  const bool bNew = !std::filesystem::exists(sRoot + "/sim/world");
  if (tChoice.sEtc && !bNew) Cli_Fail(sRoot + ": laid out already, --etc is for a new one");
  if (tChoice.sEtc) RefuseBadEtc(sRoot, *tChoice.sEtc);
  const std::string sModelFile = ModelFile_Print(tModel);
  const TLayOut tLayOut{.ptModel = &tModel,
                        .qwSeed = qwSeed,
                        .pszModelFile = sModelFile.c_str(),
                        .pszEtc = tChoice.sEtc ? tChoice.sEtc->c_str() : nullptr};
  if (World_LayOutModel(sRoot.c_str(), tLayOut) != 0) throw TRefusal{iExitFailed, ""};  // the reason is on stderr
  if (bNew || !(tChoice.sLens || tChoice.sModel)) return;
  const TOpenCamera tCamera = Camera_Open(sRoot);
  const std::string sName = tCamera.ptModel->szName;
  if (*tCamera.ptModel == tModel) return;
  Cli_Fail(sRoot + ": laid out for " +
           (sName == tModel.szName ? "another lens of the name " + sName : "the lens " + sName));
}
