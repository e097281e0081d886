# Shared part of the cross toolchains: Debian's cross compiler for EC_TRIPLE, the sysroot
# staged by scripts/stage-sysroot.sh, pkg-config inside it, and qemu-user to run what is built
# (tests, programs started by tests) on this machine.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${EC_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${EC_TRIPLE}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${EC_TRIPLE})

# The sysroot defaults to build/sysroot-ARCH of this checkout; EC_SYSROOT overrides it.
if(NOT DEFINED EC_SYSROOT)
  if(DEFINED ENV{EC_SYSROOT})
    set(EC_SYSROOT $ENV{EC_SYSROOT})
  else()
    get_filename_component(EC_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../../build/sysroot-${EC_DEBIAN_ARCH}" ABSOLUTE)
  endif()
endif()
# CMake reads this file again for each try_compile, where the cache variable is not set: the
# environment carries the choice there.
set(ENV{EC_SYSROOT} ${EC_SYSROOT})
if(NOT EXISTS "${EC_SYSROOT}/usr/lib/${EC_TRIPLE}")
  message(FATAL_ERROR "No ${EC_DEBIAN_ARCH} sysroot in ${EC_SYSROOT}: run scripts/stage-sysroot.sh ${EC_DEBIAN_ARCH}")
endif()
set(CMAKE_SYSROOT ${EC_SYSROOT})
set(CMAKE_FIND_ROOT_PATH ${EC_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config reads only the sysroot's .pc files and prefixes their paths with it; a device
# build adds the set's own modules through PKG_CONFIG_PATH.
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${EC_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} "${EC_SYSROOT}/usr/lib/${EC_TRIPLE}/pkgconfig:${EC_SYSROOT}/usr/share/pkgconfig")

# ctest, gtest discovery and the tests' own child programs run the target's binaries through
# qemu-user, with the sysroot as the root for the dynamic loader and its libraries.
set(CMAKE_CROSSCOMPILING_EMULATOR ${EC_QEMU};-L;${EC_SYSROOT})
