# Builds for 64-bit Windows with Debian's MinGW compilers (the POSIX threads variety). SCANSTEPS_WINDOWS_DEPS is
# the folder of the dependencies that scripts/windows_deps.sh built.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)

set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

if(NOT SCANSTEPS_WINDOWS_DEPS)
  set(SCANSTEPS_WINDOWS_DEPS $ENV{SCANSTEPS_WINDOWS_DEPS})
endif()
if(NOT SCANSTEPS_WINDOWS_DEPS)
  set(SCANSTEPS_WINDOWS_DEPS $ENV{HOME}/.cache/scansteps/windows-deps)
endif()
# Feature checks run this file again and need the folder too.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES SCANSTEPS_WINDOWS_DEPS)

set(CMAKE_FIND_ROOT_PATH ${SCANSTEPS_WINDOWS_DEPS} /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Programs made here run under Wine.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine.sh)
