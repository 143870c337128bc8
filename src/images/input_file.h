// Sequential reading of files and pipes. Interrupted and short reads are continued, and errors are kept apart
// from the end of the file.
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
    /// The errno value of a failed open or read, 0 if there was none.
    int error() const { return error_; }
    /// The text of error(), empty if there was none.
    std::string reason() const;
    /// Whether the file does not exist.
    bool missing() const;

    /// The next byte, or -1 at the end or after an error.
    int get();
    /// Puts back the byte that get() returned last.
    void unget() { --at_; }
    /// Returns the number of bytes read: fewer than `to` holds only at the end of the file or after an error.
    std::size_t read(std::span<std::uint8_t> to);
    /// Bytes left in a regular file; nothing for pipes and the like.
    std::optional<std::uint64_t> remaining() const;
    /// Reads at most `maxBytes` bytes; memory grows as they arrive.
    std::vector<std::uint8_t> readUpTo(std::uint64_t maxBytes);
    /// Reads to the end. More than `maxBytes` bytes are an error, "file too large".
    std::vector<std::uint8_t> readRest(std::uint64_t maxBytes);

  private:
    std::size_t transfer(std::span<std::uint8_t> to);

    int file_;
    int error_ = 0;
    std::uint64_t transferred_ = 0;
    std::array<std::uint8_t, 4096> buffer_;
    std::size_t at_ = 0, end_ = 0;  // unread part of the buffer
};

}  // namespace scansteps::images
