# Cross-compilation for 64-bit Arm Linux with Debian's g++-aarch64-linux-gnu; programs run under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
if(NOT CMAKE_CXX_COMPILER)  # or Clang, with its target
    set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
    set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
endif()
foreach(tool NM READELF OBJDUMP)  # those of the host may not know the architecture
    string(TOLOWER ${tool} name)
    set(CMAKE_${tool} /usr/bin/aarch64-linux-gnu-${name} CACHE FILEPATH "Tool for built files")
endforeach()
# Where arm64 is a foreign architecture of dpkg, the machine's cache of libraries has another C library, which the loader
# of this one must not mix with its own: threads hang.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L /usr/aarch64-linux-gnu
    -E LD_LIBRARY_PATH=/usr/aarch64-linux-gnu/lib)
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
