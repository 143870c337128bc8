// Names recordings and enforces the limits of the receiver.
#include "receive_store.h"

#include <fmt/format.h>

#include <filesystem>

#include "library/platform.h"
#include "scansteps/host.h"

namespace scansteps::host {

namespace {

// What is no file can be written again: a device, a pipe.
bool isFile(const std::string& name)
{
    std::error_code error;
    const auto status = std::filesystem::status(pathFromUtf8(name), error);
    return std::filesystem::is_regular_file(status) || std::filesystem::is_directory(status);
}

}  // namespace

ReceiveStore::ReceiveStore(const ReceiveOptions& options) : options_(options)
{
    if (options.out.empty()) return;
    const auto folder = pathFromUtf8(options.out).parent_path();
    std::error_code error;
    if (!folder.empty() && !std::filesystem::is_directory(folder, error))
        throw FileError{
            fmt::format("cannot write {}: there is no folder {}", options.out, utf8FromPath(folder))};
    if (!options.force && isFile(options.out))
        throw UsageError{fmt::format("{} exists; --force overwrites it", options.out)};
}

// The name that was given, then the same with -2, -3 and so on before its extension.
std::string ReceiveStore::nameOf(std::uint64_t number) const
{
    if (number == 1) return options_.out;
    auto path = pathFromUtf8(options_.out);
    const std::string stem = utf8FromPath(path.stem()), extension = utf8FromPath(path.extension());
    return utf8FromPath(path.replace_filename(pathFromUtf8(fmt::format("{}-{}{}", stem, number, extension))));
}

std::uint64_t ReceiveStore::reserveLocked()
{
    std::uint64_t number = 1;
    const auto unusable = [&] {
        if (taken_.contains(number)) return true;
        return !options_.out.empty() && !(number == 1 && options_.force) && isFile(nameOf(number));
    };
    while (unusable()) ++number;
    taken_.insert(number);
    return number;
}

std::uint64_t ReceiveStore::reserve()
{
    const std::lock_guard lock(mutex_);
    return reserveLocked();
}

void ReceiveStore::release(std::uint64_t number)
{
    const std::lock_guard lock(mutex_);
    taken_.erase(number);
}

std::unique_ptr<BIOfs> ReceiveStore::create(std::uint64_t& number)
{
    if (options_.out.empty()) return nullptr;
    const std::lock_guard lock(mutex_);
    if (files_ >= options_.maxFiles) throw "the limit --max-files is reached";
    for (;;) {
        const std::string name = nameOf(number);
        const bool exists = std::filesystem::exists(pathFromUtf8(name));
        const bool mayReplace = number == 1 && (options_.force || (exists && !isFile(name)));
        auto file = std::make_unique<BIOfs>(name, mayReplace ? BIOfs::Mode::Stage : BIOfs::Mode::Create);
        if (file->isOpen()) {
            ++files_;
            return file;
        }
        if (mayReplace || !isFile(name))
            throw FileError{fmt::format("cannot write {}: {}", name, file->reason())};
        number = reserveLocked();
    }
}

void ReceiveStore::removeEmpty(const BIOfs& file)
{
    const auto path = pathFromUtf8(file.path());
    std::error_code error;
    if (std::filesystem::is_regular_file(path, error) && std::filesystem::file_size(path, error) == 0)
        std::filesystem::remove(path, error);
}

void ReceiveStore::charge(std::uint64_t bytes)
{
    if (options_.out.empty()) return;
    const std::lock_guard lock(mutex_);
    if (bytes > options_.maxTotal - total_) throw "the limit --max-total is reached";
    total_ += bytes;
}

}  // namespace scansteps::host
