// A TIFF file in memory, as libtiff's input or output. Its messages are kept, not printed.
#pragma once

#include <tiffio.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace scansteps::imageio {

class TiffFile
{
  public:
    /// Opens a file for reading; `bytes` must outlive this object. Throws std::bad_alloc. See isOpen().
    explicit TiffFile(std::span<const std::uint8_t> bytes);
    /// Begins a file. Throws std::bad_alloc.
    TiffFile();
    TiffFile(const TiffFile&) = delete;
    TiffFile& operator=(const TiffFile&) = delete;
    ~TiffFile();

    bool isOpen() const { return tiff_ != nullptr; }
    TIFF* get() const { return tiff_; }
    /// The first error message since the last call; empty when there was none.
    std::string takeError();
    /// The written file. To be called once, after which get() is null.
    std::vector<std::uint8_t> finish();

    /// Value of a tag of one number, or its default in TIFF 6.0.
    template <class T>
    T tag(std::uint32_t which) const
    {
        T value{};
        TIFFGetFieldDefaulted(tiff_, which, &value);
        return value;
    }

  private:
    void open(const char* mode, std::uint64_t maxAllocation);
    static TiffFile& of(thandle_t self) { return *static_cast<TiffFile*>(self); }
    static tmsize_t read(thandle_t self, void* to, tmsize_t size);
    static tmsize_t write(thandle_t self, void* from, tmsize_t size);
    static toff_t seek(thandle_t self, toff_t offset, int whence);
    static toff_t size(thandle_t self);
    static int keepError(TIFF*, void* self, const char* where, const char* format, va_list values);

    TIFF* tiff_ = nullptr;
    std::span<const std::uint8_t> input_;
    std::vector<std::uint8_t> output_;
    bool writes_ = false;
    std::uint64_t at_ = 0;
    std::string error_;
};

}  // namespace scansteps::imageio
