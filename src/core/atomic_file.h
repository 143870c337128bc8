// A file that appears under its name only when it is complete: it is written under a temporary name in the
// same folder and renamed by commit(). Used by all writers of models and pictures.
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
    /// Size of the write buffer in bytes; also the limit of room().
    static constexpr std::size_t kBlock = std::size_t{256} * 1024;

    /// Creates a temporary file named "NAME.part" or "NAME.partN" that did not exist before. Does not throw
    /// on failure: see isOpen(). Symbolic links are followed, so the target of a link is replaced. If `path`
    /// exists and is not a regular file (a device, a pipe), or is in a folder where no file can be created,
    /// it is written directly. A file without write permission counts as not opened. `path` is UTF-8.
    explicit AtomicFile(const std::string& path);
    /// Removes the temporary file unless it was committed.
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    bool isOpen() const { return file_ >= 0; }
    /// As passed to the constructor.
    const std::string& path() const { return path_; }
    /// The system's message when the file could not be opened, written, closed or renamed; otherwise empty.
    std::string reason() const { return error_ ? error_.message() : std::string(); }

    /// Buffer for at least `size` (at most kBlock) bytes. Pass the end of what was written to advance().
    char* room(std::size_t size)
    {
        if (static_cast<std::size_t>(end_ - at_) < size) flush();
        return at_;
    }
    void advance(char* end) { at_ = end; }

    /// Append to the file. These and room() throw a text with name and reason when writing fails.
    void write(std::string_view text);
    void write(std::span<const std::uint8_t> bytes);

    /// Writes buffered bytes, closes the file and renames it. If any of this fails, throws and leaves the
    /// target unchanged.
    void commit();

    /// Commits files that belong together: all are written and closed before the first is renamed; if a
    /// rename fails, the earlier ones are undone.
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

    // Paths are built before the files are created, so that removing and renaming do not allocate.
    std::string path_;
    std::filesystem::path target_;     // path_ with links resolved
    std::filesystem::path temporary_;  // empty when the target is written directly
    std::filesystem::path previous_;   // second name of the replaced file during commitTogether()
    std::error_code error_;
    int file_ = -1;
    bool renamed_ = false;
    std::uint64_t sizeLimit_ = 0, written_ = 0;
    std::unique_ptr<char[]> block_;
    char* at_ = nullptr;
    char* end_ = nullptr;
};

}  // namespace scansteps
