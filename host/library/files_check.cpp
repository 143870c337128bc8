// Checks the files of a run before it begins: missing ones, and those that would be overwritten or both read
// and written.
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

#include "checks.h"
#include "platform.h"
#include "scansteps/file_patterns.h"
#include "scansteps/numbered_name.h"
#include "usage_hints.h"

namespace scansteps::host {

namespace {

namespace fs = std::filesystem;

/// Names of a series that are checked at most, and where the number of frames is unknown.
constexpr std::int64_t kMaxNames = 100000, kUnknown = 10000;

// Resolves symbolic links, so that each file has one path.
class Paths
{
  public:
    fs::path resolved(const fs::path& path)
    {
        std::error_code error;
        if (fs::is_symlink(path, error)) return fs::weakly_canonical(path, error);
        const auto [folder, isNew] = folders_.try_emplace(path.parent_path());
        if (isNew) folder->second = fs::weakly_canonical(fs::absolute(path, error).parent_path(), error);
        return folder->second / path.filename();
    }

  private:
    std::map<fs::path, fs::path> folders_;
};

class Inputs
{
  public:
    explicit Inputs(Paths& paths) : paths_(paths) {}
    void add(const fs::path& path)
    {
        names_.insert(paths_.resolved(path));
        if (hasOtherNames(path)) linked_.push_back(path);
    }
    bool contain(const fs::path& path)
    {
        if (names_.contains(paths_.resolved(path))) return true;
        if (linked_.empty() || !hasOtherNames(path)) return false;
        std::error_code error;
        return std::any_of(linked_.begin(), linked_.end(),
                           [&](const fs::path& input) { return fs::equivalent(input, path, error); });
    }

  private:
    Paths& paths_;
    std::set<fs::path> names_;
    std::vector<fs::path> linked_;
};

class FilesCheck
{
  public:
    FilesCheck(const Pipeline& pipeline, const CheckMode& mode, std::vector<Finding>& findings)
        : pipeline_(pipeline), mode_(mode), findings_(findings), inputs_(paths_)
    {
        if (pipeline.frames > 0) frames_ = std::min(pipeline.frames, kMaxNames);
    }
    void run()
    {
        for (const SettingRole role : {SettingRole::Input, SettingRole::Output}) {
            passing_ = frames_;
            for (std::size_t i = 0; i < pipeline_.steps.size(); ++i) checkStep(i, role);
        }
    }

  private:
    void checkStep(std::size_t i, SettingRole role);
    void checkInput(std::size_t i, const SettingInfo& setting, const std::string& name);
    void checkFirst(std::size_t i, const SettingInfo* setting, const std::string& name);
    void checkPattern(std::size_t i, const std::string& name);
    void passFiles(const std::vector<std::string>& names);
    void checkShownPictures(std::size_t i);
    void checkOutput(std::size_t i, const SettingInfo& setting, const std::string& name);
    void checkTwice(std::size_t i, const std::string& name);
    void checkSeries(std::size_t i, std::string name, bool counted);
    void checkCompanions(std::size_t i, const std::string& name);
    bool checkWrite(std::size_t i, const std::string& name);
    int integer(std::size_t i, const char* path) const;
    void warn(std::size_t i, const std::string& text, ExitCode code = kEnded)
    {
        findings_.push_back({code, stepLabel(pipeline_, i) + " " + text, i});
    }

