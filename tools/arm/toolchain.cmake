# The camera's own kind of machine: 32-bit ARM, hard float, little endian.  Compiler and C library are Debian's cross
# packages; what else is needed lies in build-arm/sysroot, where tools/arm/sysroot.sh puts it.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)  # one compiler builds everything

set(CMAKE_FIND_ROOT_PATH ${CMAKE_CURRENT_LIST_DIR}/../../build-arm/sysroot)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Tests, and whatever else of the build is run, go through the emulator.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf)
