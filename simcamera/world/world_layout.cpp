#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "lens/ics_optics.h"
#include "lens/lens_model.h"
#include "lens/optics.h"
#include "world/camera_files.h"
#include "world/world.h"

namespace {

constexpr u64 qwWallAtFirstStart_us = 1'704'067'200'000'000;  // 2024-01-01 00:00:00; a run at a speed sets real time

constexpr const char* g_apszDirectories[] = {"etc/conf.d/vernierlensd",
                                             "etc/conf.d/image_cfgs/c0/imgsys",
                                             "mnt/flash",
                                             "var/run",
                                             "tmp",
                                             "usr/sbin",
                                             "dev",
                                             "shm",
                                             "sim"};

TAxisModel AxisModel(const TAxisSheet& tSheet) {
  TAxisModel tModel{};
  tModel.bPresent = tSheet.iTravel > 0 ? 1 : 0;
  tModel.iTravel = tSheet.iTravel;
  tModel.iOrigin = tSheet.iOrigin;
  tModel.iSlack = tSheet.iSlack;
  tModel.iDriverPerVirtual = static_cast<i32>(tSheet.dwOneStep);
  tModel.iPI = tSheet.iPI;
  tModel.bCheckPIWalk = tSheet.bCheckPIWalk;
  tModel.qwStepTime_ns = tSheet.qwStepTime_ns;
  return tModel;
}

// Every channel stands at the model's first position, its gears last driven forward.
void FillLens(TLens& tLens, const TLensModel& tModel) {
  for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
    const TAxisSheet& tSheet = Model_Sheet(tModel, eAxis);
    tLens.atModel[eAxis] = AxisModel(tSheet);
    for (auto& atChannel : tLens.atAxis) {
      TAxisTruth& tAxis = atChannel[eAxis];
      tAxis.iRotor = tAxis.iGlass = tAxis.iFrameGlass =
          tSheet.iOrigin + static_cast<i32>(tSheet.dwFirstPosition * tSheet.dwOneStep);
      tAxis.bForward = 1;
    }
  }
}

