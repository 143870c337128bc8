// A file that appears under its name only when it is complete: it is written under a temporary name beside
// it, commit() renames. Used by all writers of models and pictures.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <system_error>

namespace scansteps {

class AtomicFile
{
  public:
    /// Bytes gathered before they are written; also the largest room() that can be asked for.
    static constexpr std::size_t kBlock = std::size_t{256} * 1024;

    /// Creates the temporary file, "NAME.part" or with a number after it, which no other process has. Does
    /// not throw when that fails: see isOpen(). A symbolic link is followed, so that its target is replaced.
    /// An existing `path` that is no regular file (a device, a pipe), and one in a folder that takes no new
    /// files, is written directly; one that may not be written counts as not opened. `path` is UTF-8.
    explicit AtomicFile(const std::string& path);
    /// Removes the temporary file unless it was committed.
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    bool isOpen() const { return file_ >= 0; }
    /// As given.
    const std::string& path() const { return path_; }
    /// What the system said when the file could not be opened, written, closed or renamed; empty before that.
    std::string reason() const { return error_ ? error_.message() : std::string(); }

    /// At least `size` (at most kBlock) bytes to write into; advance() tells where the text ended.
    char* room(std::size_t size)
    {
        if (static_cast<std::size_t>(end_ - at_) < size) flush();
        return at_;
    }
    void advance(char* end) { at_ = end; }

    /// These and room() throw a text with name and reason when the system refuses.
    void write(std::string_view text);
    void write(std::span<const std::uint8_t> bytes);

    /// Writes what is left, closes and renames. Throws when the file system refuses any of it, and has
    /// changed nothing then.
    void commit();

    /// Commits files that belong together: all are written and closed before the first is renamed, and when
    /// one cannot be renamed, those before it are put back.
    static void commitTogether(std::span<AtomicFile* const> files);

  private:
    void open();
    void flush();
    void put(const char* data, std::size_t size);
    void finish();
    bool keepPrevious();
    bool rename();
    void undo() noexcept;
    void discard() noexcept;
    [[noreturn]] void refuse() const;

    // Paths are made before the files, so that removing and renaming take no memory.
    std::string path_;
    std::filesystem::path target_;     // where the file ends up
    std::filesystem::path temporary_;  // where it is written; empty when written directly
    std::filesystem::path previous_;   // second name of the file that is replaced, during commitTogether()
    std::error_code error_;
    int file_ = -1;
    bool renamed_ = false;
    std::uint64_t sizeLimit_ = 0, written_ = 0;
    std::unique_ptr<char[]> block_;
    char* at_ = nullptr;
    char* end_ = nullptr;
};

}  // namespace scansteps
