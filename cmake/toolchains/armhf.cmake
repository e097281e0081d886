# 32-bit ARM (Debian armhf) with Debian's g++-arm-linux-gnueabihf; see EcCross.cmake.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(EC_TRIPLE arm-linux-gnueabihf)
set(EC_DEBIAN_ARCH armhf)
set(EC_QEMU qemu-arm-static)
include(${CMAKE_CURRENT_LIST_DIR}/EcCross.cmake)
