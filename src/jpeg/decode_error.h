// The error text of the baseline JPEG decoder, which never prints itself; its callers do.
#pragma once

#include <array>
#include <cstdarg>
#include <cstdio>

#include "scansteps/error.h"

namespace scansteps::jpeg {

/// A 256-byte buffer for the last message.
class JpegErrorText
{
  public:
    /// Formats a message (truncated to 255 bytes). Always returns false, so that a check can
    /// `return error.set(...)`.
    SCANSTEPS_PRINTF(2, 3)
    bool set(const char* format, ...)
    {
        std::va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(text_.data(), text_.size(), format, arguments);
        va_end(arguments);
        return false;
    }

    const char* text() const { return text_.data(); }

  private:
    std::array<char, 256> text_{};
};

}  // namespace scansteps::jpeg
