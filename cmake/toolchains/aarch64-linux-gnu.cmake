# Cross build for 64-bit ARM devices with Debian's aarch64-linux-gnu tools.
# Tests run through qemu-user. VXU_AARCH64_SYSROOT may name a folder with
# extra arm64 libraries unpacked from Debian packages (usr/lib, usr/include).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

set(VXU_AARCH64_SYSROOT "" CACHE PATH "Extra arm64 libraries (unpacked Debian packages)")
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu /usr/lib/aarch64-linux-gnu ${VXU_AARCH64_SYSROOT})
set(CMAKE_PREFIX_PATH /usr/lib/aarch64-linux-gnu/cmake)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/qemu-aarch64-run.sh)

# libvxutil carries no RUNPATH of its own: the programs of the build tree
# name the unpacked libraries (adns) for the linker and, through their
# RPATH, for the loader on the device and under emulation.
if(VXU_AARCH64_SYSROOT)
  set(CMAKE_BUILD_RPATH ${VXU_AARCH64_SYSROOT}/usr/lib)
  set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${VXU_AARCH64_SYSROOT}/usr/lib")
  set(CMAKE_SHARED_LINKER_FLAGS_INIT "-Wl,-rpath-link,${VXU_AARCH64_SYSROOT}/usr/lib")
endif()
