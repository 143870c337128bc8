// Errors of the library: an exception whose object is a C string. Fixed texts are thrown as they are;
// formatted ones share one static buffer, so a second error overwrites the first text.
#pragma once

namespace scansteps {

/// Throws `text` itself. The text must outlive the handler (a literal).
[[noreturn]] void fail(const char* text);

/// Throws a printf-formatted text of at most 1023 bytes, held in the module's one error buffer.
#if defined(__MINGW32__)
[[gnu::format(gnu_printf, 1, 2)]]
#elif defined(__GNUC__)
[[gnu::format(printf, 1, 2)]]
#endif
[[noreturn]] void
failf(const char* format, ...);

}  // namespace scansteps
