// Output of steps, in one place so that widths and labels are consistent. It goes to standard output, except
// for messages about files that cannot be opened or written. What a worker thread prints is held back
// (captured_output.h), timing() excepted.
#pragma once

#include <cstdint>
#include <string_view>

namespace scansteps::print {

void text(std::string_view text);
/// The text, passed through printable(), and a line feed.
void line(std::string_view text);
/// On standard error: the words, the file name and, unless it is empty, ": " and the reason.
void fileTrouble(const char* words, std::string_view path, std::string_view reason = {});
/// The text on a line, then the same text in double quotes on another.
void twice(std::string_view text);
/// The value right-aligned in 15 columns, then the label, which includes blank and line feed.
void field(std::int64_t value, const char* label);
void field(double value, const char* label);
inline void field(int value, const char* label)
{
    field(std::int64_t{value}, label);
}
inline void field(float value, const char* label)
{
    field(double{value}, label);
}
/// The value without padding, then the label. Text values are passed through printable().
void labelled(std::int64_t value, const char* label);
void labelled(std::string_view value, const char* label);
/// `name` right-aligned in 10 columns, " time = ", seconds in 10 columns, " sec \n".
void timing(const char* name, std::int64_t microseconds);

}  // namespace scansteps::print
