// The byte form of parameter records, over abstract byte sinks and sources. Recording files and TCP streams
// are plain concatenations of records in this form: little-endian, no alignment, no file header, no end mark.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
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

/// Byte stream on a file, opened in binary mode. A file that cannot be opened: isOpen() is false, writing
/// throws "write error" and reading "read error".
class BIOfs : public BIO
{
  public:
    enum class Mode
    {
        Read,
        Write
    };
    /// `path` is UTF-8 on every system.
    BIOfs(const std::string& path, Mode mode);
    ~BIOfs() override;
    BIOfs(const BIOfs&) = delete;
    BIOfs& operator=(const BIOfs&) = delete;

    void write(const void* bytes, std::size_t length) override;
    void read(void* bytes, std::size_t length) override;
    void writeGather(std::span<const std::span<const std::byte>> pieces) override;

    bool isOpen() const { return file_ >= 0; }
    bool isOutput() const { return isOutput_; }
    /// True when an input stream stands at the end of its file, so that no further record begins.
    bool atEnd();
    /// Bytes read or written so far.
    std::uint64_t position() const { return position_; }
    /// Closes the file; throws "write error" when the system could not keep what was written.
    void close();

  private:
    std::size_t readSome(void* bytes, std::size_t length);
    void refill();

    int file_ = -1;
    bool isOutput_ = false;
    std::uint64_t position_ = 0;
    std::vector<std::byte> buffer_;  // read ahead
    std::size_t bufferBegin_ = 0, bufferEnd_ = 0;
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
};

/// Writes the record in its byte form, in one gathered write; array bytes are not copied. Throws "MustBe pnt
/// " for a struct without payload (also as an element of a struct array) and what the stream throws.
void writeRecord(BIO& sink, const varitype& record);

/// As above, but the entry "handle" is left out and `frame` is written as an array under "data", without a
/// copy of its bytes. Throws "[data] already found" when the record holds "data".
void writeRecordWithFrame(BIO& sink, const varitype& record, const Array& frame);

/// Number of bytes that writeRecord() writes.
std::uint64_t recordSize(const varitype& record);

/// Reads one record. Whatever the bytes are, memory is taken for bytes that have arrived, never for promised
/// ones: array and string bytes plus at most 25 % and a constant, a small multiple for the entries. Throws
/// "Read Error" for bytes that are no well-formed record (a size or count that does not add up, kinds above
/// 13, duplicate keys, nesting deeper than 64) and what the stream throws when it ends.
varitype readRecord(BIO& source, const ReadLimits& limits = {});

/// Limit of nesting in records read from streams.
inline constexpr int kMaxNesting = 64;

}  // namespace scansteps
