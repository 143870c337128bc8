#include "framework/files.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>

#ifdef _WIN32
#include <io.h>
#include <sys/stat.h>
#include <windows.h>
#else
#include <sys/uio.h>
#include <unistd.h>
#endif

namespace scansteps {

// One transfer never exceeds 1 GiB: the systems cut larger ones or take a 32-bit length.
static constexpr std::size_t kMostAtOnce = std::size_t{1} << 30;

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
    const int flags = access == Access::Read ? _O_RDONLY : _O_WRONLY | _O_CREAT | _O_TRUNC;
    return _wopen(widePath(path).c_str(), flags | _O_BINARY, _S_IREAD | _S_IWRITE);
}

std::int64_t read(int file, void* bytes, std::size_t length)
{
    return _read(file, bytes, static_cast<unsigned>(std::min(length, kMostAtOnce)));
}

std::int64_t write(int file, const void* bytes, std::size_t length)
{
    return _write(file, bytes, static_cast<unsigned>(std::min(length, kMostAtOnce)));
}

std::int64_t writeGather(int file, std::span<const std::span<const std::byte>> pieces)
{
    return pieces.empty() ? 0 : write(file, pieces[0].data(), pieces[0].size());
}

int close(int file)
{
    return _close(file);
}

}  // namespace rawfile

#else

File openFile(const std::string& path, const char* mode)
{
    return File(std::fopen(path.c_str(), mode));
}

namespace rawfile {

namespace {
template <class Call>
std::int64_t repeatInterrupted(Call call)
{
    for (;;) {
        const auto result = call();
        if (result >= 0 || errno != EINTR) return result;
    }
}
}  // namespace

int open(const std::string& path, Access access)
{
    const int flags = access == Access::Read ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC;
    return static_cast<int>(repeatInterrupted([&] { return ::open(path.c_str(), flags | O_CLOEXEC, 0666); }));
}

std::int64_t read(int file, void* bytes, std::size_t length)
{
    return repeatInterrupted([&] { return ::read(file, bytes, std::min(length, kMostAtOnce)); });
}

std::int64_t write(int file, const void* bytes, std::size_t length)
{
    return repeatInterrupted([&] { return ::write(file, bytes, std::min(length, kMostAtOnce)); });
}

std::int64_t writeGather(int file, std::span<const std::span<const std::byte>> pieces)
{
    iovec parts[64];
    const std::size_t count = std::min<std::size_t>(pieces.size(), 64);
    for (std::size_t i = 0; i < count; ++i)
        parts[i] = {const_cast<std::byte*>(pieces[i].data()), pieces[i].size()};
    return repeatInterrupted([&] { return ::writev(file, parts, static_cast<int>(count)); });
}

int close(int file)
{
    return ::close(file);
}

}  // namespace rawfile

#endif

}  // namespace scansteps
