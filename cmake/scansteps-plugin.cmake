# scansteps_add_plugin(NAME SOURCES... [STEPS_FILE steps.def] [VERSION version] [NO_INSTALL])
#
# Adds the target NAME: a plug-in, libscansteps-NAME.so or scansteps-NAME.dll, made of the sources, in which every kind of
# STEPS_FILE (the format of steps.def; that of the current folder unless given) has its SCANSTEPS_FACTORY. The exported
# functions and scansteps_describe() are generated. VERSION is that of the project unless given. The plug-in is installed
# into lib/scansteps, where hosts look, unless NO_INSTALL is given.
function(scansteps_add_plugin name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "NO_INSTALL" "STEPS_FILE;VERSION" "")
  if(NOT arg_STEPS_FILE)
    set(arg_STEPS_FILE steps.def)
  endif()
  if(NOT arg_VERSION)
    set(arg_VERSION ${PROJECT_VERSION})
  endif()
  cmake_path(ABSOLUTE_PATH arg_STEPS_FILE BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR} NORMALIZE)
  if(NOT EXISTS "${arg_STEPS_FILE}")
    message(FATAL_ERROR "scansteps_add_plugin(${name}): there is no ${arg_STEPS_FILE}")
  endif()

  set(exports ${CMAKE_CURRENT_BINARY_DIR}/${name}_exports.cpp)
  file(CONFIGURE OUTPUT ${exports} @ONLY CONTENT [[
// What the plug-in exports.
#define SCANSTEPS_STEPS_FILE "@arg_STEPS_FILE@"
#define SCANSTEPS_PLUGIN_NAME "@name@"
#define SCANSTEPS_PLUGIN_VERSION "@arg_VERSION@"
#include <scansteps/plugin_exports.h>
]])
  add_library(${name} MODULE ${exports} ${arg_UNPARSED_ARGUMENTS})
  set_target_properties(${name} PROPERTIES OUTPUT_NAME scansteps-${name}
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_link_libraries(${name} PRIVATE scansteps::core)
  if(WIN32)
    set_target_properties(${name} PROPERTIES PREFIX "")
    set(folder lib)
  else()
    # Also keeps the core that is linked into the plug-in apart from that of other modules.
    set(map ${CMAKE_CURRENT_BINARY_DIR}/${name}_exports.map)
    file(CONFIGURE OUTPUT ${map} CONTENT
      "{ global: create_*; getTypeIn*; getTypeOut*; set_handles; scansteps_describe; local: *; };\n")
    target_link_options(${name} PRIVATE -Wl,--version-script=${map})
    include(GNUInstallDirs)
    set(folder ${CMAKE_INSTALL_LIBDIR})
  endif()
  if(NOT arg_NO_INSTALL)
    install(TARGETS ${name} LIBRARY DESTINATION ${folder}/scansteps RUNTIME DESTINATION ${folder}/scansteps)
  endif()
endfunction()

# scansteps_add_command(NAME SOURCES... [NO_INSTALL])
#
# Adds the target scansteps-NAME: a program that `scansteps NAME` runs. In a build tree it lies beside the plug-ins, and
# it is installed where they are unless NO_INSTALL is given. What it links is named by target_link_libraries.
function(scansteps_add_command name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "NO_INSTALL" "" "")
  set(target scansteps-${name})
  add_executable(${target} ${arg_UNPARSED_ARGUMENTS})
  if(CMAKE_LIBRARY_OUTPUT_DIRECTORY)
    set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
  endif()
  set(folder lib)
  if(NOT WIN32)
    include(GNUInstallDirs)
    set(folder ${CMAKE_INSTALL_LIBDIR})
  endif()
  if(NOT arg_NO_INSTALL)
    install(TARGETS ${target} RUNTIME DESTINATION ${folder}/scansteps)
  endif()
endfunction()
