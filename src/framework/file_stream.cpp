#include <algorithm>
#include <cstring>

#include "framework/files.h"
#include "scansteps/error.h"
#include "scansteps/stream.h"

namespace scansteps {

namespace {
constexpr std::size_t kReadAhead = 16384;
}

BIOfs::BIOfs(const std::string& path, Mode mode)
    : file_(rawfile::open(path, mode == Mode::Read ? rawfile::Access::Read : rawfile::Access::Truncate)),
      isOutput_(mode == Mode::Write)
{
}

BIOfs::~BIOfs()
{
    if (file_ >= 0) rawfile::close(file_);
}

void BIOfs::close()
{
    if (file_ < 0) return;
    const int result = rawfile::close(file_);
    file_ = -1;
    if (result != 0 && isOutput_) fail("write error");
}

void BIOfs::write(const void* bytes, std::size_t length)
{
    const auto* from = static_cast<const std::byte*>(bytes);
    if (file_ < 0 || !isOutput_) fail("write error");
    while (length != 0) {
        const auto done = rawfile::write(file_, from, length);
        if (done <= 0) fail("write error");
        from += done;
        length -= static_cast<std::size_t>(done);
        position_ += static_cast<std::uint64_t>(done);
    }
}

void BIOfs::writeGather(std::span<const std::span<const std::byte>> pieces)
{
    if (file_ < 0 || !isOutput_) fail("write error");
    while (!pieces.empty()) {
        const auto done = rawfile::writeGather(file_, pieces);
        if (done < 0) fail("write error");
        position_ += static_cast<std::uint64_t>(done);
        auto rest = static_cast<std::size_t>(done);
        while (!pieces.empty() && rest >= pieces[0].size()) {
            rest -= pieces[0].size();
            pieces = pieces.subspan(1);
        }
        if (rest == 0 && done != 0) continue;
        if (done == 0) fail("write error");
        // A piece was cut: the remainder of it goes out alone.
        write(pieces[0].data() + rest, pieces[0].size() - rest);
        pieces = pieces.subspan(1);
    }
}

std::size_t BIOfs::readSome(void* bytes, std::size_t length)
{
    if (file_ < 0 || isOutput_) return 0;
    const auto done = rawfile::read(file_, bytes, length);
    return done > 0 ? static_cast<std::size_t>(done) : 0;
}

void BIOfs::refill()
{
    buffer_.resize(kReadAhead);
    bufferBegin_ = 0;
    bufferEnd_ = readSome(buffer_.data(), buffer_.size());
}

void BIOfs::read(void* bytes, std::size_t length)
{
    auto* to = static_cast<std::byte*>(bytes);
    while (length != 0) {
        if (bufferBegin_ == bufferEnd_ && length >= kReadAhead) {  // large reads go straight to their place
            const std::size_t done = readSome(to, length);
            if (done == 0) fail("read error");
            to += done;
            length -= done;
            position_ += done;
            continue;
        }
        if (bufferBegin_ == bufferEnd_) refill();
        const std::size_t step = std::min(length, bufferEnd_ - bufferBegin_);
        if (step == 0) fail("read error");
        std::memcpy(to, buffer_.data() + bufferBegin_, step);
        bufferBegin_ += step;
        to += step;
        length -= step;
        position_ += step;
    }
}

bool BIOfs::atEnd()
{
    if (bufferBegin_ == bufferEnd_ && !isOutput_) refill();
    return bufferBegin_ == bufferEnd_;
}

}  // namespace scansteps
