# What `cmake --install` leaves behind: the step library, the program, the core and the host library with their headers,
# and the package files by which other projects find them (CMake and pkg-config).
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/scansteps)

# Targets scansteps::core and scansteps::host (to link), scansteps::steps (to load; it has a location, no
# interface) and scansteps::program.
if(WIN32)
  set(module_dir ${CMAKE_INSTALL_BINDIR})  # beside the program, where Windows looks
else()
  set(module_dir ${CMAKE_INSTALL_LIBDIR})
endif()
install(TARGETS scansteps_core scansteps_host scansteps_plugin scansteps_program EXPORT scansteps
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${module_dir}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/scansteps DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})

install(EXPORT scansteps NAMESPACE scansteps:: FILE scansteps-targets.cmake DESTINATION ${package_dir})
configure_package_config_file(cmake/scansteps-config.cmake.in ${PROJECT_BINARY_DIR}/scansteps-config.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/scansteps-config-version.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/scansteps-config.cmake ${PROJECT_BINARY_DIR}/scansteps-config-version.cmake
  cmake/scansteps-plugin.cmake
  DESTINATION ${package_dir})

set(module_file ${CMAKE_SHARED_MODULE_PREFIX}scansteps${CMAKE_SHARED_MODULE_SUFFIX})
if(WIN32)
  set(module_file scansteps.dll)
endif()
# The file finds its own place, so that an installed tree can be moved.
string(REGEX REPLACE "[^/]+" ".." up_from_pkgconfig ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
configure_file(cmake/scansteps.pc.in ${PROJECT_BINARY_DIR}/scansteps.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/scansteps.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
