// See descriptors.h: one implementation over the calls of each system.
#include "descriptors.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>

#include "platform.h"

#ifdef _WIN32
#include <io.h>
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace scansteps::host::descriptor {

namespace {

// One transfer never exceeds 1 GiB: the systems cut larger ones or take a 32-bit length.
constexpr std::size_t kMaxAtOnce = std::size_t{1} << 30;

template <class Call>
auto repeatInterrupted(Call call)
{
    for (;;) {
        const auto result = call();
        if (result >= 0 || errno != EINTR) return result;
    }
}

}  // namespace

#ifdef _WIN32

static int openToRead(const std::string& path)
{
    return _wopen(pathFromUtf8(path).c_str(), _O_RDONLY | _O_BINARY | _O_NOINHERIT);
}

static std::int64_t readSome(int file, char* bytes, std::size_t count)
{
    return _read(file, bytes, static_cast<unsigned>(count));
}

int open(const std::string& path, bool isNew)
{
    return _wopen(pathFromUtf8(path).c_str(),
                  _O_WRONLY | _O_CREAT | _O_BINARY | _O_NOINHERIT | (isNew ? _O_EXCL : 0),
                  _S_IREAD | _S_IWRITE);
}

int duplicate(int file)
{
    return _dup(file);
}

bool replace(int file, int by)
{
    return _dup2(by, file) == 0;
}

static std::int64_t writeSome(int file, const char* bytes, std::size_t count)
{
    return _write(file, bytes, static_cast<unsigned>(count));
}

bool clear(int file)
{
    return !isRegular(file) || (_chsize_s(file, 0) == 0 && _lseeki64(file, 0, SEEK_SET) == 0);
}

bool isRegular(int file)
{
    return GetFileType(reinterpret_cast<HANDLE>(_get_osfhandle(file))) == FILE_TYPE_DISK;
}

bool isSameFile(int a, int b)
{
    BY_HANDLE_FILE_INFORMATION first, second;
    const auto tell = [](int file, BY_HANDLE_FILE_INFORMATION& information) {
        return GetFileInformationByHandle(reinterpret_cast<HANDLE>(_get_osfhandle(file)), &information) != 0;
    };
    return tell(a, first) && tell(b, second) && first.dwVolumeSerialNumber == second.dwVolumeSerialNumber &&
           first.nFileIndexHigh == second.nFileIndexHigh && first.nFileIndexLow == second.nFileIndexLow;
}

bool close(int file)
{
    return _close(file) == 0;
}

#else

static int openToRead(const std::string& path)
{
    return repeatInterrupted([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC); });
}

static std::int64_t readSome(int file, char* bytes, std::size_t count)
{
    return ::read(file, bytes, count);
}

int open(const std::string& path, bool isNew)
{
    return repeatInterrupted(
        [&] { return ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | (isNew ? O_EXCL : 0), 0666); });
}

int duplicate(int file)
{
    return ::fcntl(file, F_DUPFD_CLOEXEC, 3);
}

bool replace(int file, int by)
{
    return repeatInterrupted([&] { return ::dup2(by, file); }) >= 0;
}

static std::int64_t writeSome(int file, const char* bytes, std::size_t count)
{
    return ::write(file, bytes, count);
}

bool clear(int file)
{
    return !isRegular(file) ||
           (repeatInterrupted([&] { return ::ftruncate(file, 0); }) == 0 && ::lseek(file, 0, SEEK_SET) == 0);
}

bool isRegular(int file)
{
    struct stat status;
    return ::fstat(file, &status) == 0 && S_ISREG(status.st_mode);
}

bool isSameFile(int a, int b)
{
    struct stat first, second;
    return ::fstat(a, &first) == 0 && ::fstat(b, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

bool close(int file)
{
    return ::close(file) == 0 || errno == EINTR;  // closed in either case
}

#endif

std::optional<std::string> readAll(int file)
{
    std::string all;
    for (char block[65536];;) {
        const auto done = repeatInterrupted([&] { return readSome(file, block, sizeof block); });
        if (done < 0) return std::nullopt;
        if (done == 0) return all;
        all.append(block, static_cast<std::size_t>(done));
    }
}

std::optional<std::string> readFile(const std::string& path)
{
    const int file = openToRead(path);
    if (file < 0) return std::nullopt;
    auto text = readAll(file);
    const int error = errno;
    close(file);
    errno = error;
    return text;
}

bool writeAll(int file, std::string_view bytes)
{
    while (!bytes.empty()) {
        const auto done = repeatInterrupted(
            [&] { return writeSome(file, bytes.data(), std::min(bytes.size(), kMaxAtOnce)); });
        if (done <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(done));
    }
    return true;
}

}  // namespace scansteps::host::descriptor
