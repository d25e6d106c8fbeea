# Cross-compilation for 64-bit Arm Linux with Debian's g++-aarch64-linux-gnu. Programs run under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
if(NOT CMAKE_CXX_COMPILER)  # the preset for Clang sets it
    set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
    set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
endif()
foreach(tool NM READELF OBJDUMP)  # the host's tools may not support the architecture
    string(TOLOWER ${tool} name)
    set(CMAKE_${tool} /usr/bin/aarch64-linux-gnu-${name} CACHE FILEPATH "Tool for built files")
endforeach()
# If arm64 is a foreign architecture of dpkg, the machine's library cache contains another C library for it. The dynamic
# loader must not mix that one with the cross compiler's: threads would hang.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L /usr/aarch64-linux-gnu
    -E LD_LIBRARY_PATH=/usr/aarch64-linux-gnu/lib)
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
