#include "scansteps/error.h"

#include <cstdarg>
#include <cstdio>

namespace scansteps {

namespace {
char errorText[1024];
}

void fail(const char* text)
{
    throw text;
}

void failf(const char* format, ...)
{
    // A formatted argument may be an earlier error text: build the new one beside the old one.
    char text[sizeof errorText];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    std::snprintf(errorText, sizeof errorText, "%s", text);
    throw static_cast<const char*>(errorText);
}

}  // namespace scansteps
