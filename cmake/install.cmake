# make install: the tool, the library with its soname, the public headers,
# the man page, the bash completion, a pkg-config file and a CMake package
# that gives the target kelvo::kelvo. Every path below is relative to the
# prefix, so that cmake --install --prefix and DESTDIR both work.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

#
# Each file belongs to one component, the unit of a Debian package
# (cmake/deb.cmake): tool (the tool, its man page and completion), lib (the
# shared library under its soname) and dev (what building against it needs).

# The installed tool finds the installed library beside it, wherever the
# prefix is; in a directory that the loader searches anyway, such as /usr's,
# it needs no search path of its own.
set(kelvo_system_libdirs ${CMAKE_PLATFORM_IMPLICIT_LINK_DIRECTORIES}
  ${CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES})
if(NOT "${CMAKE_INSTALL_FULL_LIBDIR}" IN_LIST kelvo_system_libdirs)
  file(RELATIVE_PATH kelvo_bin_to_lib
    "/prefix/${CMAKE_INSTALL_BINDIR}" "/prefix/${CMAKE_INSTALL_LIBDIR}")
  set_target_properties(kelvo kelvo-export kelvo-stats PROPERTIES
    INSTALL_RPATH "$ORIGIN/${kelvo_bin_to_lib}")
endif()

install(TARGETS kelvo kelvo-export kelvo-stats RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  COMPONENT tool)
install(TARGETS kelvo_facility
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT lib NAMELINK_COMPONENT dev)
install(FILES
    ${PROJECT_SOURCE_DIR}/include/kelvo/trace.h
    ${PROJECT_SOURCE_DIR}/include/kelvo/trace.hpp
    ${PROJECT_SOURCE_DIR}/include/kelvo/facility.h
    ${PROJECT_SOURCE_DIR}/include/kelvo/trcformat.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kelvo COMPONENT dev)
# The names of the records that the facility writes of its own, for users to
# put beside their own .tfi files.
install(FILES ${PROJECT_SOURCE_DIR}/examples/kelvo.tfi
  DESTINATION ${CMAKE_INSTALL_DATADIR}/kelvo COMPONENT tool)
install(FILES ${PROJECT_SOURCE_DIR}/completion/kelvo.bash
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
  RENAME kelvo COMPONENT tool)
# bash-completion loads a completion by the command's name: one file serves
# both programs beside the tool.
foreach(kelvo_program kelvo-export kelvo-stats)
  install(FILES ${PROJECT_SOURCE_DIR}/completion/kelvo-export.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME ${kelvo_program} COMPONENT tool)
endforeach()

# Man pages: kelvo(1), and trcWrite(3) with one name per function of the
# writer API, the others links to it. Distribution packages have them
# compressed (KELVO_GZIP_MAN).
option(KELVO_GZIP_MAN "Install the man pages compressed with gzip" OFF)
set(kelvo_man_suffix "")
if(KELVO_GZIP_MAN)
  set(kelvo_man_suffix ".gz")
endif()
set(kelvo_man_dir "${PROJECT_BINARY_DIR}/man")
function(kelvo_man page section component)
  set(source "${PROJECT_SOURCE_DIR}/man/${page}.${section}")
  set(installed "${source}")
  if(KELVO_GZIP_MAN)
    set(installed "${kelvo_man_dir}/${page}.${section}.gz")
    add_custom_command(OUTPUT "${installed}"
      COMMAND ${CMAKE_COMMAND} -E make_directory "${kelvo_man_dir}"
      COMMAND gzip -9n -c "${source}" > "${installed}"
      DEPENDS "${source}" VERBATIM)
    add_custom_target(kelvo_man_${page} ALL DEPENDS "${installed}")
  endif()
  install(FILES "${installed}" DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section}
    COMPONENT ${component})
endfunction()
kelvo_man(kelvo 1 tool)
kelvo_man(kelvo-export 1 tool)
kelvo_man(kelvo-stats 1 tool)
kelvo_man(trcWrite 3 dev)
foreach(name trcWriteRc trcWritef trcSetProdVersion trcSetCompanion trcSetNode trcIsOn)
  set(link "${kelvo_man_dir}/links/${name}.3${kelvo_man_suffix}")
  file(MAKE_DIRECTORY "${kelvo_man_dir}/links")
  file(CREATE_LINK "trcWrite.3${kelvo_man_suffix}" "${link}" SYMBOLIC)
  install(FILES "${link}" DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT dev)
endforeach()

# The library's file names as the build gives them, for the package files.
get_target_property(kelvo_lib_name kelvo_facility OUTPUT_NAME)
get_target_property(kelvo_lib_version kelvo_facility VERSION)
get_target_property(kelvo_lib_soversion kelvo_facility SOVERSION)
set(kelvo_lib_file
  "${CMAKE_SHARED_LIBRARY_PREFIX}${kelvo_lib_name}${CMAKE_SHARED_LIBRARY_SUFFIX}")
set(kelvo_lib_real "${kelvo_lib_file}.${kelvo_lib_version}")
set(kelvo_lib_soname "${kelvo_lib_file}.${kelvo_lib_soversion}")

# pkg-config: the prefix is found from where the .pc file lies.
set(kelvo_pc_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(kelvo_pc_prefix "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH kelvo_pc_up "/prefix/${kelvo_pc_dir}" "/prefix")
  string(REGEX REPLACE "/$" "" kelvo_pc_up "${kelvo_pc_up}")
  set(kelvo_pc_prefix "\${pcfiledir}/${kelvo_pc_up}")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/kelvo.pc.in
  ${PROJECT_BINARY_DIR}/kelvo.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kelvo.pc DESTINATION ${kelvo_pc_dir} COMPONENT dev)

# CMake package: find_package(kelvo) gives kelvo::kelvo.
set(kelvo_cmake_dir "${CMAKE_INSTALL_LIBDIR}/cmake/kelvo")
set(KELVO_INSTALL_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
set(KELVO_INSTALL_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}")
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/kelvoConfig.cmake.in
  ${PROJECT_BINARY_DIR}/kelvoConfig.cmake
  INSTALL_DESTINATION ${kelvo_cmake_dir}
  PATH_VARS KELVO_INSTALL_LIBDIR KELVO_INSTALL_INCLUDEDIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kelvoConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/kelvoConfig.cmake
    ${PROJECT_BINARY_DIR}/kelvoConfigVersion.cmake
  DESTINATION ${kelvo_cmake_dir} COMPONENT dev)
