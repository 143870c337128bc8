// Files as byte streams. A write is complete or undone; where the system supports gathered writes, a record
// takes one system call.
#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "core/files.h"
#include "core/temporary_name.h"
#include "scansteps/error.h"
#include "scansteps/host_services.h"
#include "scansteps/stream.h"

namespace scansteps {

namespace {

bool writeAll(int file, std::span<const std::span<const std::byte>> pieces)
{
    std::span<const std::byte> cut;  // rest of a piece after a partial write
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

BIOfs::BIOfs(const std::string& path, Mode mode) : path_(path), isOutput_(mode != Mode::Read)
{
    using rawfile::Access;
    if (mode == Mode::Stage) stage();
    if (file_ < 0 && error_ == 0) {
        file_ = rawfile::open(path, mode == Mode::Read     ? Access::Read
                                    : mode == Mode::Create ? Access::CreateNew
                                                           : Access::Truncate);
        if (file_ < 0) error_ = errno;
    }
    if (file_ >= 0 && isOutput_) sizeLimit_ = rawfile::sizeLimit(file_);
}

BIOfs::~BIOfs()
{
    if (file_ >= 0) rawfile::close(file_);
    release();
}

// Leaves the file closed, without an error, if it has to be written directly.
void BIOfs::stage()
{
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::file_status status = fs::status(fromUtf8(path_), error);
    const bool replaces = fs::is_regular_file(status);
    if (!replaces && fs::exists(status)) return;
    const fs::path target = followed(fromUtf8(path_));
    target_ = utf8(target);
    if (replaces && (guard_ = rawfile::open(target_, rawfile::Access::Guard)) < 0) {
        error_ = errno;
        return;
    }
    // Nothing is allocated after the file is created, so nothing can throw before its name is stored.
    error = makeBeside(target, temporary_, [this](const fs::path& name) {
        file_ = rawfile::open(utf8(name), rawfile::Access::CreateNew);
        return file_ >= 0 ? std::error_code() : lastError();
    });
    if (!error) {
        if (replaces) fs::permissions(temporary_, status.permissions() & fs::perms::all, error);
        return;
    }
    release();
    const bool noNewFiles =
        error == std::errc::permission_denied || error == std::errc::operation_not_permitted;
    if (!replaces || !noNewFiles) error_ = error.value();
}

// Releases the lock on the file to be replaced and removes the temporary file.
void BIOfs::release() noexcept
{
    if (guard_ >= 0) rawfile::close(std::exchange(guard_, -1));
    std::error_code ignored;
    if (!temporary_.empty()) std::filesystem::remove(temporary_, ignored);
    temporary_.clear();
}

void BIOfs::commit()
{
    if (file_ < 0) raise();
    if (rename()) return;
    if (file_ >= 0) rawfile::close(std::exchange(file_, -1));
    release();
    raise();
}

bool BIOfs::rename()
{
    if (temporary_.empty()) return true;
    // Another writer may have created the file in the meantime.
    if (guard_ < 0) guard_ = rawfile::open(target_, rawfile::Access::Guard);
    const bool isFree = guard_ >= 0 || errno == ENOENT;
#ifdef _WIN32  // an open file cannot be replaced
    if (guard_ >= 0) rawfile::close(std::exchange(guard_, -1));
#endif
    if (!isFree || !rawfile::rename(file_, utf8(temporary_), target_)) {
        error_ = errno;
        return false;
    }
    temporary_.clear();
    release();
    return true;
}

void BIOfs::close()
{
    if (file_ < 0) return;
    const int result = rawfile::close(std::exchange(file_, -1));
    if (result != 0 && isOutput_) error_ = errno;
    if (error_ == 0 && rename()) return;
    release();
    if (isOutput_) raise();
}

std::string BIOfs::reason() const
{
    if (error_ == 0) return "";
    if (error_ == EBUSY) return "in use by another step or program";
    return std::generic_category().message(error_);
}

void BIOfs::raise() const
{
    notifyHost(Trouble::FileFailed, "", path_.c_str(),
               !isOutput_ && !failed() ? "unexpected end of file" : reason().c_str());
    fail(isOutput_ ? "write error" : "read error");
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
    if (!isOutput_) fail("write error");
    if (file_ < 0) raise();
    const bool fits = length <= sizeLimit_ - std::min(sizeLimit_, position_);
    {
        const rawfile::NoPipeSignal quiet(sizeLimit_ == rawfile::kUnlimited);
        errno = fits ? 0 : EFBIG;
        if (fits && writeAll(file_, pieces)) {
            position_ += length;
            return;
        }
        error_ = errno != 0 ? errno : ENOSPC;
    }
    rawfile::truncate(file_, position_);
    rawfile::close(std::exchange(file_, -1));
    release();
    raise();
}

void BIOfs::read(void* bytes, std::size_t length)
{
    if (isOutput_) fail("read error");
    if (file_ < 0) raise();
    const std::size_t done =
        ahead_.read(static_cast<std::byte*>(bytes), length,
                    [this](std::byte* to, std::size_t count, std::byte* ahead, std::size_t aheadCount) {
                        return recordError(rawfile::readTwo(file_, {to, count}, {ahead, aheadCount}));
                    });
    position_ += done;
    if (done != length) raise();
}

void BIOfs::seek(std::uint64_t position)
{
    if (isOutput_) fail("read error");
    if (file_ < 0 || recordError(rawfile::seek(file_, position)) < 0) raise();
    ahead_ = {};
    position_ = position;
}

bool BIOfs::atEnd()
{
    if (file_ < 0 || isOutput_) return true;
    const bool more = ahead_.fill(
        [this](std::byte* to, std::size_t count) { return recordError(rawfile::read(file_, to, count)); });
    if (!more && failed()) raise();
    return !more;
}

std::int64_t BIOfs::recordError(std::int64_t received)
{
    error_ = received < 0 ? errno : 0;
    return received;
}

}  // namespace scansteps
