#include "temperature/iic_ctrl.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "core/fail.h"
#include "core/paths.h"

namespace {

constexpr const char* szInvalidArgument = "Invalid Argument!";
constexpr const char* szInvalidHandle = "Invalid Handle!";
constexpr const char* szWriteFailed = "i2c write failed.";
constexpr const char* szReadFailed = "i2c read failed.";

// Printed to standard error when the kernel refuses the slave.  Both texts belong to the same request.
constexpr const char* szSlaveRefused = "ioctl I2C_SLAVE error!\n";
constexpr const char* szWordSlaveRefused = "ioctl I2C_SLAVE_FORCE error!\n";

constexpr u32 dwTwoTransfers = 1;  // the only dwStopMode that works

// A register number as it goes over the bus: high byte first, 0 to dwIICMaxRegisterLength bytes.
struct TRegister {
  std::array<u8, dwIICMaxRegisterLength> abyNumber;
  u32 dwLength;
};

TRegister Register(u32 dwReg, u32 dwLength);
std::uint16_t Word(const std::array<u8, 2>& abyWord);
i32 SelectSlave(const TIICCtrl& tIIC, u32 dwAddress, const char* szRefused);
i32 WriteSlave(const TIICCtrl& tIIC, const u8* pbyData, std::size_t dwLength);
i32 ReadSlave(const TIICCtrl& tIIC, u8* pbyData, std::size_t dwLength);
i32 WriteRegister(const TIICCtrl& tIIC, const TRegister& tRegister, const u8* pbyData, u32 dwLength);
i32 ReadRegister(const TIICCtrl& tIIC, const TRegister& tRegister, u8* pbyData, u32 dwLength);
i32 ReadInOneTransfer(const TIICCtrl& tIIC, u32 dwAddress, u32 dwReg, u8* pbyData, std::uint16_t wLength);

}  // namespace

i32 IICCtrl_Initial(TIICCtrl** phIIC, const TIICCtrlOption* ptOption) {
  if (phIIC == nullptr || ptOption == nullptr || ptOption->dwMaxLength >= dwIICMaxLengthEnd) {
    return Fail(szInvalidArgument);
  }
  if (ptOption->dwVersion != dwIICVersion) return Fail("Version Mismatch!");
  auto* ptIIC = static_cast<TIICCtrl*>(std::calloc(1, sizeof(TIICCtrl)));
  if (ptIIC == nullptr) return Fail("malloc error");
  const char* pszDevice = ptOption->pszDevice != nullptr ? ptOption->pszDevice : szIICPath;
  const i32 fd = open(pszDevice, O_RDWR | O_CLOEXEC);
  if (fd < 0) {
    std::printf("open %s error!\n", pszDevice);
    std::free(ptIIC);
    return -1;
  }
  *ptIIC = {.dwMode = ptOption->dwMode,
            .dwMaxLength = ptOption->dwMaxLength,
            .dwReserved = ptOption->dwReserved,
            .fdDevice = fd};
  *phIIC = ptIIC;
  return 0;
}

i32 IICCtrl_Release(TIICCtrl** phIIC) {
  if (phIIC == nullptr || *phIIC == nullptr) return -1;
  close((*phIIC)->fdDevice);
  std::free(*phIIC);
  *phIIC = nullptr;
  return 0;
}

i32 IICCtrl_GetVersion(u8* pbyVersion) {
  if (pbyVersion == nullptr) return -1;
  for (u32 i = 0; i < sizeof dwIICVersion; i++) pbyVersion[i] = static_cast<u8>(dwIICVersion >> (8 * i));
  return 0;
}

i32 IICCtrl_ReadByte(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u8* pbyData) {
  if (ptIIC == nullptr) return Fail(szInvalidHandle);
  if (ptIIC->dwMode == dwIICModeNoStop) return IICCtrl_NoStopReadReg(ptIIC, dwAddress, dwReg, pbyData);
  if (pbyData == nullptr) return Fail(szInvalidArgument);
  if (SelectSlave(*ptIIC, dwAddress, szSlaveRefused) != 0) return -1;
  return ReadSlave(*ptIIC, pbyData, 1);
}

