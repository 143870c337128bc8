// Writes messages and answers, made printable.
#include "output.h"

#include <atomic>
#include <cstdio>

#include "library/descriptors.h"
#include "library/platform.h"

namespace scansteps::host {

namespace {

std::atomic<LogLevel> level = LogLevel::Warning;

}  // namespace

LogLevel logLevel()
{
    return level;
}

void setLogLevel(LogLevel wanted)
{
    level = wanted;
}

void readLogLevel()
{
    const std::string name = environmentVariable("SCANSTEPS_LOG");
    if (name == "error")
        level = LogLevel::Error;
    else if (name == "info")
        level = LogLevel::Info;
    else if (!name.empty() && name != "warning")
        warn("SCANSTEPS_LOG is \"{}\", and not error, warning or info", name);
}

void vsay(std::string_view head, fmt::string_view format, fmt::format_args values) noexcept
{
    std::fflush(stdout);
    try {
        std::string line(head);
        line += printable(fmt::vformat(format, values)) + "\n";
        descriptor::writeAll(descriptor::kErrors, line);
    } catch (...) {
        descriptor::writeAll(descriptor::kErrors, "scansteps: error: out of memory\n");
    }
}

void answerLines(std::string_view text)
{
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string line = printable(text.substr(0, end)) + (end == text.npos ? "" : "\n");
        std::fwrite(line.data(), 1, line.size(), stdout);
        text.remove_prefix(end == text.npos ? text.size() : end + 1);
    }
}

}  // namespace scansteps::host
