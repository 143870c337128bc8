// Text from files, records and the network, made safe to print.
#pragma once

#include <string>
#include <string_view>

namespace scansteps {

/// `text` as it is, except that bytes that are not UTF-8 become `\xNN`, and characters that control a
/// terminal, break the line or change the direction of writing become `\n`, `\t`, `\r` or `\uNNNN`.
/// Backslashes stay: the result is for reading, not for parsing.
std::string printable(std::string_view text);

}  // namespace scansteps
