// Output of the steps for JPEG images that the baseline decoder rejected or decoded only in part.
#pragma once

#include <string>

#include "core/print.h"

namespace scansteps::images {

/// Prints the decoder's text and "parse error!"; returns the text without its line feed.
inline std::string printParseError(std::string reason)
{
    if (reason.ends_with('\n')) reason.pop_back();
    print::line(reason);
    print::line("parse error!");
    return reason;
}

}  // namespace scansteps::images
