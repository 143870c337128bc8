// Formatted output of steps.
#include "core/print.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <string>

#include "core/captured_output.h"
#include "scansteps/printable.h"

namespace scansteps::print {

namespace {

void put(std::FILE* file, std::string_view text)
{
    if (CapturedOutput* const captured = CapturedOutput::ofThisThread())
        captured->addText(file == stderr, text);
    else
        std::fwrite(text.data(), 1, text.size(), file);
}

template <class Value>
void putValue(const char* format, Value value, const char* label)
{
    char text[256];
    const int length = std::snprintf(text, sizeof text, format, value, label);
    put(stdout, {text, std::min(std::size_t(length), sizeof text - 1)});
}

}  // namespace

void text(std::string_view text)
{
    put(stdout, text);
}

void line(std::string_view text)
{
    print::text(printable(text) + "\n");
}

void fileTrouble(const char* words, std::string_view path, std::string_view reason)
{
    const std::string line =
        words + printable(path) + (reason.empty() ? "" : ": ") + printable(reason) + "\n";
    put(stderr, line);
}

void twice(std::string_view text)
{
    const std::string once(text);
    print::text(once + "\n\"" + once + "\"\n");
}

void field(std::int64_t value, const char* label)
{
    putValue("%15" PRId64 "%s", value, label);
}

void field(double value, const char* label)
{
    putValue("%15g%s", value, label);
}

void labelled(std::int64_t value, const char* label)
{
    putValue("%" PRId64 "%s", value, label);
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