i32 IICCtrl_ReadWord(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, std::uint16_t* pwData) {
  if (ptIIC == nullptr) return Fail(szInvalidHandle);
  if (ptIIC->dwMode == dwIICModeNoStop) return IICCtrl_NoStopReadWord(ptIIC, dwAddress, dwReg, pwData);
  if (pwData == nullptr) return Fail(szInvalidArgument);
  if (SelectSlave(*ptIIC, dwAddress, szWordSlaveRefused) != 0) return -1;
  std::array<u8, 2> abyWord = {};
  if (ReadRegister(*ptIIC, Register(dwReg, 1), abyWord.data(), abyWord.size()) != 0) return -1;
  *pwData = Word(abyWord);
  return 0;
}

i32 IICCtrl_WriteByte(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u8 byData) {
  return IICCtrl_WriteReg(ptIIC, dwAddress, dwReg, 1, &byData, 1);
}

i32 IICCtrl_WriteWord(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, std::uint16_t wData) {
  if (ptIIC == nullptr) return Fail(szInvalidHandle);
  if (SelectSlave(*ptIIC, dwAddress, szWordSlaveRefused) != 0) return -1;
  const std::array<u8, 2> abyWord = {static_cast<u8>(wData >> 8), static_cast<u8>(wData)};
  return WriteRegister(*ptIIC, Register(dwReg, 1), abyWord.data(), abyWord.size());
}

i32 IICCtrl_NoStopReadReg(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u8* pbyData) {
  if (ptIIC == nullptr) return Fail(szInvalidHandle);
  if (pbyData == nullptr) return Fail(szInvalidArgument);
  u8 byData = 0;
  if (ReadInOneTransfer(*ptIIC, dwAddress, dwReg, &byData, sizeof byData) != 0) return -1;
  *pbyData = byData;
  return 0;
}

i32 IICCtrl_NoStopReadWord(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, std::uint16_t* pwData) {
  if (ptIIC == nullptr) return Fail(szInvalidHandle);
  if (pwData == nullptr) return Fail(szInvalidArgument);
  std::array<u8, 2> abyWord = {};
  if (ReadInOneTransfer(*ptIIC, dwAddress, dwReg, abyWord.data(), abyWord.size()) != 0) return -1;
  *pwData = Word(abyWord);
  return 0;
}

i32 IICCtrl_ReadBytes(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u32 dwLength, u8* pbyData) {
  if (ptIIC == nullptr) return Fail(szInvalidHandle);
  if (pbyData == nullptr) return Fail(szInvalidArgument);
  if (SelectSlave(*ptIIC, dwAddress, szSlaveRefused) != 0) return -1;
  return ReadRegister(*ptIIC, Register(dwReg, 1), pbyData, dwLength);
}

i32 IICCtrl_WriteBytes(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u32 dwLength, const u8* pbyData) {
  if (ptIIC == nullptr) return Fail(szInvalidHandle);
  if (dwLength > ptIIC->dwMaxLength) return Fail("Invalid dwLength!");
  return IICCtrl_WriteReg(ptIIC, dwAddress, dwReg, 1, pbyData, dwLength);
}

i32 IICCtrl_ReadReg(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u32 dwRegLength, u8* pbyData, u32 dwLength,
                    u32 dwStopMode) {
  if (ptIIC == nullptr) return Fail(szInvalidHandle);
  if (dwLength > dwIICMaxTransfer) return Fail("Data size is limited to 8192 bytes!");
  if (dwStopMode != dwTwoTransfers) {
    return Fail("Not support \"Combined R/W transfer (one stop only).\" Use IICCtrl_NoStopReadReg() instead.");
  }
  if (dwRegLength > dwIICMaxRegisterLength) return Fail("Available length of Reg Address is between 1~4 bytes");
  if (pbyData == nullptr) return Fail(szInvalidArgument);
  if (SelectSlave(*ptIIC, dwAddress, szSlaveRefused) != 0) return -1;
  return ReadRegister(*ptIIC, Register(dwReg, dwRegLength), pbyData, dwLength);
}

i32 IICCtrl_WriteReg(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u32 dwRegLength, const u8* pbyData, u32 dwLength) {
  if (ptIIC == nullptr) return Fail(szInvalidHandle);
  if (u64{dwRegLength} + dwLength > dwIICMaxTransfer) {
    std::printf("Data size is limited to %d bytes!\n", static_cast<i32>(dwIICMaxTransfer - dwRegLength));
    return -1;
  }
  if (dwRegLength > dwIICMaxRegisterLength) return Fail("Available length of Reg Address is between 0~4 bytes");
  if (pbyData == nullptr) return Fail(szInvalidArgument);
  if (SelectSlave(*ptIIC, dwAddress, szSlaveRefused) != 0) return -1;
  return WriteRegister(*ptIIC, Register(dwReg, dwRegLength), pbyData, dwLength);
}

