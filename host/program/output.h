// Everything that the program itself prints. Names and messages may come from files and from the network, so
// they are made printable. Errors of standard error are ignored; those of standard output are checked at the
// end (ferror).
#pragma once

#include <fmt/format.h>

#include <string_view>

#include "scansteps/host.h"
#include "scansteps/printable.h"

namespace scansteps::host {

/// What is printed on standard error besides what was asked for: errors, also warnings, or also what the host
/// does.
LogLevel logLevel();
void setLogLevel(LogLevel level);
/// Takes the level from the variable SCANSTEPS_LOG: error, warning or info.
void readLogLevel();

/// One line on standard error, after flushing standard output.
void vsay(std::string_view head, fmt::string_view format, fmt::format_args values) noexcept;

template <class... Values>
void say(fmt::format_string<Values...> format, const Values&... values) noexcept
{
    vsay("scansteps: ", format, fmt::make_format_args(values...));
}
template <class... Values>
void warn(fmt::format_string<Values...> format, const Values&... values) noexcept
{
    if (logLevel() >= LogLevel::Warning)
        vsay("scansteps: warning: ", format, fmt::make_format_args(values...));
}
template <class... Values>
void inform(fmt::format_string<Values...> format, const Values&... values) noexcept
{
    if (logLevel() >= LogLevel::Info) vsay("scansteps: info: ", format, fmt::make_format_args(values...));
}
template <class... Values>
void complain(fmt::format_string<Values...> format, const Values&... values) noexcept
{
    vsay("scansteps: error: ", format, fmt::make_format_args(values...));
}

/// The same without a prefix.
template <class... Values>
void sayBare(fmt::format_string<Values...> format, const Values&... values) noexcept
{
    vsay("", format, fmt::make_format_args(values...));
}

/// Lines on standard output; line feeds are kept.
void answerLines(std::string_view text);
/// One line on standard output.
template <class... Values>
void answer(fmt::format_string<Values...> format, const Values&... values)
{
    answerLines(printable(fmt::vformat(format, fmt::make_format_args(values...))) + "\n");
}

}  // namespace scansteps::host
