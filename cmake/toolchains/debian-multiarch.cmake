# Shared part of the cross toolchain files: Debian's multiarch packages of the
# target (KAFX_TARGET_TRIPLET, e.g. arm-linux-gnueabihf) for libraries,
# headers and pkg-config, the host's programs, and qemu-user (KAFX_QEMU_NAMES)
# to run the tests. The target's C library, loader and libraries are
# installed in the host's root, so qemu needs no separate prefix.
set(CMAKE_LIBRARY_ARCHITECTURE ${KAFX_TARGET_TRIPLET})
# Libraries and packages of the target only; programs of the host.
set(CMAKE_FIND_ROOT_PATH /usr/${KAFX_TARGET_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/${KAFX_TARGET_TRIPLET}/pkgconfig:/usr/share/pkgconfig")
find_program(KAFX_QEMU NAMES ${KAFX_QEMU_NAMES} REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${KAFX_QEMU})