i32 IICCtrl_ReadReg16(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u8* pbyData) {
  if (pbyData == nullptr) return Fail("No memory allocated for read data!");
  return IICCtrl_ReadReg(ptIIC, dwAddress, dwReg, 2, pbyData, 1, dwTwoTransfers);
}

i32 IICCtrl_WriteReg16(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u8 byData) {
  return IICCtrl_WriteReg(ptIIC, dwAddress, dwReg, 2, &byData, 1);
}

namespace {

TRegister Register(u32 dwReg, u32 dwLength) {
  TRegister tRegister = {.abyNumber = {}, .dwLength = dwLength};
  for (u32 i = 0; i < dwLength; i++) tRegister.abyNumber[i] = static_cast<u8>(dwReg >> (8 * (dwLength - 1 - i)));
  return tRegister;
}

std::uint16_t Word(const std::array<u8, 2>& abyWord) {
  return static_cast<std::uint16_t>(abyWord[0] << 8 | abyWord[1]);
}

// Selects the slave for the reads and writes that follow on the descriptor.  The request must be the forced one: if a
// sensor driver of the kernel has bound the slave, the kernel refuses the plain one.
i32 SelectSlave(const TIICCtrl& tIIC, u32 dwAddress, const char* szRefused) {
  if (ioctl(tIIC.fdDevice, I2C_SLAVE_FORCE, static_cast<unsigned long>(dwAddress >> 1)) >= 0) return 0;
  std::fputs(szRefused, stderr);
  return -1;
}

i32 WriteSlave(const TIICCtrl& tIIC, const u8* pbyData, std::size_t dwLength) {
  const ssize_t iWritten = write(tIIC.fdDevice, pbyData, dwLength);
  return iWritten == static_cast<ssize_t>(dwLength) ? 0 : Fail(szWriteFailed);
}

i32 ReadSlave(const TIICCtrl& tIIC, u8* pbyData, std::size_t dwLength) {
  const ssize_t iRead = read(tIIC.fdDevice, pbyData, dwLength);
  return iRead == static_cast<ssize_t>(dwLength) ? 0 : Fail(szReadFailed);
}

// Sends number and data in one message, so in one write.  Together they have at most dwIICMaxTransfer bytes.
i32 WriteRegister(const TIICCtrl& tIIC, const TRegister& tRegister, const u8* pbyData, u32 dwLength) {
  std::array<u8, dwIICMaxTransfer> abyMessage;
  u8* pbyAfterNumber = std::copy_n(tRegister.abyNumber.data(), tRegister.dwLength, abyMessage.data());
  std::copy_n(pbyData, dwLength, pbyAfterNumber);
  return WriteSlave(tIIC, abyMessage.data(), std::size_t{tRegister.dwLength} + dwLength);
}

i32 ReadRegister(const TIICCtrl& tIIC, const TRegister& tRegister, u8* pbyData, u32 dwLength) {
  if (tRegister.dwLength > 0 && WriteSlave(tIIC, tRegister.abyNumber.data(), tRegister.dwLength) != 0) return -1;
  return ReadSlave(tIIC, pbyData, dwLength);
}

// Sends the register number and reads the data.  The repeated start between them keeps other bus masters out.
i32 ReadInOneTransfer(const TIICCtrl& tIIC, u32 dwAddress, u32 dwReg, u8* pbyData, std::uint16_t wLength) {
  u8 byReg = static_cast<u8>(dwReg);
  const auto wSlave = static_cast<std::uint16_t>(dwAddress >> 1);
  i2c_msg atMessages[] = {{.addr = wSlave, .flags = 0, .len = sizeof byReg, .buf = &byReg},
                          {.addr = wSlave, .flags = I2C_M_RD, .len = wLength, .buf = pbyData}};
  i2c_rdwr_ioctl_data tTransfer = {.msgs = atMessages, .nmsgs = std::size(atMessages)};
  return ioctl(tIIC.fdDevice, I2C_RDWR, &tTransfer) >= 0 ? 0 : Fail(szReadFailed);
}

}  // namespace
