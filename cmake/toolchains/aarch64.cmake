# Cross build for 64-bit ARM (arm64, AArch64) with Debian's cross compiler and
# the arm64 multiarch packages of the dependencies (see .ci/arm.sh). Tests run
# under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
# GCC notes that passing std::pair<double, double> by value changed in GCC
# 10.1 (-Wpsabi); every object here is built by one compiler, so the note is
# noise.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
# Libraries and packages of the target only; programs of the host.
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig")
# The arm64 C library's loader and libraries are installed in the host's
# root (multiarch), so qemu needs no separate prefix.
find_program(KAFX_QEMU_AARCH64 NAMES qemu-aarch64-static qemu-aarch64 REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${KAFX_QEMU_AARCH64})
