# Install layout and helpers shared by every directory that installs something.
#
# Installed files find each other relative to their own location: libraries and programs
# carry $ORIGIN RUNPATHs, energy-sim finds its plug-in and data from /proc/self/exe, and the
# pkg-config and CMake package files compute their prefix from where they are. The whole tree
# can therefore be staged with `cmake --install BUILD --prefix DIR` and moved anywhere.
include(GNUInstallDirs)

set(EC_INSTALL_PLUGINDIR "${CMAKE_INSTALL_LIBDIR}/wexf/plugins" CACHE STRING
    "Directory of the plug-in modules, relative to the install prefix")
set(EC_INSTALL_DATADIR "${CMAKE_INSTALL_DATADIR}/energy-consumption" CACHE STRING
    "Directory of the sample data set, device profiles and scenarios, relative to the install prefix")
set(EC_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake" CACHE STRING
    "Directory of the CMake package files, relative to the install prefix")
set(EC_INSTALL_PKGCONFIGDIR "${CMAKE_INSTALL_LIBDIR}/pkgconfig" CACHE STRING
    "Directory of the pkg-config files, relative to the install prefix")

# ec_relative_dir(OUT FROM TO): the path from install directory FROM to install directory TO,
# both relative to the prefix; "." when they are the same.
function(ec_relative_dir out from to)
  file(RELATIVE_PATH rel "/prefix/${from}" "/prefix/${to}")
  string(REGEX REPLACE "/$" "" rel "${rel}")
  if(rel STREQUAL "")
    set(rel ".")
  endif()
  set(${out} "${rel}" PARENT_SCOPE)
endfunction()

# ec_install_runpath(TARGET DIR): TARGET, installed in DIR, finds the project's libraries in
# the library directory through $ORIGIN. The build tree keeps its own RUNPATH.
function(ec_install_runpath target dir)
  ec_relative_dir(rel "${dir}" "${CMAKE_INSTALL_LIBDIR}")
  if(rel STREQUAL ".")
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN")
  else()
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${rel}")
  endif()
endfunction()

# ec_install_plugin(TARGET): a plug-in module, installed into the plug-in directory (package
# "plugin"). The build tree mirrors that directory with a link to the built module, so a
# program finds plug-ins at the same path relative to itself before and after installation.
function(ec_install_plugin target)
  ec_install_runpath(${target} "${EC_INSTALL_PLUGINDIR}")
  install(TARGETS ${target} LIBRARY DESTINATION "${EC_INSTALL_PLUGINDIR}" COMPONENT plugin)
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E make_directory "${CMAKE_BINARY_DIR}/${EC_INSTALL_PLUGINDIR}"
    COMMAND ${CMAKE_COMMAND} -E create_symlink "$<TARGET_FILE:${target}>"
            "${CMAKE_BINARY_DIR}/${EC_INSTALL_PLUGINDIR}/$<TARGET_FILE_NAME:${target}>"
    VERBATIM)
endfunction()

# ec_install_program(TARGET [COMPONENT]): a program of the host kit, installed into the
# program directory (package "hostkit" unless COMPONENT is given).
function(ec_install_program target)
  set(component hostkit)
  if(ARGC GREATER 1)
    set(component ${ARGV1})
  endif()
  ec_install_runpath(${target} "${CMAKE_INSTALL_BINDIR}")
  install(TARGETS ${target} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT ${component})
endfunction()

# ec_configure_pc(TEMPLATE NAME COMPONENT): writes NAME.pc from TEMPLATE and installs it. The
# template's @PC_PREFIX@ is the prefix relative to the file's own directory (${pcfiledir}),
# so the file stays right wherever the tree is staged or moved.
function(ec_configure_pc template name component)
  ec_relative_dir(rel "${EC_INSTALL_PKGCONFIGDIR}" "")
  set(PC_PREFIX "\${pcfiledir}/${rel}")
  set(PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
  configure_file("${template}" "${CMAKE_BINARY_DIR}/pkgconfig/${name}.pc" @ONLY)
  install(FILES "${CMAKE_BINARY_DIR}/pkgconfig/${name}.pc"
          DESTINATION "${EC_INSTALL_PKGCONFIGDIR}" COMPONENT ${component})
endfunction()
