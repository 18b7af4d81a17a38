# A program of another machine does not run directly.  So build-*/bin holds a script of its name that starts the emulator,
# and build-*/arm the program.  Tests, and a simulated camera that starts the daemon, then use the same paths everywhere.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/arm)
set(VERNIER_EMULATED_PROGRAMS vernierlensd simcamera fifocmd lensday daemon_tests platform_tests curve_bits transcripts)

list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
foreach(program ${VERNIER_EMULATED_PROGRAMS})
  # LD_PRELOAD is meant for the program, not for the emulator.
  file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/bin/${program} @ONLY NEWLINE_STYLE UNIX CONTENT [[#!/bin/sh
preload=$LD_PRELOAD
unset LD_PRELOAD
exec @emulator@ ${preload:+-E "LD_PRELOAD=$preload"} -0 "$0" "${0%/*}/../arm/@program@" "$@"
]])
  file(CHMOD ${CMAKE_BINARY_DIR}/bin/${program} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
       GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endforeach()
