// Throws errors as C strings.
#include "scansteps/error.h"

#include <cstdarg>
#include <cstdio>

namespace scansteps {

namespace {
thread_local char errorText[1024];
}

void fail(const char* text)
{
    throw text;
}

void failf(const char* format, ...)
{
    // An argument may be an earlier error text in errorText: format into a separate buffer first.
    char text[sizeof errorText];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    std::snprintf(errorText, sizeof errorText, "%s", text);
    throw static_cast<const char*>(errorText);
}

}  // namespace scansteps
