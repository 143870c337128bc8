# What `cmake --install` leaves behind, in three components, which become packages of their own (packaging.cmake):
#   runtime  the step library, the program, its manual pages and completion, the schema of pipeline files
#   dev      the core and the host library with their headers, and what other projects find them by (CMake, pkg-config)
#   doc      documentation and examples
include(CMakePackageConfigHelpers)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME runtime)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/scansteps)

# Targets scansteps::core and scansteps::host (to link), scansteps::steps (to load; it has a location, no
# interface) and scansteps::program.
if(WIN32)
  set(module_dir ${CMAKE_INSTALL_BINDIR})  # beside the program, where Windows looks
else()
  set(module_dir ${CMAKE_INSTALL_LIBDIR})
endif()
install(TARGETS scansteps_core scansteps_host scansteps_plugin scansteps_program EXPORT scansteps
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
  LIBRARY DESTINATION ${module_dir}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/scansteps DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
if(NOT SCANSTEPS_DEBIAN)  # has the licence in a form of its own
  install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
endif()

install(EXPORT scansteps NAMESPACE scansteps:: FILE scansteps-targets.cmake DESTINATION ${package_dir}
  COMPONENT dev)
configure_package_config_file(cmake/scansteps-config.cmake.in ${PROJECT_BINARY_DIR}/scansteps-config.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/scansteps-config-version.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/scansteps-config.cmake ${PROJECT_BINARY_DIR}/scansteps-config-version.cmake
  cmake/scansteps-plugin.cmake
  DESTINATION ${package_dir} COMPONENT dev)

set(module_file ${CMAKE_SHARED_MODULE_PREFIX}scansteps${CMAKE_SHARED_MODULE_SUFFIX})
if(WIN32)
  set(module_file scansteps.dll)
endif()
# The file finds its own place, so that an installed tree can be moved.
string(REGEX REPLACE "[^/]+" ".." up_from_pkgconfig ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
foreach(package IN ITEMS scansteps scansteps-host)
  configure_file(cmake/${package}.pc.in ${PROJECT_BINARY_DIR}/${package}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${package}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endforeach()

# On Windows the zip has documentation and examples at its root (scripts/windows.sh).
if(NOT WIN32)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/man/ DESTINATION ${CMAKE_INSTALL_MANDIR})
  install(FILES host/completion/scansteps.bash RENAME scansteps
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  set(SCANSTEPS_ZSH_FOLDER zsh/site-functions CACHE STRING "Where zsh looks for completion, below share")
  install(FILES host/completion/_scansteps DESTINATION ${CMAKE_INSTALL_DATADIR}/${SCANSTEPS_ZSH_FOLDER})
  install(FILES host/completion/scansteps.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
  install(FILES pipeline.schema.json DESTINATION ${CMAKE_INSTALL_DATADIR}/scansteps)

  # The schema again, where the examples refer to it.
  install(FILES README.md CHANGELOG.md pipeline.schema.json DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc)
  install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc)
endif()
