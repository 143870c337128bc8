// Temporary names in the folder of a file that is to be created or replaced by renaming.
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

/// The target of a symbolic link, which need not exist; otherwise `path` itself.
std::filesystem::path followed(std::filesystem::path path);

/// Calls `make`, which must not replace existing files, with different names in the folder of `target` until
/// it succeeds or fails for a reason other than the name. Stores the successful name in `made`.
template <class Make>
std::error_code makeBeside(const std::filesystem::path& target, std::filesystem::path& made, Make make)
{
    constexpr int kMaxNames = 1000;
    std::u8string stem = target.u8string();
    bool isShort = false;
    std::error_code error;
    for (int number = 1; number <= kMaxNames; ++number) {
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
