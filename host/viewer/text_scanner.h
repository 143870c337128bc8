// Words and numbers of a text, line by line, without copies.
#pragma once

#include <charconv>
#include <stdexcept>
#include <string_view>

namespace scansteps::viewer {

class TextScanner
{
  public:
    explicit TextScanner(std::string_view text) : at_(text.data()), end_(text.data() + text.size()) {}

    bool atEnd() const { return at_ == end_; }
    std::string_view rest() const { return {at_, std::size_t(end_ - at_)}; }
    /// The next word of the line; empty at its end.
    std::string_view word()
    {
        while (at_ != end_ && isBlank(*at_)) ++at_;
        const char* const begin = at_;
        while (at_ != end_ && !isBlank(*at_) && *at_ != '\n') ++at_;
        return {begin, std::size_t(at_ - begin)};
    }
    /// The next word as a number. Throws when it is none.
    template <class T>
    T number()
    {
        std::string_view text = word();
        if (text.starts_with('+')) text.remove_prefix(1);
        T value{};
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (error == std::errc::result_out_of_range) return T{};
        if (error != std::errc() || end != text.data() + text.size())
            throw std::runtime_error("a number is missing or wrong");
        return value;
    }
    /// What is left of the line, without the blanks around it; goes to the next one.
    std::string_view line()
    {
        const char* begin = at_;
        while (at_ != end_ && *at_ != '\n') ++at_;
        const char* last = at_;
        if (at_ != end_) ++at_;
        while (begin != last && isBlank(*begin)) ++begin;
        while (begin != last && isBlank(last[-1])) --last;
        return {begin, std::size_t(last - begin)};
    }
    /// Goes to the next word, in whatever line it is.
    void skipSpace()
    {
        while (at_ != end_ && (isBlank(*at_) || *at_ == '\n')) ++at_;
    }

  private:
    static bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }
    const char* at_;
    const char* end_;
};

}  // namespace scansteps::viewer
