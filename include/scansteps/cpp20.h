// Included first by every public header: tells who compiles as an older C++ in one line instead of hundreds.
#pragma once

#if (defined(_MSVC_LANG) ? _MSVC_LANG : __cplusplus) < 201709L
// A header that is missing is the one error that ends the compilation at once.
#include "scansteps needs C++20: compile with -std=c++20, or in CMake link scansteps::core"
#endif
