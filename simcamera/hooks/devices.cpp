// The camera's device nodes.  An open device is a real descriptor, on /dev/null, so that select and close work on it.
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/ioctl.h>

#include "hooks/hooks.h"
#include "hooks/i2c.h"
#include "lens/ics_optics.h"

namespace {
constinit TReal<int(int, unsigned long, ...)> g_realIoctl{"ioctl"};
constinit TReal<int(int, unsigned long, ...)> g_realIoctlTime64{"__ioctl_time64"};
constinit TReal<int(const char*, int, ...)> g_realOpen{"open"};

struct TDevice {
  const char* szPath;
  const char* szName;
  const char* szThread;  // name of a thread that opens it; null keeps its own
  ELensDevice eDevice;
};
constexpr TDevice g_atDevices[] = {
    {"/dev/focusmotor", "focusmotor", "focus", DEVICE_FOCUS_MOTOR},
    {"/dev/zoommotor", "zoommotor", "zoom", DEVICE_ZOOM_MOTOR},
    {"/dev/icsdriver", "icsdriver", nullptr, DEVICE_ICS},
    {"/dev/i2c-2", "i2c-2", nullptr, DEVICE_I2C},
};
}  // namespace

int Hook_ioctl(int fd, unsigned long qwRequest, ...) asm("ioctl");
int Hook_ioctl_time64(int fd, unsigned long qwRequest, ...) asm("__ioctl_time64");

static const TDevice& DeviceOf(ELensDevice eDevice) {
  for (const TDevice& tDevice : g_atDevices) {
    if (tDevice.eDevice == eDevice) return tDevice;
  }
  __builtin_unreachable();
}

bool Device_Find(const char* pszPath, ELensDevice* peDevice) {
  if (!Hooks_Active() || pszPath == nullptr || pszPath[0] != '/') return false;
  TInside tInside;
  for (const TDevice& tDevice : g_atDevices) {
    if (strcmp(pszPath, tDevice.szPath) != 0) continue;
    *peDevice = tDevice.eDevice;
    return true;
  }
  return false;
}

static bool IsFitted(const TWorld& tWorld, ELensDevice eDevice) {
  const TLens& tLens = tWorld.tLens;
  switch (eDevice) {
    case DEVICE_FOCUS_MOTOR:
      return tLens.bICS != 0 || tLens.atModel[LENS_FOCUS].bPresent != 0;
    case DEVICE_ZOOM_MOTOR:
      return tLens.bICS == 0 && tLens.atModel[LENS_ZOOM].bPresent != 0;
    case DEVICE_ICS:
      return tLens.bICS != 0;
    case DEVICE_I2C:
      return tWorld.tI2C.eFault != SENSOR_ABSENT;
  }
  return false;
}

i32 Device_Open(ELensDevice eDevice, const char* pszPath, i32 iFlags) {
  const TDevice& tDevice = DeviceOf(eDevice);
  if (tDevice.szThread != nullptr && strcmp(Clock_TaskName(), "main") != 0) {
    Clock_NameTask(tDevice.szThread);
  }
  if (!IsFitted(*Clock_World(), eDevice)) {
    Transcript_Fact("open %s = -1 ENOENT", pszPath);
    errno = ENOENT;
    return -1;
  }
  const i32 fd = g_realOpen("/dev/null", iFlags & (O_ACCMODE | O_CLOEXEC));
  TDescriptor* ptDescriptor = Hooks_Descriptor(fd);
  if (ptDescriptor == nullptr) return fd;
  TInside tInside;
  *ptDescriptor = {
      .eKind = DESCRIPTOR_DEVICE, .eDevice = eDevice, .bWritten = false, .szPath = "", .pfnClosed = nullptr};
  snprintf(ptDescriptor->szPath, sizeof ptDescriptor->szPath, "%s", pszPath);
  Transcript_Fact("open %s", pszPath);
  return fd;
}

