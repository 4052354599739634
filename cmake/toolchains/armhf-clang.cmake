# Cross build for 32-bit ARM (armhf) with clang, against the same Debian
# armhf multiarch packages as cmake/toolchains/armhf.cmake (clang uses the
# armhf cross GCC's C++ library and start files). Tests run under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET arm-linux-gnueabihf)
set(CMAKE_CXX_COMPILER_TARGET arm-linux-gnueabihf)
# Debian's armhf baseline, as its cross GCC defaults to: ARMv7-A in Thumb-2
# with VFPv3-D16 and no NEON (clang's own default is the ARM state). The
# NEON kernels' files add -mfpu=neon (see KAFX_NEON_FILE_FLAGS in
# CMakeLists.txt) and run only where the kernel reports NEON.
set(CMAKE_C_FLAGS_INIT "-march=armv7-a -mfpu=vfpv3-d16 -mthumb")
set(CMAKE_CXX_FLAGS_INIT "-march=armv7-a -mfpu=vfpv3-d16 -mthumb")
# Linked by lld, as the host's clang build links (the cross binutils' ld
# cannot read clang's link-time-optimisation objects).
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-fuse-ld=lld")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-fuse-ld=lld")
set(KAFX_TARGET_TRIPLET arm-linux-gnueabihf)
set(KAFX_QEMU_NAMES qemu-arm-static qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-multiarch.cmake)
