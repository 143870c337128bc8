// Temporary names beside the file that is to be replaced, for everything that takes its own name later.
#pragma once

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

namespace scansteps {

inline std::error_code lastError()
{
    return {errno, std::generic_category()};
}

inline std::filesystem::path fromUtf8(const std::string& text)
{
    return std::u8string(text.begin(), text.end());
}

inline std::string utf8(const std::filesystem::path& path)
{
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

/// A link is followed, also one to a file that is still to come.
std::filesystem::path followed(std::filesystem::path path);

/// Calls `make`, which must not replace anything, with one name beside `target` after the other until it
/// succeeds or fails for another reason than the name. The name that succeeded is left in `made`.
template <class Make>
std::error_code makeBeside(const std::filesystem::path& target, std::filesystem::path& made, Make make)
{
    constexpr int kMostNames = 1000;
    std::u8string stem = target.u8string();
    bool isShort = false;
    std::error_code error;
    for (int number = 1; number <= kMostNames; ++number) {
        const std::string end = number == 1 ? ".part" : ".part" + std::to_string(number);
        std::filesystem::path name = stem + std::u8string(end.begin(), end.end());
        error = make(name);
        if (!error) {
            made = std::move(name);
            return error;
        }
        if (error == std::errc::filename_too_long && !isShort) {
            stem = (target.parent_path() / "scansteps").u8string();
            isShort = true;
        } else if (error != std::errc::file_exists) {
            break;
        }
    }
    return error;
}

}  // namespace scansteps
