// What steps print, in one place, so that widths and labels are the same everywhere. All of it goes to
// standard output, except for files that cannot be opened or written.
#pragma once

#include <cstdint>
#include <string_view>

namespace scansteps::print {

void text(std::string_view text);
/// The text, made printable, and a line feed.
void line(std::string_view text);
/// On standard error: the words, the name of the file and, where there is one, ": " and the reason.
void fileTrouble(const char* words, std::string_view path, std::string_view reason = {});
/// The text on a line, then the same text in double quotes on a line of its own.
void twice(std::string_view text);
/// Value right-aligned in 15 columns, then the label (which brings its own blank and line feed).
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
/// Value in as many columns as it needs, then the label. A text is made printable first.
void labelled(std::int64_t value, const char* label);
void labelled(std::string_view value, const char* label);
/// `name` right-aligned in 10 columns, " time = ", seconds in 10 columns, " sec \n".
void timing(const char* name, std::int64_t microseconds);

}  // namespace scansteps::print
