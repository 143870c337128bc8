// The callbacks by which libtiff reads from and writes to memory.
#include "tiff_file.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "picture.h"

namespace scansteps::imageio {

TiffFile::TiffFile(std::span<const std::uint8_t> bytes) : input_(bytes)
{
    // Directories and tables of a file are not larger than the file, strips and tiles not than the picture.
    open("rm", std::max<std::uint64_t>(4 * kBytesAlways, 4 * bytes.size()));
}

TiffFile::TiffFile() : writes_(true)
{
    open("w", 0);
    if (tiff_ == nullptr) throw std::bad_alloc();
}

TiffFile::~TiffFile()
{
    if (tiff_ != nullptr) TIFFClose(tiff_);
}

void TiffFile::open(const char* mode, std::uint64_t maxAllocation)
{
    TIFFOpenOptions* const options = TIFFOpenOptionsAlloc();
    if (options == nullptr) throw std::bad_alloc();
    TIFFOpenOptionsSetErrorHandlerExtR(options, keepError, this);
    TIFFOpenOptionsSetWarningHandlerExtR(
        options, [](TIFF*, void*, const char*, const char*, va_list) { return 1; }, nullptr);
    if (maxAllocation != 0)
        TIFFOpenOptionsSetMaxSingleMemAlloc(options, static_cast<tmsize_t>(maxAllocation));
    tiff_ = TIFFClientOpenExt(
        "TIFF", mode, this, read, write, seek, [](thandle_t) { return 0; }, size, nullptr, nullptr, options);
    TIFFOpenOptionsFree(options);
}

std::string TiffFile::takeError()
{
    return std::exchange(error_, {});
}

std::vector<std::uint8_t> TiffFile::finish()
{
    TIFFClose(std::exchange(tiff_, nullptr));
    return std::move(output_);
}

tmsize_t TiffFile::read(thandle_t self, void* to, tmsize_t size)
{
    TiffFile& file = of(self);
    const std::span<const std::uint8_t> all =
        file.writes_ ? std::span<const std::uint8_t>(file.output_) : file.input_;
    if (size <= 0 || file.at_ >= all.size()) return 0;
    const std::size_t count = std::min<std::size_t>(static_cast<std::size_t>(size),
                                                    all.size() - static_cast<std::size_t>(file.at_));
    std::memcpy(to, all.data() + file.at_, count);
    file.at_ += count;
    return static_cast<tmsize_t>(count);
}

// Must not throw through the library's C code.
tmsize_t TiffFile::write(thandle_t self, void* from, tmsize_t size)
try {
    TiffFile& file = of(self);
    if (!file.writes_ || size <= 0) return size <= 0 ? 0 : -1;
    const auto end = static_cast<std::size_t>(file.at_) + static_cast<std::size_t>(size);
    if (file.output_.size() < end) file.output_.resize(end);
    std::memcpy(file.output_.data() + file.at_, from, static_cast<std::size_t>(size));
    file.at_ = end;
    return size;
} catch (const std::bad_alloc&) {
    return -1;
}

toff_t TiffFile::seek(thandle_t self, toff_t offset, int whence)
{
    TiffFile& file = of(self);
    const toff_t base = whence == SEEK_CUR ? file.at_ : whence == SEEK_END ? size(self) : 0;
    return file.at_ = base + offset;
}

toff_t TiffFile::size(thandle_t self)
{
    const TiffFile& file = of(self);
    return file.writes_ ? file.output_.size() : file.input_.size();
}

int TiffFile::keepError(TIFF*, void* self, const char*, const char* format, va_list values)
try {
    char text[300] = "";
    std::vsnprintf(text, sizeof text, format, values);
    std::string& error = static_cast<TiffFile*>(self)->error_;
    if (error.empty()) error = text;
    return 1;
} catch (const std::bad_alloc&) {
    return 1;
}

}  // namespace scansteps::imageio
