# Debian packages (cpack -G DEB), one per install component:
#   energy-consumption   the plug-in module, in the plug-in directory
#   libwexf-common1      the support library's runtime (libwexf-common.so.1)
#   libwexf-common-dev   its headers, link, pkg-config file and CMake package
#   tvsim                the simulated TV and framework host libraries, their control headers
#                        and the platform's declarations
#   energy-sim           the host kit's programs, their manual pages and the sample data
# Dependencies on Debian's own libraries come from dpkg-shlibdeps; those between these
# packages are declared here. Each package carries its copyright file, its changelog and, where
# lintian has a warning that does not apply, an override with the reason (cmake/debian/).
set(EC_PACKAGE_MAINTAINER
    "energy-consumption maintainers <maintainers@users.noreply.c-seed-65a24a06.example>"
    CACHE STRING "Maintainer field of the Debian packages (the address the project commits under)")
set(CPACK_PACKAGE_NAME energy-consumption)
set(CPACK_PACKAGE_VENDOR "The energy-consumption developers")
set(CPACK_PACKAGE_CONTACT "${EC_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL plugin common common-dev tvsim hostkit)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# A shlibs file for the versioned support library (the simulator's libraries have no version).
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# Packages with a library in /usr/lib refresh the linker cache through dpkg's trigger.
set(CPACK_DEBIAN_COMMON_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_DEBIAN_TVSIM_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
# The packages' own libraries, for dpkg-shlibdeps to find while they are not installed yet.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/lib)

set(CPACK_DEBIAN_PLUGIN_PACKAGE_NAME energy-consumption)
set(CPACK_DEBIAN_COMMON_PACKAGE_NAME libwexf-common${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_COMMON-DEV_PACKAGE_NAME libwexf-common-dev)
set(CPACK_DEBIAN_TVSIM_PACKAGE_NAME tvsim)
set(CPACK_DEBIAN_HOSTKIT_PACKAGE_NAME energy-sim)
set(CPACK_DEBIAN_COMMON-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_COMMON-DEV_PACKAGE_DEPENDS "libjson-glib-dev, pkg-config")

# The first line is the synopsis, the rest the extended description.
set(CPACK_COMPONENT_PLUGIN_DESCRIPTION "TV service plug-in that meters the set's energy consumption
A plug-in module of the TV's device-service framework: every 10 s it
estimates the set's power from the model's row of power factors and the
platform's inputs, and it reports the energy to the framework.")
set(CPACK_COMPONENT_COMMON_DESCRIPTION "support library of the energy-consumption plug-in
A JSON value layer over json-glib, the set's system and application
information, and the energy service's availability pre-check.")
set(CPACK_COMPONENT_COMMON-DEV_DESCRIPTION "development files of libwexf-common
Headers, pkg-config file and CMake package of the support library of the
energy-consumption plug-in.")
set(CPACK_COMPONENT_TVSIM_DESCRIPTION "simulated TV platform and device-service framework host
Implements the TV platform's C functions and the framework's side for a
plug-in, with C++ control APIs to set any value, make any call fail and
read back every log line.")
set(CPACK_COMPONENT_HOSTKIT_DESCRIPTION "runs the TV's energy-consumption plug-in on a simulated TV
energy-sim loads the real plug-in on the simulated TV under a virtual
clock and prints its reports; energy-factors checks, explains and
calibrates the data set of power factors. With a sample data set, device
profiles and scenarios.")

# Copyright file, changelog (compressed as Debian wants it: gzip -9n) and lintian overrides.
set(EC_DEB_PACKAGES plugin:energy-consumption common:libwexf-common${PROJECT_VERSION_MAJOR}
    common-dev:libwexf-common-dev tvsim:tvsim hostkit:energy-sim)
find_program(EC_GZIP gzip REQUIRED)
foreach(entry IN LISTS EC_DEB_PACKAGES)
  string(REPLACE ":" ";" entry "${entry}")
  list(GET entry 0 component)
  list(GET entry 1 DEB_PACKAGE)
  set(doc "${CMAKE_INSTALL_DATADIR}/doc/${DEB_PACKAGE}")
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/copyright DESTINATION ${doc} COMPONENT ${component})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in
                 ${CMAKE_BINARY_DIR}/debian/${DEB_PACKAGE}/changelog @ONLY)
  execute_process(COMMAND ${EC_GZIP} -9nc ${CMAKE_BINARY_DIR}/debian/${DEB_PACKAGE}/changelog
                  OUTPUT_FILE ${CMAKE_BINARY_DIR}/debian/${DEB_PACKAGE}/changelog.gz
                  COMMAND_ERROR_IS_FATAL ANY)
  install(FILES ${CMAKE_BINARY_DIR}/debian/${DEB_PACKAGE}/changelog.gz DESTINATION ${doc}
          COMPONENT ${component})
  set(overrides ${PROJECT_SOURCE_DIR}/cmake/debian/${DEB_PACKAGE}.lintian-overrides)
  if(EXISTS ${overrides})
    install(FILES ${overrides} DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
            RENAME ${DEB_PACKAGE} COMPONENT ${component})
  endif()
endforeach()

# On a simulated build the platform and the framework are the tvsim package.
set(CPACK_COMPONENT_COMMON_DEPENDS tvsim)
set(CPACK_COMPONENT_COMMON-DEV_DEPENDS common tvsim)
set(CPACK_COMPONENT_PLUGIN_DEPENDS common tvsim)
set(CPACK_COMPONENT_HOSTKIT_DEPENDS plugin common tvsim)

include(CPack)
