// What differs between the systems: loading a library, where the program lies, paths.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace scansteps::host {

/// A path from UTF-8, as every system's streams take it.
std::filesystem::path pathFromUtf8(const std::string& text);
std::string utf8FromPath(const std::filesystem::path& path);

/// "cannot read a.json: No such file or directory", with the reason that is in errno.
std::string cannot(const char* verb, const std::string& name);

/// Whether the file has further names (hard links).
bool hasOtherNames(const std::filesystem::path& path);
std::filesystem::path executableFolder();
/// Where the libraries of the installation that this program belongs to may lie: beside the program, ../lib,
/// and the multi-arch folder or what else was configured. Only folders that exist, each once.
std::vector<std::filesystem::path> libraryFolders();
std::string environmentVariable(const char* name);
/// The entries of a list like PATH that are not empty.
std::vector<std::string> splitPathList(const std::string& list);

/// A library loaded at run time; closed at the end of its life.
class SharedLibrary
{
  public:
    /// Null when it cannot be loaded; `error` says why.
    static std::unique_ptr<SharedLibrary> open(const std::filesystem::path& path, std::string& error);
    /// The same, of an absolute path: libraries that it needs are also looked for beside it.
    static std::unique_ptr<SharedLibrary> openPlugin(const std::filesystem::path& path, std::string& error);
    ~SharedLibrary();
    SharedLibrary(const SharedLibrary&) = delete;
    SharedLibrary& operator=(const SharedLibrary&) = delete;
    void* symbol(const std::string& name) const;
    const std::filesystem::path& path() const { return path_; }

  private:
    SharedLibrary(void* library, std::filesystem::path path) : library_(library), path_(std::move(path)) {}
    void* library_;
    std::filesystem::path path_;
};
/// "libscansteps.so" or "scansteps.dll".
const char* libraryFileName();

}  // namespace scansteps::host