    const Pipeline& pipeline_;
    const CheckMode& mode_;
    std::vector<Finding>& findings_;
    Paths paths_;
    Inputs inputs_;
    std::map<std::string, std::size_t> writers_;
    std::int64_t overwritten_ = 0;  // by the setting that is checked now
    std::string firstOverwritten_;
    std::int64_t frames_ = kUnknown;   // of the run, where known
    std::int64_t passing_ = kUnknown;  // that reach the step
};

int FilesCheck::integer(std::size_t i, const char* path) const
{
    const SettingInfo* setting = findSetting(*pipeline_.steps[i].info, path);
    const auto value = effectiveValue(pipeline_, i, path);
    if (value && value->kind() == Kind::Int) return value->as<std::int32_t>();
    return setting != nullptr ? int(setting->number) : 0;
}

void FilesCheck::checkStep(std::size_t i, SettingRole role)
{
    const StepInfo& info = *pipeline_.steps[i].info;
    if (role == SettingRole::Input) checkShownPictures(i);
    for (const SettingInfo& setting : info.settings) {
        if (setting.role != role) continue;
        const auto value = effectiveValue(pipeline_, i, setting.path);
        if (value ? value->kind() != Kind::String : setting.required) continue;
        const std::string name = value ? value->as<std::string>() : setting.text;
        if (role == SettingRole::Input)
            checkInput(i, setting, name);
        else
            checkOutput(i, setting, name);
    }
    if (std::string_view(info.kind) == "mfilt") passing_ = std::min<std::int64_t>(passing_, 1);
    if (std::string_view(info.kind) == "clast") passing_ = 0;
}

void FilesCheck::checkFirst(std::size_t i, const SettingInfo* setting, const std::string& name)
{
    std::error_code error;
    if (!fs::exists(pathFromUtf8(name), error)) {
        if (!error) error = std::make_error_code(std::errc::no_such_file_or_directory);
        warn(i,
             fmt::format("cannot read {}: {}{}", name, error.message(),
                         setting != nullptr && setting->counted ? patternHint(name) : ""),
             mode_.strict ? kFileFailed : kEnded);
    }
    inputs_.add(pathFromUtf8(name));
}

// The pictures of a camera "file:NAME0000.jpg@FPS".
void FilesCheck::checkShownPictures(std::size_t i)
{
    if (findSetting(*pipeline_.steps[i].info, "capture.dev_name") == nullptr) return;
    const auto value = effectiveValue(pipeline_, i, "capture.dev_name");
    std::string name = value && value->kind() == Kind::String ? value->as<std::string>() : "";
    if (!name.starts_with("file:")) return;
    name.erase(0, 5);
    const std::size_t rate = name.rfind('@');
    if (rate != std::string::npos &&
        (name.substr(rate) == "@max" ||
         name.find_first_not_of("0123456789.e+-", rate + 1) == std::string::npos))
        name.resize(rate);
    checkFirst(i, nullptr, name);
    std::error_code error;
    for (std::int64_t k = 0; k < kMaxNames && fs::exists(pathFromUtf8(name), error); ++k) {
        const bool wrapped = advanceName(name, 1);
        inputs_.add(pathFromUtf8(name));  // the one that is missing would be shown once it had been written
        if (wrapped) break;
    }
}

void FilesCheck::checkInput(std::size_t i, const SettingInfo& setting, const std::string& name)
{
    if (setting.pattern && isFilePattern(name)) {
        checkPattern(i, name);
        return;
    }
    checkFirst(i, &setting, name);
    if (setting.pattern) passFiles({name});
    if (!setting.counted) return;
    std::error_code error;
    // Existing files and the next name, which would be read if the run wrote it.
    const int step = integer(i, "load.incr"), count = integer(i, "load.count");
    std::int64_t most = pipeline_.frames > 0 ? frames_ : kMaxNames;
    if (count > 0) most = std::min(most, std::int64_t(count) + 1);
    if (effectiveValue(pipeline_, i, "load.one")) most = 1;
    std::int64_t found = 0;
    bool ended = step == 0 && fs::exists(pathFromUtf8(name), error);
    if (ended) found = count > 0 || pipeline_.frames > 0 ? most : kUnknown;
    for (std::string next = name; found < most && !ended; ++found) {
        inputs_.add(pathFromUtf8(next));
        if (!fs::exists(pathFromUtf8(next), error)) break;
        ended = advanceName(next, step);
    }
    frames_ = found;
}

// One frame a file, except for formats whose files may have many pages.
void FilesCheck::passFiles(const std::vector<std::string>& names)
{
    const auto hasPages = [](const std::string& name) {
        const fs::path ending = pathFromUtf8(name).extension();
        return ending == ".tif" || ending == ".tiff" || ending == ".TIF" || ending == ".TIFF";
    };
    if (std::any_of(names.begin(), names.end(), hasPages)) return;
    const auto count = std::int64_t(names.size());
    frames_ = pipeline_.frames > 0 ? std::min(frames_, count) : count;
}

void FilesCheck::checkPattern(std::size_t i, const std::string& name)
try {
    std::error_code error;
    const bool isList = name.starts_with('@');
    // A list may be a pipe, which can be read only once.
    if (isList && !fs::is_regular_file(pathFromUtf8(name.substr(1)), error)) {
        if (!fs::exists(pathFromUtf8(name.substr(1)), error)) matchingFiles(name);
        return;
    }
    const std::vector<std::string> files = matchingFiles(name);
    if (isList) inputs_.add(pathFromUtf8(name.substr(1)));
    for (const std::string& file : files) {
        if (isList && !fs::exists(pathFromUtf8(file), error)) {
            checkFirst(i, nullptr, file);
            break;
        }
        inputs_.add(pathFromUtf8(file));
    }
    passFiles(files);
} catch (const char* text) {
    warn(i, text, mode_.strict ? kFileFailed : kEnded);
}

void FilesCheck::checkTwice(std::size_t i, const std::string& name)
{
    const auto [at, isNew] = writers_.emplace(name, i);
    if (!isNew)
        findings_.push_back({kEnded,
                             fmt::format("{} and {} write the same file {}", stepLabel(pipeline_, at->second),
                                         stepLabel(pipeline_, i), name),
                             i});
}

bool holdsOneOf(std::string_view name, std::string_view words)
{
    while (!words.empty()) {
        const std::string_view word = words.substr(0, words.find(' '));
        if (name.find(word) != std::string_view::npos) return true;
        words.remove_prefix(std::min(words.size(), word.size() + 1));
    }
    return false;
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

}  // namespace

void checkFiles(const Pipeline& pipeline, const CheckMode& mode, std::vector<Finding>& findings)
{
    FilesCheck(pipeline, mode, findings).run();
}

}  // namespace scansteps::host
