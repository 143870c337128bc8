// File descriptors on every system: for redirecting standard output, and for reading and writing without
// stdio, which gives up when a signal arrives. Errors are left in errno; interrupted calls are repeated.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace scansteps::host::descriptor {

inline constexpr int kInput = 0, kOutput = 1, kErrors = 2;

/// Everything up to the end; nothing on an error.
std::optional<std::string> readAll(int file);
std::optional<std::string> readFile(const std::string& path);

/// For writing, created where missing, never truncated; `isNew`: fails when the file exists. -1 on an error.
int open(const std::string& path, bool isNew);
/// Not inherited by child processes. -1 on an error.
int duplicate(int file);
/// Makes `file` refer to the open file of `by` (dup2).
bool replace(int file, int by);
bool writeAll(int file, std::string_view bytes);
/// Truncates a regular file to length 0; does nothing to others.
bool clear(int file);
bool isRegular(int file);
bool isSameFile(int a, int b);
bool close(int file);

}  // namespace scansteps::host::descriptor
