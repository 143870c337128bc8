// Files with UTF-8 paths on every system. Contains all differences between the systems' file calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace scansteps {

struct FileCloser
{
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

/// Opens a file as fopen() does; `path` is UTF-8 also on Windows. `mode` should hold "b".
File openFile(const std::string& path, const char* mode);

/// Unbuffered calls on file descriptors with results as in POSIX. Calls that would block (on a pipe, for
/// example) wait; if the host is interrupted meanwhile, they fail with EINTR.
namespace rawfile {
enum class Access
{
    Read,
    Truncate,
    CreateNew,  ///< for writing; fails if the name exists
    Guard,      ///< locks an existing file against writing by others and leaves it unchanged
};
/// Opens a file and locks it, so that no other call of this function can truncate or write it. Fails if the
/// file is already open for writing, or is to be truncated and open for reading. Devices and pipes are not
/// locked.
int open(const std::string& path, Access access);
/// Whether this process may write the existing file; if not, errno has the reason.
bool isWritable(const std::string& path);
inline constexpr std::uint64_t kUnlimited = UINT64_MAX;
/// File size limit of the process, kUnlimited for pipes and devices. On some systems, writing beyond it
/// raises a signal.
std::uint64_t sizeLimit(int file);
/// Size of a regular file; nothing for pipes, devices and folders.
std::optional<std::uint64_t> regularSize(int file);
/// Truncates a regular file and moves to its end; false on failure.
bool truncate(int file, std::uint64_t size);
/// Number of bytes transferred, 0 at the end of the file, -1 on an error. Restarted after a signal.
std::int64_t read(int file, void* bytes, std::size_t length);
/// Reads into `first`, then `second`, with one call where the system supports it.
std::int64_t readTwo(int file, std::span<std::byte> first, std::span<std::byte> second);
/// The new position, -1 on an error.
std::int64_t seek(int file, std::uint64_t position);
std::int64_t write(int file, const void* bytes, std::size_t length);
/// Gathered write of up to 64 pieces; may be partial.
std::int64_t writeGather(int file, std::span<const std::span<const std::byte>> pieces);
int close(int file);
/// Renames a file, replacing an existing one. `file`, unless it is -1, remains usable for writing. False on
/// failure; `file` may then be closed (-1).
bool rename(int& file, const std::string& from, const std::string& to);

/// Blocks SIGPIPE in this thread during its lifetime and discards a pending one, so that writing to a pipe
/// without a reader is only an error of the call and does not end the host's process.
class NoPipeSignal
{
  public:
    /// Does nothing unless `needed`.
    explicit NoPipeSignal(bool needed);
    ~NoPipeSignal();
    NoPipeSignal(const NoPipeSignal&) = delete;
    NoPipeSignal& operator=(const NoPipeSignal&) = delete;

  private:
    bool blocked_ = false;
};
}  // namespace rawfile

#ifdef _WIN32
std::wstring widePath(const std::string& path);
#endif

}  // namespace scansteps
