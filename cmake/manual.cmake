# Manual pages, written by the program itself; those of the steps show also the plug-ins that come with the library.
# The program cannot run where it was made for another system.
if(CMAKE_CROSSCOMPILING)
  return()
endif()
find_program(GZIP gzip)
set(man ${PROJECT_BINARY_DIR}/man)
if(GZIP)
  set(pack COMMAND find ${man} -name "*.[1-9]" -exec ${GZIP} -9nf {} +)
endif()
add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/man.stamp
  COMMAND ${CMAKE_COMMAND} -E rm -rf ${man}
  COMMAND ${CMAKE_COMMAND} -E env --unset=SCANSTEPS_LIBRARY --unset=SCANSTEPS_PLUGINS
          $<TARGET_FILE:scansteps_program> __man ${man}
  ${pack}
  COMMAND ${CMAKE_COMMAND} -E touch ${PROJECT_BINARY_DIR}/man.stamp
  DEPENDS scansteps_program scansteps_plugin ${bundled_plugins} VERBATIM)
add_custom_target(scansteps_man ALL DEPENDS ${PROJECT_BINARY_DIR}/man.stamp)
