// Files as byte streams: whole writes or none, and one system call a record where the system gathers.
#include <algorithm>

#include "framework/files.h"
#include "scansteps/error.h"
#include "scansteps/stream.h"

namespace scansteps {

namespace {

bool writeAll(int file, std::span<const std::span<const std::byte>> pieces)
{
    std::span<const std::byte> cut;  // what is left of a piece that a short write has cut
    while (!cut.empty() || !pieces.empty()) {
        const auto done =
            cut.empty() ? rawfile::writeGather(file, pieces) : rawfile::write(file, cut.data(), cut.size());
        if (done < 0) return false;
        auto rest = static_cast<std::size_t>(done);
        if (!cut.empty()) {
            if (rest == 0) return false;
            cut = cut.subspan(rest);
            continue;
        }
        const std::size_t before = pieces.size();
        while (!pieces.empty() && rest >= pieces[0].size()) {
            rest -= pieces[0].size();
            pieces = pieces.subspan(1);
        }
        if (rest == 0 && pieces.size() == before) return false;
        if (rest != 0) {
            cut = pieces[0].subspan(rest);
            pieces = pieces.subspan(1);
        }
    }
    return true;
}

}  // namespace

BIOfs::BIOfs(const std::string& path, Mode mode)
    : file_(rawfile::open(path, mode == Mode::Read ? rawfile::Access::Read : rawfile::Access::Truncate)),
      isOutput_(mode == Mode::Write)
{
    if (file_ >= 0 && isOutput_) sizeLimit_ = rawfile::sizeLimit(file_);
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
    const std::span<const std::byte> piece(static_cast<const std::byte*>(bytes), length);
    writeGather({&piece, 1});
}

void BIOfs::writeGather(std::span<const std::span<const std::byte>> pieces)
{
    std::uint64_t length = 0;
    for (const auto piece : pieces) length += piece.size();
    if (file_ < 0 || !isOutput_ || length > sizeLimit_ - std::min(sizeLimit_, position_)) fail("write error");
    const rawfile::NoPipeSignal quiet(sizeLimit_ == rawfile::kUnlimited);
    if (writeAll(file_, pieces))
        position_ += length;
    else {
        rawfile::truncate(file_, position_);
        fail("write error");
    }
}

void BIOfs::read(void* bytes, std::size_t length)
{
    if (file_ < 0 || isOutput_) fail("read error");
    const std::size_t done =
        ahead_.read(static_cast<std::byte*>(bytes), length,
                    [this](std::byte* to, std::size_t count, std::byte* ahead, std::size_t aheadCount) {
                        return rawfile::readTwo(file_, {to, count}, {ahead, aheadCount});
                    });
    position_ += done;
    if (done != length) fail("read error");
}

bool BIOfs::atEnd()
{
    if (file_ < 0 || isOutput_) return true;
    return !ahead_.fill([this](std::byte* to, std::size_t count) { return rawfile::read(file_, to, count); });
}

}  // namespace scansteps
