// Expansion of patterns, with the file system of the C++ library.
#include "scansteps/file_patterns.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include "scansteps/error.h"
#include "scansteps/printable.h"
#include "scansteps/stream.h"

namespace scansteps {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kMaxListBytes = std::uint64_t{64} << 20U;

fs::path pathOf(std::string_view utf8)
{
    return {std::u8string(utf8.begin(), utf8.end())};
}

std::string nameOf(const fs::path& path)
{
    const std::u8string text = path.generic_u8string();
    return {text.begin(), text.end()};
}

// A folder or file that cannot be examined may hold what is asked for: nothing is left out silently.
void checkSearched(const fs::path& path, const std::error_code& error)
{
    if (!error || error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory)
        return;
    failf("cannot search %s: %s", printable(nameOf(path)).c_str(), error.message().c_str());
}

bool isThere(const fs::path& path)
{
    std::error_code error;
    const bool found = fs::exists(path, error);
    checkSearched(path, error);
    return found;
}

std::vector<fs::directory_entry> entriesOf(const fs::path& folder)
{
    std::error_code error;
    fs::directory_iterator entry;
    do {
        entry = fs::directory_iterator(folder, error);
    } while (error == std::errc::interrupted);
    std::vector<fs::directory_entry> entries;
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) entries.push_back(*entry);
    checkSearched(folder, error);
    return entries;
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

// Length of the character at the beginning, in UTF-8.
std::size_t characterLength(std::string_view text)
{
    std::size_t length = 1;
    while (length < text.size() && (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80U) ++length;
    return length;
}

// Matches one byte against the set that `pattern` begins with, and removes the set. A "[" without "]" stands
// for itself.
bool matchesSet(char c, std::string_view& pattern)
{
    const bool isNegated = pattern.starts_with("[!") || pattern.starts_with("[^");
    const std::size_t begin = isNegated ? 2 : 1;
    const std::size_t end = pattern.find(']', begin + 1);  // a "]" in the first place is a member
    if (end == std::string_view::npos) {
        pattern.remove_prefix(1);
        return c == '[';
    }
    const std::string_view members = pattern.substr(begin, end - begin);
    pattern.remove_prefix(end + 1);
    bool found = false;
    for (std::size_t i = 0; i < members.size(); ++i) {
        const bool isRange = i + 2 < members.size() && members[i + 1] == '-';
        found |= isRange ? c >= members[i] && c <= members[i + 2] : c == members[i];
        if (isRange) i += 2;
    }
    return found != isNegated;
}

// A printf pattern taken apart.
struct NumberPattern
{
    std::string before, after;
    std::size_t width = 0;
    char fill = ' ';

    std::string name(int number) const
    {
        std::string digits = std::to_string(number);
        if (digits.size() < width) digits.insert(0, width - digits.size(), fill);
        return before + digits + after;
    }
};

std::optional<NumberPattern> numberPattern(std::string_view name)
{
    constexpr std::size_t kMaxWidth = 20;
    NumberPattern pattern;
    bool found = false;
    for (std::size_t i = 0; i < name.size(); ++i) {
        std::string& text = found ? pattern.after : pattern.before;
        if (name[i] != '%') {
            text += name[i];
            continue;
        }
        if (name.substr(i).starts_with("%%")) {
            text += '%';
            ++i;
            continue;
        }
        if (found) return std::nullopt;
        std::size_t at = i + 1;
        if (at < name.size() && name[at] == '0') pattern.fill = '0';
        for (; at < name.size() && isDigit(name[at]) && pattern.width <= kMaxWidth; ++at)
            pattern.width = 10 * pattern.width + static_cast<std::size_t>(name[at] - '0');
        if (at >= name.size() || pattern.width > kMaxWidth ||
            std::string_view("diu").find(name[at]) == std::string_view::npos)
            return std::nullopt;
        found = true;
        i = at;
    }
    return found ? std::optional(pattern) : std::nullopt;
}

bool hasWildcards(std::string_view text)
{
    return text.find_first_of("*?[") != std::string_view::npos;
}

std::vector<std::string> numberedFiles(const NumberPattern& pattern)
{
    std::vector<std::string> names;
    const auto isFile = [&](int number) { return isThere(pathOf(pattern.name(number))); };
    const int first = isFile(0) ? 0 : 1;
    for (int number = first; isFile(number); ++number) names.push_back(pattern.name(number));
    return names;
}

// Extends each folder by the entries that match the next part of the pattern.
std::vector<fs::path> matchesIn(const std::vector<fs::path>& folders, const fs::path& part, bool isLast)
{
    std::vector<fs::path> matches;
    for (const fs::path& folder : folders) {
        if (!hasWildcards(nameOf(part))) {
            if (isThere(folder / part)) matches.push_back(folder / part);
            continue;
        }
        for (const fs::directory_entry& entry : entriesOf(folder.empty() ? fs::path(".") : folder)) {
            std::error_code ignored;
            const fs::path name = entry.path().filename();
            if (isLast == entry.is_directory(ignored)) continue;
            if (matchesWildcards(nameOf(name), nameOf(part))) matches.push_back(folder / name);
        }
    }
    return matches;
}

std::vector<std::string> globFiles(const std::string& pattern)
{
    const fs::path path = pathOf(pattern);
    std::vector<fs::path> matches = {path.root_path()};
    const fs::path relative = path.relative_path();
    for (auto part = relative.begin(); part != relative.end(); ++part)
        matches = matchesIn(matches, *part, std::next(part) == relative.end());
    std::vector<std::string> names;
    for (const fs::path& match : matches) names.push_back(nameOf(match));
    std::sort(names.begin(), names.end(), naturalLess);
    return names;
}

// The next line, without its end.
std::string_view takeLine(std::string_view& text)
{
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(text.size(), end + 1));
    while (line.ends_with('\r')) line.remove_suffix(1);
    return line;
}

std::vector<std::string> listedFiles(const std::string& list)
{
    BIOfs file(list, BIOfs::Mode::Read);
    if (!file.isOpen()) failf("cannot read the list %s: %s", printable(list).c_str(), file.reason().c_str());
    std::string bytes;
    while (!file.atEnd()) {
        char byte = 0;
        file.read(&byte, 1);
        bytes += byte;
        if (bytes.size() > kMaxListBytes) failf("the list %s is too large", printable(list).c_str());
    }
    std::string_view text = bytes;
    if (text.starts_with("\xef\xbb\xbf")) text.remove_prefix(3);
    std::vector<std::string> names;
    while (!text.empty()) {
        const std::string_view line = takeLine(text);
        if (!line.empty() && !line.starts_with('#')) names.emplace_back(line);
    }
    if (names.empty()) failf("the list %s names no files", printable(list).c_str());
    return names;
}

}  // namespace

