# The products: the core (what a host or a foreign step links), the steps, the loadable step library
# made of both, and the command-line host.

# Flags that every target of ours gets, kept off the installed package.
add_library(scansteps_flags INTERFACE)
target_compile_options(scansteps_flags INTERFACE
  $<$<CXX_COMPILER_ID:GNU,Clang>:-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wconversion -Wno-sign-conversion -ffp-contract=off>
  $<$<AND:$<BOOL:${SCANSTEPS_WERROR}>,$<CXX_COMPILER_ID:GNU,Clang>>:-Werror>)
# GCC 12 takes "text" + std::string for overlapping copies at -O3 (its bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(scansteps_flags INTERFACE -Wno-restrict)
endif()
# Of an inline function that many files hold, the Windows linker keeps one; GCC takes it for the one that it has just compiled
# and counts on the registers that this leaves alone, which another, optimised otherwise, does not.
if(MINGW)
  target_compile_options(scansteps_flags INTERFACE -fno-ipa-ra)
endif()
# The oldest processor served on x86 is x86-64-v2 (2009 on); newer instructions are chosen at run time.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64" AND NOT MSVC)
  target_compile_options(scansteps_flags INTERFACE -march=x86-64-v2)
endif()
# One AVX-512 variant is enough, and keeps the build short.
target_compile_definitions(scansteps_flags INTERFACE HWY_DISABLED_TARGETS=\(HWY_AVX3_DL\))
if(SCANSTEPS_SANITIZE)
  target_compile_options(scansteps_flags INTERFACE
    -fsanitize=${SCANSTEPS_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(scansteps_flags INTERFACE -fsanitize=${SCANSTEPS_SANITIZE})
endif()

# Sockets are byte streams, which hosts use as well.
file(GLOB core_sources CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/src/framework/*.cpp ${PROJECT_SOURCE_DIR}/src/transport/socket*.cpp)
# The table of kinds belongs to the core: a host has it without the step library.
add_library(scansteps-core STATIC ${core_sources} src/core/step_table.cpp)
set_source_files_properties(src/core/step_table.cpp src/plugin/factories.cpp PROPERTIES
  OBJECT_DEPENDS ${PROJECT_SOURCE_DIR}/src/core/steps.def)
add_library(scansteps::core ALIAS scansteps-core)
target_include_directories(scansteps-core
  PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
  PRIVATE ${PROJECT_SOURCE_DIR}/src)
target_compile_features(scansteps-core PUBLIC cxx_std_20)
target_compile_definitions(scansteps-core PRIVATE SCANSTEPS_VERSION="${PROJECT_VERSION}")
target_link_libraries(scansteps-core PRIVATE $<BUILD_INTERFACE:scansteps_flags> Imath::Imath)
if(WIN32)
  target_link_libraries(scansteps-core PUBLIC ws2_32)
endif()

file(GLOB step_sources CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/src/io/*.cpp ${PROJECT_SOURCE_DIR}/src/convert/*.cpp
  ${PROJECT_SOURCE_DIR}/src/features/*.cpp ${PROJECT_SOURCE_DIR}/src/multiview/*.cpp
  ${PROJECT_SOURCE_DIR}/src/export/*.cpp ${PROJECT_SOURCE_DIR}/src/transport/*.cpp)
list(FILTER step_sources EXCLUDE REGEX "/transport/socket[^/]*$")
add_library(scansteps_steps STATIC ${step_sources})
target_include_directories(scansteps_steps PUBLIC ${PROJECT_SOURCE_DIR}/src)
target_compile_definitions(scansteps_steps PRIVATE SCANSTEPS_VERSION="${PROJECT_VERSION}")
target_link_libraries(scansteps_steps
  PUBLIC scansteps-core
  PRIVATE scansteps_flags hwy::hwy JPEG::JPEG Threads::Threads Eigen3::Eigen Imath::Imath)

if(WIN32)
  target_link_libraries(scansteps_steps PRIVATE avicap32)
endif()

# The loadable library: exports the functions of the table of kinds and set_handles, nothing else.
# Tests and fuzz targets make their steps by the same functions.
add_library(scansteps_factories OBJECT src/plugin/factories.cpp)
target_link_libraries(scansteps_factories PRIVATE scansteps_flags PUBLIC scansteps_steps)
add_library(scansteps_module MODULE)
set_target_properties(scansteps_module PROPERTIES OUTPUT_NAME scansteps)
if(WIN32)
  set_target_properties(scansteps_module PROPERTIES PREFIX "")
else()
  file(WRITE ${PROJECT_BINARY_DIR}/exports.map "{ global: create_*; getTypeIn*; getTypeOut*; set_handles; local: *; };\n")
  target_link_options(scansteps_module PRIVATE -Wl,--version-script=${PROJECT_BINARY_DIR}/exports.map)
  if(NOT SCANSTEPS_SANITIZE)
    target_link_options(scansteps_module PRIVATE -Wl,--no-undefined)
  endif()
endif()
target_link_libraries(scansteps_module PRIVATE scansteps_flags scansteps_factories)

# The command-line host. It loads the step library at run time and never links it.
file(GLOB host_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/host/*.cpp)
add_executable(scansteps_host ${host_sources})
set_target_properties(scansteps_host PROPERTIES OUTPUT_NAME scansteps)
target_compile_definitions(scansteps_host PRIVATE SCANSTEPS_VERSION="${PROJECT_VERSION}")
target_link_libraries(scansteps_host PRIVATE
  scansteps_flags scansteps-core fmt::fmt nlohmann_json::nlohmann_json CLI11::CLI11 ${CMAKE_DL_LIBS})
