// Byte streams in files and in memory, and the byte form of records. Recording files and TCP streams are
// plain concatenations of records in this form: little-endian, without alignment, file header or end marker.
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

    /// Writes the pieces in order; overridden by streams that can do so in one system call.
    virtual void writeGather(std::span<const std::span<const std::byte>> pieces);

  protected:
    BIO() = default;
    BIO(const BIO&) = default;
    BIO& operator=(const BIO&) = default;
};

/// Buffer for bytes that were received beyond those requested.
class ReadAhead
{
  public:
    /// Fills `to` from the buffer, then by calling `receive(to, length, ahead, aheadLength)`, which fills
    /// `to` first, then `ahead`, and returns the number of bytes, or 0 or less at the end of the stream.
    /// Returns the number of bytes stored in `to`: `length`, or fewer at the end of the stream.
    template <class Receive>
    std::size_t read(std::byte* to, std::size_t length, Receive receive);
    /// Ensures that at least one byte is buffered, calling `receive(to, length)` if necessary; false at the
    /// end of the stream.
    template <class Receive>
    bool fill(Receive receive);

  private:
    static constexpr std::size_t kSize = 4096;
    std::vector<std::byte> buffer_;
    std::size_t begin_ = 0, end_ = 0;
};

/// Byte stream on a file, opened in binary mode. If the file cannot be opened, isOpen() is false, writing
/// throws "write error" and reading "read error". While a BIOfs reads or writes a file, opening it for
/// writing through another one fails (by share modes on Windows, by a lock elsewhere).
class BIOfs : public BIO
{
  public:
    enum class Mode
    {
        Read,
        Write,
        Create,  ///< as Write, but fails if the file exists
        Stage,   ///< as Write, but an existing file is kept until commit() or close()
    };
    /// `path` is UTF-8 on every system.
    BIOfs(const std::string& path, Mode mode);
    ~BIOfs() override;
    BIOfs(const BIOfs&) = delete;
    BIOfs& operator=(const BIOfs&) = delete;

    /// If a write fails (disk full, file size limit), a regular file is truncated to its size before the
    /// write, so that it ends with a complete record, and is closed: all later writes fail.
    void write(const void* bytes, std::size_t length) override;
    void read(void* bytes, std::size_t length) override;
    void writeGather(std::span<const std::span<const std::byte>> pieces) override;

    bool isOpen() const { return file_ >= 0; }
    const std::string& path() const { return path_; }
    /// Whether an input stream is at the end of its file. Throws "read error" when the file cannot be read.
    bool atEnd();
    /// Bytes read or written so far.
    std::uint64_t position() const { return position_; }
    /// Continues reading at that position. Throws "read error" for an output stream and where there are no
    /// positions, as in a pipe.
    void seek(std::uint64_t position);
    /// Closes the file. Throws "write error" when the system reports an error for data already written, or
    /// when a staged file cannot be renamed.
    void close();

    /// Renames a staged file to its final name. Until then it has a temporary name in the same folder and is
    /// removed when a write fails and by the destructor. Devices, pipes and files in folders where no file
    /// can be created are not staged.
    void commit();
    /// Path of a staged file until it is committed; empty otherwise.
    const std::filesystem::path& temporary() const { return temporary_; }
    /// Whether a staged file will replace an existing one.
    bool willReplace() const { return guard_ >= 0; }

    /// Whether the system reported an error. A premature end of file does not count.
    bool failed() const { return error_ != 0; }
    /// The system's message for the last error; "" when there was none.
    std::string reason() const;
    /// Notifies the host of file and reason (Trouble::FileFailed), then throws "read error" or "write error".
    [[noreturn]] void raise() const;

  private:
    void stage();
    void release() noexcept;
    bool rename();
    std::int64_t recordError(std::int64_t received);

    std::string path_;
    std::string target_;               // path_ with links resolved, of a staged file
    std::filesystem::path temporary_;  // current path of a staged file
    int file_ = -1;
    int guard_ = -1;  // holds the lock on the file to be replaced
    int error_ = 0;   // errno of the last error
    bool isOutput_ = false;
    std::uint64_t position_ = 0;
    std::uint64_t sizeLimit_ = 0;
    ReadAhead ahead_;
};

/// Byte stream in memory: writing appends, reading consumes from the front.
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
    std::uint64_t maxRecord = UINT64_MAX;  ///< largest accepted size of a record, in bytes
    std::uint64_t maxValues =
        UINT64_MAX;  ///< largest accepted number of entries and struct elements, summed over all levels
};

/// Writes the record in its byte form, with one gathered write and without copying array bytes. Throws
/// "MustBe pnt " for a struct without payload (also one in a struct array), "record nested too deeply" for
/// nesting beyond kMaxNesting, and the errors of the stream.
void writeRecord(BIO& sink, const varitype& record);

/// As above, but omits "handle" and writes `frame` as the array "data", without copying its bytes. Throws
/// "[data] already found" when the record has an entry "data".
void writeRecordWithFrame(BIO& sink, const varitype& record, const Array& frame);

/// Number of bytes that writeRecord() writes.
std::uint64_t recordSize(const varitype& record);

/// Reads one record. The first array that has the byte size of `spare` takes over its storage, so that a
/// player does not allocate memory for every frame. The input is untrusted: memory is allocated in proportion
/// to the bytes that have arrived, not to the sizes claimed (at most 25 % more plus a constant for array
/// bytes, a small multiple for strings and entries). Throws "Read Error" for malformed input (inconsistent
/// sizes or counts, kinds above 13, duplicate keys, nesting deeper than kMaxNesting) and the errors of the
/// stream.
varitype readRecord(BIO& source, const ReadLimits& limits = {}, Array* spare = nullptr);

/// Maximum nesting depth of records, both written and read.
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
