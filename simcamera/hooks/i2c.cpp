#include "hooks/i2c.h"

#include <errno.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <string.h>

#include <span>

#include "hooks/hooks.h"

namespace {

// Limits of the kernel's driver.
constexpr u32 dwMaxLength = 8192;
constexpr u32 dwMaxAddress = 0x7F;
static_assert(I2C_RDWR_IOCTL_MAX_MSGS == 42);

constexpr u32 dwShown = 8;  // bytes of a message that a line of the transcript has room for

// A line's end: what the messages moved.
struct TBytes {
  char szText[256] = "";
  size_t iLength = 0;

  [[gnu::format(printf, 2, 3)]] void Add(const char* szFormat, ...) {
    va_list tArgs;
    va_start(tArgs, szFormat);
    const i32 iAdded = vsnprintf(szText + iLength, sizeof szText - iLength, szFormat, tArgs);
    va_end(tArgs);
    iLength = iLength + static_cast<size_t>(iAdded) < sizeof szText ? iLength + static_cast<size_t>(iAdded)
                                                                    : sizeof szText - 1;
  }
};

// "w0122", "r19", or of a read that failed "r" alone.
void AddMessage(TBytes& tBytes, const TI2CMessage& tMessage, u32 dwMoved) {
  tBytes.Add("%s", tMessage.bRead ? " r" : " w");
  for (u32 i = 0; i < dwMoved && i < dwShown; ++i) tBytes.Add("%02x", tMessage.pbyData[i]);
  if (dwMoved > dwShown) tBytes.Add("..");
}

const char* ErrorName(i32 iErrno) {
  return iErrno == ENXIO ? "ENXIO" : iErrno == EIO ? "EIO" : iErrno == EINVAL ? "EINVAL" : "ENOTTY";
}

void SayTransfer(const char* szCall, u32 dwAddress, const TBytes& tBytes, i32 iResult) {
  if (iResult >= 0)
    Transcript_Fact("i2c-2 %s %02x%s = %d", szCall, dwAddress, tBytes.szText, iResult);
  else
    Transcript_Fact("i2c-2 %s %02x%s = -1 %s", szCall, dwAddress, tBytes.szText, ErrorName(-iResult));
}

i32 FailBelow0(i32 iResult) {
  if (iResult >= 0) return iResult;
  errno = -iResult;
  return -1;
}

i32 ChooseSlave(TDescriptor& tDescriptor, u64 qwAddress) {
  const i32 iResult = qwAddress <= dwMaxAddress ? 0 : -EINVAL;
  if (iResult == 0) tDescriptor.dwSlave = static_cast<u32>(qwAddress);
  SayTransfer("SLAVE", static_cast<u32>(qwAddress), {}, iResult);
  return iResult;
}

i32 Message(const char* szCall, const TI2CMessage& tMessage) {
  TWorld* ptWorld = Clock_World();
  World_Lock(ptWorld);
  const i32 iResult = I2CBus_Message(&ptWorld->tI2C, ptWorld->dTemperature_C, tMessage);
  World_Unlock(ptWorld);
  TBytes tBytes;
  const u32 dwMoved = iResult >= 0 ? static_cast<u32>(iResult) : tMessage.bRead ? 0 : tMessage.dwLength;
  AddMessage(tBytes, tMessage, dwMoved);
  SayTransfer(szCall, tMessage.dwAddress, tBytes, iResult);
  return iResult;
}

i32 Combined(const i2c_rdwr_ioctl_data* ptData) {
  if (ptData == nullptr || ptData->msgs == nullptr || ptData->nmsgs == 0 || ptData->nmsgs > I2C_RDWR_IOCTL_MAX_MSGS) {
    return -EINVAL;
  }
  TI2CMessage atMessages[I2C_RDWR_IOCTL_MAX_MSGS];
  for (u32 i = 0; i < ptData->nmsgs; ++i) {
    const i2c_msg& tMessage = ptData->msgs[i];
    if (tMessage.len > dwMaxLength) return -EINVAL;
    atMessages[i] = {.bRead = (tMessage.flags & I2C_M_RD) != 0,
                     .dwAddress = tMessage.addr,
                     .pbyData = tMessage.buf,
                     .dwLength = tMessage.len};
  }
  const std::span<const TI2CMessage> atTransfer(atMessages, ptData->nmsgs);
  TWorld* ptWorld = Clock_World();
  World_Lock(ptWorld);
  const i32 iResult = I2CBus_Combined(&ptWorld->tI2C, ptWorld->dTemperature_C, atTransfer);
  World_Unlock(ptWorld);
  TBytes tBytes;
  for (const TI2CMessage& tMessage : atTransfer) {
    AddMessage(tBytes, tMessage, iResult >= 0 || !tMessage.bRead ? tMessage.dwLength : 0);
  }
  SayTransfer("RDWR", atMessages[0].dwAddress, tBytes, iResult);
  return iResult;
}

}  // namespace

bool I2C_IsBus(i32 fd) {
  const TDescriptor* ptDescriptor = Hooks_Active() ? Hooks_Descriptor(fd) : nullptr;
  return ptDescriptor != nullptr && ptDescriptor->eKind == DESCRIPTOR_DEVICE && ptDescriptor->eDevice == DEVICE_I2C;
}

i32 I2C_Request(i32 fd, u32 dwRequest, void* pvArgument) {
  TInside tInside;
  TDescriptor& tDescriptor = *Hooks_Descriptor(fd);
  switch (dwRequest) {
    case I2C_SLAVE:  // the kernel's own drivers have bound all of them
      Transcript_Fact("i2c-2 SLAVE = -1 EBUSY");
      return -EBUSY;
    case I2C_SLAVE_FORCE:
      return ChooseSlave(tDescriptor, reinterpret_cast<uintptr_t>(pvArgument));
    case I2C_RDWR:
      return Combined(static_cast<const i2c_rdwr_ioctl_data*>(pvArgument));
    default:
      Transcript_Fact("i2c-2 0x%08X = -1 ENOTTY", dwRequest);
      return -ENOTTY;
  }
}

ssize_t I2C_Read(i32 fd, void* pv, size_t iLength) {
  Hooks_Point("read");
  i32 iResult = 0;
  {
    TInside tInside;
    iResult = Message("read", {.bRead = true,
                               .dwAddress = Hooks_Descriptor(fd)->dwSlave,
                               .pbyData = static_cast<u8*>(pv),
                               .dwLength = iLength < dwMaxLength ? static_cast<u32>(iLength) : dwMaxLength});
  }
  return FailBelow0(iResult);
}

ssize_t I2C_Write(i32 fd, const void* pv, size_t iLength) {
  Hooks_Point("write");
  i32 iResult = 0;
  {
    TInside tInside;
    iResult = Message("write", {.bRead = false,
                                .dwAddress = Hooks_Descriptor(fd)->dwSlave,
                                .pbyData = static_cast<u8*>(const_cast<void*>(pv)),
                                .dwLength = iLength < dwMaxLength ? static_cast<u32>(iLength) : dwMaxLength});
  }
  return FailBelow0(iResult);
}
