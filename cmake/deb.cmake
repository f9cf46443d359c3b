# Debian packages through CPack's DEB generator (make deb, scripts/deb.sh):
#   kelvo          the tool, its man page and bash completion; its maintainer
#                  scripts make the service account kelvusr and, on purge,
#                  remove the traces left behind
#   libkelvo0      the shared library, named by its soname
#   libkelvo-dev   headers, the .so link, kelvo.pc, the CMake package and
#                  the writer API's man pages
# KELVO_DEB adds what Debian wants in every package: its copyright file and
# changelog under /usr/share/doc/<package>.
option(KELVO_DEB "Install the Debian documentation files of each package" OFF)

set(kelvo_deb_dir "${PROJECT_SOURCE_DIR}/packaging/deb")
set(kelvo_deb_tool kelvo)
set(kelvo_deb_lib "libkelvo${PROJECT_VERSION_MAJOR}")
set(kelvo_deb_dev libkelvo-dev)

if(KELVO_DEB)
  set(kelvo_deb_changelog "${PROJECT_BINARY_DIR}/deb/changelog.gz")
  add_custom_command(OUTPUT "${kelvo_deb_changelog}"
    COMMAND ${CMAKE_COMMAND} -E make_directory "${PROJECT_BINARY_DIR}/deb"
    COMMAND gzip -9n -c "${kelvo_deb_dir}/changelog" > "${kelvo_deb_changelog}"
    DEPENDS "${kelvo_deb_dir}/changelog" VERBATIM)
  add_custom_target(kelvo_deb_changelog ALL DEPENDS "${kelvo_deb_changelog}")
  foreach(component tool lib dev)
    install(FILES "${kelvo_deb_dir}/copyright" "${kelvo_deb_changelog}"
      DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${kelvo_deb_${component}}"
      COMPONENT ${component})
  endforeach()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kelvo)
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_CONTACT "kelvo maintainers <maintainers@users.noreply.c-seed-eadb0a55.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL tool lib dev)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The tool links the library of this build, which the component dependency
# below names; dpkg-shlibdeps finds it here and works out the rest.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/src/trc/lib")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_TOOL_DEPENDS lib)
set(CPACK_COMPONENT_DEV_DEPENDS lib)

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME ${kelvo_deb_tool})
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "adduser")
set(CPACK_DEBIAN_TOOL_PACKAGE_CONTROL_EXTRA "${kelvo_deb_dir}/postinst;${kelvo_deb_dir}/postrm")
set(CPACK_DEBIAN_TOOL_DESCRIPTION "software trace facility: the kelvo tool
kelvo turns a trace of the programs that use libkelvo on and off, changes
what it records, dumps it to a binary trace file, and formats it as a full
report or as the call flow of each thread.
.
The package creates the service account kelvusr, to which a trace started
by root belongs; users who trace join its group.")

set(CPACK_DEBIAN_LIB_PACKAGE_NAME ${kelvo_deb_lib})
set(CPACK_DEBIAN_LIB_PACKAGE_SECTION libs)
# The loader's cache follows through dpkg's ldconfig trigger.
set(CPACK_DEBIAN_LIB_PACKAGE_CONTROL_EXTRA "${kelvo_deb_dir}/triggers")
set(CPACK_DEBIAN_LIB_DESCRIPTION "software trace facility: shared library
libkelvo is the trace facility that traced programs write their records
into, through a small C API, and that the kelvo tool controls.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${kelvo_deb_dev})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_DESCRIPTION "software trace facility: development files
The headers of the writer API of libkelvo, with its pkg-config file, its
CMake package and its manual pages, for building traced programs.")

include(CPack)
