// Formatted output of steps.
#include "core/print.h"

#include <cinttypes>
#include <cstdio>
#include <string>

#include "scansteps/printable.h"

namespace scansteps::print {

void text(std::string_view text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
}

void line(std::string_view text)
{
    print::text(printable(text) + "\n");
}

void fileTrouble(const char* words, std::string_view path, std::string_view reason)
{
    const std::string line =
        words + printable(path) + (reason.empty() ? "" : ": ") + printable(reason) + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

void twice(std::string_view text)
{
    const std::string once(text);
    print::text(once + "\n\"" + once + "\"\n");
}

void field(std::int64_t value, const char* label)
{
    std::printf("%15" PRId64 "%s", value, label);
}

void field(double value, const char* label)
{
    std::printf("%15g%s", value, label);
}

void labelled(std::int64_t value, const char* label)
{
    std::printf("%" PRId64 "%s", value, label);
}

void labelled(std::string_view value, const char* label)
{
    print::text(printable(value) + label);
}

void timing(const char* name, std::int64_t microseconds)
{
    const auto seconds = static_cast<float>(static_cast<double>(microseconds) * 1e-6);
    std::printf("%10s time = %10g sec \n", name, double{seconds});
}

}  // namespace scansteps::print
