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
set(KAFX_TARGET_TRIPLET aarch64-linux-gnu)
set(KAFX_QEMU_NAMES qemu-aarch64-static qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-multiarch.cmake)
