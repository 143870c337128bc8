// All that the program itself prints, made printable, as names and messages may come from files and from the
// network. Lines on standard error are lost where it takes nothing; whether standard output took an answer is
// asked at the end (ferror).
#pragma once

#include <fmt/format.h>

#include <string_view>

#include "scansteps/printable.h"

namespace scansteps::host {

/// One line on standard error, after everything that was printed on standard output before.
void vsay(std::string_view head, fmt::string_view format, fmt::format_args values) noexcept;

template <class... Values>
void say(fmt::format_string<Values...> format, const Values&... values) noexcept
{
    vsay("scansteps: ", format, fmt::make_format_args(values...));
}
template <class... Values>
void warn(fmt::format_string<Values...> format, const Values&... values) noexcept
{
    vsay("scansteps: warning: ", format, fmt::make_format_args(values...));
}
template <class... Values>
void complain(fmt::format_string<Values...> format, const Values&... values) noexcept
{
    vsay("scansteps: error: ", format, fmt::make_format_args(values...));
}

/// The same without a head.
template <class... Values>
void sayBare(fmt::format_string<Values...> format, const Values&... values) noexcept
{
    vsay("", format, fmt::make_format_args(values...));
}

/// Lines on standard output; their line feeds stay.
void answerLines(std::string_view text);
/// One line on standard output.
template <class... Values>
void answer(fmt::format_string<Values...> format, const Values&... values)
{
    answerLines(printable(fmt::vformat(format, fmt::make_format_args(values...))) + "\n");
}

}  // namespace scansteps::host
