// A thin layer over a Linux i2c-dev bus device: it opens a bus, selects a slave and moves register bytes.
//
// An object belongs to one thread at a time, nothing here locks.  Every transfer blocks for as long as the bus takes,
// and nothing is tried again.  0; -1 with a line printed, what the caller gave is then unchanged, but for a block of
// bytes that was read in part.  Pointers are borrowed for the call; a null one is refused.
//
// dwAddress is the 8-bit bus form, 0 to 0xFE: the 7-bit slave address shifted left by one.  So 0xE2 is slave 0x71.
// Of dwReg only as many low bytes count as the operation sends.  Words and registers go over the bus high byte first.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/types.h"

constexpr u32 dwIICVersion = 0x2000001;
constexpr u32 dwIICModeNoStop = 5;         // a register is read in one transfer, with a repeated start
constexpr u32 dwIICMaxLengthEnd = 1024;    // dwMaxLength is below it
constexpr u32 dwIICMaxTransfer = 8192;     // bytes of one message; the kernel takes no more
constexpr u32 dwIICMaxRegisterLength = 4;  // bytes

struct TIICCtrlOption {
  u32 dwVersion;          // dwIICVersion
  u32 dwMode;             // dwIICModeNoStop is the only one that the daemon opens
  u32 dwMaxLength;        // bytes, longest data of IICCtrl_WriteBytes; at most 1023
  u32 dwReserved;         // kept, never read; 0
  const char* pszDevice;  // the bus device; null: szIICPath
};
static_assert(offsetof(TIICCtrlOption, dwReserved) == 12 && offsetof(TIICCtrlOption, pszDevice) == 16 &&
              sizeof(TIICCtrlOption) == 16 + sizeof(void*));

struct TIICCtrl {
  u32 dwMode;
  u32 dwMaxLength;
  u32 dwReserved;
  i32 fdDevice;
};
static_assert(offsetof(TIICCtrl, fdDevice) == 12 && sizeof(TIICCtrl) == 16);

// Opens the bus and fills the slot, to be given back by IICCtrl_Release; a slot is written on success only.
i32 IICCtrl_Initial(TIICCtrl** phIIC, const TIICCtrlOption* ptOption);

// Closes, frees, clears the slot.  -1, without a line: a null slot, or one that holds null.
i32 IICCtrl_Release(TIICCtrl** phIIC);

// The 4 bytes of dwIICVersion, low byte first.  -1, without a line: null.
i32 IICCtrl_GetVersion(u8* pbyVersion);

// A register of one byte or of one word.  Modes other than dwIICModeNoStop read a byte without sending dwReg, that is
// from the register that the slave was last told of, while they do send it before a word.
i32 IICCtrl_ReadByte(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u8* pbyData);
i32 IICCtrl_ReadWord(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, std::uint16_t* pwData);
i32 IICCtrl_WriteByte(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u8 byData);
i32 IICCtrl_WriteWord(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, std::uint16_t wData);

// The same reads in one transfer, whatever the mode.
i32 IICCtrl_NoStopReadReg(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u8* pbyData);
i32 IICCtrl_NoStopReadWord(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, std::uint16_t* pwData);

// Bytes from a register on, which is sent in a transfer of its own, and to it.  What is written has at most the
// object's dwMaxLength bytes; the kernel reads at most dwIICMaxTransfer, more ends as a short read.
i32 IICCtrl_ReadBytes(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u32 dwLength, u8* pbyData);
i32 IICCtrl_WriteBytes(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u32 dwLength, const u8* pbyData);

// The same with a register number of dwRegLength bytes, 0 to dwIICMaxRegisterLength.  With 0 no register is sent:
// ReadReg only reads, WriteReg sends the data alone.  One message has at most dwIICMaxTransfer bytes, register bytes
// included.  dwStopMode is 1, register and data in transfers of their own.
i32 IICCtrl_ReadReg(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u32 dwRegLength, u8* pbyData, u32 dwLength,
                    u32 dwStopMode);
i32 IICCtrl_WriteReg(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u32 dwRegLength, const u8* pbyData, u32 dwLength);

// One byte of a register with a number of 2 bytes.
i32 IICCtrl_ReadReg16(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u8* pbyData);
i32 IICCtrl_WriteReg16(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u8 byData);
