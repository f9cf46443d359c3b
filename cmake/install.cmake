# make install: the tool, the library with its soname, the public headers,
# the man page, the bash completion, a pkg-config file and a CMake package
# that gives the target kelvo::kelvo. Every path below is relative to the
# prefix, so that cmake --install --prefix and DESTDIR both work.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The installed tool finds the installed library beside it, wherever the
# prefix is.
file(RELATIVE_PATH kelvo_bin_to_lib
  "/prefix/${CMAKE_INSTALL_BINDIR}" "/prefix/${CMAKE_INSTALL_LIBDIR}")
set_target_properties(kelvo kelvo-export kelvo-stats PROPERTIES INSTALL_RPATH "$ORIGIN/${kelvo_bin_to_lib}")

install(TARGETS kelvo kelvo-export kelvo-stats RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS kelvo_facility
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES
    ${PROJECT_SOURCE_DIR}/include/kelvo/trace.h
    ${PROJECT_SOURCE_DIR}/include/kelvo/trace.hpp
    ${PROJECT_SOURCE_DIR}/include/kelvo/facility.h
    ${PROJECT_SOURCE_DIR}/include/kelvo/trcformat.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kelvo)
install(FILES
    ${PROJECT_SOURCE_DIR}/man/kelvo.1
    ${PROJECT_SOURCE_DIR}/man/kelvo-export.1
    ${PROJECT_SOURCE_DIR}/man/kelvo-stats.1
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${PROJECT_SOURCE_DIR}/completion/kelvo.bash
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
  RENAME kelvo)
# bash-completion loads a completion by the command's name: one file serves
# both programs beside the tool.
foreach(kelvo_program kelvo-export kelvo-stats)
  install(FILES ${PROJECT_SOURCE_DIR}/completion/kelvo-export.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME ${kelvo_program})
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
install(FILES ${PROJECT_BINARY_DIR}/kelvo.pc DESTINATION ${kelvo_pc_dir})

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
  DESTINATION ${kelvo_cmake_dir})
