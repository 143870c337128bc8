// A file that appears under its name only when it is complete: blocks go to a temporary name beside it,
// commit() renames. Used by all writers of models.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "framework/files.h"

namespace scansteps {

class OutputFile
{
  public:
    /// Bytes gathered before they are written; also the largest room() that can be asked for.
    static constexpr std::size_t kBlock = std::size_t{256} * 1024;

    /// Opens the temporary file. Does not throw when that fails: see isOpen(). An existing `path` that is no
    /// regular file (a device, a pipe), and any where no temporary file can be made, is written directly; one
    /// that may not be written counts as not opened.
    explicit OutputFile(const std::string& path);
    /// Removes the temporary file unless commit() succeeded.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    bool isOpen() const { return file_ != nullptr; }

    /// At least `size` (at most kBlock) bytes to write into; advance() tells where the text ended.
    char* room(std::size_t size)
    {
        if (static_cast<std::size_t>(end_ - at_) < size) flush();
        return at_;
    }
    void advance(char* end) { at_ = end; }

    void write(std::string_view text);
    void write(std::span<const std::uint8_t> bytes);

    /// The file for libraries that write themselves; what was written before is in it.
    std::FILE* stream();

    /// Writes what is left, closes and renames. Throws when the file system refuses any of it.
    void commit();

  private:
    void flush();
    void put(const void* data, std::size_t size);
    void discard();

    std::string path_;       // where the file ends up
    std::string temporary_;  // where it is written; empty when written directly
    File file_;
    std::unique_ptr<char[]> block_;
    char* at_ = nullptr;
    char* end_ = nullptr;
};

}  // namespace scansteps
