// The bytes of an image file or pipe.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace scansteps::imageio {

/// Larger files are refused.
inline constexpr std::uint64_t kMaxFileBytes = std::uint64_t{1} << 30U;

/// Throws DecodeError with the system's message when the file cannot be opened or read, or is too large. An
/// interrupted wait for a pipe counts as a failure.
std::vector<std::uint8_t> readFile(const std::string& path);

}  // namespace scansteps::imageio
