// Files by UTF-8 path on every system; the only place that knows how each system opens them.
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

/// Unbuffered descriptor calls, as the systems have them; results as in POSIX. Where they would block, for
/// the other end of a pipe say, they wait until the host is interrupted, which is EINTR.
namespace rawfile {
enum class Access
{
    Read,
    Truncate,
    CreateNew,  ///< to write; fails when there is something of this name
    Guard,      ///< keeps others from writing the existing file, which stays as it is
};
/// Opens a file so that no other call here can truncate or write it meanwhile; fails when the file is open
/// for writing already, or for reading and is to be truncated. Devices and pipes are not guarded.
int open(const std::string& path, Access access);
/// Whether this process may write the existing file; the reason not to is in errno.
bool isWritable(const std::string& path);
inline constexpr std::uint64_t kUnlimited = UINT64_MAX;
/// Largest size that the process may give the file. Writing beyond it would raise a signal on some systems.
/// kUnlimited for pipes and devices.
std::uint64_t sizeLimit(int file);
/// Size of a regular file; nothing for a pipe, a device or a folder.
std::optional<std::uint64_t> regularSize(int file);
/// Cuts a regular file and goes on writing at its end; false when that is not possible.
bool truncate(int file, std::uint64_t size);
/// Bytes transferred, 0 at the end of the file, -1 on an error. Calls that a signal cut short are repeated.
std::int64_t read(int file, void* bytes, std::size_t length);
/// Fills the first place, then the second, in one call where the system can.
std::int64_t readTwo(int file, std::span<std::byte> first, std::span<std::byte> second);
std::int64_t write(int file, const void* bytes, std::size_t length);
/// Gathered write of at most the first 64 pieces; may be partial.
std::int64_t writeGather(int file, std::span<const std::span<const std::byte>> pieces);
int close(int file);
/// Renames a file, replacing another one. Writing to `file`, where it is not -1, goes on afterwards. False
/// when that is not possible; the file may be closed then (-1).
bool rename(int& file, const std::string& from, const std::string& to);

/// While one lives, writing to a pipe that nobody reads any more is only an error of the call: the signal
/// that comes with it, and would end the host's process, is kept away from this thread and taken.
class NoPipeSignal
{
  public:
    /// Does nothing unless it is needed.
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
