// Buffered reading of files and pipes.
#include "images/input_file.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "core/files.h"

namespace scansteps::images {

InputFile::InputFile(const std::string& path) : file_(rawfile::open(path, rawfile::Access::Read))
{
    if (file_ < 0) error_ = errno;
}

InputFile::~InputFile()
{
    if (file_ >= 0) rawfile::close(file_);
}

std::string InputFile::reason() const
{
    return error_ == 0 ? std::string() : std::generic_category().message(error_);
}

bool InputFile::missing() const
{
    return error_ == ENOENT || error_ == ENOTDIR;
}

std::size_t InputFile::transfer(std::span<std::uint8_t> to)
{
    if (file_ < 0 || error_ != 0 || to.empty()) return 0;
    const std::int64_t got = rawfile::read(file_, to.data(), to.size());
    if (got < 0) error_ = errno;
    const auto count = static_cast<std::size_t>(std::max<std::int64_t>(got, 0));
    transferred_ += count;
    return count;
}

int InputFile::get()
{
    if (at_ == end_) {
        end_ = transfer(buffer_);
        at_ = 0;
        if (end_ == 0) return -1;
    }
    return buffer_[at_++];
}

std::size_t InputFile::read(std::span<std::uint8_t> to)
{
    std::size_t done = std::min(to.size(), end_ - at_);
    std::copy_n(buffer_.data() + at_, done, to.data());
    at_ += done;
    for (std::size_t got = 1; got != 0; done += got) got = transfer(to.subspan(done));
    return done;
}

std::optional<std::uint64_t> InputFile::remaining() const
{
    const auto size = file_ < 0 ? std::nullopt : rawfile::regularSize(file_);
    if (!size) return std::nullopt;
    return *size - std::min(*size, transferred_) + (end_ - at_);
}

std::vector<std::uint8_t> InputFile::readUpTo(std::uint64_t maxBytes)
{
    std::vector<std::uint8_t> bytes;
    // One byte more than expected, so that the end is detected without growing the buffer.
    std::uint64_t room = std::min(maxBytes, remaining().value_or(1 << 16) + 1);
    std::size_t used = 0;
    for (;; room = std::min(maxBytes, 2 * room)) {
        bytes.resize(room);
        used += read(std::span(bytes).subspan(used));
        if (used < room || room == maxBytes) break;
    }
    bytes.resize(used);
    return bytes;
}

std::vector<std::uint8_t> InputFile::readRest(std::uint64_t maxBytes)
{
    std::vector<std::uint8_t> bytes;
    const bool isLong = remaining().value_or(0) > maxBytes;
    if (!isLong) bytes = readUpTo(maxBytes + 1);
    if (isLong || bytes.size() > maxBytes) error_ = EFBIG;
    return bytes;
}

}  // namespace scansteps::images
