// Checks the files that a run writes: names that write nothing, missing folders, files that would be
// overwritten, written twice, or that the run reads.
#include <fmt/format.h>

#include "files_check.h"
#include "scansteps/numbered_name.h"

namespace scansteps::host {

namespace fs = std::filesystem;

namespace {

bool holdsOneOf(std::string_view name, std::string_view words)
{
    while (!words.empty()) {
        const std::string_view word = words.substr(0, words.find(' '));
        if (name.find(word) != std::string_view::npos) return true;
        words.remove_prefix(std::min(words.size(), word.size() + 1));
    }
    return false;
}

// The files beside a model: always `certain`; pages `base`_1.jpg, `base`_2.jpg ... where one does not
// suffice.
struct Companions
{
    std::string base;
    std::vector<std::string> certain;
};

Companions companionsOf(const std::string& name)
{
    for (const char* ending : {".obj", ".OBJ", ".flt", ".FLT"}) {
        const std::size_t at = name.rfind(ending);
        if (at == std::string::npos) continue;
        const std::string base = name.substr(0, at);
        if (ending[1] == 'f' || ending[1] == 'F') return {base, {base + ".jpg"}};
        return {base, {base + ".mtl", base + ".jpg"}};
    }
    return {};
}

}  // namespace

void FilesCheck::checkTwice(std::size_t i, const std::string& name)
{
    const auto [at, isNew] = writers_.emplace(name, i);
    if (!isNew)
        findings_.push_back({kEnded,
                             fmt::format("{} and {} write the same file {}", stepLabel(pipeline_, at->second),
                                         stepLabel(pipeline_, i), name),
                             i});
}

void FilesCheck::checkOutput(std::size_t i, const SettingInfo& setting, const std::string& name)
{
    if (*setting.endings != '\0' && !name.empty() && !holdsOneOf(name, setting.endings)) {
        warn(i, fmt::format("writes nothing, {} = {} has none of the endings {}", setting.path, name,
                            setting.endings));
        return;
    }
    checkTwice(i, name);
    const fs::path folder = pathFromUtf8(name).parent_path();
    std::error_code error;
    if (!folder.empty() && !fs::is_directory(folder, error)) {
        warn(i, fmt::format("cannot write {}: there is no folder {}", name, utf8FromPath(folder)));
        return;
    }
    overwritten_ = 0;
    checkSeries(i, name, setting.counted);
    if (holdsOneOf(".obj", setting.endings)) checkCompanions(i, name);
    if (overwritten_ == 1)
        warn(i, fmt::format("overwrites {}", firstOverwritten_));
    else if (overwritten_ > 1)
        warn(i, fmt::format("overwrites {} files, the first: {}", overwritten_, firstOverwritten_));
}

void FilesCheck::checkCompanions(std::size_t i, const std::string& name)
{
    const Companions companions = companionsOf(name);
    for (const std::string& companion : companions.certain)
        if (!checkWrite(i, companion)) return;
    constexpr int kPages = 100;
    for (int page = 1; page < kPages && !companions.certain.empty(); ++page) {
        const std::string companion = fmt::format("{}_{}.jpg", companions.base, page);
        if (!inputs_.contain(pathFromUtf8(companion))) continue;
        warn(i, fmt::format("may write {}, which the run reads, as a page of texture", companion));
        return;
    }
}

// Notes a file that will be overwritten; false, with a finding, when it is one that the run reads.
bool FilesCheck::checkWrite(std::size_t i, const std::string& name)
{
    const fs::path path = pathFromUtf8(name);
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    const bool isFile = fs::is_regular_file(status);
    if ((isFile || !fs::exists(status)) && inputs_.contain(path)) {
        warn(i,
             fmt::format("would write {}, which the run reads{}", name,
                         mode_.force ? "" : " (--force lets it)"),
             mode_.force ? kEnded : kUsage);
        findings_.back().readsOwnOutput = true;
        return false;
    }
    if (isFile && overwritten_++ == 0) firstOverwritten_ = name;
    return true;
}

void FilesCheck::checkSeries(std::size_t i, std::string name, bool counted)
{
    const std::int64_t most = counted ? passing_ : 1;
    const auto folderOf = [](const std::string& text) { return pathFromUtf8(text).parent_path(); };
    bool wrapped = false, movedOn = false;
    for (std::int64_t k = 0; k < most && !wrapped; ++k) {
        if (!checkWrite(i, name)) return;
        if (k + 1 == most) break;
        const std::string before = name;
        wrapped = incrementName(name);
        if (wrapped) {
            warn(i, name == before ? fmt::format("writes every picture to {}, whose name has no digits", name)
                                   : fmt::format("counts on to {} after {}: earlier pictures are overwritten",
                                                 name, before));
        } else if (!movedOn && folderOf(name) != folderOf(before)) {
            warn(i, fmt::format("counts on to {} after {}, in another folder", name, before));
            movedOn = true;
        }
    }
}

}  // namespace scansteps::host
