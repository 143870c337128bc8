// Errors of the library: an exception whose object is a C string. Fixed texts are thrown as they are;
// formatted ones share one static buffer, so a second error overwrites the first text.
#pragma once

// For functions that take a printf format and its arguments: the compiler checks them. MinGW's printf is the
// C standard's, not that of the system.
#if defined(__MINGW32__)
#define SCANSTEPS_PRINTF(position, first) [[gnu::format(gnu_printf, position, first)]]
#elif defined(__GNUC__)
#define SCANSTEPS_PRINTF(position, first) [[gnu::format(printf, position, first)]]
#else
#define SCANSTEPS_PRINTF(position, first)
#endif

namespace scansteps {

/// Throws `text` itself. The text must outlive the handler (a literal).
[[noreturn]] void fail(const char* text);

/// Throws a printf-formatted text of at most 1023 bytes, held in the module's one error buffer.
SCANSTEPS_PRINTF(1, 2)
[[noreturn]] void failf(const char* format, ...);

}  // namespace scansteps
