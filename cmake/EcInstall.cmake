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

# ec_install_program(TARGET COMPONENT SUMMARY): a program of the host kit, installed into the
# program directory with its manual page, which help2man makes from the program's --help at
# build time (section NAME: "TARGET - SUMMARY"). A cross build cannot run the program, and a
# sanitizer build's program is not what gets installed: they make no page.
find_program(EC_HELP2MAN help2man)
function(ec_install_program target component summary)
  ec_install_runpath(${target} "${CMAKE_INSTALL_BINDIR}")
  install(TARGETS ${target} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT ${component})
  if(CMAKE_CROSSCOMPILING OR NOT EC_SANITIZE STREQUAL "")
    return()
  endif()
  if(NOT EC_HELP2MAN)
    message(STATUS "help2man not found: no manual page for ${target}")
    return()
  endif()
  set(page "${CMAKE_BINARY_DIR}/man/${target}.1")
  add_custom_command(OUTPUT "${page}.gz"
    COMMAND ${CMAKE_COMMAND} -E make_directory "${CMAKE_BINARY_DIR}/man"
    COMMAND ${EC_HELP2MAN} --no-info --no-discard-stderr "--version-string=${PROJECT_VERSION}"
            "--name=${summary}" --output=${page} $<TARGET_FILE:${target}>
    COMMAND gzip -9nf "${page}"
    DEPENDS ${target}
    COMMENT "Manual page of ${target}"
    VERBATIM)
  add_custom_target(${target}-manpage ALL DEPENDS "${page}.gz")
  install(FILES "${page}.gz" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT ${component})
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
