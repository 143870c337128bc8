// File calls of Windows and POSIX.
#include "core/files.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "core/temporary_name.h"
#include "core/waits.h"

#ifdef _WIN32
#include <io.h>
#include <share.h>
#include <sys/stat.h>
#include <windows.h>
#else
#include <poll.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <csignal>
#endif

namespace scansteps {

// Transfers are limited to 1 GiB: systems truncate larger ones or take a 32-bit length.
static constexpr std::size_t kMaxTransfer = std::size_t{1} << 30;

#ifdef _WIN32

std::wstring widePath(const std::string& path)
{
    const int length = MultiByteToWideChar(CP_UTF8, 0, path.c_str(), -1, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(std::max(length, 1)), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, path.c_str(), -1, wide.data(), length);
    wide.resize(wide.size() - 1);
    return wide;
}

File openFile(const std::string& path, const char* mode)
{
    const std::string narrow(mode);
    return File(_wfopen(widePath(path).c_str(), std::wstring(narrow.begin(), narrow.end()).c_str()));
}

namespace rawfile {

int open(const std::string& path, Access access)
{
    const int flags = access == Access::Read        ? _O_RDONLY
                      : access == Access::Guard     ? _O_WRONLY
                      : access == Access::CreateNew ? _O_WRONLY | _O_CREAT | _O_EXCL
                                                    : _O_WRONLY | _O_CREAT | _O_TRUNC;
    return _wsopen(widePath(path).c_str(), flags | _O_BINARY | _O_NOINHERIT, _SH_DENYWR,
                   _S_IREAD | _S_IWRITE);
}

bool isWritable(const std::string& path)
{
    constexpr int kToWrite = 2;
    return _waccess(widePath(path).c_str(), kToWrite) == 0;
}

std::uint64_t sizeLimit(int)
{
    return kUnlimited;
}

std::optional<std::uint64_t> regularSize(int file)
{
    struct _stat64 status = {};
    if (_fstat64(file, &status) != 0 || (status.st_mode & _S_IFMT) != _S_IFREG) return std::nullopt;
    return static_cast<std::uint64_t>(status.st_size);
}

bool truncate(int file, std::uint64_t size)
{
    const auto end = static_cast<std::int64_t>(size);
    return _chsize_s(file, end) == 0 && _lseeki64(file, end, SEEK_SET) == end;
}

std::int64_t readTwo(int file, std::span<std::byte> first, std::span<std::byte> second)
{
    // Short reads go through the second buffer, to save a system call for every few bytes.
    if (first.size() >= second.size()) return read(file, first.data(), first.size());
    const std::int64_t done = read(file, second.data(), second.size());
    if (done <= 0) return done;
    const std::size_t direct = std::min(first.size(), static_cast<std::size_t>(done));
    std::memcpy(first.data(), second.data(), direct);
    std::memmove(second.data(), second.data() + direct, static_cast<std::size_t>(done) - direct);
    return done;
}

std::int64_t read(int file, void* bytes, std::size_t length)
{
    return _read(file, bytes, static_cast<unsigned>(std::min(length, kMaxTransfer)));
}

std::int64_t seek(int file, std::uint64_t position)
{
    return _lseeki64(file, static_cast<std::int64_t>(position), SEEK_SET);
}

std::int64_t write(int file, const void* bytes, std::size_t length)
{
    return _write(file, bytes, static_cast<unsigned>(std::min(length, kMaxTransfer)));
}

std::int64_t writeGather(int file, std::span<const std::span<const std::byte>> pieces)
{
    return pieces.empty() ? 0 : write(file, pieces[0].data(), pieces[0].size());
}

int close(int file)
{
    return _close(file);
}

bool rename(int& file, const std::string& from, const std::string& to)
{
    // An open file cannot be renamed.
    const bool wasOpen = file >= 0;
    if (wasOpen && _close(std::exchange(file, -1)) != 0) return false;
    std::error_code error;
    std::filesystem::rename(fromUtf8(from), fromUtf8(to), error);
    if (error) {
        errno = error.default_error_condition().value();
        return false;
    }
    if (!wasOpen) return true;
    file = _wsopen(widePath(to).c_str(), _O_WRONLY | _O_APPEND | _O_BINARY | _O_NOINHERIT, _SH_DENYWR, 0);
    return file >= 0;
}

// Windows has no such signal.
NoPipeSignal::NoPipeSignal(bool) {}
NoPipeSignal::~NoPipeSignal() = default;

}  // namespace rawfile

#else

File openFile(const std::string& path, const char* mode)
{
    return File(std::fopen(path.c_str(), mode));
}

namespace rawfile {

namespace {
// Whether the file is a pipe that no writer has opened yet; reading from it returns 0, as at the end.
bool awaitsWriter(int file)
{
    struct stat status = {};
    pollfd state{file, POLLIN, 0};
    return ::fstat(file, &status) == 0 && S_ISFIFO(status.st_mode) && ::poll(&state, 1, 0) >= 0 &&
           ((state.revents & POLLIN) != 0 || (state.revents & POLLHUP) == 0);
}

// Files are opened in non-blocking mode. Calls that would block wait here, until the host is interrupted
// (EINTR).
template <class Call>
std::int64_t transfer(int file, bool reading, Call call)
{
    for (;;) {
        const std::int64_t result = call();
        if (result > 0 || (result == 0 && !(reading && awaitsWriter(file)))) return result;
        if (result < 0 && errno == EINTR) continue;
        if (result < 0 && errno != EAGAIN && errno != EWOULDBLOCK) return result;
        const auto waited = reading ? waits::readable(file) : waits::writable(file);
        if (waited == waits::Wait::Interrupted) {
            errno = EINTR;
            return -1;
        }
    }
}

// Opening a pipe for writing waits for a reader.
int openPatiently(const char* path, int flags)
{
    constexpr int kBetweenTriesMs = 20;
    for (;;) {
        const int file = ::open(path, flags | O_CLOEXEC | O_NONBLOCK, 0666);
        const int error = errno;
        if (file >= 0) return file;
        struct stat status = {};
        const bool noReader = error == ENXIO && ::stat(path, &status) == 0 && S_ISFIFO(status.st_mode);
        errno = error;
        if (error == EINTR) continue;
        if (!noReader) return -1;
        if (waits::pause(kBetweenTriesMs) == waits::Wait::Interrupted) {
            errno = EINTR;
            return -1;
        }
    }
}

bool isRegular(int file)
{
    return regularSize(file).has_value();
}

// False if another file has been renamed to `path` since `file` was opened.
bool isNamed(int file, const std::string& path)
{
    struct stat opened = {}, named = {};
    return ::fstat(file, &opened) != 0 || ::stat(path.c_str(), &named) != 0 ||
           (opened.st_ino == named.st_ino && opened.st_dev == named.st_dev);
}

bool lock(int file, int kind)
{
    while (::flock(file, kind | LOCK_NB) != 0)
        if (errno != EINTR) return false;
    return true;
}

bool setSize(int file, off_t size)
{
    while (::ftruncate(file, size) != 0)
        if (errno != EINTR) return false;
    return true;
}
}  // namespace

int open(const std::string& path, Access access)
{
    const bool toWrite = access != Access::Read;
    const int flags = access == Access::Read        ? O_RDONLY
                      : access == Access::Guard     ? O_WRONLY
                      : access == Access::CreateNew ? O_WRONLY | O_CREAT | O_EXCL
                                                    : O_WRONLY | O_CREAT;
    for (;;) {
        const int file = openPatiently(path.c_str(), flags);
        if (file < 0 || !isRegular(file)) return file;
        // Not every file system supports locks: only a lock held elsewhere prevents writing.
        const bool taken = !lock(file, toWrite ? LOCK_EX : LOCK_SH) && errno == EWOULDBLOCK;
        const bool replaced = toWrite && !taken && !isNamed(file, path);
        const bool emptied = access != Access::Truncate || taken || replaced || setSize(file, 0);
        if (!(toWrite && taken) && !replaced && emptied) return file;
        const int error = taken ? EBUSY : errno;
        ::close(file);
        errno = error;
        if (!replaced) return -1;
    }
}

bool isWritable(const std::string& path)
{
    return ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
}

std::uint64_t sizeLimit(int file)
{
    if (!isRegular(file)) return kUnlimited;
    rlimit limit{};
    const bool limited = ::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
    return limited ? std::uint64_t{limit.rlim_cur} : std::uint64_t{INT64_MAX};
}

std::optional<std::uint64_t> regularSize(int file)
{
    struct stat status = {};
    if (::fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return static_cast<std::uint64_t>(status.st_size);
}

bool truncate(int file, std::uint64_t size)
{
    const auto end = static_cast<off_t>(size);
    return isRegular(file) && setSize(file, end) && ::lseek(file, end, SEEK_SET) == end;
}

std::int64_t readTwo(int file, std::span<std::byte> first, std::span<std::byte> second)
{
    const iovec parts[2] = {{first.data(), std::min(first.size(), kMaxTransfer)},
                            {second.data(), first.size() > kMaxTransfer ? 0 : second.size()}};
    return transfer(file, true, [&] { return ::readv(file, parts, 2); });
}

std::int64_t read(int file, void* bytes, std::size_t length)
{
    return transfer(file, true, [&] { return ::read(file, bytes, std::min(length, kMaxTransfer)); });
}

std::int64_t seek(int file, std::uint64_t position)
{
    return ::lseek(file, static_cast<off_t>(position), SEEK_SET);
}

std::int64_t write(int file, const void* bytes, std::size_t length)
{
    return transfer(file, false, [&] { return ::write(file, bytes, std::min(length, kMaxTransfer)); });
}

std::int64_t writeGather(int file, std::span<const std::span<const std::byte>> pieces)
{
    iovec parts[64];
    const std::size_t count = std::min<std::size_t>(pieces.size(), 64);
    for (std::size_t i = 0; i < count; ++i)
        parts[i] = {const_cast<std::byte*>(pieces[i].data()), pieces[i].size()};
    return transfer(file, false, [&] { return ::writev(file, parts, static_cast<int>(count)); });
}

int close(int file)
{
    // On Linux, the file is closed even if the call is interrupted.
    return ::close(file) == 0 || errno == EINTR ? 0 : -1;
}

bool rename(int&, const std::string& from, const std::string& to)
{
    return ::rename(from.c_str(), to.c_str()) == 0;
}

NoPipeSignal::NoPipeSignal(bool needed)
{
    if (!needed) return;
    sigset_t pipe, before;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    blocked_ = ::pthread_sigmask(SIG_BLOCK, &pipe, &before) == 0 && sigismember(&before, SIGPIPE) == 0;
}

NoPipeSignal::~NoPipeSignal()
{
    if (!blocked_) return;
    sigset_t pipe, pending;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    int taken = 0;
    if (sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1) (void)sigwait(&pipe, &taken);
    ::pthread_sigmask(SIG_UNBLOCK, &pipe, nullptr);
}

}  // namespace rawfile

#endif

}  // namespace scansteps
