# Cross build for 32-bit ARM (armhf) with Debian's cross compiler and the
# armhf multiarch packages of the dependencies (see .ci/arm.sh). Tests run
# under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
# Libraries and packages of the target only; programs of the host.
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/arm-linux-gnueabihf/pkgconfig:/usr/share/pkgconfig")
# The armhf C library's loader and libraries are installed in the host's
# root (multiarch), so qemu needs no separate prefix.
find_program(KAFX_QEMU_ARM NAMES qemu-arm-static qemu-arm REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${KAFX_QEMU_ARM})