bool naturalLess(std::string_view a, std::string_view b)
{
    std::size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (!isDigit(a[i]) || !isDigit(b[j])) {
            if (a[i] != b[j]) return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[j]);
            ++i;
            ++j;
            continue;
        }
        const auto run = [](std::string_view text, std::size_t& at) {
            while (at + 1 < text.size() && text[at] == '0' && isDigit(text[at + 1])) ++at;
            const std::size_t begin = at;
            while (at < text.size() && isDigit(text[at])) ++at;
            return text.substr(begin, at - begin);
        };
        const std::string_view m = run(a, i), n = run(b, j);
        if (m.size() != n.size()) return m.size() < n.size();
        if (m != n) return m < n;
    }
    if (i < a.size() || j < b.size()) return j < b.size();
    return a < b;  // they differ in leading zeros only
}

bool matchesWildcards(std::string_view name, std::string_view pattern)
{
    if (name.starts_with('.') && !pattern.starts_with('.')) return false;
    // The last "*", and where the text begins that it leaves to the rest of the pattern.
    std::optional<std::string_view> star, left;
    for (;;) {
        if (pattern.starts_with('*')) {
            pattern.remove_prefix(1);
            star = pattern;
            left = name;
            continue;
        }
        if (name.empty() && pattern.empty()) return true;
        bool fits = !name.empty() && !pattern.empty();
        if (fits) {
            const bool isAny = pattern[0] == '?', isSet = pattern[0] == '[';
            const std::size_t length = isAny ? characterLength(name) : 1;
            if (isSet)
                fits = matchesSet(name[0], pattern);
            else
                fits = isAny || name[0] == pattern[0];
            if (!isSet) pattern.remove_prefix(1);
            name.remove_prefix(length);
        }
        if (fits) continue;
        if (!left || left->empty()) return false;
        left->remove_prefix(1);
        name = *left;
        pattern = *star;
    }
}

bool isFilePattern(const std::string& name)
{
    if (name.starts_with('@')) return true;
    std::error_code error;
    return (hasWildcards(name) || numberPattern(name)) && !fs::exists(pathOf(name), error);
}

std::vector<std::string> matchingFiles(const std::string& name)
{
    if (name.starts_with('@')) return listedFiles(name.substr(1));
    if (!isFilePattern(name)) return {name};
    const auto numbered = numberPattern(name);
    const auto files = hasWildcards(name) ? globFiles(name) : numberedFiles(*numbered);
    if (files.empty() && numbered && !hasWildcards(name))
        failf("no file matches %s: there is neither %s nor %s", printable(name).c_str(),
              printable(numbered->name(0)).c_str(), printable(numbered->name(1)).c_str());
    if (files.empty()) failf("no file matches %s", printable(name).c_str());
    return files;
}

}  // namespace scansteps
