# Debian packages (cpack -G DEB), one per install component:
#   energy-consumption   the plug-in module, in the plug-in directory
#   libwexf-common1      the support library's runtime (libwexf-common.so.1)
#   libwexf-common-dev   its headers, link, pkg-config file and CMake package
#   tvsim                the simulated TV and framework host libraries, their control headers
#                        and the platform's declarations
#   energy-sim           the host kit's program and its sample data
# Dependencies on Debian's own libraries come from dpkg-shlibdeps; those between these
# packages are declared here.
set(CPACK_PACKAGE_NAME energy-consumption)
set(CPACK_PACKAGE_VENDOR "energy-consumption developers")
set(CPACK_PACKAGE_CONTACT "energy-consumption developers <energy-consumption@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Energy-consumption plug-in of a television and its host kit")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL plugin common common-dev tvsim hostkit)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# The packages' own libraries, for dpkg-shlibdeps to find while they are not installed yet.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/lib)

set(CPACK_DEBIAN_PLUGIN_PACKAGE_NAME energy-consumption)
set(CPACK_DEBIAN_COMMON_PACKAGE_NAME libwexf-common${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_COMMON-DEV_PACKAGE_NAME libwexf-common-dev)
set(CPACK_DEBIAN_TVSIM_PACKAGE_NAME tvsim)
set(CPACK_DEBIAN_HOSTKIT_PACKAGE_NAME energy-sim)
set(CPACK_DEBIAN_COMMON-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_COMMON-DEV_PACKAGE_DEPENDS "libjson-glib-dev, pkg-config")

set(CPACK_COMPONENT_PLUGIN_DESCRIPTION "Energy-consumption service plug-in of the device-service framework")
set(CPACK_COMPONENT_COMMON_DESCRIPTION "Support library of the energy-consumption plug-in: JSON value layer, system information, energy-service pre-check")
set(CPACK_COMPONENT_COMMON-DEV_DESCRIPTION "Headers, pkg-config file and CMake package of libwexf-common")
set(CPACK_COMPONENT_TVSIM_DESCRIPTION "Simulated TV platform and device-service framework host, with their control APIs")
set(CPACK_COMPONENT_HOSTKIT_DESCRIPTION "energy-sim: runs the energy-consumption plug-in on a simulated TV, with sample data, device profiles and scenarios")

# On a simulated build the platform and the framework are the tvsim package.
set(CPACK_COMPONENT_COMMON_DEPENDS tvsim)
set(CPACK_COMPONENT_COMMON-DEV_DEPENDS common tvsim)
set(CPACK_COMPONENT_PLUGIN_DEPENDS common tvsim)
set(CPACK_COMPONENT_HOSTKIT_DEPENDS plugin common tvsim)

include(CPack)
