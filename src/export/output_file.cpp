#include "export/output_file.h"

#include <cstring>
#include <filesystem>
#include <system_error>

#include "scansteps/error.h"

namespace scansteps {

namespace fs = std::filesystem;

namespace {

fs::path pathOf(const std::string& utf8)
{
    return std::u8string(utf8.begin(), utf8.end());
}

// A link is followed, so that the rename replaces the file and not the link.
std::string targetOf(const std::string& path)
{
    std::error_code error;
    if (!fs::is_symlink(fs::symlink_status(pathOf(path), error))) return path;
    const std::u8string target = fs::weakly_canonical(pathOf(path), error).u8string();
    return error ? path : std::string(target.begin(), target.end());
}

}  // namespace

OutputFile::OutputFile(const std::string& path) : path_(targetOf(path))
{
    std::error_code error;
    const fs::file_status status = fs::status(pathOf(path_), error);
    const bool replaces = fs::is_regular_file(status);
    if (replaces && !openFile(path_, "r+b")) return;
    if (replaces || !fs::exists(status)) temporary_ = path_ + ".part";
    if (!temporary_.empty()) file_ = openFile(temporary_, "wb");
    if (!file_) {  // no file may be made there, or the longer name is too long
        temporary_.clear();
        file_ = openFile(path_, "wb");
    }
    if (!file_) return;
    block_ = std::make_unique_for_overwrite<char[]>(kBlock);
    at_ = block_.get();
    end_ = at_ + kBlock;
}

OutputFile::~OutputFile()
{
    if (file_) discard();
}

void OutputFile::discard()
{
    file_.reset();
    std::error_code ignored;
    if (!temporary_.empty()) fs::remove(pathOf(temporary_), ignored);
}

void OutputFile::put(const void* data, std::size_t size)
{
    if (std::fwrite(data, 1, size, file_.get()) != size) failf("cannot write \"%.900s\"", path_.c_str());
}

void OutputFile::flush()
{
    put(block_.get(), static_cast<std::size_t>(at_ - block_.get()));
    at_ = block_.get();
}

void OutputFile::write(std::string_view text)
{
    if (static_cast<std::size_t>(end_ - at_) < text.size()) flush();
    if (text.size() > kBlock) return put(text.data(), text.size());
    std::memcpy(at_, text.data(), text.size());
    at_ += text.size();
}

void OutputFile::write(std::span<const std::uint8_t> bytes)
{
    write(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

std::FILE* OutputFile::stream()
{
    flush();
    return file_.get();
}

void OutputFile::commit()
{
    flush();
    const bool closed = std::fclose(file_.release()) == 0;
    std::error_code error;
    if (closed && !temporary_.empty()) fs::rename(pathOf(temporary_), pathOf(path_), error);
    if (closed && !error) return;
    discard();
    failf("cannot write \"%.900s\"", path_.c_str());
}

}  // namespace scansteps