// The driver stands at the model's first position.  The parking motor is a stepper with a travel of 500.
void FillICS(TLens& tLens, const TLensModel& tModel) {
  if (!Model_IsICS(tModel)) return;
  tLens.bICS = 1;
  tLens.iMinAD = iICSColdestAD;
  tLens.iMaxAD = iICSHottestAD;
  for (const ELensAxis eAxis : {LENS_ZOOM, LENS_FOCUS}) {
    const TICSSheet& tSheet = tModel.atICS[eAxis];
    const i32 iFirst = static_cast<i32>(Model_Sheet(tModel, eAxis).dwFirstPosition);
    tLens.atICS[eAxis] = {.iMin = tSheet.iMin,
                          .iMax = tSheet.iMax,
                          .iPI = tSheet.iPI,
                          .iHome = tSheet.iHome,
                          .iSpeed = tSheet.iSpeed,
                          .iFrom = iFirst,
                          .iTarget = iFirst,
                          .qwMoveStart_us = 0};
  }
  tLens.tParkModel = {.bPresent = 1,
                      .iTravel = 500,
                      .iOrigin = 0,
                      .iSlack = 0,
                      .iDriverPerVirtual = 1,
                      .iPI = -1,
                      .bCheckPIWalk = 0,
                      .qwStepTime_ns = 450'000};
}

void FillWorld(TWorld& tWorld, const TLensModel& tModel, u64 qwSeed) {
  tWorld.dwMagic = dwWorldMagic;
  tWorld.dwSize = sizeof(TWorld);
  pthread_mutexattr_t tAttributes;
  pthread_mutexattr_init(&tAttributes);
  pthread_mutexattr_setpshared(&tAttributes, PTHREAD_PROCESS_SHARED);
  pthread_mutexattr_setrobust(&tAttributes, PTHREAD_MUTEX_ROBUST);
  pthread_mutex_init(&tWorld.mutexRun, &tAttributes);
  pthread_mutexattr_destroy(&tAttributes);
  tWorld.bRun = 1;
  tWorld.qwSeed = qwSeed;
  tWorld.qwWallAtZero_us = qwWallAtFirstStart_us;
  tWorld.tModel = tModel;
  FillLens(tWorld.tLens, tModel);
  FillICS(tWorld.tLens, tModel);
  I2CBus_PowerOn(&tWorld.tI2C);
  tWorld.dDistance_m = dPanDistance_m;
  tWorld.dTemperature_C = dPanTemperature_C;
}

// A ROOT that has the world file is laid out.  So this file is written last, and has another name until it is whole.
bool WriteWorld(const char* pszRoot, const TLensModel& tModel, u64 qwSeed) {
  char szNew[dwCameraPath], szWorld[dwCameraPath];
  if (!CameraFiles_JoinPath(szNew, pszRoot, "sim/world.new") || !CameraFiles_JoinPath(szWorld, pszRoot, "sim/world"))
    return false;
  const i32 fd = open(szNew, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  void* pv = nullptr;
  if (fd >= 0 && posix_fallocate(fd, 0, sizeof(TWorld)) == 0)
    pv = mmap(nullptr, sizeof(TWorld), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (fd >= 0) close(fd);
  if (pv == nullptr || pv == MAP_FAILED) {
    fprintf(stderr, "simcamera: %s: no room for the world\n", szNew);
    return false;
  }
  FillWorld(*static_cast<TWorld*>(pv), tModel, qwSeed);
  munmap(pv, sizeof(TWorld));
  if (rename(szNew, szWorld) == 0) return true;
  fprintf(stderr, "simcamera: %s: %s\n", szWorld, strerror(errno));
  return false;
}

bool IsEmptyDirectory(const char* pszPath) {
  DIR* pDirectory = opendir(pszPath);
  if (pDirectory == nullptr) return false;
  i32 iEntries = 0;
  while (const dirent* ptEntry = readdir(pDirectory)) {
    if (strcmp(ptEntry->d_name, ".") != 0 && strcmp(ptEntry->d_name, "..") != 0) ++iEntries;
  }
  closedir(pDirectory);
  return iEntries == 0;
}

bool LayOutFiles(const char* pszRoot, const TLayOut& tLayOut) {
  for (const char* pszDirectory : g_apszDirectories) {
    char szPath[dwCameraPath];
    if (!CameraFiles_JoinPath(szPath, pszRoot, pszDirectory) || !CameraFiles_MakeDirectories(szPath)) return false;
  }
  const bool bWritten = CameraFiles_Write(pszRoot, *tLayOut.ptModel) &&
                        CameraFiles_WriteText(pszRoot, "mnt/flash/.VernierlensStatus", "normal\n") &&
                        CameraFiles_WriteText(pszRoot, "usr/sbin/vernierlensd", "") &&
                        CameraFiles_WriteText(pszRoot, "sim/transcript", "");
  if (!bWritten) return false;
  if (tLayOut.pszEtc != nullptr && !CameraFiles_CopyOver(pszRoot, "etc/conf.d", tLayOut.pszEtc)) return false;
  if (tLayOut.pszModelFile != nullptr && !CameraFiles_WriteText(pszRoot, "sim/model.json", tLayOut.pszModelFile))
    return false;
  return WriteWorld(pszRoot, *tLayOut.ptModel, tLayOut.qwSeed);
}

}  // namespace

i32 World_LayOutModel(const char* pszRoot, const TLayOut& tLayOut) {
  char szWorld[dwCameraPath];
  if (!CameraFiles_JoinPath(szWorld, pszRoot, "sim/world")) return -1;
  if (access(szWorld, F_OK) == 0) return 0;
  if (!CameraFiles_MakeDirectories(pszRoot)) return -1;
  if (!IsEmptyDirectory(pszRoot)) {
    fprintf(stderr, "simcamera: %s: neither empty nor a simulated camera\n", pszRoot);
    return -1;
  }
  return LayOutFiles(pszRoot, tLayOut) ? 0 : -1;
}

i32 World_LayOut(const char* pszRoot, const char* pszModel, u64 qwSeed) {
  if (const TLensModel* ptModel = Lenses_Find(pszModel)) {
    return World_LayOutModel(pszRoot, {.ptModel = ptModel, .qwSeed = qwSeed});
  }
  fprintf(stderr, "simcamera: there is no lens model \"%.40s\"\n", pszModel);
  return -1;
}
