// Checks the files of a run before it begins: missing inputs, and the names that it will read.
#include "files_check.h"

#include <fmt/format.h>

#include "scansteps/file_patterns.h"
#include "scansteps/numbered_name.h"
#include "usage_hints.h"

namespace scansteps::host {

namespace fs = std::filesystem;

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
        if (role == SettingRole::Input && !value && name.empty()) continue;  // reads nothing
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

void checkFiles(const Pipeline& pipeline, const CheckMode& mode, std::vector<Finding>& findings)
{
    FilesCheck(pipeline, mode, findings).run();
}

}  // namespace scansteps::host
