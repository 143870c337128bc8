// Writes messages and answers, made printable.
#include "output.h"

#include <cstdio>

#include "library/descriptors.h"

namespace scansteps::host {

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