// The true rotor of the motor's selected channel, as the line's end; of an ICS lens's driver, that the thread held a
// mutex.
static void SayRotor(char (&szRotor)[32], const TLens& tLens, ELensDevice eDevice) {
  szRotor[0] = '\0';
  if (eDevice == DEVICE_ICS && Hooks_HeldMutexes() > 0) snprintf(szRotor, sizeof szRotor, " locked");
  if (eDevice != DEVICE_FOCUS_MOTOR && eDevice != DEVICE_ZOOM_MOTOR) return;
  const ELensAxis eAxis = eDevice == DEVICE_ZOOM_MOTOR ? LENS_ZOOM : LENS_FOCUS;
  if (tLens.bICS != 0) {
    snprintf(szRotor, sizeof szRotor, " rotor %d", tLens.tParkAxis.iRotor);
    return;
  }
  const u32 dwChannel = tLens.adwSelected[eAxis];
  if (dwChannel >= static_cast<u32>(iLensChannels)) return;
  snprintf(szRotor, sizeof szRotor, " rotor %d", tLens.atAxis[dwChannel][eAxis].iRotor);
}

static void WaitForDriver(u64 qwUntil_us) {
  while (Clock_Now_us() < qwUntil_us) Clock_Wait({.qwUntil_us = qwUntil_us});
}

i32 Device_Request(i32 fd, u32 dwRequest, i32 iArgument) {
  const ELensDevice eDevice = Hooks_Descriptor(fd)->eDevice;
  TInside tInside;
  TWorld* ptWorld = Clock_World();
  const bool bArgument = Lens_RequestHasArgument(eDevice, dwRequest);
  World_Lock(ptWorld);
  ptWorld->tLens.iAD = ICSOptics_AD(ptWorld->dTemperature_C);
  const TDriverAnswer tAnswer =
      Lens_Request(&ptWorld->tLens, eDevice, dwRequest, bArgument ? iArgument : 0, Clock_Now_us());
  World_Unlock(ptWorld);
  WaitForDriver(tAnswer.qwUntil_us);

  char szRotor[32];
  World_Lock(ptWorld);
  Lens_Settle(&ptWorld->tLens, Clock_Now_us());
  SayRotor(szRotor, ptWorld->tLens, eDevice);
  World_Unlock(ptWorld);
  char szRequest[64];
  const char* pszName = Lens_RequestName(eDevice, dwRequest);
  if (pszName != nullptr)
    snprintf(szRequest, sizeof szRequest, "%s", pszName);
  else
    snprintf(szRequest, sizeof szRequest, "0x%08X", dwRequest);
  char szArgument[16] = "";
  if (bArgument) snprintf(szArgument, sizeof szArgument, " %d", iArgument);
  Transcript_Fact("%s %s%s = %d%s", DeviceOf(eDevice).szName, szRequest, szArgument, tAnswer.iResult, szRotor);
  return tAnswer.iResult < 0 ? -(tAnswer.iErrno != 0 ? tAnswer.iErrno : EIO) : tAnswer.iResult;
}

static i32 Ioctl(TReal<int(int, unsigned long, ...)>& tReal, i32 fd, unsigned long qwRequest, void* pvArgument) {
  const TDescriptor* ptDescriptor = Hooks_Descriptor(fd);
  const bool bDevice = ptDescriptor != nullptr && ptDescriptor->eKind == DESCRIPTOR_DEVICE;
  if (!bDevice || !Hooks_Active()) return tReal(fd, qwRequest, pvArgument);
  Hooks_Point("ioctl");
  const u32 dwRequest = static_cast<u32>(qwRequest);
  const i32 iResult = I2C_IsBus(fd)
                          ? I2C_Request(fd, dwRequest, pvArgument)
                          : Device_Request(fd, dwRequest, static_cast<i32>(reinterpret_cast<intptr_t>(pvArgument)));
  if (iResult >= 0) return iResult;
  errno = -iResult;
  return -1;
}

int Hook_ioctl(int fd, unsigned long qwRequest, ...) {
  va_list tArgs;
  va_start(tArgs, qwRequest);
  void* pvArgument = va_arg(tArgs, void*);
  va_end(tArgs);
  return Ioctl(g_realIoctl, fd, qwRequest, pvArgument);
}

int Hook_ioctl_time64(int fd, unsigned long qwRequest, ...) {
  va_list tArgs;
  va_start(tArgs, qwRequest);
  void* pvArgument = va_arg(tArgs, void*);
  va_end(tArgs);
  return Ioctl(g_realIoctlTime64, fd, qwRequest, pvArgument);
}
