// The I2C bus device, as i2c-dev offers it: the slave is chosen by a descriptor's I2C_SLAVE_FORCE, and read, write and
// I2C_RDWR are transfers.
#pragma once

#include <sys/types.h>

#include "core/types.h"

// An open bus of the camera, and the caller's calls are simulated.
bool I2C_IsBus(i32 fd);

// As the system calls answer; pvArgument is what ioctl was given.
i32 I2C_Request(i32 fd, u32 dwRequest, void* pvArgument);
ssize_t I2C_Read(i32 fd, void* pv, size_t iLength);
ssize_t I2C_Write(i32 fd, const void* pv, size_t iLength);
