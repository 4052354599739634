# Cross build for 32-bit ARM (armhf) with Debian's cross compiler and the
# armhf multiarch packages of the dependencies (see .ci/arm.sh). Tests run
# under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(KAFX_TARGET_TRIPLET arm-linux-gnueabihf)
set(KAFX_QEMU_NAMES qemu-arm-static qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-multiarch.cmake)
