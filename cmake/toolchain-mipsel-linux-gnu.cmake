# Cross build for the device: MIPS32r2 little-endian Linux with glibc, using
# Debian's mipsel-linux-gnu cross compiler and the target's libraries from
# Debian's mipsel architecture (multiarch: /usr/lib/mipsel-linux-gnu).
#
#   cmake -S . -B build-mipsel -G Ninja \
#         -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mipsel-linux-gnu.cmake
#
# Tests and test discovery run through qemu-mipsel. KU_TARGET_ROOT is the root
# the emulator loads the target's loader and libraries from: "/" for the
# multiarch packages that scripts/install-deps.sh --target installs, or an
# unpacked image of the device's root file system.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mips)
set(KU_TARGET_TRIPLET mipsel-linux-gnu)

set(CMAKE_C_COMPILER   ${KU_TARGET_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${KU_TARGET_TRIPLET}-g++)
# ar, ranlib, strip, nm and readelf are found with the compiler's prefix.

# find_library/find_package look in lib/mipsel-linux-gnu before lib, so the
# target's libraries win over the host's in the shared /usr tree; headers in
# /usr/include are shared by both (arch-specific ones sit in the triplet dir).
set(CMAKE_LIBRARY_ARCHITECTURE ${KU_TARGET_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)

# pkg-config must see the target's .pc files only: a host libcurl.pc would
# link the amd64 library and fail late, at link time.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/${KU_TARGET_TRIPLET}/pkgconfig:/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

set(KU_TARGET_ROOT "/" CACHE PATH "Root the emulator loads the target's loader and libraries from")
find_program(KU_QEMU qemu-mipsel)
if(KU_QEMU)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${KU_QEMU} -L ${KU_TARGET_ROOT})
endif()
