// Errors of the library are thrown as C strings. Fixed texts are thrown directly; formatted ones share one
// buffer per thread, so a later error overwrites the text of an earlier one.
#pragma once

#include "scansteps/cpp20.h"

// Lets the compiler check calls of functions that take a printf format. MinGW is told to check against the C
// standard's printf instead of the system's.
#if defined(__MINGW32__)
#define SCANSTEPS_PRINTF(position, first) [[gnu::format(gnu_printf, position, first)]]
#elif defined(__GNUC__)
#define SCANSTEPS_PRINTF(position, first) [[gnu::format(printf, position, first)]]
#else
#define SCANSTEPS_PRINTF(position, first)
#endif

namespace scansteps {

/// Throws `text` itself, which must outlive the handler (a literal).
[[noreturn]] void fail(const char* text);

/// Throws a printf-formatted text of at most 1023 bytes, held in the thread's only error buffer.
SCANSTEPS_PRINTF(1, 2)
[[noreturn]] void failf(const char* format, ...);

}  // namespace scansteps
