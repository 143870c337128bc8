// Counts, compares and cleans up the files of jobs.
#include "batch_series.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string_view>

#include "key_hash.h"
#include "library/platform.h"
#include "scansteps/host.h"
#include "scansteps/numbered_name.h"

namespace scansteps::host {

namespace {

namespace fs = std::filesystem;

/// Files of one series that are looked at.
constexpr std::int64_t kMaxFiles = 1000000;

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

// False without such a file. Folders and devices are files without a size of their own.
bool look(const std::string& name, struct stat& status)
{
    return ::stat(name.c_str(), &status) == 0;
}

template <class Visit>
void forEachName(const Series& series, std::int64_t count, Visit visit)
{
    std::string name = series.first;
    for (std::int64_t k = 0; k < std::min(count, kMaxFiles); ++k) {
        visit(name);
        if (advanceName(name, series.step)) break;
    }
}

}  // namespace

NumberedName numbered(const std::string& name)
{
    constexpr int kDigits = 18;  // of a 64-bit number; the ones before stay as they are
    NumberedName result{name, 0};
    std::int64_t place = 1;
    int digits = 0;
    for (auto c = result.shape.rbegin(); c != result.shape.rend() && digits < kDigits; ++c) {
        if (!isDigit(*c)) continue;
        result.number += place * (*c - '0');
        place *= 10;
        ++digits;
        *c = '#';
    }
    return result;
}

std::int64_t SeriesLengths::length(const std::string& first, int step, std::int64_t most)
{
    const NumberedName name = numbered(first);
    const std::int64_t ahead = name.number - last_.number;
    if (step == 1 && name.shape == last_.shape && ahead >= 0 && ahead < lastLength_)
        return std::min(most, lastLength_ - ahead);
    std::int64_t found = 0;
    struct stat status;
    std::string next = first;
    while (found < std::min(most, kMaxFiles) && look(next, status)) {
        ++found;
        if (advanceName(next, step)) break;
    }
    if (step == 1 && found < most) {
        last_ = name;
        lastLength_ = found;
    }
    return found;
}

std::string stateOf(const std::vector<Series>& inputs)
{
    KeyHash hash;
    for (const Series& series : inputs)
        forEachName(series, series.count, [&](const std::string& name) {
            struct stat status = {};
            if (!look(name, status)) return;
            hash.add(name);
            hash.add(fmt::format("{} {} {}", status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec));
        });
    return hash.text();
}

std::int64_t countFiles(const std::vector<Series>& outputs, std::int64_t frames)
{
    std::int64_t count = 0;
    for (const Series& series : outputs)
        forEachName(series, series.counted ? frames : 1, [&](const std::string& name) {
            struct stat status = {};
            if (look(name, status) && (status.st_size > 0 || !S_ISREG(status.st_mode))) ++count;
        });
    return count;
}

// Symbolic links on the way to the file are followed.
std::string OutputRegister::resolved(const std::string& name)
{
    const fs::path path = pathFromUtf8(name);
    const auto [folder, isNew] = folders_.try_emplace(path.parent_path().string());
    if (isNew) {
        std::error_code error;
        const fs::path whole = fs::weakly_canonical(fs::absolute(path, error).parent_path(), error);
        folder->second = utf8FromPath(error ? path.parent_path() : whole);
    }
    return folder->second + "/" + utf8FromPath(path.filename());
}

void OutputRegister::add(std::size_t job, const Series& output)
{
    NumberedName name = numbered(resolved(output.first));
    spans_[std::move(name.shape)].push_back(
        {name.number, name.number + std::max<std::int64_t>(output.counted ? output.count : 1, 1), job,
         output.first});
}

OutputRegister::Clash OutputRegister::find() const
{
    Clash found;
    for (const auto& [shape, given] : spans_) {
        std::vector<Span> spans = given;
        std::stable_sort(spans.begin(), spans.end(),
                         [](const Span& a, const Span& b) { return a.begin < b.begin; });
        const Span* longest = nullptr;  // the one that reaches furthest so far
        for (const Span& span : spans) {
            if (longest != nullptr && span.begin < longest->end && span.job != longest->job) {
                const auto [first, second] = std::minmax(longest->job, span.job);
                if (found.name.empty() || std::pair(first, second) < std::pair(found.first, found.second))
                    found = {first, second, span.name, span.begin == longest->begin};
            }
            if (longest == nullptr || span.end > longest->end) longest = &span;
        }
    }
    return found;
}

// Temporary files that writers of the series left when they were killed.
static void removeLeftovers(const Series& output)
{
    const fs::path path = pathFromUtf8(output.first);
    const std::string file = utf8FromPath(path.filename());
    const NumberedName wanted = numbered(output.first);
    // A model comes with files whose names begin like its own.
    const std::string stem = file.substr(0, file.rfind('.'));
    std::error_code error;
    for (const auto& entry :
         fs::directory_iterator(path.has_parent_path() ? path.parent_path() : fs::path("."), error)) {
        std::string name = utf8FromPath(entry.path().filename());
        while (!name.empty() && isDigit(name.back())) name.pop_back();
        if (!name.ends_with(".part")) continue;
        name.resize(name.size() - 5);
        bool isOurs = name == file;
        if (output.counted) {
            const NumberedName found = numbered(utf8FromPath(path.parent_path() / pathFromUtf8(name)));
            const std::int64_t ahead = found.number - wanted.number;
            isOurs =
                found.shape == wanted.shape && ahead >= 0 && (output.count == 0 || ahead <= output.count);
        } else if (!isOurs) {
            isOurs = !stem.empty() && name.starts_with(stem) && name.size() > stem.size() &&
                     (name[stem.size()] == '.' || name[stem.size()] == '_');
        }
        std::error_code ignored;
        if (isOurs) fs::remove(entry.path(), ignored);
    }
}

void createFolderOf(const std::string& file)
{
    const fs::path folder = pathFromUtf8(file).parent_path();
    std::error_code error;
    if (!folder.empty()) fs::create_directories(folder, error);
    if (error) throw FileError{fmt::format("cannot create {}: {}", utf8FromPath(folder), error.message())};
}

void prepareOutputs(const std::vector<Series>& outputs, bool wasKilled)
{
    for (const Series& output : outputs) {
        createFolderOf(output.first);
        if (wasKilled) removeLeftovers(output);
    }
}

}  // namespace scansteps::host
