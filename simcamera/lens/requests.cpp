// The requests that the simulated drivers know: each one's name, and whether it has an argument.
#include <cstddef>

#include "lens/lens.h"
#include "motor/motor_device.h"

namespace {

struct TRequestRow {
  u32 dwRequest;
  bool bHasArgument;
  const char* pszName;
};

constexpr TRequestRow g_atStepperRequests[] = {
    {MOTOR_SET_FORWARD, false, "MOTOR_SET_FORWARD"},
    {MOTOR_SET_BACKWARD, false, "MOTOR_SET_BACKWARD"},
    {MOTOR_WALK_STEPS, true, "MOTOR_WALK_STEPS"},
    {MOTOR_STOP_WALK, false, "MOTOR_STOP_WALK"},
    {MOTOR_WALK_STEPS_BLOCK, true, "MOTOR_WALK_STEPS_BLOCK"},
    {MOTOR_SEARCH_PI, true, "MOTOR_SEARCH_PI"},
    {MOTOR_CHECK_PI_WALK_STEPS, true, "MOTOR_CHECK_PI_WALK_STEPS"},
    {MOTOR_SELECT_DEVICE, true, "MOTOR_SELECT_DEVICE"},
    {MOTOR_SET_PI_POWER_ON, false, "MOTOR_SET_PI_POWER_ON"},
    {MOTOR_SET_PI_POWER_OFF, false, "MOTOR_SET_PI_POWER_OFF"},
};

// MOTOR_SELECT_DEVICE is here only for its name: the daemon sends it to this device too, which does not know it.
constexpr TRequestRow g_atICSRequests[] = {
    {ICS_GET_FOCUS_PI_POSITION, false, "ICS_GET_FOCUS_PI_POSITION"},
    {ICS_GET_ZOOM_PI_POSITION, false, "ICS_GET_ZOOM_PI_POSITION"},
    {ICS_GET_FOCUS_POSITION, false, "ICS_GET_FOCUS_POSITION"},
    {ICS_GET_ZOOM_POSITION, false, "ICS_GET_ZOOM_POSITION"},
    {ICS_GET_ZOOM_MIN, false, "ICS_GET_ZOOM_MIN"},
    {ICS_GET_ZOOM_MAX, false, "ICS_GET_ZOOM_MAX"},
    {ICS_GET_FOCUS_SPEED, false, "ICS_GET_FOCUS_SPEED"},
    {ICS_GET_ZOOM_SPEED, false, "ICS_GET_ZOOM_SPEED"},
    {ICS_GET_FOCUS_HOME, false, "ICS_GET_FOCUS_HOME"},
    {ICS_GET_ZOOM_HOME, false, "ICS_GET_ZOOM_HOME"},
    {ICS_INIT_STEP_A, false, "ICS_INIT_STEP_A"},
    {ICS_INIT_STEP_B, false, "ICS_INIT_STEP_B"},
    {ICS_SET_FOCUS_POSITION, true, "ICS_SET_FOCUS_POSITION"},
    {ICS_SET_ZOOM_POSITION, true, "ICS_SET_ZOOM_POSITION"},
    {ICS_SET_FOCUS_SPEED, true, "ICS_SET_FOCUS_SPEED"},
    {ICS_SET_ZOOM_SPEED, true, "ICS_SET_ZOOM_SPEED"},
    {ICS_GET_AD_VALUE, false, "ICS_GET_AD_VALUE"},
    {ICS_GET_MIN_AD, false, "ICS_GET_MIN_AD"},
    {ICS_GET_MAX_AD, false, "ICS_GET_MAX_AD"},
    {ICS_GET_FOCUS_MIN, false, "ICS_GET_FOCUS_MIN"},
    {ICS_GET_FOCUS_MAX, false, "ICS_GET_FOCUS_MAX"},
    {ICS_CHECK_DETACHED, true, "ICS_CHECK_DETACHED"},
    {MOTOR_SELECT_DEVICE, true, "MOTOR_SELECT_DEVICE"},
};

template <size_t N>
const TRequestRow* FindRow(const TRequestRow (&atRows)[N], u32 dwRequest) {
  for (const TRequestRow& tRow : atRows) {
    if (tRow.dwRequest == dwRequest) return &tRow;
  }
  return nullptr;
}

const TRequestRow* FindRequest(ELensDevice eDevice, u32 dwRequest) {
  switch (eDevice) {
    case DEVICE_FOCUS_MOTOR:
    case DEVICE_ZOOM_MOTOR:
      return FindRow(g_atStepperRequests, dwRequest);
    case DEVICE_ICS:
      return FindRow(g_atICSRequests, dwRequest);
    case DEVICE_I2C:
      break;
  }
  return nullptr;
}

}  // namespace

bool Lens_RequestHasArgument(ELensDevice eDevice, u32 dwRequest) {
  const TRequestRow* ptRow = FindRequest(eDevice, dwRequest);
  return ptRow != nullptr && ptRow->bHasArgument;
}

const char* Lens_RequestName(ELensDevice eDevice, u32 dwRequest) {
  const TRequestRow* ptRow = FindRequest(eDevice, dwRequest);
  return ptRow == nullptr ? nullptr : ptRow->pszName;
}
