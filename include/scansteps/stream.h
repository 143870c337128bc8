// The byte form of parameter records, over abstract byte sinks and sources. Recording files and TCP streams
// are plain concatenations of records in this form: little-endian, no alignment, no file header, no end mark.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "scansteps/record.h"

namespace scansteps {

/// Byte stream.
class BIO
{
  public:
    /// Writes all bytes or throws "write error".
    virtual void write(const void* bytes, std::size_t length) = 0;
    /// Reads exactly `length` bytes or throws "read error".
    virtual void read(void* bytes, std::size_t length) = 0;
    virtual ~BIO() = default;

    /// Writes the pieces one after the other; streams that can do so in one system call override it.
    virtual void writeGather(std::span<const std::span<const std::byte>> pieces);

  protected:
    BIO() = default;
    BIO(const BIO&) = default;
    BIO& operator=(const BIO&) = default;
};

/// What has arrived beyond the bytes that were asked for, kept for the next read.
class ReadAhead
{
  public:
    /// Fills `to` from the buffer and then by calls of `receive(to, length, ahead, aheadLength)`, which puts
    /// bytes into the first place, then the second, and returns their number, or 0 or less at the end.
    /// Returns the number of bytes that `to` has received: `length`, or fewer at the end.
    template <class Receive>
    std::size_t read(std::byte* to, std::size_t length, Receive receive);
    /// Makes sure that a byte is buffered, by one call of `receive(to, length)`; false at the end.
    template <class Receive>
    bool fill(Receive receive);

  private:
    static constexpr std::size_t kSize = 4096;
    std::vector<std::byte> buffer_;
    std::size_t begin_ = 0, end_ = 0;
};

/// Byte stream on a file, opened in binary mode. A file that cannot be opened: isOpen() is false, writing
/// throws "write error" and reading "read error". While a file is read or written through a BIOfs, no other
/// one can write it: opening it fails (on Windows the system sees to it, elsewhere a lock).
class BIOfs : public BIO
{
  public:
    enum class Mode
    {
        Read,
        Write,
        Create,  ///< as Write, but there must be no such file
        Stage,   ///< as Write, but a file keeps what is in it until commit() or close()
    };
    /// `path` is UTF-8 on every system.
    BIOfs(const std::string& path, Mode mode);
    ~BIOfs() override;
    BIOfs(const BIOfs&) = delete;
    BIOfs& operator=(const BIOfs&) = delete;

    /// A write that fails (full disk, limit of the file size) takes back what it has put into a regular file,
    /// so that a file of records ends with a whole one, and closes the file: all later writes fail, too.
    void write(const void* bytes, std::size_t length) override;
    void read(void* bytes, std::size_t length) override;
    void writeGather(std::span<const std::span<const std::byte>> pieces) override;

    bool isOpen() const { return file_ >= 0; }
    const std::string& path() const { return path_; }
    /// True when an input stream stands at the end of its file, so that no further record begins. Throws
    /// "read error" when the file cannot be read there.
    bool atEnd();
    /// Bytes read or written so far.
    std::uint64_t position() const { return position_; }
    /// Closes the file; throws "write error" when the system could not keep what was written, or a staged
    /// file cannot take its name.
    void close();

    /// Gives a staged file its name now. Until then it has a temporary one beside it and is removed by a
    /// write that fails and by the destructor. Devices and pipes are not staged, and neither are files in
    /// folders that take no new ones.
    void commit();
    /// Where a staged file is until it has its name; empty from then on.
    const std::filesystem::path& temporary() const { return temporary_; }
    /// Whether a staged file has still to replace another one.
    bool willReplace() const { return guard_ >= 0; }

    /// Whether the system reported an error; that a file ends too early is none.
    bool failed() const { return error_ != 0; }
    /// What the system said of the last error; "" when there was none.
    std::string reason() const;
    /// Tells the host file and reason (Trouble::FileFailed), then throws "read error" or "write error".
    [[noreturn]] void raise() const;

  private:
    void stage();
    void release() noexcept;
    bool takeName();
    std::int64_t noted(std::int64_t received);

    std::string path_, target_;        // links followed
    std::filesystem::path temporary_;  // where a staged file is now
    int file_ = -1;
    int guard_ = -1;  // holds the lock of the file that will be replaced
    int error_ = 0;   // errno of the last error
    bool isOutput_ = false;
    std::uint64_t position_ = 0;
    std::uint64_t sizeLimit_ = 0;
    ReadAhead ahead_;
};

/// Byte stream in memory: writing appends, reading takes from the front.
class BIOmem : public BIO
{
  public:
    BIOmem() = default;
    explicit BIOmem(std::span<const std::byte> bytes) : bytes_(bytes.begin(), bytes.end()) {}
    void write(const void* bytes, std::size_t length) override;
    void read(void* bytes, std::size_t length) override;

    std::span<const std::byte> bytes() const { return bytes_; }
    std::size_t position() const { return at_; }
    bool atEnd() const { return at_ == bytes_.size(); }

  private:
    std::vector<std::byte> bytes_;
    std::size_t at_ = 0;
};

struct ReadLimits
{
    std::uint64_t maxRecord = UINT64_MAX;  ///< largest size field that is accepted, in bytes
    std::uint64_t maxValues = UINT64_MAX;  ///< most entries and struct elements, counted at every level
};

/// Writes the record in its byte form, in one gathered write; array bytes are not copied. Throws "MustBe pnt
/// " for a struct without payload (also as an element of a struct array), "record nested too deeply" for one
/// that could not be read back, and what the stream throws.
void writeRecord(BIO& sink, const varitype& record);

/// As above, but the entry "handle" is left out and `frame` is written as an array under "data", without a
/// copy of its bytes. Throws "[data] already found" when the record holds "data".
void writeRecordWithFrame(BIO& sink, const varitype& record, const Array& frame);

/// Number of bytes that writeRecord() writes.
std::uint64_t recordSize(const varitype& record);

/// Reads one record. The first array that has the byte size of `spare` takes over its storage, so that a
/// player needs no new memory for every frame. Whatever the bytes are, memory is taken for bytes that have
/// arrived, never for promised ones: for array bytes at most 25 % more and a constant, a small multiple for
/// strings and entries. Throws "Read Error" for bytes that are no well-formed record (a size or count that
/// does not add up, kinds above 13, duplicate keys, nesting deeper than 64) and what the stream throws when
/// it ends.
varitype readRecord(BIO& source, const ReadLimits& limits = {}, Array* spare = nullptr);

/// Limit of nesting in records that are written and read.
inline constexpr int kMaxNesting = 64;

template <class Receive>
bool ReadAhead::fill(Receive receive)
{
    if (begin_ != end_) return true;
    buffer_.resize(kSize);
    const auto received = receive(buffer_.data(), kSize);
    begin_ = 0;
    end_ = received > 0 ? static_cast<std::size_t>(received) : 0;
    return end_ != 0;
}

template <class Receive>
std::size_t ReadAhead::read(std::byte* to, std::size_t length, Receive receive)
{
    std::size_t have = std::min(length, end_ - begin_);
    std::copy_n(buffer_.data() + begin_, have, to);
    begin_ += have;
    while (have != length) {
        buffer_.resize(kSize);
        const auto received = receive(to + have, length - have, buffer_.data(), kSize);
        if (received <= 0) break;
        const auto count = static_cast<std::size_t>(received);
        const std::size_t direct = std::min(count, length - have);
        have += direct;
        begin_ = 0;
        end_ = count - direct;
    }
    return have;
}

}  // namespace scansteps
