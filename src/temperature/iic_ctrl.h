// A thin layer over a Linux i2c-dev bus device: it opens a bus, selects a slave and moves register bytes.
//
// An object belongs to one thread at a time; nothing here locks.  Every transfer blocks for as long as the bus takes,
// and nothing is tried again.  Operations return 0, or -1 with a line printed.  After -1 the caller's data are as they
// were, except a block of bytes that was read in part.  Pointers are borrowed for the call; a null one is refused.
//
// dwAddress is the 8-bit bus form, 0 to 0xFE: the 7-bit slave address shifted left by one.  So 0xE2 is slave 0x71.
// An operation uses as many low bytes of dwReg as it sends.  Words and register numbers are sent high byte first.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/types.h"

constexpr u32 dwIICVersion = 0x2000001;
constexpr u32 dwIICModeNoStop = 5;         // a register is read in one transfer, with a repeated start
constexpr u32 dwIICMaxLengthEnd = 1024;    // dwMaxLength must be below it
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

// Opens the bus and puts a new object into the slot, which is written on success only.  IICCtrl_Release frees it.
i32 IICCtrl_Initial(TIICCtrl** phIIC, const TIICCtrlOption* ptOption);

// Closes the bus, frees the object and clears the slot.  Returns -1, without a line, if there is no slot or no object.
i32 IICCtrl_Release(TIICCtrl** phIIC);

// Gives the 4 bytes of dwIICVersion, low byte first.  Returns -1, without a line, for a null pointer.  The daemon
// itself does not call this.
i32 IICCtrl_GetVersion(u8* pbyVersion);

// Read and write a register of one byte or one word.  In modes other than dwIICModeNoStop, IICCtrl_ReadByte does not
// send dwReg, so it reads the register that the slave was told of last; IICCtrl_ReadWord does send it.  The daemon
// itself does not call the two operations on words.
i32 IICCtrl_ReadByte(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u8* pbyData);
i32 IICCtrl_ReadWord(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, std::uint16_t* pwData);
i32 IICCtrl_WriteByte(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u8 byData);
i32 IICCtrl_WriteWord(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, std::uint16_t wData);

// Read a register of one byte or one word in one transfer, whatever the mode.  IICCtrl_ReadByte and IICCtrl_ReadWord
// use these; the daemon itself does not call them directly.
i32 IICCtrl_NoStopReadReg(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u8* pbyData);
i32 IICCtrl_NoStopReadWord(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, std::uint16_t* pwData);

// Read and write dwLength bytes that begin at a register.  IICCtrl_ReadBytes sends the register number in a transfer of
// its own.  The kernel reads at most dwIICMaxTransfer bytes at once, so a longer read fails.  IICCtrl_WriteBytes takes
// at most the object's dwMaxLength bytes; the daemon itself does not call it.
i32 IICCtrl_ReadBytes(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u32 dwLength, u8* pbyData);
i32 IICCtrl_WriteBytes(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u32 dwLength, const u8* pbyData);

// Read and write dwLength bytes at a register whose number has dwRegLength bytes, 0 to dwIICMaxRegisterLength.  With 0
// no number is sent: IICCtrl_ReadReg only reads, IICCtrl_WriteReg sends the data alone.  One message has at most
// dwIICMaxTransfer bytes, the number included.  dwStopMode must be 1: number and data in separate transfers.
// The daemon itself does not call these; IICCtrl_WriteByte uses IICCtrl_WriteReg.
i32 IICCtrl_ReadReg(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u32 dwRegLength, u8* pbyData, u32 dwLength,
                    u32 dwStopMode);
i32 IICCtrl_WriteReg(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u32 dwRegLength, const u8* pbyData, u32 dwLength);

// Read and write one byte of a register whose number has 2 bytes.  The daemon itself does not call these.
i32 IICCtrl_ReadReg16(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u8* pbyData);
i32 IICCtrl_WriteReg16(TIICCtrl* ptIIC, u32 dwAddress, u32 dwReg, u8 byData);
