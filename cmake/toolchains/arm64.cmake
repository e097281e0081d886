# 64-bit ARM (Debian arm64) with Debian's g++-aarch64-linux-gnu; see EcCross.cmake.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(EC_TRIPLE aarch64-linux-gnu)
set(EC_DEBIAN_ARCH arm64)
set(EC_QEMU qemu-aarch64-static)
include(${CMAKE_CURRENT_LIST_DIR}/EcCross.cmake)
