// Text from files, records and the network, made safe to print.
#pragma once

#include "scansteps/cpp20.h"

#include <string>
#include <string_view>

namespace scansteps {

/// `text` with bytes that are not valid UTF-8 written as `\xNN`, and with control characters, line separators
/// and direction marks written as `\n`, `\t`, `\r` or `\uNNNN`. Backslashes are not escaped: the result is
/// meant for reading, not for parsing.
std::string printable(std::string_view text);

}  // namespace scansteps
