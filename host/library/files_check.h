// The check of the files of a run: its state, and the files that the run reads. files_check.cpp checks
// inputs, files_check_outputs.cpp outputs.
#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "checks.h"
#include "platform.h"

namespace scansteps::host {

/// Names of a series that are checked at most, and where the number of frames is unknown.
inline constexpr std::int64_t kMaxNames = 100000, kUnknown = 10000;

/// Resolves symbolic links, so that each file has one path.
class Paths
{
  public:
    std::filesystem::path resolved(const std::filesystem::path& path)
    {
        std::error_code error;
        if (std::filesystem::is_symlink(path, error)) return std::filesystem::weakly_canonical(path, error);
        const auto [folder, isNew] = folders_.try_emplace(path.parent_path());
        if (isNew)
            folder->second = std::filesystem::weakly_canonical(
                std::filesystem::absolute(path, error).parent_path(), error);
        return folder->second / path.filename();
    }

  private:
    std::map<std::filesystem::path, std::filesystem::path> folders_;
};

/// The files that the run reads.
class Inputs
{
  public:
    explicit Inputs(Paths& paths) : paths_(paths) {}
    void add(const std::filesystem::path& path)
    {
        names_.insert(paths_.resolved(path));
        if (hasOtherNames(path)) linked_.push_back(path);
    }
    bool contain(const std::filesystem::path& path)
    {
        if (names_.contains(paths_.resolved(path))) return true;
        if (linked_.empty() || !hasOtherNames(path)) return false;
        std::error_code error;
        return std::any_of(linked_.begin(), linked_.end(), [&](const std::filesystem::path& input) {
            return std::filesystem::equivalent(input, path, error);
        });
    }

  private:
    Paths& paths_;
    std::set<std::filesystem::path> names_;
    std::vector<std::filesystem::path> linked_;
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

}  // namespace scansteps::host
