// Writing to a temporary file, and renaming one file or several together.
#include "core/atomic_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "core/files.h"
#include "core/temporary_name.h"
#include "scansteps/error.h"

namespace scansteps {

namespace fs = std::filesystem;

AtomicFile::AtomicFile(const std::string& path)
    : path_(path),
      target_(followed(fromUtf8(path))),
      block_(std::make_unique_for_overwrite<char[]>(kBlock)),
      at_(block_.get()),
      end_(at_ + kBlock)
{
    open();
    if (file_ >= 0) sizeLimit_ = rawfile::sizeLimit(file_);
}

AtomicFile::~AtomicFile()
{
    discard();
}

void AtomicFile::open()
{
    const fs::file_status status = fs::status(fromUtf8(path_), error_);
    const bool replaces = fs::is_regular_file(status);
    if (replaces && !rawfile::isWritable(path_)) {
        error_ = lastError();
        return;
    }
    if (replaces || !fs::exists(status)) {
        error_ = makeBeside(target_, temporary_, [this](const fs::path& name) {
            file_ = rawfile::open(utf8(name), rawfile::Access::CreateNew);
            return file_ >= 0 ? std::error_code() : lastError();
        });
        std::error_code ignored;
        if (!error_ && replaces) fs::permissions(temporary_, status.permissions() & fs::perms::all, ignored);
        const bool noNewFiles =
            error_ == std::errc::permission_denied || error_ == std::errc::operation_not_permitted;
        if (!replaces || !noNewFiles) return;
    }
    file_ = rawfile::open(path_, rawfile::Access::Truncate);
    error_ = file_ >= 0 ? std::error_code() : lastError();
}

void AtomicFile::discard() noexcept
{
    if (file_ >= 0) rawfile::close(file_);
    file_ = -1;
    std::error_code ignored;
    if (!temporary_.empty()) fs::remove(temporary_, ignored);
    if (!previous_.empty()) fs::remove(previous_, ignored);
    temporary_.clear();
    previous_.clear();
}

void AtomicFile::refuse() const
{
    failf("cannot write \"%.700s\": %.200s", path_.c_str(), reason().c_str());
}

void AtomicFile::put(const char* data, std::size_t size)
{
    const rawfile::NoPipeSignal quiet(sizeLimit_ == rawfile::kUnlimited);
    errno = EBADF;
    bool written = file_ >= 0;
    if (written && size > sizeLimit_ - std::min(sizeLimit_, written_)) {
        errno = EFBIG;
        written = false;
    }
    while (written && size > 0) {
        errno = ENOSPC;  // for a call that writes nothing without reporting an error
        const std::int64_t done = rawfile::write(file_, data, size);
        written = done > 0;
        if (!written) break;
        data += done;
        size -= static_cast<std::size_t>(done);
        written_ += static_cast<std::uint64_t>(done);
    }
    if (written) return;
    error_ = lastError();
    refuse();
}

void AtomicFile::flush()
{
    const auto size = static_cast<std::size_t>(at_ - block_.get());
    at_ = block_.get();
    put(block_.get(), size);
}

void AtomicFile::write(std::string_view text)
{
    if (static_cast<std::size_t>(end_ - at_) < text.size()) flush();
    if (text.size() > kBlock) return put(text.data(), text.size());
    std::memcpy(at_, text.data(), text.size());
    at_ += text.size();
}

void AtomicFile::write(std::span<const std::uint8_t> bytes)
{
    write(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

void AtomicFile::finish()
{
    flush();
    const int file = file_;
    file_ = -1;
    if (rawfile::close(file) == 0) return;
    error_ = lastError();
    refuse();
}

// Keeps the file that rename() will replace under a second name for undo().
bool AtomicFile::keepPrevious()
{
    if (temporary_.empty() || !fs::exists(target_, error_)) return !error_;
    error_ = makeBeside(target_, previous_, [this](const fs::path& name) {
        std::error_code error;
        fs::create_hard_link(target_, name, error);
        if (!error || error == std::errc::file_exists || error == std::errc::filename_too_long) return error;
        fs::copy_file(target_, name, error);  // not every file system supports hard links
        std::error_code ignored;
        if (error && error != std::errc::file_exists) fs::remove(name, ignored);
        return error;
    });
    return !error_;
}

bool AtomicFile::rename()
{
    if (temporary_.empty()) return true;
    fs::rename(temporary_, target_, error_);
    renamed_ = !error_;
    if (renamed_) temporary_.clear();
    return renamed_;
}

void AtomicFile::undo() noexcept
{
    std::error_code ignored;
    if (!renamed_) return;
    if (previous_.empty())
        fs::remove(target_, ignored);
    else
        fs::rename(previous_, target_, ignored);
    previous_.clear();
}

void AtomicFile::commit()
{
    AtomicFile* const self = this;
    commitTogether({&self, 1});
}

void AtomicFile::commitTogether(std::span<AtomicFile* const> files)
{
    if (files.empty()) return;
    for (AtomicFile* file : files) file->finish();
    for (AtomicFile* file : files.first(files.size() - 1))
        if (!file->keepPrevious()) file->refuse();
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (files[i]->rename()) continue;
        for (std::size_t k = i; k-- > 0;) files[k]->undo();
        files[i]->refuse();
    }
    for (AtomicFile* file : files) file->discard();
}

}  // namespace scansteps
