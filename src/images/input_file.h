// Files and pipes read from front to end: transfers that were interrupted or cut short are continued, and
// nothing is taken for the end of a file that is an error.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace scansteps::images {

class InputFile
{
  public:
    /// `path` is UTF-8. See isOpen().
    explicit InputFile(const std::string& path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    bool isOpen() const { return file_ >= 0; }
    /// Number of the system's error that kept the file from being opened or read to its end, 0 for none.
    int error() const { return error_; }
    /// Its text, empty for none.
    std::string reason() const;
    /// Whether there is no such file.
    bool missing() const;

    /// The next byte, or -1 where there is none.
    int get();
    /// Steps back over the byte that get() returned last.
    void unget() { --at_; }
    /// Bytes read, fewer than `to` holds only at the end of the file or after an error.
    std::size_t read(std::span<std::uint8_t> to);
    /// Bytes to the end of a regular file; nothing where that cannot be known.
    std::optional<std::uint64_t> remaining() const;
    /// At most that many bytes; memory is taken as they arrive.
    std::vector<std::uint8_t> readUpTo(std::uint64_t most);
    /// Everything to the end. More than `most` bytes are an error, "file too large".
    std::vector<std::uint8_t> readRest(std::uint64_t most);

  private:
    std::size_t transfer(std::span<std::uint8_t> to);

    int file_;
    int error_ = 0;
    std::uint64_t transferred_ = 0;
    std::array<std::uint8_t, 4096> buffer_;
    std::size_t at_ = 0, end_ = 0;  // what of the buffer is still to be read
};

}  // namespace scansteps::images
