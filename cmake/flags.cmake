# Flags that every target of ours gets, kept off the installed package.
add_library(scansteps_flags INTERFACE)
target_compile_options(scansteps_flags INTERFACE
  $<$<CXX_COMPILER_ID:GNU,Clang>:-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wconversion -Wno-sign-conversion -ffp-contract=off>
  $<$<AND:$<BOOL:${SCANSTEPS_WERROR}>,$<CXX_COMPILER_ID:GNU,Clang>>:-Werror>)
# GCC 12 takes "text" + std::string for overlapping copies at -O3 (its bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(scansteps_flags INTERFACE -Wno-restrict)
endif()
# The Windows linker keeps one copy of an inline function that several files hold. GCC assumes that it is the copy
# just compiled and relies on the registers which that copy leaves alone; another copy, optimised differently, does not.
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
